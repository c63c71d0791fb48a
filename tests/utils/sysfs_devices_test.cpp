#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cctype>
#include <filesystem>
#include <fstream>

#include "kel/utils/device_enumerator.hpp"
#include "kel/utils/device_info.hpp"

namespace {

namespace fs = std::filesystem;
using testing::_;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

std::string z(const std::string& text) { return text + std::string(1, '\0'); }

void write(const fs::path& file, const std::string& text) {
    fs::create_directories(file.parent_path());
    std::ofstream(file) << text << "\n";
}

void pciDevice(const fs::path& dir, const char* vendor, const char* device,
               const char* module_version = nullptr) {
    write(dir / "vendor", vendor);
    write(dir / "device", device);
    if (module_version) write(dir / "driver/module/version", module_version);
}

class SysfsTree : public testing::Test {
protected:
    void SetUp() override {
        root_ = fs::temp_directory_path() / ("kel-sysfs-" + std::to_string(::getpid()));
        fs::remove_all(root_);
        write(root_ / "proc/cpuinfo",
              "processor\t: 0\nmodel name\t: Intel(R) Core(TM) i7-1185G7 @ 3.00GHz\n\n"
              "processor\t: 1\nmodel name\t: Intel(R) Core(TM) i7-1185G7 @ 3.00GHz");
        write(root_ / "proc/sys/kernel/osrelease", "6.1.0-test");
        write(root_ / "pci.ids",
              "# comment\n8086  Intel Corporation\n\t7d1d  Meteor Lake NPU\n"
              "\t9a49  TigerLake-LP GT2 [Iris Xe Graphics]\n\t\t1028 0a23  Not a device\n"
              "10de  NVIDIA Corporation\n\t2204  GA102 [GeForce RTX 3090]\nC 03  Display controller");
    }
    void TearDown() override { fs::remove_all(root_); }

    std::vector<kel::DeviceDriverInfo> get(const std::string& kind, int max_count = 0,
                                           const char* ids = "pci.ids") {
        auto enumerator = kel::utils::makeSysfsDeviceEnumerator(root_, root_ / ids);
        return kel::utils::GetDeviceInfo(kind, "", max_count, *enumerator);
    }

    fs::path root_;
};

TEST_F(SysfsTree, ProcessorIsTheFirstModelNameWithTheKernelRelease) {
    EXPECT_THAT(get("GPU"), IsEmpty());
    EXPECT_THAT(get("CPU", 4), ElementsAre(Pair("6.1.0-test", z("Intel(R) Core(TM) i7-1185G7 @ 3.00GHz"))));
}

TEST_F(SysfsTree, DisplayAdaptersAreCardsInKernelOrderNamedByVendor) {
    const fs::path drm = root_ / "sys/class/drm";
    pciDevice(drm / "card10/device", "0x10de", "0x2204", "550.54.14");
    pciDevice(drm / "card2/device", "0x8086", "0x9a49");
    pciDevice(drm / "card0/device", "0x8086", "0x1234");
    pciDevice(drm / "card0-HDMI-A-1/device", "0x8086", "0x9a49");  // a connector, not an adapter
    write(drm / "renderD128/device/vendor", "0x8086");
    EXPECT_THAT(get("GPU"),
                ElementsAre(Pair("6.1.0-test", z("Intel Corporation Device 1234")),
                            Pair("6.1.0-test", z("Intel Corporation TigerLake-LP GT2 [Iris Xe Graphics]")),
                            Pair("550.54.14", z("NVIDIA Corporation GA102 [GeForce RTX 3090]"))));
    // Without the PCI ID list the built-in vendor names still name Intel.
    EXPECT_THAT(get("GPU", 2, "missing.ids"), ElementsAre(Pair(_, z("Intel Corporation Device 1234")),
                                                          Pair(_, z("Intel Corporation Device 9a49"))));
}

TEST_F(SysfsTree, AcceleratorsWithoutAnyDriverVersionAreLeftOut) {
    const fs::path accel = root_ / "sys/class/accel";
    pciDevice(accel / "accel0/device", "0x8086", "0x7d1d", "1.0");
    pciDevice(accel / "accel1/device", "0x8086", "0x0001");
    pciDevice(accel / "accel2/device", "0xabcd", "0x0002", "2.5");
    // A platform device: no PCI ids, named after its driver.
    fs::create_directories(root_ / "drivers/simple-npu");
    fs::create_directories(accel / "accel3/device");
    fs::create_directory_symlink(root_ / "drivers/simple-npu", accel / "accel3/device/driver");
    fs::remove(root_ / "proc/sys/kernel/osrelease");
    EXPECT_THAT(get("NPU"), ElementsAre(Pair("1.0", z("Intel Corporation Meteor Lake NPU")),
                                        Pair("2.5", z("Vendor abcd Device 0002"))));
    write(root_ / "proc/sys/kernel/osrelease", "6.8.0");
    EXPECT_THAT(get("NPU"), ElementsAre(_, Pair("6.8.0", z("Intel Corporation Device 0001")), _,
                                        Pair("6.8.0", z("simple-npu"))));
}

TEST(GetDeviceInfoOnThisMachine, ProcessorRowIsTheModelName) {
    std::string model;
    std::ifstream cpuinfo("/proc/cpuinfo");
    for (std::string line; model.empty() && std::getline(cpuinfo, line);)
        if (line.rfind("model name", 0) == 0) model = line.substr(line.find(':') + 2);
    while (!model.empty() && std::isspace(static_cast<unsigned char>(model.back()))) model.pop_back();
    if (model.empty()) GTEST_SKIP() << "no model name in /proc/cpuinfo";

    testing::internal::CaptureStderr();
    auto cpu = kel::utils::GetDeviceInfo("CPU", "", 0);
    auto gpu = kel::utils::GetDeviceInfo("GPU", "", 0);
    auto npu = kel::utils::GetDeviceInfo("NPU", "", 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    ASSERT_EQ(cpu.size(), 1u);
    EXPECT_EQ(cpu[0].second, z(model));
    EXPECT_FALSE(cpu[0].first.empty());
    EXPECT_EQ(cpu[0].first.find('\0'), std::string::npos);
    if (!fs::exists("/sys/class/drm")) EXPECT_THAT(gpu, IsEmpty());
    if (!fs::exists("/sys/class/accel")) EXPECT_THAT(npu, IsEmpty());
}

}  // namespace
