// A third engine is one class and one registration line, and hosts reach it through the
// flat interface like the two built in.
#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

#include "kel/c/kel.h"
#include "kel/cxx/engine_backend.hpp"
#include "tests/support/support.hpp"

namespace {

// Doubles its one input "x" into its one output "y"; every network is the same.
class Doubler final : public kel::EngineBackend {
public:
    void createNetwork(const std::string& id, const std::string&, const std::string&, const kel::PropertyMap&) override { current = id; }
    void createNetwork(const std::string& id, const std::string&, const std::vector<kel::ModelBuffer>&, const kel::PropertyMap&) override { current = id; }
    void createNetwork(const std::string&, const std::string&, const std::vector<std::filesystem::path>&, const kel::PropertyMap&) override {
        throw std::runtime_error("Doubler reads no files");
    }
    void removeNetwork(const std::string&) override {}
    void switchNetwork(const std::string& id) override { current = id; }
    std::string getNetworkDevice(const std::string&) override { return "CPU"; }
    void registerModelAsInnerID(const std::string&, const std::vector<kel::ModelBuffer>&) override {}
    void unregisterInnerID(const std::string&) override {}
    std::vector<std::string> getModelInnerIDs() override { return {}; }
    std::vector<std::string> getInputLayerNames() override { return {"x"}; }
    std::vector<std::string> getOutputLayerNames() override { return {"y"}; }
    void setLayerData(const std::string& layer, std::any data, const std::vector<std::uint64_t>&) override {
        if (layer == "x") in = *static_cast<const float*>(std::any_cast<const void*>(data));
    }
    void* getLayerData(const std::string&) override { return &out; }
    const std::vector<std::uint64_t> getLayerDims(const std::string&) override { return {1}; }
    std::tuple<std::string, std::uint64_t> getLayerPrecision(const std::string&) override { return {"FP32", 4}; }
    void infer() override { out = 2 * in; }
    std::vector<std::string> getSupportedDevices() override { return {"CPU"}; }
    std::unordered_map<std::string, std::string> getEngineMutableProperties() override { return {}; }
    std::string version() override { return "1.0.0"; }
    kel::DevicePropertyValue getDeviceProperty(const std::string&, const std::string&) override {
        return std::unordered_map<std::string, float>{};
    }

    std::string current;
    float in = 0, out = 0;
};

TEST(ThirdEngine, OneClassAndOneRegistrationLineReachTheFlatInterface) {
    const kel::ScopedEngineRegistration doubler(kel::engineRegistration<Doubler>("Doubler"));

    void* h = kelCreate();
    ASSERT_FALSE(kelHasException(h)) << kel::test::pendingText(h);
    EXPECT_EQ(kelGetSupportEngineNumber(h), 3);
    char name[16] = {};
    kelGetSupportEngine(h, 0, name);  // ordered by name
    EXPECT_STREQ(name, "Doubler");
    kelVersion(h, "Doubler", nullptr, name);
    EXPECT_STREQ(name, "1.0.0");

    const char model[] = "any";
    kelCreateNetByBuffers(h, "Doubler", "twice", "CPU", model, sizeof model, nullptr, 0);
    const float x = 21;
    const std::uint64_t dims[] = {1};
    kelSetLayerData(h, "x", &x, dims, 1);
    kelInfer(h);
    ASSERT_EQ(kel::test::pendingText(h), "");
    EXPECT_EQ(*static_cast<const float*>(kelGetLayerData(h, "y")), 42);
    int length = kelGetNetworkEngineLength(h, "twice");
    kelGetNetworkEngine(h, "twice", name);
    EXPECT_EQ(std::string(name, length), "Doubler");

    // Its failures are reported like any engine's, and the engine goes on.
    kelCreateNetByFiles(h, "Doubler", "file", "CPU", "model.onnx", nullptr);
    EXPECT_NE(kel::test::pendingText(h).find("Doubler reads no files"), std::string::npos);
    kelResetExceptionString(h);
    EXPECT_EQ(kelGetCreatedNetworkIdentifiersNumber(h), 1);

    // An empty map has no key 0 to read.
    int key_length = 0;
    EXPECT_EQ(kelGetDevicePropertyTypeUnorderedMap_String_Float(h, nullptr, 0, &key_length, nullptr, nullptr, 2,
                                                                "Doubler", "CPU", "LOADS"), -1);
    EXPECT_EQ(kel::test::pendingText(h), "invalid vector subscript");
    kelResetExceptionString(h);  // a pending text keeps the handle alive
    kelDestory(h);
}

}  // namespace
