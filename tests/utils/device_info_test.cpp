#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <optional>

#include "kel/utils/device_enumerator.hpp"
#include "kel/utils/device_info.hpp"
#include "kel/utils/text.hpp"

namespace {

using kel::DeviceDriverInfo;
using kel::utils::DescriptionProperty;
using kel::utils::DeviceClassId;
using kel::utils::GetDeviceInfo;
using kel::utils::SizeQuery;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

struct FakeDevice {
    std::string description;
    std::optional<std::u16string> driver_version = u"1.2.3.4";
    SizeQuery::Status description_status = SizeQuery::InsufficientBuffer;
    SizeQuery::Status version_status = SizeQuery::InsufficientBuffer;
    std::uint32_t version_padding_bytes = 0;  // reported beyond the version's terminator
};

// Plays the platform's device database, including its failures.
class FakeEnumerator final : public kel::utils::DeviceEnumerator {
public:
    explicit FakeEnumerator(std::vector<FakeDevice> devices) : devices_(std::move(devices)) {}

    bool can_open = true;
    std::optional<DeviceClassId> opened;
    std::vector<DescriptionProperty> properties;
    bool closed = false;

    bool open(const DeviceClassId& device_class) override {
        opened = device_class;
        return can_open;
    }
    bool device(std::uint32_t index) override { return index < devices_.size(); }
    SizeQuery descriptionSize(std::uint32_t index, DescriptionProperty property) override {
        properties.push_back(property);
        const auto& d = devices_.at(index);
        return {d.description_status, static_cast<std::uint32_t>(d.description.size() + 1)};
    }
    void readDescription(std::uint32_t index, DescriptionProperty, std::string& buffer) override {
        const auto& text = devices_.at(index).description;
        std::copy_n(text.c_str(), std::min(buffer.size(), text.size() + 1), buffer.begin());
    }
    SizeQuery driverVersionSize(std::uint32_t index) override {
        const auto& d = devices_.at(index);
        if (!d.driver_version) return {SizeQuery::Failed, 0};
        return {d.version_status, static_cast<std::uint32_t>((d.driver_version->size() + 1) * 2 +
                                                             d.version_padding_bytes)};
    }
    void readDriverVersion(std::uint32_t index, std::u16string& buffer) override {
        const auto& d = devices_.at(index);
        std::fill(buffer.begin(), buffer.end(), u'X');  // garbage after the terminator
        std::copy_n(d.driver_version->c_str(), std::min(buffer.size(), d.driver_version->size() + 1),
                    buffer.begin());
    }
    void close() override { closed = true; }

private:
    std::vector<FakeDevice> devices_;
};

std::string withNul(const std::string& text) { return text + std::string(1, '\0'); }

std::vector<FakeDevice> threeAdapters() {
    return {{"Intel(R) Iris(R) Xe Graphics", u"31.0.101.4502"},
            {"NVIDIA GeForce RTX 3080", u"546.17"},
            {"Intel(R) Arc(TM) A770 Graphics", u"31.0.101.5186"}};
}

std::vector<DeviceDriverInfo> run(const std::string& kind, const std::string& filter, int max_count,
                                  FakeEnumerator& fake, std::string* err = nullptr) {
    testing::internal::CaptureStderr();
    auto rows = GetDeviceInfo(kind, filter, max_count, fake);
    const std::string printed = testing::internal::GetCapturedStderr();
    if (err) *err = printed;
    else EXPECT_EQ(printed, "");
    return rows;
}

TEST(GetDeviceInfo, ProcessorYieldsOnlyTheFirstFriendlyNameWhateverTheLimit) {
    FakeEnumerator fake({{"Intel(R) Core(TM) i7", u"10.0.1"}, {"second", u"10.0.2"}, {"third"}});
    EXPECT_THAT(run("CPU", "", 5, fake), ElementsAre(Pair("10.0.1", withNul("Intel(R) Core(TM) i7"))));
    EXPECT_EQ(fake.opened, kel::utils::kProcessorClass);
    EXPECT_THAT(fake.properties, ElementsAre(DescriptionProperty::FriendlyName));
    EXPECT_TRUE(fake.closed);
}

class AdapterKinds : public testing::TestWithParam<std::pair<std::string, DeviceClassId>> {};

TEST_P(AdapterKinds, LimitCountsListedRowsAndZeroOrLessMeansAll) {
    const auto& [kind, device_class] = GetParam();
    for (int max_count : {0, -3, 3, 7}) {
        FakeEnumerator fake(threeAdapters());
        auto rows = run(kind, "", max_count, fake);
        ASSERT_EQ(rows.size(), 3u) << max_count;
        EXPECT_EQ(rows[0], DeviceDriverInfo("31.0.101.4502", withNul("Intel(R) Iris(R) Xe Graphics")));
        EXPECT_EQ(rows[2].first, "31.0.101.5186");
        EXPECT_EQ(fake.opened, device_class);
        EXPECT_THAT(fake.properties, testing::Each(DescriptionProperty::DeviceDescription));
    }
    FakeEnumerator one(threeAdapters());
    EXPECT_THAT(run(kind, "", 1, one), ElementsAre(Pair("31.0.101.4502", testing::_)));
    // The first device is filtered out, so the limit of two is reached only at the third.
    FakeEnumerator filtered(threeAdapters());
    auto rows = run(kind, "Graphics", 2, filtered);
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[1].second, withNul("Intel(R) Arc(TM) A770 Graphics"));
    FakeEnumerator nvidia(threeAdapters());
    EXPECT_THAT(run(kind, "NVIDIA", 0, nvidia), ElementsAre(Pair("546.17", withNul("NVIDIA GeForce RTX 3080"))));
}

