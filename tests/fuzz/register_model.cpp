// Registering a plugin model from a file of arbitrary bytes: anything that is not a shared
// library image is refused before the loader sees it, and the engine stays usable.
//
// Files that pass the image check are handed to a loader that records the call and loads
// nothing: the system's dynamic loader trusts the images it maps (a plugin library is trusted
// code), so mutated ELF files are not fed to dlopen here.
#include <string>

#include "kel/cxx/KELException.hpp"
#include "kel/cxx/MLEngine.hpp"
#include "kel/utils/platform.hpp"
#include "kel/utils/shared_library.hpp"
#include "tests/fuzz/fuzz.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static kel::MLEngine engine;
    const auto& path = kel::fuzz::scratchFile(".so");
    kel::fuzz::writeScratch(path, data, size);

    if (!kel::utils::checkLibraryImage(path.wstring())) {
        bool refused = false;
        try {
            engine.registerModelAsInnerID("fuzz", path);
        } catch (const kel::KELException& e) {
            refused = std::string(e.what()).find("is not a valid shared library") != std::string::npos;
        }
        KEL_FUZZ_CHECK(refused);
    } else {
        bool loaderCalled = false;
        bool failed = false;
        try {
            kel::utils::load_shared_object(path.wstring(), [&](const wchar_t*) -> void* {
                loaderCalled = true;
                return nullptr;
            });
        } catch (const std::exception&) {
            failed = true;
        }
        KEL_FUZZ_CHECK(loaderCalled && failed);
    }
    KEL_FUZZ_CHECK(engine.getModelInnerIDs("OpenVINO").empty());
    KEL_FUZZ_CHECK(engine.getModelInnerIDs("WindowsML").empty());
    return 0;
}
