// The Linux loader: dlopen on absolute paths only (never the current directory nor the search
// path), and each refusal's text. Loading and freeing plugins is the facade's plugin-model test.
#include <dlfcn.h>
#include <gmock/gmock.h>

#include "kel/utils/shared_library.hpp"
#include "tests/support/models.hpp"

namespace {

namespace fs = std::filesystem;
using kel::utils::getSymbol;
using kel::utils::load_shared_object;

const fs::path kPlugin = kel::test::pluginLibrary("kel_pm_openvino_static");

// From a scratch current directory holding a copy of the library.
TEST(LoadSharedObject, LoadsByPathOnlyAndRefusesWithItsTexts) {
    const fs::path previous = fs::current_path();
    kel::test::TempDir dir;
    fs::copy_file(kPlugin, dir / "libkel_copy.so");
    fs::current_path(dir.path());
    const std::string cwd = " from cwd: " + dir.path().string();
    auto library = load_shared_object(kPlugin.wstring());
    std::wstring asked;
    const auto failing = [&](const wchar_t* path) {
        asked = path;
        return dlopen("/nonexistent/x.so", RTLD_NOW);
    };
    const std::pair<std::function<void()>, std::string> cases[] = {  // {call, text}
        // The program's own RUNPATH would find this name beside it.
        {[] { load_shared_object(L"libkel_pm_openvino_static.so"); }, "libkel_pm_openvino_static.so not exists."},
        {[] { load_shared_object(L"libkel_copy.so"); },
         "Cannot load library 'libkel_copy.so': libkel_copy.so: a name without a directory is not "
         "searched for" + cwd},
        {[&] { load_shared_object(L"./libkel_copy.so", failing); },
         "Cannot load library './libkel_copy.so': /nonexistent/x.so: cannot open shared object file: No such file "
         "or directory" + cwd},
        {[&] { getSymbol(library, "kel_no_such_export"); },
         "GetProcAddress cannot locate method 'kel_no_such_export': " + kPlugin.string() +
             ": undefined symbol: kel_no_such_export"},
    };
    for (const auto& [call, text] : cases) EXPECT_EQ(kel::test::thrownText(call), text);
    // A relative path with a directory is taken from where it points, and passed on absolute.
    EXPECT_EQ(fs::path(asked), dir / "libkel_copy.so");
    fs::current_path(previous);
}

}  // namespace
