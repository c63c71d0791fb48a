// Create / infer / read / remove, over and over, on both engines, through one handle:
// resident memory stays flat after warm-up, no descriptor is left open and no file is left
// in the temporary directory.
//   kel_soak [cycles per engine (200)] [--rss-tolerance-mb N (16)] [--no-rss]
// Prints its figures; exits 1 when a check fails.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/concurrency/road.hpp"
#include "tests/support/process.hpp"

namespace t = kel::test;

namespace {

double residentMb() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmRSS:", 0) == 0) return std::atof(line.c_str() + 6) / 1024.0;
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    int cycles = 200;
    double toleranceMb = 16;
    bool checkRss = true;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--no-rss")) checkRss = false;
        else if (!std::strcmp(argv[i], "--rss-tolerance-mb") && i + 1 < argc) toleranceMb = std::atof(argv[++i]);
        else cycles = std::atoi(argv[i]);
    }
    // A private temporary directory: whatever kel writes there and leaves is counted.
    const t::TempDir tmp;
    const t::ScopedEnv tmpdir("TMPDIR", tmp.path().string());

    const std::vector<t::RoadModel> models{t::openvinoRoad(), t::onnxRoad()};
    void* handle = kelCreate();
    bool ok = true;
    double rssQuarter = 0, rssEnd = 0;
    std::size_t fdQuarter = 0, fdEnd = 0;
    const auto start = std::chrono::steady_clock::now();
    for (int cycle = 1; cycle <= cycles; ++cycle) {
        for (const auto& m : models) {
            // Each cycle's network replaces the previous one, which is then no longer current
            // and can be removed.
            const std::string id = m.engine + std::to_string(cycle);
            std::vector<std::vector<float>> results;
            t::request(handle, m, t::roadInputs(m, cycle), id, results);
            for (const auto& r : results)
                if (r.empty()) ok = false;
            if (cycle > 1) kelRemoveNetwork(handle, (m.engine + std::to_string(cycle - 1)).c_str());
            if (const std::string error = t::pendingText(handle); !error.empty()) {
                std::printf("cycle %d on %s failed: %s\n", cycle, m.engine.c_str(), error.c_str());
                return 1;
            }
        }
        if (kelGetCreatedNetworkIdentifiersNumber(handle) != 2) {
            std::printf("cycle %d: %d networks listed, 2 expected\n", cycle,
                        kelGetCreatedNetworkIdentifiersNumber(handle));
            return 1;
        }
        if (cycle == cycles / 4) {
            rssQuarter = residentMb();
            fdQuarter = t::openDescriptors();
        }
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    rssEnd = residentMb();
    fdEnd = t::openDescriptors();
    kelDestory(handle);
    const auto leftBehind = t::filesUnder(tmp.path());
    for (const auto& file : leftBehind) std::printf("  left behind: %s\n", file.c_str());
    const std::size_t left = leftBehind.size();

    std::printf("soak: %d cycles per engine (OpenVINO + WindowsML) in %.1f s (%.1f ms per cycle pair)\n",
                cycles, seconds, 1000.0 * seconds / cycles);
    std::printf("soak: resident memory %.1f MB at 25%%, %.1f MB at 100%% (growth %.1f MB, tolerance %.1f MB%s)\n",
                rssQuarter, rssEnd, rssEnd - rssQuarter, toleranceMb, checkRss ? "" : ", not checked");
    std::printf("soak: open descriptors %zu at 25%%, %zu at 100%%; files left in the temporary directory: %zu\n",
                fdQuarter, fdEnd, left);
    if (checkRss && rssEnd - rssQuarter > toleranceMb) ok = false;
    if (fdEnd > fdQuarter || left != 0) ok = false;
    std::printf("soak: %s\n", ok ? "passed" : "FAILED");
    return ok ? 0 : 1;
}
