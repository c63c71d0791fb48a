// Device rows: GetDeviceInfo's rules over a fake device database (down to the platform's
// failures, which a real database cannot be made to produce; the Windows program reads real
// SetupDi rows), the Linux database over a made-up sysfs tree and over this machine's, and
// the background gathering that OpenVINO networks wait for.
#include <sys/utsname.h>

#include <gmock/gmock.h>

#include <chrono>
#include <future>
#include <optional>
#include <thread>

#include "kel/cxx/MLEngine.hpp"
#include "kel/cxx/device_info.hpp"
#include "kel/utils/device_enumerator.hpp"
#include "kel/utils/device_info.hpp"
#include "tests/support/support.hpp"

namespace {

namespace fs = std::filesystem;
using kel::DeviceDriverInfo;
using kel::utils::DescriptionProperty;
using kel::utils::SizeQuery;
using testing::_;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

std::string z(const std::string& text) { return text + std::string(1, '\0'); }

// The platform's device database: three adapters, failures included.
struct FakeEnumerator final : kel::utils::DeviceEnumerator {
    std::vector<std::pair<std::string, std::u16string>> devices{
        {"Intel(R) Iris(R) Xe Graphics", u"31.0.101.4502"},
        {"NVIDIA GeForce RTX 3080", u"546.17\u00e9"},
        {"Intel(R) Arc(TM) A770 Graphics", u"31.0.101.5186"}};
    std::uint32_t failing = 99;  // the device whose description sizing ends in `failure`
    SizeQuery::Status failure = SizeQuery::Failed;
    bool can_open = true, closed = false;
    std::optional<kel::utils::DeviceClassId> opened;
    std::vector<DescriptionProperty> described;  // one per description sized

