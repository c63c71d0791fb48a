// The temporary directory, where each OpenVINO network's plugins list is written for the
// moment its core is made: missing, not writable, or full.
#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "tests/faults/faults.hpp"

namespace t = kel::test;

namespace {

// A disk that fills up: writes to files under this directory fail with ENOSPC once the
// budget is spent (a partial write first, as a real disk gives).
std::string g_fullDirectory;
std::atomic<long> g_budget{0};

bool underFullDirectory(int fd) {
    if (g_fullDirectory.empty()) return false;
    char target[4096];
    const ssize_t n = readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), target, sizeof target - 1);
    return n > 0 && std::string(target, n).rfind(g_fullDirectory + "/", 0) == 0;
}

}  // namespace

// Every ::write of this process passes here, kel's included.
extern "C" ssize_t write(int fd, const void* buffer, size_t size) {
    using Write = ssize_t (*)(int, const void*, size_t);
    static const Write real = reinterpret_cast<Write>(dlsym(RTLD_NEXT, "write"));
    if (underFullDirectory(fd)) {
        const long left = g_budget.fetch_sub(static_cast<long>(size));
        if (left <= 0) {
            errno = ENOSPC;
            return -1;
        }
        size = std::min(size, static_cast<size_t>(left));
    }
    return real(fd, buffer, size);
}

namespace {

struct TempCase {
    const char* what;
    std::string tmpdir;
    long budget;          // bytes the disk takes; -1: not full
    std::string message;  // what the error says
};

TEST(TemporaryDirectory, AFailingOneEndsTheCreationCleanly) {
    t::TempDir scratch;
    const std::string full = (scratch / "full").string();
    std::filesystem::create_directory(full);
    const std::vector<TempCase> cases{
        {"missing", (scratch / "gone").string(), -1, "filesystem error: temp_directory_path: No such file or directory"},
        {"a file", t::openvinoModel("static.xml").string(), -1, "filesystem error: temp_directory_path: Not a directory"},
        // /proc takes no new files, not even from root.
        {"not writable", "/proc", -1, "Could not open file at /proc/"},
        {"full", full, 0, "Could not open file at " + full + "/"},
        {"full after ten bytes", full, 10, "Could not open file at " + full + "/"},
    };
    t::EngineWithEarlierNetwork fixture;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        t::ScopedEnv tmpdir("TMPDIR", c.tmpdir);
        g_fullDirectory = c.budget >= 0 ? full : "";
        g_budget = c.budget;
        const std::string text = t::thrownText([&] { fixture.engine.createNetwork("OpenVINO", "new", "CPU", t::staticIr(), {}); });
        g_fullDirectory.clear();
        EXPECT_NE(text.find(c.message), std::string::npos) << text;
        fixture.expectUntouched();
    }
    EXPECT_EQ(t::filesUnder(full), std::vector<std::filesystem::path>{}) << "a half-written plugins list was left";
}

}  // namespace
