// A third engine is one class and one registration line, and hosts reach it like the two built in.
#include <gtest/gtest.h>

#include "kel/c/kel.h"
#include "kel/cxx/test_hooks.hpp"
#include "tests/support/support.hpp"

namespace {

// Doubles its one input "x" into its one output "y"; every network is the same.
class Doubler final : public kel::EngineBackend {
    using Text = const std::string&;
    using Props = const kel::PropertyMap&;

public:
    void createNetwork(Text, Text, Text, Props) override {}
    void createNetwork(Text, Text, const std::vector<kel::ModelBuffer>&, Props) override {}
    void createNetwork(Text, Text, const std::vector<std::filesystem::path>&, Props) override {}
    void removeNetwork(Text) override {}
    void switchNetwork(Text) override {}
    std::string getNetworkDevice(Text) override { return "CPU"; }
    void registerModelAsInnerID(Text, const std::vector<kel::ModelBuffer>&) override {}
    void unregisterInnerID(Text) override {}
    std::vector<std::string> getModelInnerIDs() override { return {}; }
    std::vector<std::string> getInputLayerNames() override { return {"x"}; }
    std::vector<std::string> getOutputLayerNames() override { return {"y"}; }
    void setLayerData(Text layer, std::any data, const std::vector<std::uint64_t>&) override {
        if (layer == "x") in = *static_cast<const float*>(std::any_cast<const void*>(data));
    }
    void* getLayerData(Text) override { return &out; }
    const std::vector<std::uint64_t> getLayerDims(Text) override { return {1}; }
    std::tuple<std::string, std::uint64_t> getLayerPrecision(Text) override { return {"FP32", 4}; }
    void infer() override { out = 2 * in; }
    std::vector<std::string> getSupportedDevices() override { return {"CPU"}; }
    std::unordered_map<std::string, std::string> getEngineMutableProperties() override { return {}; }
    std::string version() override { return "1.0.0"; }
    kel::DevicePropertyValue getDeviceProperty(Text, Text) override { return std::unordered_map<std::string, float>{}; }

    float in = 0, out = 0;
};

TEST(ThirdEngine, OneClassAndOneRegistrationLineReachTheFlatInterface) {
    const kel::ScopedEngineRegistration doubler(kel::engineRegistration<Doubler>("Doubler"));

    void* h = kelCreate();
    EXPECT_EQ(kelGetSupportEngineNumber(h), 3);
    const char model[] = "any";
    kelCreateNetByBuffers(h, "Doubler", "twice", "CPU", model, sizeof model, nullptr, 0);
    float x = 21;
    const std::uint64_t dims[] = {1};
    kelSetLayerData(h, "x", &x, dims, 1);
    kelInfer(h);
    ASSERT_EQ(kel::test::pendingText(h), "");
    EXPECT_EQ(*static_cast<const float*>(kelGetLayerData(h, "y")), 42);
    // An empty map has no key 0 to read.
    kelGetDevicePropertyTypeUnorderedMap_String_Float(h, nullptr, 0, nullptr, nullptr, &x, 2, "Doubler", "CPU", "M");
    EXPECT_EQ(kel::test::takeText(h), "invalid vector subscript");
    kelDestory(h);
}

}  // namespace