INSTANTIATE_TEST_SUITE_P(GetDeviceInfo, AdapterKinds,
                         testing::Values(std::pair{std::string("GPU"), kel::utils::kDisplayClass},
                                         std::pair{std::string("NPU"), kel::utils::kComputeAcceleratorClass}),
                         [](const auto& info) { return info.param.first; });

TEST(GetDeviceInfo, FilterIsACaseSensitiveSubstringOfTheWholeDescription) {
    FakeEnumerator lower(threeAdapters());
    EXPECT_THAT(run("GPU", "intel", 0, lower), IsEmpty());
    FakeEnumerator longer(threeAdapters());
    EXPECT_THAT(run("GPU", std::string(64, 'I'), 0, longer), IsEmpty());
    EXPECT_TRUE(longer.closed);
    // The description's trailing NUL is part of what the filter sees.
    FakeEnumerator with_nul(threeAdapters());
    EXPECT_THAT(run("GPU", withNul("RTX 3080"), 0, with_nul), ElementsAre(Pair("546.17", testing::_)));
}

TEST(GetDeviceInfo, DeviceWithoutReadableDriverVersionIsLeftOutAndNeighboursStay) {
    auto devices = threeAdapters();
    devices[1].driver_version.reset();
    FakeEnumerator absent(devices);
    EXPECT_THAT(run("GPU", "", 0, absent),
                ElementsAre(Pair("31.0.101.4502", testing::_), Pair("31.0.101.5186", testing::_)));

    devices = threeAdapters();
    devices[0].version_status = SizeQuery::Succeeded;  // sizing must fail with "too small"
    FakeEnumerator unexpected(devices);
    EXPECT_THAT(run("NPU", "", 0, unexpected),
                ElementsAre(Pair("546.17", testing::_), Pair("31.0.101.5186", testing::_)));
    // A skipped device does not use up the limit.
    FakeEnumerator limited(devices);
    EXPECT_THAT(run("NPU", "", 1, limited), ElementsAre(Pair("546.17", testing::_)));
}

TEST(GetDeviceInfo, DescriptionSizingFailureDiscardsEverythingAndLeavesTheSetOpen) {
    for (auto status : {SizeQuery::Failed, SizeQuery::Succeeded}) {
        auto devices = threeAdapters();
        devices[1].description_status = status;
        FakeEnumerator fake(devices);
        EXPECT_THAT(run("GPU", "", 0, fake), IsEmpty());
        EXPECT_FALSE(fake.closed);
        // With a limit of one the failing device is never reached.
        FakeEnumerator limited(devices);
        EXPECT_THAT(run("GPU", "", 1, limited), testing::SizeIs(1));
    }
    // The processor's sizing is checked as well, and before the filter.
    FakeEnumerator cpu({{"Intel CPU", u"1", SizeQuery::Failed}});
    EXPECT_THAT(run("CPU", "nomatch", 0, cpu), IsEmpty());
}

TEST(GetDeviceInfo, ClassThatCannotBeOpenedGivesNothingAndPrintsNothing) {
    FakeEnumerator fake(threeAdapters());
    fake.can_open = false;
    EXPECT_THAT(run("GPU", "", 0, fake), IsEmpty());
    EXPECT_TRUE(fake.properties.empty());
}

TEST(GetDeviceInfo, UnknownKindPrintsOneLineAndNeverEnumerates) {
    for (const std::string& kind :
         std::vector<std::string>{"cpu", "GPU ", "", "Npu", std::string("CPU\0", 4), "AUTO"}) {
        FakeEnumerator fake(threeAdapters());
        std::string err;
        EXPECT_THAT(run(kind, "", 0, fake, &err), IsEmpty());
        EXPECT_EQ(err, "kel::utils::GetDeviceInfo not support device_name:" + kind + "\n");
        EXPECT_FALSE(fake.opened.has_value());
    }
}

TEST(GetDeviceInfo, DriverVersionIsCutAtItsFirstNulAndConvertedToUtf8) {
    FakeEnumerator fake({{"Intel NPU", u"32.0.100.\u00e9\U0001F600", SizeQuery::InsufficientBuffer,
                          SizeQuery::InsufficientBuffer, 10}});
    auto rows = run("NPU", "", 0, fake);
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0].first, "32.0.100.\xc3\xa9\xf0\x9f\x98\x80");
    EXPECT_EQ(rows[0].second, withNul("Intel NPU"));
    EXPECT_EQ(kel::utils::utf16ToString(u"a\xD800" u"b"), "a\xef\xbf\xbd" "b");
    EXPECT_EQ(kel::utils::stringToUtf16("\xf0\x9f\x98\x80"), u"\U0001F600");
}

}  // namespace
