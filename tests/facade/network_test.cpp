// Networks through kel::MLEngine: creation forms, the registry, routing and failures.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "kel/cxx/MLEngine.hpp"
#include "tests/support/models.hpp"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

namespace {

namespace t = kel::test;

std::vector<std::filesystem::path> staticIr() {
    return {t::openvinoModel("static.xml"), t::openvinoModel("static.bin")};
}

TEST(Networks, RegistryRulesAndTheirTexts) {
    kel::MLEngine engine;
    // Layer calls before any network are located at the operation's own file, not at the
    // helper that checks.
    const std::pair<const char*, std::function<void()>> calls[] = {
        {"kel/cxx/infer.cpp", [&] { engine.infer(); }},
        {"kel/cxx/getInputLayerNames.cpp", [&] { engine.getInputLayerNames(); }},
        {"kel/cxx/getOutputLayerNames.cpp", [&] { engine.getOutputLayerNames(); }},
        {"kel/cxx/getLayerData.cpp", [&] { engine.getLayerData("x"); }},
        {"kel/cxx/getLayerDims.cpp", [&] { engine.getLayerDims("x"); }},
    };
    for (const auto& [file, call] : calls)
        EXPECT_EQ(t::kelMessageFrom(file, call), "Please Create a network with craeteNetwork API first.");

    const std::vector<kel::ModelBuffer> none;
    const std::vector<std::filesystem::path> noFiles;
    t::expectRefusals({
        {[&] { engine.createNetwork("", "n", "CPU", std::string("m"), {}); }, "Engine Name is empty!"},
        {[&] { engine.createNetwork("OpenVINO", "", "CPU", std::string("m"), {}); },
         "network_identifier  is empty! "},
        {[&] { engine.createNetwork("OpenVINO", "", "CPU", none, {}); }, "network_identifier is empty! "},
        {[&] { engine.createNetwork("OpenVINO", "n", "CPU", std::string(), {}); },
         "inner_model_identifier is empty! "},
        {[&] { engine.createNetwork("OpenVINO", "", "CPU", noFiles, {}); }, "network_identifier is empty! "},
        {[&] { engine.createNetwork("OpenVINO", "n", "CPU", noFiles, {}); }, "model_files is empty! "},
        {[&] { engine.createNetwork("Onnx", "n", "CPU", none, {}); }, "Not support Onnx engine."},
    });
    // One network on each engine, the second from a plugin model library. Creation from files
    // advises plugin models for products, naming every file.
    engine.registerModelAsInnerID("two_io", t::pluginLibrary("kel_pm_windowsml_two_io"));
    EXPECT_THAT(t::capturedStderr([&] {
                    engine.createNetwork("OpenVINO", "net1", "CPU", staticIr(), {});
                    engine.createNetwork("WindowsML", "net2", "CPU", std::string("two_io"), {});
                }),
                HasSubstr("[net1] would create by [" + staticIr()[0].string() + ", " + staticIr()[1].string() +
                          "]. Not recommend use native engine model for Release production. Please select "
                          "\"Plugin Model\" for Release."));
    t::expectRefusals({
        {[&] { engine.createNetwork("OpenVINO", "net1", "CPU", none, {}); },
         "Network id [net1] is exists. Please select other different one."},
        {[&] { engine.removeNetwork("net2"); }, "Could not remove current using network id [net2]."},
        {[&] { engine.removeNetwork(""); }, "network_id is empty."},
        {[&] { engine.removeNetwork("zz"); }, "not found network Id [zz]."},
        {[&] { engine.switchNetwork("net2"); }, "Network id [net2] is current running Network, no need to switch."},
        {[&] { engine.switchNetwork(""); }, "Network id [] not exists or created. Please check."},
        {[&] { engine.getNetworkEngine(""); }, "identifier is empty."},
        {[&] { engine.getNetworkDevice(""); }, "Network id [] not exists or created. Please check."},
    });
    // Layer calls follow the current network across engines.
    EXPECT_THAT(engine.getInputLayerNames(), UnorderedElementsAre("a", "b"));
    engine.switchNetwork("net1");
    EXPECT_THAT(engine.getInputLayerNames(), ElementsAre("data"));
    engine.removeNetwork("net2");
    EXPECT_THAT(engine.getCreatedNetworkIdentifiers(), ElementsAre("net1"));
    // A network created again under a removed identifier starts afresh in its back-end.
    const std::vector<std::filesystem::path> half{t::onnxModel("half.onnx")};
    t::capturedStderr([&] { engine.createNetwork("WindowsML", "net2", "CPU", half, {}); });
    EXPECT_THAT(engine.getInputLayerNames(), ElementsAre("h"));
}

TEST(Networks, AFailedCreationChangesNothingButTheStoredPropertiesWhichOutliveTheirNetwork) {
    kel::MLEngine engine;
    const auto create = [&](const char* id, const kel::PropertyMap& properties) {
        return t::thrownText([&] {
            t::capturedStderr([&] { engine.createNetwork("OpenVINO", id, "CPU", staticIr(), properties); });
        });
    };
    EXPECT_EQ(create("removed", {}), "");
    EXPECT_EQ(create("good", {}), "");
    // A value stored for an identifier outlives its network and meets the next one.
    engine.setEnginePropertyForNetwork("OpenVINO", "removed", "RUNTIME_STREAMS_NUMBER", std::string("abc"));
    engine.removeNetwork("removed");
    EXPECT_THAT(create("removed", {}), HasSubstr("invalid stoi argument"));
    // A value given to a creation is stored even when the back-end refuses it.
    EXPECT_THAT(create("bad", {{"RUNTIME_STREAMS_NUMBER", std::string("abc")}}), HasSubstr("invalid stoi argument"));
    EXPECT_THAT(create("bad", {}), HasSubstr("invalid stoi argument"));
    // A broken ONNX buffer on the other engine, which re-selects its own current network.
    const std::vector<kel::ModelBuffer> buffers{{"not an onnx model", 17}};
    EXPECT_NE(t::thrownText([&] { engine.createNetwork("WindowsML", "junk", "CPU", buffers, {}); }), "");
    // Nothing was registered, and the current network stays and runs.
    EXPECT_THAT(engine.getCreatedNetworkIdentifiers(), ElementsAre("good"));
    EXPECT_EQ(engine.getCurrentIdentifier(), "good");
    EXPECT_NO_THROW(engine.infer());
}

}  // namespace
