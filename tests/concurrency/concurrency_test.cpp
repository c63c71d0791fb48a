// Several hosts' threads, each with a handle of its own, running whole requests at once on
// both engines while the device information is gathered: every thread gets exactly what one
// thread alone gets. Run under ThreadSanitizer by scripts/test.sh.
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <thread>

#include "kel/cxx/test_hooks.hpp"
#include "tests/concurrency/road.hpp"

namespace t = kel::test;

namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 3;

// Holds the gathering thread back until released, so requests run while it is pending.
class HeldBackGathering {
public:
    explicit HeldBackGathering(std::vector<kel::DeviceDriverInfo> rows = {}) {
        std::shared_future<void> gate = release_.get_future().share();
        kel::device_info::restartForTesting([gate, rows](const std::string&) {
            gate.wait();
            return rows;
        });
    }
    ~HeldBackGathering() { release(); }
    void release() {
        if (!released_.exchange(true)) release_.set_value();
    }

private:
    std::promise<void> release_;
    std::atomic<bool> released_{false};
};

// The log callback has no user data: each host thread finds its own slot by a thread-local
// index, and a line delivered on any other thread is counted as foreign.
thread_local int t_host = -1;
std::vector<std::vector<std::string>> g_lines(kThreads);
std::atomic<int> g_foreignLines{0};
void collectLine(const char* line) {
    if (t_host < 0) ++g_foreignLines;
    else g_lines[t_host].emplace_back(line);
}

// Asks for the devices and for a network on every device kind. The GPU and NPU creations
// wait for the device information; whether they succeed depends on the machine.
void askForDevices(void* handle, const t::RoadModel& m, const std::string& suffix, std::vector<std::string>& failures) {
    if (kelGetSupportDeviceNumber(handle, "OpenVINO") < 1) failures.push_back("no devices");
    kelResetExceptionString(handle);
    for (const std::string device : {"GPU", "NPU"}) {
        kelCreateNetByBuffers(handle, "OpenVINO", (device + suffix).c_str(), device.c_str(), m.model.data(),
                              m.model.size(), m.weights.data(), m.weights.size());
        kelResetExceptionString(handle);
    }
}

// Each host thread has a handle of its own with a log callback, asks for devices, has a
// truncated model refused and runs whole requests on both engines, first while the gathering
// is held back, then while it publishes its rows.
TEST(Concurrency, HostsOnTheirOwnThreadsGetTheSingleThreadedResultsWhileDevicesAreGathered) {
    const std::vector<t::RoadModel> models{t::openvinoRoad(), t::onnxRoad()};
    t::RoadModel broken = models[1];
    broken.model.resize(broken.model.size() / 2);
    // Reference: one thread, one request at a time. It also lets the runtimes fill their own
    // process-wide tables, behind locks this tool cannot see in their uninstrumented code,
    // before the threads start.
    std::vector<std::vector<std::vector<std::vector<float>>>> expected(models.size());
    for (std::size_t m = 0; m < models.size(); ++m)
        for (int th = 0; th < kThreads; ++th) {
            std::string error;
            expected[m].push_back(t::runRoad(models[m], t::roadInputs(models[m], 100 + th), "alone", error));
            ASSERT_EQ(error, "");
        }
    std::vector<std::string> warmUpFailures;
    void* first = kelCreate();
    askForDevices(first, models[0], "", warmUpFailures);
    kelDestory(first);
    ASSERT_EQ(warmUpFailures, std::vector<std::string>());

    HeldBackGathering gathering({{"31.0.101.5", std::string("Intel(R) Device", 16)}});
    std::atomic<int> firstRoundsDone{0};
    std::vector<std::vector<std::string>> failures(kThreads);
    std::vector<std::thread> threads;
    for (int th = 0; th < kThreads; ++th)
        threads.emplace_back([&, th] {
            t_host = th;
            void* handle = kelCreate();
            kelSetLogCallback(handle, &collectLine);
            for (int round = 0; round < kRounds; ++round) {
                askForDevices(handle, models[0], std::to_string(round), failures[th]);
                std::string refusal;
                t::runRoad(broken, t::roadInputs(broken, th), "broken", refusal);
                if (refusal.empty()) failures[th].push_back("a truncated model was accepted");
                for (std::size_t m = 0; m < models.size(); ++m) {
                    std::string error;
                    const auto got = t::runRoad(models[m], t::roadInputs(models[m], 100 + th),
                                                "net" + std::to_string(th), error);
                    if (!error.empty()) failures[th].push_back(models[m].engine + ": " + error);
                    else if (got != expected[m][th])
                        failures[th].push_back(models[m].engine + ": results differ in round " +
                                               std::to_string(round));
                }
                if (round == 0) ++firstRoundsDone;
            }
            kelSetLogCallback(handle, nullptr);
            kelDestory(handle);
        });
    while (firstRoundsDone < kThreads) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_FALSE(kel::device_info::table().ready) << "gathering was meant to be still pending";
    gathering.release();
    for (auto& thread : threads) thread.join();
    for (int th = 0; th < kThreads; ++th) {
        EXPECT_EQ(failures[th], std::vector<std::string>()) << "thread " << th;
        EXPECT_FALSE(g_lines[th].empty()) << "thread " << th << " got no log line";
    }
    EXPECT_EQ(g_foreignLines, 0);
}

}  // namespace
