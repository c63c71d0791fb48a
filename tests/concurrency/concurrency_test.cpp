// Several hosts' threads, each with a handle of its own, running whole requests at once on
// both engines while the device information is still being gathered: every thread gets
// exactly what one thread alone gets.
#include <future>
#include <memory>
#include <thread>

#include "kel/cxx/device_info.hpp"
#include "tests/concurrency/road.hpp"

namespace t = kel::test;

namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 3;

// Holds the gathering thread back until released, so every request runs while it is pending.
class HeldBackGathering {
public:
    HeldBackGathering() {
        std::shared_future<void> gate = release_.get_future().share();
        kel::device_info::restartForTesting([gate](const std::string&) {
            gate.wait();
            return std::vector<kel::DeviceDriverInfo>{};
        });
    }
    ~HeldBackGathering() { release_.set_value(); }

private:
    std::promise<void> release_;
};

TEST(Concurrency, HandlesOnTheirOwnThreadsGetTheSingleThreadedResultsOnBothEngines) {
    const std::vector<t::RoadModel> models{t::openvinoRoad(), t::onnxRoad()};

    // Reference: one thread, one request at a time.
    std::vector<std::vector<std::vector<std::vector<float>>>> expected(models.size());
    for (std::size_t m = 0; m < models.size(); ++m)
        for (int th = 0; th < kThreads; ++th) {
            std::string error;
            expected[m].push_back(t::runRoad(models[m], t::roadInputs(models[m], 100 + th), "alone", error));
            ASSERT_EQ(error, "");
        }

    HeldBackGathering gathering;
    ASSERT_FALSE(kel::device_info::table().ready);
    std::vector<std::vector<std::string>> failures(kThreads);
    std::vector<std::thread> threads;
    for (int th = 0; th < kThreads; ++th)
        threads.emplace_back([&, th] {
            for (int round = 0; round < kRounds; ++round)
                for (std::size_t m = 0; m < models.size(); ++m) {
                    std::string error;
                    const auto got = t::runRoad(models[m], t::roadInputs(models[m], 100 + th),
                                                "net" + std::to_string(th), error);
                    if (!error.empty()) failures[th].push_back(models[m].engine + ": " + error);
                    else if (got != expected[m][th])
                        failures[th].push_back(models[m].engine + ": results differ in round " +
                                               std::to_string(round));
                }
        });
    for (auto& thread : threads) thread.join();
    EXPECT_FALSE(kel::device_info::table().ready) << "gathering was meant to be still pending";
    for (int th = 0; th < kThreads; ++th) EXPECT_EQ(failures[th], std::vector<std::string>()) << "thread " << th;
}

TEST(Concurrency, OneHandleFailingOnBadInputLeavesTheOthersUnaffected) {
    const t::RoadModel good = t::onnxRoad();
    const auto inputs = t::roadInputs(good, 7);
    std::string error;
    const auto expected = t::runRoad(good, inputs, "alone", error);
    ASSERT_EQ(error, "");

    t::RoadModel broken = good;
    broken.model.resize(broken.model.size() / 2);
    std::vector<std::string> goodErrors(kThreads), badErrors(kThreads);
    std::vector<std::vector<std::vector<float>>> results(kThreads);
    std::vector<std::thread> threads;
    for (int th = 0; th < kThreads; ++th)
        threads.emplace_back([&, th] {
            t::runRoad(broken, inputs, "bad", badErrors[th]);
            results[th] = t::runRoad(good, inputs, "good", goodErrors[th]);
        });
    for (auto& thread : threads) thread.join();
    for (int th = 0; th < kThreads; ++th) {
        EXPECT_NE(badErrors[th], "");
        EXPECT_EQ(goodErrors[th], "");
        EXPECT_EQ(results[th], expected);
    }
}

}  // namespace
