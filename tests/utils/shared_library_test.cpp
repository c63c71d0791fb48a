#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "kel/utils/shared_library.hpp"

namespace {

namespace fs = std::filesystem;
using kel::utils::get_symbol;
using kel::utils::load_shared_object;
using testing::HasSubstr;
using testing::StartsWith;

const fs::path kPlugin = fs::path(KEL_OUTPUT_DIR) / "libkel_test_plugin_lib.so";

// True while the library at path is mapped into the process.
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

// Runs the test from a scratch directory and returns to where it was.
class LoadSharedObjectInScratchDirectory : public testing::Test {
protected:
    void SetUp() override {
        previous_ = fs::current_path();
        dir_ = fs::temp_directory_path() / ("kel-loader-" + std::to_string(::getpid()));
        fs::remove_all(dir_);
        fs::create_directories(dir_);
        fs::current_path(dir_);
    }
    void TearDown() override {
        fs::current_path(previous_);
        fs::remove_all(dir_);
    }
    fs::path previous_, dir_;
};

TEST(LoadSharedObject, ResolvesAnExportAndFreesTheLibraryWithItsLastOwner) {
    ASSERT_FALSE(isLoaded(kPlugin));
    auto library = load_shared_object(kPlugin.wstring());
    auto answer = reinterpret_cast<int (*)()>(get_symbol(library, "kel_test_plugin_answer"));
    EXPECT_EQ(answer(), 42);
    auto second_owner = library;
    library.reset();
    EXPECT_TRUE(isLoaded(kPlugin));
    second_owner.reset();
    EXPECT_FALSE(isLoaded(kPlugin));
}

TEST(LoadSharedObject, FailuresCarryTheirTexts) {
    EXPECT_EQ(errorOf([] { load_shared_object(L"/nonexistent/libnothing.so"); }),
              "/nonexistent/libnothing.so not exists.");

    const fs::path text = fs::temp_directory_path() / ("kel-not-a-library-" + std::to_string(::getpid()) + ".so");
    std::ofstream(text) << "just text\n";
    EXPECT_EQ(errorOf([&] { load_shared_object(text.wstring()); }),
              text.string() + " file is not a valid DLL. load_shared_object failed.");
    fs::remove(text);

    auto library = load_shared_object(kPlugin.wstring());
    EXPECT_THAT(errorOf([&] { get_symbol(library, "kel_no_such_export"); }),
                AllOf(StartsWith("GetProcAddress cannot locate method 'kel_no_such_export': "),
                      HasSubstr("undefined symbol: kel_no_such_export")));
    EXPECT_EQ(errorOf([] { get_symbol(nullptr, "kel_test_plugin_answer"); }),
              "shared_library_handle_object is empty. Please check load kel step.");
}

TEST(LoadSharedObject, HostLoaderGetsTheAbsolutePathAndItsFailureIsReported) {
    std::wstring asked;
    auto library = load_shared_object(kPlugin.wstring(), [&](const wchar_t* path) {
        asked = path;
        return dlopen(kPlugin.c_str(), RTLD_NOW | RTLD_LOCAL);
    });
    EXPECT_EQ(asked, kPlugin.wstring());
    EXPECT_NE(get_symbol(library, "kel_test_plugin_answer"), nullptr);

    const std::string cwd = fs::current_path().string();
    EXPECT_EQ(errorOf([] {
                  load_shared_object(kPlugin.wstring(), [](const wchar_t*) {
                      return dlopen("/nonexistent/libx.so", RTLD_NOW);
                  });
              }),
              "Cannot load library '" + kPlugin.string() +
                  "': /nonexistent/libx.so: cannot open shared object file: No such file or directory"
                  " from cwd: " + cwd);
}

TEST_F(LoadSharedObjectInScratchDirectory, BareNameIsNeverLoadedFromTheCurrentDirectory) {
    fs::copy_file(kPlugin, dir_ / "libkel_bare.so");
    EXPECT_THAT(errorOf([] { load_shared_object(L"libkel_bare.so"); }),
                AllOf(StartsWith("Cannot load library 'libkel_bare.so': "),
                      testing::EndsWith(" from cwd: " + dir_.string())));
    EXPECT_FALSE(isLoaded(dir_ / "libkel_bare.so"));

    // Nor through the library search path, where the program's own RUNPATH would find it.
    EXPECT_EQ(errorOf([] { load_shared_object(L"libkel_test_plugin_lib.so"); }),
              "libkel_test_plugin_lib.so not exists.");
    EXPECT_FALSE(isLoaded(kPlugin));
}

TEST_F(LoadSharedObjectInScratchDirectory, RelativePathIsLoadedFromWhereItPoints) {
    fs::create_directories(dir_ / "plugins");
    fs::copy_file(kPlugin, dir_ / "plugins/libkel_relative.so");
    auto library = load_shared_object(L"./plugins/libkel_relative.so");
    Dl_info info{};
    ASSERT_NE(dladdr(get_symbol(library, "kel_test_plugin_answer"), &info), 0);
    EXPECT_EQ(fs::path(info.dli_fname), dir_ / "plugins/libkel_relative.so");
}

}  // namespace
