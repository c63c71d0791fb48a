#pragma once
// Small helpers shared by the test programs.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "kel/c/kel.h"
#include "kel/cxx/KELException.hpp"

namespace kel::test {

// A fresh directory under the system temporary directory, removed with its contents.
class TempDir {
public:
    TempDir() {
        std::random_device rd;
        path_ = std::filesystem::temp_directory_path() /
                ("kel-test-" + std::to_string(rd()) + "-" + std::to_string(rd()));
        std::filesystem::create_directories(path_);
    }
    ~TempDir() {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

inline void writeFile(const std::filesystem::path& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

inline std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Where libkel.so, the programs and the staged runtime libraries are.
inline std::filesystem::path outputDir() { return KEL_OUTPUT_DIR; }
inline std::filesystem::path dataDir() { return KEL_TEST_DATA_DIR; }

// The what() text of the exception `f` throws, or "" when it throws nothing.
template <class F>
std::string thrownText(F&& f) {
    try {
        f();
    } catch (const std::exception& e) {
        return e.what();
    }
    return {};
}

// Calls, each with a line its exception's text must hold.
using Refusals = std::vector<std::pair<std::function<void()>, std::string>>;
inline void expectRefusals(const Refusals& rows) {
    for (const auto& [call, line] : rows) {
        const std::string text = thrownText(call);
        EXPECT_NE(text.find("\n" + line + "\n"), std::string::npos) << "wanted: " << line << "\nthrown: " << text;
    }
}

// Everything written to standard error while `f` runs; an exception from `f` passes on.
template <class F>
std::string capturedStderr(F&& f) {
    testing::internal::CaptureStderr();
    try {
        f();
    } catch (...) {
        testing::internal::GetCapturedStderr();
        throw;
    }
    return testing::internal::GetCapturedStderr();
}

// The handle's pending error text, left pending; empty when there is none.
inline std::string pendingText(void* handle) {
    std::uint64_t n = 0;
    if (kelGetExceptionStringLength(handle, &n) != 0) return {};
    std::string text(n, '\0');
    kelGetExceptionString(handle, text.data());
    return text;
}

// The handle's pending text, cleared.
inline std::string takeText(void* handle) {
    std::string text = pendingText(handle);
    kelResetExceptionString(handle);
    return text;
}

// The message of the KELException that `call` throws, which must come from `file`.
template <class F>
std::string kelMessageFrom(const char* file, F&& call) {
    try {
        call();
    } catch (const KELException& e) {
        EXPECT_STREQ(e.location().file_name(), file);
        const std::string text = e.what();
        const auto start = text.find('\n');
        return text.substr(start + 1, text.size() - start - 2);
    }  // any other exception fails the test where it is caught
    ADD_FAILURE() << "nothing thrown";
    return {};
}

}  // namespace kel::test
