#include "kel/cxx/device_info.hpp"
#include "kel/cxx/test_hooks.hpp"

#include <thread>

#include "kel/utils/device_info.hpp"

namespace kel::device_info {

Table& table() {
    // Never destroyed: the detached thread may still store into it while the process exits.
    static Table* t = new Table();
    return *t;
}

namespace {

std::vector<DeviceDriverInfo> defaultGatherer(const std::string& deviceClass) {
    return utils::GetDeviceInfo(deviceClass, "", 0);
}

// Bumped by every restart so that a superseded gathering never publishes its rows.
std::atomic<unsigned> g_generation{0};

void gather(const Gatherer& gatherer, unsigned generation) {
    std::vector<DeviceDriverInfo> cpu, gpu, npu;
    try {
        cpu = gatherer("CPU");
        gpu = gatherer("GPU");
        npu = gatherer("NPU");
    } catch (...) {
        // An allocation failure leaves the classes gathered so far; the table still
        // becomes ready so that nobody waits for it again.
    }
    Table& t = table();
    std::lock_guard<std::mutex> lock(t.mutex);
    if (generation != g_generation.load()) return;
    t.rows["CPU"] = std::move(cpu);
    t.rows["GPU"] = std::move(gpu);
    t.rows["NPU"] = std::move(npu);
    t.ready.store(true, std::memory_order_seq_cst);
}

void launch(Gatherer gatherer) {
    if (!gatherer) gatherer = &defaultGatherer;
    const unsigned generation = g_generation.load();
    std::thread([g = std::move(gatherer), generation] { gather(g, generation); }).detach();
}

}  // namespace

void startOnce() {
    static std::once_flag once;
    std::call_once(once, [] { launch(nullptr); });
}

void restartForTesting(Gatherer gatherer) {
    startOnce();
    Table& t = table();
    {
        std::lock_guard<std::mutex> lock(t.mutex);
        t.rows.clear();
        t.ready.store(false, std::memory_order_seq_cst);
        ++g_generation;
    }
    launch(std::move(gatherer));
}

}  // namespace kel::device_info