    bool open(const kel::utils::DeviceClassId& c) override { return opened = c, can_open; }
    bool device(std::uint32_t i) override { return i < devices.size(); }
    SizeQuery descriptionSize(std::uint32_t i, DescriptionProperty p) override {
        described.push_back(p);
        const auto status = i == failing ? failure : SizeQuery::InsufficientBuffer;
        return {status, std::uint32_t(devices[i].first.size() + 1)};
    }
    void readDescription(std::uint32_t i, DescriptionProperty, std::string& out) override {
        std::copy_n(devices[i].first.c_str(), out.size(), out.begin());
    }
    // Reports room beyond the terminator, as a padded property would.
    SizeQuery driverVersionSize(std::uint32_t i) override {
        return {SizeQuery::InsufficientBuffer, std::uint32_t((devices[i].second.size() + 3) * 2)};
    }
    void readDriverVersion(std::uint32_t i, std::u16string& out) override {
        std::fill(out.begin(), out.end(), u'X');
        std::copy_n(devices[i].second.c_str(), devices[i].second.size() + 1, out.begin());
    }
    void close() override { closed = true; }
};

TEST(GetDeviceInfo, EachKindReadsItsClassWithinTheLimitAndTheFilterOtherKindsNothing) {
    using namespace kel::utils;
    using enum DescriptionProperty;
    // Versions in UTF-8 up to their terminator; descriptions keep theirs.
    const DeviceDriverInfo iris{"31.0.101.4502", z("Intel(R) Iris(R) Xe Graphics")},
        rtx{"546.17\xc3\xa9", z("NVIDIA GeForce RTX 3080")},
        arc{"31.0.101.5186", z("Intel(R) Arc(TM) A770 Graphics")};
    const struct {
        std::string kind;
        std::string filter;
        int max_count;
        std::optional<DeviceClassId> device_class;
        std::vector<DeviceDriverInfo> rows;
    } cases[] = {
        // One processor row, whatever the limit: every core is the same model.
        {"CPU", "", 7, kProcessorClass, {iris}},
        {"CPU", "NVIDIA", 0, kProcessorClass, {rtx}},
        // Adapters and accelerators: every row below a limit of 1; filtered-out devices do
        // not use the limit up.
        {"GPU", "", 0, kDisplayClass, {iris, rtx, arc}},
        {"GPU", "", -3, kDisplayClass, {iris, rtx, arc}},
        {"NPU", "", 7, kComputeAcceleratorClass, {iris, rtx, arc}},
        {"NPU", "", 1, kComputeAcceleratorClass, {iris}},
        {"GPU", "Graphics", 2, kDisplayClass, {iris, arc}},
        // The filter is a case-sensitive part of the description, whose NUL it may include.
        {"GPU", "intel", 0, kDisplayClass, {}},
        {"GPU", std::string(40, 'I'), 0, kDisplayClass, {}},
        {"GPU", z("RTX 3080"), 0, kDisplayClass, {rtx}},
        // Any other kind is named on standard error and never enumerated.
        {"cpu", "", 0, std::nullopt, {}},
        {"GPU ", "", 0, std::nullopt, {}},
        {"", "", 0, std::nullopt, {}},
        {std::string("NPU\0", 4), "", 0, std::nullopt, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.kind + " [" + c.filter + "] " + std::to_string(c.max_count));
        FakeEnumerator fake;
        std::vector<DeviceDriverInfo> rows;
        const auto query = [&] { rows = GetDeviceInfo(c.kind, c.filter, c.max_count, fake); };
        const std::string refusal = "kel::utils::GetDeviceInfo not support device_name:" + c.kind + "\n";
        EXPECT_EQ(kel::test::capturedStderr(query), c.device_class ? "" : refusal);
        EXPECT_EQ(rows, c.rows);
        EXPECT_EQ(fake.opened, c.device_class);
        const auto property = c.device_class == kProcessorClass ? FriendlyName : DeviceDescription;
        if (c.device_class) EXPECT_EQ(fake.described.front(), property);
    }
}

TEST(GetDeviceInfo, SizingFailureDiscardsEverythingAndUnopenableClassGivesNothing) {
    using kel::utils::GetDeviceInfo;
    for (auto status : {SizeQuery::Failed, SizeQuery::Succeeded}) {
        FakeEnumerator fake, first_only;
        fake.failing = first_only.failing = 1;
        fake.failure = first_only.failure = status;
        EXPECT_THAT(GetDeviceInfo("GPU", "", 0, fake), IsEmpty());
        EXPECT_FALSE(fake.closed);  // the set is left open on this path
        EXPECT_THAT(GetDeviceInfo("GPU", "", 1, first_only), testing::SizeIs(1));  // never reached
    }
    FakeEnumerator closed_class;
    closed_class.can_open = false;
    EXPECT_THAT(GetDeviceInfo("GPU", "", 0, closed_class), IsEmpty());
}

void write(const fs::path& file, const std::string& text) {
    fs::create_directories(file.parent_path());
    kel::test::writeFile(file, text + "\n");
}

void pciDevice(const fs::path& dir, const char* vendor, const char* device, const char* version = nullptr) {
    write(dir / "vendor", vendor);
    write(dir / "device", device);
    if (version) write(dir / "driver/module/version", version);
}

TEST(SysfsDevices, ProcessorAdaptersAndAcceleratorsAreReadFromTheirFilesAndNamedByVendor) {
    kel::test::TempDir root;
    const auto get = [&](const std::string& kind, const char* ids = "pci.ids") {
        const auto enumerator = kel::utils::makeSysfsDeviceEnumerator(root.path(), root / ids);
        return kel::utils::GetDeviceInfo(kind, "", 0, *enumerator);
    };
    EXPECT_THAT(get("GPU"), IsEmpty());
    write(root / "proc/cpuinfo",
          "processor\t: 0\nmodel name\t: Intel(R) Core(TM) i7-1185G7 @ 3.00GHz\n\n"
          "processor\t: 1\nmodel name\t: Intel(R) Core(TM) i7-1185G7 @ 3.00GHz");
    write(root / "proc/sys/kernel/osrelease", "6.1.0-test");
    write(root / "pci.ids",
          "# comment\n8086  Intel Corporation\n\t7d1d  Meteor Lake NPU\n"
          "\t9a49  TigerLake-LP GT2 [Iris Xe Graphics]\n\t\t1028 0a23  Not a device\n"
          "10de  NVIDIA Corporation\n\t2204  GA102 [GeForce RTX 3090]\nC 03  Display controller");
    const fs::path drm = root / "sys/class/drm", accel = root / "sys/class/accel";
    pciDevice(drm / "card10/device", "0x10de", "0x2204", "550.54.14");
    pciDevice(drm / "card2/device", "0x8086", "0x9a49");
    pciDevice(drm / "card0/device", "0x8086", "0x1234");
    pciDevice(drm / "card0-HDMI-A-1/device", "0x8086", "0x9a49");  // a connector, not an adapter
    write(drm / "renderD128/device/vendor", "0x8086");
    pciDevice(accel / "accel0/device", "0x8086", "0x7d1d", "1.0");
    pciDevice(accel / "accel1/device", "0x8086", "0x0001");
    pciDevice(accel / "accel2/device", "0xabcd", "0x0002", "2.5");
    // A platform device: no PCI ids, named after its driver.
    fs::create_directories(root / "drivers/simple-npu");
    fs::create_directories(accel / "accel3/device");
    fs::create_directory_symlink(root / "drivers/simple-npu", accel / "accel3/device/driver");

    EXPECT_THAT(get("CPU"), ElementsAre(Pair("6.1.0-test", z("Intel(R) Core(TM) i7-1185G7 @ 3.00GHz"))));
    // In the kernel's order; the kernel release where the driver module has no version.
    EXPECT_THAT(get("GPU"),
                ElementsAre(Pair("6.1.0-test", z("Intel Corporation Device 1234")),
                            Pair("6.1.0-test", z("Intel Corporation TigerLake-LP GT2 [Iris Xe Graphics]")),
                            Pair("550.54.14", z("NVIDIA Corporation GA102 [GeForce RTX 3090]"))));
    EXPECT_THAT(get("NPU"), ElementsAre(Pair("1.0", z("Intel Corporation Meteor Lake NPU")),
                                        Pair("6.1.0-test", z("Intel Corporation Device 0001")),
                                        Pair("2.5", z("Vendor abcd Device 0002")),
                                        Pair("6.1.0-test", z("simple-npu"))));
    // Without the PCI ID list the built-in vendor names still name Intel.
    EXPECT_THAT(get("GPU", "missing.ids"), ElementsAre(Pair(_, z("Intel Corporation Device 1234")),
                                                       Pair(_, z("Intel Corporation Device 9a49")), _));
    // Without any driver version a device is left out.
    fs::remove(root / "proc/sys/kernel/osrelease");
    EXPECT_THAT(get("NPU"), ElementsAre(Pair("1.0", _), Pair("2.5", _)));
}

TEST(GetDeviceInfoOnThisMachine, ProcessorRowCarriesTheRunningKernelsRelease) {
    if (kel::test::readFile("/proc/cpuinfo").find("model name") == std::string::npos)
        GTEST_SKIP() << "no model name in /proc/cpuinfo";
    utsname system{};
    uname(&system);
    const auto cpu = kel::utils::GetDeviceInfo("CPU", "", 0);
    ASSERT_EQ(cpu.size(), 1u);
    EXPECT_EQ(cpu[0].first, system.release);
}

TEST(WaitDeviceInfoInit, OpenVINOWaitsAboutTheTimeOutWhileGatheringIsHeldBackOtherEnginesNever) {
    using DriverMap = std::unordered_map<std::string, DeviceDriverInfo>;
    using Clock = std::chrono::steady_clock;
    const auto secondsSince = [](Clock::time_point t) {
        return std::chrono::duration<double>(Clock::now() - t).count();
    };
    kel::MLEngine engine;
    std::promise<void> release;
    std::shared_future<void> gate = release.get_future().share();
    kel::device_info::restartForTesting([gate](const std::string& kind) -> std::vector<DeviceDriverInfo> {
        gate.wait();
        if (kind == "NPU") return {{"1.0", z("AMD NPU")}};
        return {{"546.17", z("NVIDIA GeForce RTX 3080")},
                {"31.0.101.5186", z("Intel(R) Arc(TM) A770 Graphics")},
                {"31.0.101.4502", z("Intel(R) Iris(R) Xe Graphics")}};
    });
    // Bounds far from the time-outs, so that a loaded machine cannot fail them.
    auto start = Clock::now();
    for (const char* other : {"WindowsML", "", "openvino"})
        EXPECT_FALSE(engine.waitDeviceInfoInit(other, 10).has_value());
    EXPECT_LT(secondsSince(start), 5.0);
    start = Clock::now();
    const std::any pending = engine.waitDeviceInfoInit("OpenVINO", 1);
    EXPECT_GE(secondsSince(start), 0.9);
    EXPECT_LT(secondsSince(start), 5.0);
    EXPECT_TRUE(std::any_cast<DriverMap>(pending).empty());

    release.set_value();
    auto& table = kel::device_info::table();
    for (auto deadline = Clock::now() + std::chrono::seconds(10); !table.ready && Clock::now() < deadline;)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    ASSERT_TRUE(table.ready);
    start = Clock::now();
    const std::any ready = engine.waitDeviceInfoInit("OpenVINO", 10);
    EXPECT_LT(secondsSince(start), 5.0);
    // The first Intel row of each class, or nothing.
    const auto& drivers = std::any_cast<const DriverMap&>(ready);
    EXPECT_EQ(drivers.size(), 2u);
    EXPECT_EQ(drivers.at("GPU").first, "31.0.101.5186");
    EXPECT_EQ(drivers.at("NPU"), DeviceDriverInfo());
}

}  // namespace
