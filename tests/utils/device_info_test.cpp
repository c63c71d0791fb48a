// GetDeviceInfo over a made-up sysfs tree and over a failing fake device database (the Windows
// program reads real SetupDi rows), and the background gathering that OpenVINO networks wait for.
#include <gmock/gmock.h>

#include <chrono>
#include <future>
#include <thread>

#include "kel/cxx/MLEngine.hpp"
#include "kel/cxx/test_hooks.hpp"
#include "kel/utils/device_enumerator.hpp"
#include "kel/utils/device_info.hpp"
#include "kel/utils/text.hpp"
#include "tests/support/support.hpp"

namespace {

namespace fs = std::filesystem;
using kel::DeviceDriverInfo;
using kel::utils::DescriptionProperty;
using kel::utils::GetDeviceInfo;
using kel::utils::SizeQuery;
using testing::IsEmpty;

std::string z(const std::string& text) { return text + std::string(1, '\0'); }

// Driver versions and path texts cross UTF-8, wide and UTF-16 text, outside the basic plane too.
TEST(Text, ConvertsEveryWayAndRefusesWhatIsNotUtf8) {
    using namespace kel::utils;
    const std::string utf8 = "v\x7f \xc3\xa9 \xe6\xa8\xa1 \xf0\x9f\x99\x82";
    EXPECT_EQ(stringToUtf16(utf8), u"v\x7f \u00e9 \u6a21 \U0001F642");
    EXPECT_EQ(utf16ToString(u"v\x7f \u00e9 \u6a21 \U0001F642"), utf8);
    EXPECT_EQ(utf16ToString(u"\xD800x\xDC00"), "\xef\xbf\xbdx\xef\xbf\xbd");  // unpaired: U+FFFD
    for (const char* bad : {"\xff", "\xc0\x80", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xe6\xa8", "\xe6(\xa1"})
        EXPECT_EQ(kel::test::thrownText([&] { stringToUtf16(bad); }), "Failed to convert string to wstring (conversion).")
            << bad;
}

void write(const fs::path& file, const std::string& text) {
    fs::create_directories(file.parent_path());
    kel::test::writeFile(file, text + "\n");
}

TEST(GetDeviceInfo, RowsOfEachKindFromTheSysfsTreeWithinTheLimitAndTheFilter) {
    kel::test::TempDir root;
    const auto get = [&](const std::string& kind, const std::string& filter = "", int max = 0,
                         const char* ids = "pci.ids") {
        return GetDeviceInfo(kind, filter, max, *kel::utils::makeSysfsDeviceEnumerator(root.path(), root / ids));
    };
    write(root / "proc/cpuinfo", "processor\t: 0\nmodel name\t:Intel(R) Core(TM) i7-1185G7 \n\nmodel name\t: Other");
    write(root / "proc/sys/kernel/osrelease", "6.1.0-test");
    write(root / "pci.ids",
          "# comment\n8086  Intel Corporation\n\t7d1d  Meteor Lake NPU\n"
          "\t9a49  TigerLake-LP GT2 [Iris Xe Graphics]\n\t\t1028 0a23  Not a device\n"
          "10de  NVIDIA Corporation\n\t2204  GA102 [GeForce RTX 3090]\nC 03  Display controller");
    // {entry, vendor, device, driver version}; card0-HDMI-A-1 is a connector, not an adapter.
    const char* devices[][4] = {
        {"drm/card10", "0x10de", "0x2204", "550.54.14"}, {"drm/card2", "0x8086", "0x9a49", ""},
        {"drm/card0", "0x8086", "0x1234", ""},           {"drm/card0-HDMI-A-1", "0x8086", "0x9a49", ""},
        {"accel/accel0", "0x8086", "0x7d1d", "1.0"},     {"accel/accel2", "0xabcd", "0x0002", "2.5\xc3\xa9"}};
    for (const auto& [entry, vendor, device, version] : devices) {
        const fs::path dir = root / "sys/class" / entry / "device";
        write(dir / "vendor", vendor);
        write(dir / "device", device);
        if (*version) write(dir / "driver/module/version", version);
    }

    // The kernel release where the driver module has no version; PCI names from the ID list.
    const DeviceDriverInfo cpu{"6.1.0-test", z("Intel(R) Core(TM) i7-1185G7")},
        unlistedGpu{"6.1.0-test", z("Intel Corporation Device 1234")},
        iris{"6.1.0-test", z("Intel Corporation TigerLake-LP GT2 [Iris Xe Graphics]")},
        rtx{"550.54.14", z("NVIDIA Corporation GA102 [GeForce RTX 3090]")},
        npu{"1.0", z("Intel Corporation Meteor Lake NPU")}, other{"2.5\xc3\xa9", z("Vendor abcd Device 0002")};
    // {kind, filter, limit, rows}
    const std::tuple<std::string, std::string, int, std::vector<DeviceDriverInfo>> cases[] = {
        // One processor row, filtered too; below a limit of 1, every row in the kernel's order.
        {"CPU", "", 7, {cpu}}, {"CPU", "AMD", 0, {}},
        {"GPU", "", -3, {unlistedGpu, iris, rtx}}, {"NPU", "", 7, {npu, other}}, {"NPU", "", 1, {npu}},
        // Filtered-out rows do not use the limit up; the filter is case-sensitive and may hold the NUL.
        {"GPU", "NVIDIA", 1, {rtx}}, {"GPU", "intel", 0, {}}, {"GPU", z("Graphics]"), 0, {iris}},
    };
    for (const auto& [kind, filter, max, rows] : cases) EXPECT_EQ(get(kind, filter, max), rows) << kind << filter;
    // Any other kind is named on standard error and never enumerated.
    for (const std::string& kind : {std::string("cpu"), std::string("GPU "), std::string(), std::string("NPU\0", 4)})
        EXPECT_EQ(kel::test::capturedStderr([&] { EXPECT_THAT(get(kind), IsEmpty()); }),
                  "kel::utils::GetDeviceInfo not support device_name:" + kind + "\n");
    // Without the PCI ID list the built-in vendor names still name Intel.
    EXPECT_THAT(get("GPU", "", 0, "missing.ids"),
                testing::Contains(testing::Pair(testing::_, z("Intel Corporation Device 9a49"))));
    // Without any driver version a device is left out.
    fs::remove(root / "proc/sys/kernel/osrelease");
    EXPECT_EQ(get("GPU"), (std::vector<DeviceDriverInfo>{rtx}));
}

// Three devices, the second of which fails the sizing of its description with `failure`.
struct FailingDatabase final : kel::utils::DeviceEnumerator {
    static constexpr SizeQuery::Status kFits = SizeQuery::InsufficientBuffer;
    SizeQuery::Status failure = SizeQuery::Failed;
    bool open(const kel::utils::DeviceClassId&) override { return true; }
    bool device(std::uint32_t i) override { return i < 3; }
    SizeQuery descriptionSize(std::uint32_t i, DescriptionProperty) override { return {i == 1 ? failure : kFits, 1}; }
    void readDescription(std::uint32_t, DescriptionProperty, std::string&) override {}
    SizeQuery driverVersionSize(std::uint32_t) override { return {kFits, 2}; }
    void readDriverVersion(std::uint32_t, std::u16string&) override {}
    void close() override {}
};

TEST(GetDeviceInfo, ASizingFailureDiscardsEveryRow) {
    FailingDatabase database;
    for (auto status : {SizeQuery::Failed, SizeQuery::Succeeded}) {
        database.failure = status;
        EXPECT_THAT(GetDeviceInfo("GPU", "", 0, database), IsEmpty());
        EXPECT_THAT(GetDeviceInfo("GPU", "", 1, database), testing::SizeIs(1));  // never reached
    }
}

TEST(WaitDeviceInfoInit, OpenVINOWaitsAboutTheTimeOutWhileGatheringIsHeldBackOtherEnginesNever) {
    using DriverMap = std::unordered_map<std::string, DeviceDriverInfo>;
    kel::MLEngine engine;
    std::promise<void> release;
    kel::device_info::restartForTesting(
        [gate = release.get_future().share()](const std::string& kind) -> std::vector<DeviceDriverInfo> {
            gate.wait();
            if (kind == "NPU") return {{"1.0", z("AMD NPU")}};
            return {{"546.17", z("NVIDIA GeForce RTX 3080")}, {"31.0.101.5186", z("Intel(R) Arc(TM) A770 Graphics")},
                    {"31.0.101.4502", z("Intel(R) Iris(R) Xe Graphics")}};
        });
    // The seconds a wait takes; bounds far from the time-outs, so that a loaded machine cannot fail them.
    std::any answer;
    const auto wait = [&](const char* name, int timeout) {
        const auto start = std::chrono::steady_clock::now();
        answer = engine.waitDeviceInfoInit(name, timeout);
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    EXPECT_LT(wait("openvino", 10), 5.0) << "only the engine named exactly \"OpenVINO\" waits";
    EXPECT_FALSE(answer.has_value());
    EXPECT_THAT(wait("OpenVINO", 1), testing::AllOf(testing::Ge(0.9), testing::Lt(5.0)));
    EXPECT_TRUE(std::any_cast<DriverMap>(answer).empty());

    // Once gathered, at once: the first Intel row of each class, or nothing.
    release.set_value();
    for (int i = 0; i < 2000 && !kel::device_info::table().ready; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_LT(wait("OpenVINO", 10), 5.0);
    EXPECT_EQ(std::any_cast<DriverMap>(answer),
              (DriverMap{{"GPU", {"31.0.101.5186", z("Intel(R) Arc(TM) A770 Graphics")}}, {"NPU", {}}}));
}

}  // namespace
