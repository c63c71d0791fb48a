// GetDeviceInfo's rules over a fake device database, down to the platform's failures. The
// Windows tests read real devices through SetupDi (processor, adapters, one without a
// driver version); these cases are the ones a real database cannot be made to produce.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "kel/utils/device_enumerator.hpp"
#include "kel/utils/device_info.hpp"

namespace {

using kel::DeviceDriverInfo;
using kel::utils::DescriptionProperty;
using kel::utils::DeviceClassId;
using kel::utils::SizeQuery;
using testing::_;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

struct FakeDevice {
    std::string description;
    std::optional<std::u16string> version = u"1.0";
    SizeQuery::Status description_status = SizeQuery::InsufficientBuffer;
    SizeQuery::Status version_status = SizeQuery::InsufficientBuffer;
};

// The platform's device database, failures included.
struct FakeEnumerator final : kel::utils::DeviceEnumerator {
    explicit FakeEnumerator(std::vector<FakeDevice> d) : devices(std::move(d)) {}
    std::vector<FakeDevice> devices;
    bool can_open = true, closed = false;
    std::optional<DeviceClassId> opened;
    std::vector<DescriptionProperty> properties;

    bool open(const DeviceClassId& c) override { return opened = c, can_open; }
    bool device(std::uint32_t i) override { return i < devices.size(); }
    SizeQuery descriptionSize(std::uint32_t i, DescriptionProperty p) override {
        properties.push_back(p);
        return {devices[i].description_status, std::uint32_t(devices[i].description.size() + 1)};
    }
    void readDescription(std::uint32_t i, DescriptionProperty, std::string& out) override {
        std::copy_n(devices[i].description.c_str(), out.size(), out.begin());
    }
    SizeQuery driverVersionSize(std::uint32_t i) override {
        if (!devices[i].version) return {};
        // Reports room beyond the terminator, as a padded property would.
        return {devices[i].version_status, std::uint32_t((devices[i].version->size() + 3) * 2)};
    }
    void readDriverVersion(std::uint32_t i, std::u16string& out) override {
        std::fill(out.begin(), out.end(), u'X');
        std::copy_n(devices[i].version->c_str(), devices[i].version->size() + 1, out.begin());
    }
    void close() override { closed = true; }
};

std::string z(const std::string& text) { return text + std::string(1, '\0'); }

std::vector<FakeDevice> adapters() {
    return {{"Intel(R) Iris(R) Xe Graphics", u"31.0.101.4502"},
            {"NVIDIA GeForce RTX 3080", u"546.17\u00e9"},
            {"Intel(R) Arc(TM) A770 Graphics", u"31.0.101.5186"}};
}

// Runs one query and checks that it printed nothing.
std::vector<DeviceDriverInfo> get(const std::string& kind, const std::string& filter, int max_count,
                                  FakeEnumerator&& fake) {
    testing::internal::CaptureStderr();
    auto rows = kel::utils::GetDeviceInfo(kind, filter, max_count, fake);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    return rows;
}

TEST(GetDeviceInfo, AdaptersAndAcceleratorsHonourTheLimitAndTheFilter) {
    for (auto [kind, device_class] : {std::pair{"GPU", kel::utils::kDisplayClass},
                                      std::pair{"NPU", kel::utils::kComputeAcceleratorClass}}) {
        for (int all : {0, -3, 7}) {
            FakeEnumerator fake(adapters());
            EXPECT_THAT(get(kind, "", all, std::move(fake)),
                        ElementsAre(Pair("31.0.101.4502", z("Intel(R) Iris(R) Xe Graphics")),
                                    Pair("546.17\xc3\xa9", z("NVIDIA GeForce RTX 3080")),
                                    Pair("31.0.101.5186", _)));
        }
        FakeEnumerator fake(adapters());
        EXPECT_THAT(kel::utils::GetDeviceInfo(kind, "", 1, fake), ElementsAre(Pair("31.0.101.4502", _)));
        EXPECT_EQ(fake.opened, device_class);
        EXPECT_THAT(fake.properties, ElementsAre(DescriptionProperty::DeviceDescription));
        // Filtered-out devices do not use up the limit.
        EXPECT_THAT(get(kind, "Graphics", 2, FakeEnumerator(adapters())),
                    ElementsAre(_, Pair("31.0.101.5186", _)));
    }
    EXPECT_THAT(get("GPU", "intel", 0, FakeEnumerator(adapters())), IsEmpty());
    EXPECT_THAT(get("GPU", std::string(40, 'I'), 0, FakeEnumerator(adapters())), IsEmpty());
    EXPECT_THAT(get("GPU", z("RTX 3080"), 0, FakeEnumerator(adapters())),
                ElementsAre(Pair("546.17\xc3\xa9", _)));
}

TEST(GetDeviceInfo, SizingFailureDiscardsEverythingAndUnopenableClassGivesNothing) {
    for (auto status : {SizeQuery::Failed, SizeQuery::Succeeded}) {
        auto devices = adapters();
        devices[1].description_status = status;
        FakeEnumerator fake(devices);
        EXPECT_THAT(kel::utils::GetDeviceInfo("GPU", "", 0, fake), IsEmpty());
        EXPECT_FALSE(fake.closed);
        EXPECT_THAT(get("GPU", "", 1, FakeEnumerator(devices)), testing::SizeIs(1));  // never reached
    }
    FakeEnumerator closed_class(adapters());
    closed_class.can_open = false;
    EXPECT_THAT(get("GPU", "", 0, std::move(closed_class)), IsEmpty());
}

TEST(GetDeviceInfo, UnknownKindPrintsOneLineAndNeverEnumerates) {
    for (const std::string& kind : std::vector<std::string>{"cpu", "GPU ", "", std::string("NPU\0", 4)}) {
        FakeEnumerator fake(adapters());
        testing::internal::CaptureStderr();
        EXPECT_THAT(kel::utils::GetDeviceInfo(kind, "", 0, fake), IsEmpty());
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "kel::utils::GetDeviceInfo not support device_name:" + kind + "\n");
        EXPECT_FALSE(fake.opened);
    }
}

}  // namespace
