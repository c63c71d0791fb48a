#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "kel/utils/shared_library.hpp"

namespace {

namespace fs = std::filesystem;
using kel::utils::get_symbol;
using kel::utils::load_shared_object;
using testing::StartsWith;

const fs::path kPlugin = fs::path(KEL_OUTPUT_DIR) / "libkel_test_plugin_lib.so";

bool isLoaded(const fs::path& path) {
    void* h = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (h) dlclose(h);
    return h != nullptr;
}

template <class F>
std::string errorOf(F&& f) {
    try {
        f();
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "(no error)";
}

TEST(LoadSharedObject, ResolvesAnExportAndFreesTheLibraryWithItsLastOwner) {
    ASSERT_FALSE(isLoaded(kPlugin));
    auto library = load_shared_object(kPlugin.wstring());
    EXPECT_EQ(reinterpret_cast<int (*)()>(get_symbol(library, "kel_test_plugin_answer"))(), 42);
    auto second_owner = library;
    library.reset();
    EXPECT_TRUE(isLoaded(kPlugin));
    second_owner.reset();
    EXPECT_FALSE(isLoaded(kPlugin));
}

TEST(LoadSharedObject, FailuresCarryTheirTexts) {
    EXPECT_EQ(errorOf([] { load_shared_object(L"/nonexistent/libnothing.so"); }),
              "/nonexistent/libnothing.so not exists.");
    const fs::path text = fs::temp_directory_path() / ("kel-text-" + std::to_string(::getpid()) + ".so");
    std::ofstream(text) << "just text\n";
    EXPECT_EQ(errorOf([&] { load_shared_object(text.wstring()); }),
              text.string() + " file is not a valid DLL. load_shared_object failed.");
    fs::remove(text);

    auto library = load_shared_object(kPlugin.wstring());
    EXPECT_EQ(errorOf([&] { get_symbol(library, "kel_no_such_export"); }),
              "GetProcAddress cannot locate method 'kel_no_such_export': " + kPlugin.string() +
                  ": undefined symbol: kel_no_such_export");
    EXPECT_EQ(errorOf([] { get_symbol(nullptr, "kel_test_plugin_answer"); }),
              "shared_library_handle_object is empty. Please check load kel step.");
    // A host loader's failure is reported with the platform's error text.
    EXPECT_EQ(errorOf([] {
                  load_shared_object(kPlugin.wstring(), [](const wchar_t*) {
                      return dlopen("/nonexistent/x.so", RTLD_NOW);
                  });
              }),
              "Cannot load library '" + kPlugin.string() +
                  "': /nonexistent/x.so: cannot open shared object file: No such file or directory"
                  " from cwd: " +
                  fs::current_path().string());
}

// From a scratch current directory holding a copy of the library.
TEST(LoadSharedObject, CurrentDirectoryAndSearchPathAreNeverSearched) {
    const fs::path previous = fs::current_path();
    const fs::path dir = fs::temp_directory_path() / ("kel-loader-" + std::to_string(::getpid()));
    fs::create_directories(dir / "plugins");
    fs::copy_file(kPlugin, dir / "plugins/libkel_copy.so", fs::copy_options::overwrite_existing);
    fs::current_path(dir / "plugins");

    EXPECT_EQ(errorOf([] { load_shared_object(L"libkel_copy.so"); }),
              "Cannot load library 'libkel_copy.so': libkel_copy.so: a name without a directory is "
              "not searched for from cwd: " + (dir / "plugins").string());
    EXPECT_FALSE(isLoaded(dir / "plugins/libkel_copy.so"));
    // The program's own RUNPATH would find this name beside it.
    EXPECT_EQ(errorOf([] { load_shared_object(L"libkel_test_plugin_lib.so"); }),
              "libkel_test_plugin_lib.so not exists.");

    // A relative path with a directory is taken from where it points, and passed on absolute.
    fs::current_path(dir);
    std::wstring asked;
    auto library = load_shared_object(L"./plugins/libkel_copy.so", [&](const wchar_t* path) {
        asked = path;
        return dlopen(fs::path(path).c_str(), RTLD_NOW | RTLD_LOCAL);
    });
    EXPECT_EQ(fs::path(asked), dir / "plugins/libkel_copy.so");
    EXPECT_TRUE(isLoaded(dir / "plugins/libkel_copy.so"));
    library.reset();
    fs::current_path(previous);
    fs::remove_all(dir);
}

}  // namespace
