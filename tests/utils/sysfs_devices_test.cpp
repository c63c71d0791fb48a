#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>

#include <unistd.h>

#include "kel/utils/device_enumerator.hpp"
#include "kel/utils/device_info.hpp"

namespace {

namespace fs = std::filesystem;
using kel::DeviceDriverInfo;
using kel::utils::GetDeviceInfo;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

std::string withNul(const std::string& text) { return text + std::string(1, '\0'); }

void write(const fs::path& file, const std::string& text) {
    fs::create_directories(file.parent_path());
    std::ofstream(file) << text;
}

// A device directory as sysfs shows a PCI function.
void pciDevice(const fs::path& dir, const char* vendor, const char* device,
               const char* module_version = nullptr) {
    write(dir / "vendor", std::string(vendor) + "\n");
    write(dir / "device", std::string(device) + "\n");
    if (module_version) write(dir / "driver/module/version", std::string(module_version) + "\n");
}

class SysfsTree : public testing::Test {
protected:
    void SetUp() override {
        root_ = fs::temp_directory_path() /
                ("kel-sysfs-" + std::to_string(::getpid()) + "-" +
                 testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(root_);
        write(root_ / "proc/cpuinfo",
              "processor\t: 0\nvendor_id\t: GenuineIntel\nmodel name\t: Intel(R) Core(TM) i7-1185G7 @ 3.00GHz\n\n"
              "processor\t: 1\nmodel name\t: Intel(R) Core(TM) i7-1185G7 @ 3.00GHz\n");
        write(root_ / "proc/sys/kernel/osrelease", "6.1.0-test\n");
        write(pci_ids_ = root_ / "pci.ids",
              "# comment\n8086  Intel Corporation\n\t7d1d  Meteor Lake NPU\n\t9a49  TigerLake-LP GT2 [Iris Xe Graphics]\n"
              "\t\t1028 0a23  Subsystem name that must not match\n"
              "10de  NVIDIA Corporation\n\t2204  GA102 [GeForce RTX 3090]\n"
              "C 03  Display controller\n\t00  VGA compatible controller\n");
    }
    void TearDown() override { fs::remove_all(root_); }

    std::vector<DeviceDriverInfo> get(const std::string& kind, int max_count = 0,
                                      std::optional<fs::path> pci_ids = std::nullopt) {
        auto enumerator = kel::utils::makeSysfsDeviceEnumerator(root_, pci_ids.value_or(pci_ids_));
        return GetDeviceInfo(kind, "", max_count, *enumerator);
    }

    fs::path root_, pci_ids_;
};

TEST_F(SysfsTree, ProcessorIsTheFirstModelNameWithTheKernelRelease) {
    EXPECT_THAT(get("CPU", 4), ElementsAre(Pair("6.1.0-test", withNul("Intel(R) Core(TM) i7-1185G7 @ 3.00GHz"))));
    fs::remove(root_ / "proc/cpuinfo");
    EXPECT_THAT(get("CPU"), IsEmpty());
}

TEST_F(SysfsTree, DisplayAdaptersAreCardsInKernelOrderNamedFromThePciList) {
    const fs::path drm = root_ / "sys/class/drm";
    pciDevice(drm / "card10/device", "0x10de", "0x2204", "550.54.14");
    pciDevice(drm / "card2/device", "0x8086", "0x9a49");
    pciDevice(drm / "card0/device", "0x8086", "0x1234");
    // Connector entries point at their card's device; they are not adapters of their own.
    pciDevice(drm / "card0-HDMI-A-1/device", "0x8086", "0x9a49");
    write(drm / "version", "drm 1.1.0\n");
    write(drm / "renderD128/device/vendor", "0x8086\n");

    EXPECT_THAT(get("GPU"),
                ElementsAre(Pair("6.1.0-test", withNul("Intel Corporation Device 1234")),
                            Pair("6.1.0-test", withNul("Intel Corporation TigerLake-LP GT2 [Iris Xe Graphics]")),
                            Pair("550.54.14", withNul("NVIDIA Corporation GA102 [GeForce RTX 3090]"))));
    EXPECT_THAT(get("GPU", 1), testing::SizeIs(1));

    // Without the PCI list the built-in vendor names still name Intel.
    EXPECT_THAT(get("GPU", 0, root_ / "missing.ids"),
                ElementsAre(Pair(testing::_, withNul("Intel Corporation Device 1234")),
                            Pair(testing::_, withNul("Intel Corporation Device 9a49")),
                            Pair(testing::_, withNul("NVIDIA Corporation Device 2204"))));
}

TEST_F(SysfsTree, AcceleratorsWithoutAnyDriverVersionAreLeftOut) {
    const fs::path accel = root_ / "sys/class/accel";
    pciDevice(accel / "accel0/device", "0x8086", "0x7d1d", "1.0");
    pciDevice(accel / "accel1/device", "0x1e0f", "0x0001");
    write(root_ / "drivers/simple-npu/bind", "");
    pciDevice(accel / "accel2/device", "0xabcd", "0x0002", "2.5");
    fs::create_directories(root_ / "plat/accel3/device");
    fs::create_directory_symlink(root_ / "drivers/simple-npu", root_ / "plat/accel3/device/driver");
    fs::create_directory_symlink(root_ / "plat/accel3", accel / "accel3");
    fs::remove(root_ / "proc/sys/kernel/osrelease");

    EXPECT_THAT(get("NPU"), ElementsAre(Pair("1.0", withNul("Intel Corporation Meteor Lake NPU")),
                                        Pair("2.5", withNul("Vendor abcd Device 0002"))));
    write(root_ / "proc/sys/kernel/osrelease", "6.8.0\n");
    auto rows = get("NPU");
    ASSERT_EQ(rows.size(), 4u);
    EXPECT_EQ(rows[1], DeviceDriverInfo("6.8.0", withNul("KIOXIA Corporation Device 0001")));
    EXPECT_EQ(rows[3], DeviceDriverInfo("6.8.0", withNul("simple-npu")));
}

TEST_F(SysfsTree, MissingClassDirectoriesGiveNoRows) {
    EXPECT_THAT(get("GPU"), IsEmpty());
    EXPECT_THAT(get("NPU"), IsEmpty());
}

// This machine, through the platform's own enumerator.
TEST(GetDeviceInfoOnThisMachine, ProcessorRowIsTheModelNameAndAdaptersMatchSysfs) {
    std::string model;
    std::ifstream cpuinfo("/proc/cpuinfo");
    for (std::string line; model.empty() && std::getline(cpuinfo, line);)
        if (line.rfind("model name", 0) == 0) model = line.substr(line.find(':') + 2);
    while (!model.empty() && std::isspace(static_cast<unsigned char>(model.back()))) model.pop_back();
    if (model.empty()) GTEST_SKIP() << "no model name in /proc/cpuinfo";

    testing::internal::CaptureStderr();
    auto cpu = GetDeviceInfo("CPU", "", 0);
    auto gpu = GetDeviceInfo("GPU", "", 0);
    auto npu = GetDeviceInfo("NPU", "", 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    ASSERT_EQ(cpu.size(), 1u);
    EXPECT_EQ(cpu[0].second, withNul(model));
    EXPECT_FALSE(cpu[0].first.empty());
    EXPECT_EQ(cpu[0].first.find('\0'), std::string::npos);

    std::error_code ec;
    if (!fs::exists("/sys/class/drm", ec)) EXPECT_THAT(gpu, IsEmpty());
    if (!fs::exists("/sys/class/accel", ec)) EXPECT_THAT(npu, IsEmpty());
}

}  // namespace
