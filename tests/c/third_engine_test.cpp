// A third engine is one class and one registration line, and hosts reach it like the two built in.
#include <gtest/gtest.h>

#include <map>

#include "kel/c/kel.h"
#include "kel/cxx/test_hooks.hpp"
#include "tests/support/support.hpp"

namespace {

// Doubles its one input "x" into its one output "y"; every network is the same, so it takes
// no inner models. Like the two built in, it refuses unknown layers and payloads, keeps each
// network's bindings, and infer works on the memory bound to the layers when it runs.
class Doubler final : public kel::EngineBackend {
    using Text = const std::string&;
    using Props = const kel::PropertyMap&;

    // A network's layers "x" and "y": the host's memory once bound, else the engine's own.
    struct Network {
        const void* bound[2] = {};
        float own[2] = {};
    };
    std::map<std::string, Network> networks;  // map nodes stay put: `own` is handed out
    std::string current;

    int slot(Text layer) {
        if (layer == "x") return 0;
        if (layer == "y") return 1;
        kel::raise("{} is not found in input and output layers.", layer);
    }
    float* memory(Text layer) {
        Network& network = networks.at(current);
        const int i = slot(layer);
        return network.bound[i] ? static_cast<float*>(const_cast<void*>(network.bound[i])) : &network.own[i];
    }
    void create(Text id) {
        networks[id] = {};
        current = id;
    }

public:
    void createNetwork(Text, Text, Text inner, Props) override {
        kel::raise("{} is not a supported plugin model id.", inner);
    }
    void createNetwork(Text id, Text, const std::vector<kel::ModelBuffer>&, Props) override { create(id); }
    void createNetwork(Text id, Text, const std::vector<std::filesystem::path>&, Props) override { create(id); }
    void removeNetwork(Text id) override { networks.erase(id); }
    void switchNetwork(Text id) override {
        if (networks.contains(id)) current = id;
    }
    std::string getNetworkDevice(Text) override { return "CPU"; }
    void registerModelAsInnerID(Text, const std::vector<kel::ModelBuffer>&) override {
        kel::raise("Doubler takes no inner models.");
    }
    void unregisterInnerID(Text) override {}
    std::vector<std::string> getModelInnerIDs() override { return {}; }
    std::vector<std::string> getInputLayerNames() override { return {"x"}; }
    std::vector<std::string> getOutputLayerNames() override { return {"y"}; }
    void setLayerData(Text layer, std::any data, const std::vector<std::uint64_t>& dims) override {
        const void* p = nullptr;
        if (auto* q = std::any_cast<const void*>(&data)) p = *q;
        else if (auto* q = std::any_cast<void*>(&data)) p = *q;
        else if (auto* q = std::any_cast<const std::uint8_t*>(&data)) p = *q;
        else if (auto* q = std::any_cast<std::uint8_t*>(&data)) p = *q;
        else kel::raise("not support {} as data type!", kel::typeName(data.type()));
        if (!p || dims.empty()) kel::raise("data or data_dims is empty.");
        networks.at(current).bound[slot(layer)] = p;
    }
    void* getLayerData(Text layer) override { return memory(layer); }
    const std::vector<std::uint64_t> getLayerDims(Text layer) override {
        slot(layer);
        return {1};
    }
    std::tuple<std::string, std::uint64_t> getLayerPrecision(Text layer) override {
        slot(layer);
        return {"FP32", 4};
    }
    void infer() override { *memory("y") = 2 * *memory("x"); }
    std::vector<std::string> getSupportedDevices() override { return {"CPU"}; }
    std::unordered_map<std::string, std::string> getEngineMutableProperties() override { return {}; }
    std::string version() override { return "1.0.0"; }
    kel::DevicePropertyValue getDeviceProperty(Text device, Text property) override {
        if (device != "CPU") return {};
        if (property == "M") return std::unordered_map<std::string, float>{{"a", .5f}, {"b", 2.5f}};
        if (property == "E") return std::unordered_map<std::string, float>{};
        if (property == "u") return std::uint64_t{7};
        if (property == "f") return 1.5f;
        if (property == "b") return true;
        kel::DevicePropertyValue value;
        if (property == "lost") {  // left without a value by a failed assignment
            using Map = std::unordered_map<std::string, float>;
            struct Throws {
                operator Map() const { throw 1; }
            };
            try {
                value.emplace<Map>(Throws{});
            } catch (int) {
            }
        }
        return value;
    }
};

TEST(ThirdEngine, OneClassAndOneRegistrationLineReachTheFlatInterface) {
    const kel::ScopedEngineRegistration doubler(kel::engineRegistration<Doubler>("Doubler"));

    void* h = kelCreate();
    const char model[] = "any";
    kelCreateNetByBuffers(h, "Doubler", "twice", "CPU", model, sizeof model, nullptr, 0);
    float x = 21;
    const std::uint64_t dims[] = {1};
    kelSetLayerData(h, "x", &x, dims, 1);
    kelInfer(h);
    ASSERT_EQ(kel::test::pendingText(h), "");
    EXPECT_EQ(*static_cast<const float*>(kelGetLayerData(h, "y")), 42);
    // A map reads entry by entry, up to its last; an empty one has no key 0 to read.
    std::map<std::string, float> entries;
    for (int i = 0; i < 2; ++i) {
        char key[8] = {};
        int length = 0;
        kelGetDevicePropertyTypeUnorderedMap_String_Float(h, nullptr, i, &length, key, &x, 2, "Doubler", "CPU", "M");
        entries[std::string(key, static_cast<std::size_t>(length))] = x;
    }
    EXPECT_EQ(entries, (std::map<std::string, float>{{"a", .5f}, {"b", 2.5f}})) << kel::test::pendingText(h);
    kelGetDevicePropertyTypeUnorderedMap_String_Float(h, nullptr, 2, nullptr, nullptr, &x, 2, "Doubler", "CPU", "M");
    EXPECT_NE(kel::test::takeText(h).find("\nkey_index value is 2, larger than 1!\n"), std::string::npos);
    kelGetDevicePropertyTypeUnorderedMap_String_Float(h, nullptr, 0, nullptr, nullptr, &x, 2, "Doubler", "CPU", "E");
    EXPECT_EQ(kel::test::takeText(h), "invalid vector subscript");
    // Each typed value reads back whole, and the readers answer 0.
    std::uint64_t u = 0;
    float f = 0;
    bool b = false;
    int n = -1, m = -1;
    EXPECT_EQ(kelGetDevicePropertyTypeGeneral(h, &u, 3, "Doubler", "CPU", "u"), 0);
    EXPECT_EQ(kelGetDevicePropertyTypeGeneral(h, &f, 4, "Doubler", "CPU", "f"), 0);
    EXPECT_EQ(kelGetDevicePropertyTypeGeneral(h, &b, 5, "Doubler", "CPU", "b"), 0);
    EXPECT_EQ(kelGetDevicePropertyTypeUnorderedMap_String_Float(h, &m, 0, nullptr, nullptr, nullptr, 2, "Doubler", "CPU",
                                                                "M"), 0);
    EXPECT_EQ(kelGetDeviceSupportPropertiesNumber(h, &n, "Doubler", "CPU"), 0);
    EXPECT_EQ(std::make_tuple(u, f, b, m, n), std::make_tuple(std::uint64_t{7}, 1.5f, true, 2, 0));
    // A value without an alternative has type id -1, which no reader takes.
    int type = 0;
    kelGetDevicePropertyTypeID(h, &type, "Doubler", "CPU", "lost");
    EXPECT_EQ(type, -1);
    kelGetDevicePropertyTypeGeneral(h, &x, -1, "Doubler", "CPU", "lost");
    EXPECT_NE(kel::test::takeText(h).find("\nNo value in property!\n"), std::string::npos);
    kelDestory(h);
}

}  // namespace
