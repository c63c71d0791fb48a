// A plugin model library removed or replaced (a new file at its path, as installers do)
// between registration and network creation: registration keeps the library loaded, so the
// network is made from the model that was registered, and the new file is judged only when
// it is registered itself.
#include <functional>

#include "tests/faults/faults.hpp"

namespace t = kel::test;

namespace {

TEST(PluginLibraries, RemovedOrReplacedAfterRegistrationTheRegisteredModelStillServes) {
    t::TempDir scratch;
    const std::filesystem::path path = scratch / "libmodel.so";
    auto replaceWith = [&](const std::string& bytes) {
        std::filesystem::remove(path);
        t::writeFile(path, bytes);
    };
    const std::vector<std::pair<const char*, std::function<void()>>> cases{
        {"removed", [&] { std::filesystem::remove(path); }},
        {"replaced by another model", [&] { replaceWith(t::readFile(t::pluginLibrary("kel_pm_windowsml_two_io"))); }},
        {"replaced by junk", [&] { replaceWith("not a library"); }},
    };
    t::EngineWithEarlierNetwork fixture;
    for (const auto& [what, fault] : cases) {
        SCOPED_TRACE(what);
        std::filesystem::copy_file(t::pluginLibrary("kel_pm_openvino_static"), path,
                                   std::filesystem::copy_options::overwrite_existing);
        fixture.engine.registerModelAsInnerID("model", path);
        fault();
        fixture.engine.createNetwork("OpenVINO", "from-plugin", "CPU", std::string("model"), {});
        fixture.expectWorksThenRemove("from-plugin");
        fixture.engine.unregisterInnerID("model");
        fixture.expectUntouched();
    }
    // The junk now at the path is refused when it is registered.
    t::expectRefusals({{[&] { fixture.engine.registerModelAsInnerID("junk", path); },
                        "register model file " + path.string() + " is not a valid shared library."}});
    fixture.expectUntouched();
}

}  // namespace
