// Networks through kel::MLEngine: creation forms, the registry, routing and failures.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "kel/cxx/MLEngine.hpp"
#include "tests/support/models.hpp"

using testing::AllOf;
using testing::ElementsAre;
using testing::Not;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

namespace {

namespace t = kel::test;

const kel::PropertyMap kNone;

std::vector<std::filesystem::path> staticIr() {
    return {t::openvinoModel("static.xml"), t::openvinoModel("static.bin")};
}

// Runs the "static" IR network (input "data", output "prob") that is current.
void expectStaticIrWorks(kel::MLEngine& engine) {
    auto input = t::readArray<float>(t::openvinoModel("static.in.data.raw"));
    engine.setLayerData("data", input.data(), {1, 3, 4, 5});
    engine.infer();
    EXPECT_EQ(engine.getLayerDims("prob"), (std::vector<std::uint64_t>{1, 3, 4, 5}));
    t::expectNear(static_cast<const float*>(engine.getLayerData("prob")),
                  t::readArray<float>(t::openvinoModel("static.out.prob.raw")));
}

// Runs the "static_two_io" ONNX network (inputs a, b; outputs sum, product) that is current.
void expectTwoIoWorks(kel::MLEngine& engine) {
    auto a = t::readArray<float>(t::onnxModel("static_two_io.a.in.bin"));
    auto b = t::readArray<float>(t::onnxModel("static_two_io.b.in.bin"));
    engine.setLayerData("a", static_cast<void*>(a.data()), {1, 2, 3});
    engine.setLayerData("b", static_cast<void*>(b.data()), {1, 2, 3});
    engine.infer();
    t::expectNear(static_cast<const float*>(engine.getLayerData("sum")),
                  t::readArray<float>(t::onnxModel("static_two_io.sum.out.bin")));
    t::expectNear(static_cast<const float*>(engine.getLayerData("product")),
                  t::readArray<float>(t::onnxModel("static_two_io.product.out.bin")));
}

TEST(Networks, EveryCreationFormRunsAndSwitchingRoutesLayers) {
    kel::MLEngine engine;
    std::string err = t::capturedStderr([&] { engine.createNetwork("OpenVINO", "files", "CPU", staticIr(), kNone); });
    // File-based creation advises plugin models for products, naming every file.
    EXPECT_THAT(err, HasSubstr("[files] would create by [" + staticIr()[0].string() + ", " +
                               staticIr()[1].string() + "]. Not recommend use native engine model for "
                               "Release production. Please select \"Plugin Model\" for Release."));
    EXPECT_EQ(engine.getCurrentIdentifier(), "files");
    expectStaticIrWorks(engine);

    // From buffers (the back-end's suite owns the buffer rules).
    const std::string xml = t::readFile(t::openvinoModel("static.xml"));
    const std::string weights = t::readFile(t::openvinoModel("static.bin"));
    engine.createNetwork("OpenVINO", "buffers", "CPU",
                         std::vector<kel::ModelBuffer>{{xml.data(), xml.size()}, {weights.data(), weights.size()}},
                         kNone);

    // From a plugin model library, on the other engine.
    engine.registerModelAsInnerID("two_io", t::pluginLibrary("kel_pm_windowsml_two_io"));
    t::capturedStderr([&] { engine.createNetwork("WindowsML", "plugin", "CPU", std::string("two_io"), kNone); });
    EXPECT_EQ(engine.getCurrentEngine(), "WindowsML");
    expectTwoIoWorks(engine);

    // Layer calls follow the current network across engines.
    engine.switchNetwork("files");
    EXPECT_THAT(engine.getInputLayerNames(), ElementsAre("data"));
    expectStaticIrWorks(engine);
    engine.switchNetwork("plugin");
    EXPECT_THAT(engine.getOutputLayerNames(), UnorderedElementsAre("sum", "product"));
    expectTwoIoWorks(engine);

    EXPECT_THAT(engine.getCreatedNetworkIdentifiers(), UnorderedElementsAre("files", "buffers", "plugin"));
    EXPECT_EQ(engine.getNetworkEngine("buffers"), "OpenVINO");
    EXPECT_EQ(engine.getNetworkDevice("buffers"), "CPU");
    EXPECT_EQ(engine.getCurrentNetworkDevice(), "CPU");
}

TEST(Networks, RegistryRulesAndTheirTexts) {
    kel::MLEngine engine;
    std::vector<std::string> lines;
    engine.setLogCallback([&](const std::string& l) { lines.push_back(l); });
    const std::vector<kel::ModelBuffer> none;
    const std::vector<std::filesystem::path> noFiles;
    t::expectRefusals({
        {[&] { engine.createNetwork("", "n", "CPU", std::string("m"), kNone); }, "Engine Name is empty!"},
        {[&] { engine.createNetwork("OpenVINO", "", "CPU", std::string("m"), kNone); }, "network_identifier  is empty! "},
        {[&] { engine.createNetwork("OpenVINO", "", "CPU", none, kNone); }, "network_identifier is empty! "},
        {[&] { engine.createNetwork("OpenVINO", "n", "CPU", std::string(), kNone); }, "inner_model_identifier is empty! "},
        {[&] { engine.createNetwork("OpenVINO", "", "CPU", noFiles, kNone); }, "network_identifier is empty! "},
        {[&] { engine.createNetwork("OpenVINO", "n", "CPU", noFiles, kNone); }, "model_files is empty! "},
        {[&] { engine.createNetwork("Onnx", "n", "CPU", none, kNone); }, "Not support Onnx engine."},
    });
    t::capturedStderr([&] {
        engine.createNetwork("OpenVINO", "net1", "CPU", staticIr(), kNone);
        engine.createNetwork("OpenVINO", "net2", "CPU", staticIr(), kNone);
    });
    t::expectRefusals({
        {[&] { engine.createNetwork("OpenVINO", "net1", "CPU", none, kNone); },
         "Network id [net1] is exists. Please select other different one."},
        {[&] { engine.removeNetwork("net2"); }, "Could not remove current using network id [net2]."},
        {[&] { engine.removeNetwork(""); }, "network_id is empty."},
        {[&] { engine.removeNetwork("zz"); }, "not found network Id [zz]."},
        {[&] { engine.switchNetwork("net2"); }, "Network id [net2] is current running Network, no need to switch."},
        {[&] { engine.switchNetwork(""); }, "Network id [] not exists or created. Please check."},
        {[&] { engine.getNetworkEngine(""); }, "identifier is empty."},
        {[&] { engine.getNetworkDevice(""); }, "Network id [] not exists or created. Please check."},
    });
    lines.clear();
    engine.switchNetwork("net1");
    EXPECT_THAT(lines, testing::Contains("[KEL switchNetwork]: network_identifier is net1"));
    engine.removeNetwork("net2");
    EXPECT_THAT(engine.getCreatedNetworkIdentifiers(), ElementsAre("net1"));
}

TEST(Networks, LayerCallsBeforeAnyNetworkFailAsDocumented) {
    kel::MLEngine engine;
    // Each is located at the operation's own file, not at the helper that checks.
    const std::pair<const char*, std::function<void()>> calls[] = {
        {"] kel/cxx/infer.cpp:", [&] { engine.infer(); }},
        {"] kel/cxx/getInputLayerNames.cpp:", [&] { engine.getInputLayerNames(); }},
        {"] kel/cxx/getOutputLayerNames.cpp:", [&] { engine.getOutputLayerNames(); }},
        {"] kel/cxx/getLayerData.cpp:", [&] { engine.getLayerData("x"); }},
        {"] kel/cxx/getLayerDims.cpp:", [&] { engine.getLayerDims("x"); }},
    };
    for (const auto& [file, call] : calls)
        EXPECT_THAT(t::thrownText(call),
                    AllOf(HasSubstr(file), HasSubstr("\nPlease Create a network with craeteNetwork API first.\n")));
    EXPECT_THROW(engine.getLayerPrecision("x"), std::out_of_range);
    EXPECT_EQ(t::thrownText([&] { engine.getLayerPrecision("x"); }), "invalid unordered_map<K, T> key");
    EXPECT_EQ(t::thrownText([&] { engine.setLayerData("x", std::any(), {1}); }), "invalid unordered_map<K, T> key");
}

TEST(Networks, AFailedCreationChangesNothingButTheStoredProperties) {
    kel::MLEngine engine;
    t::capturedStderr([&] { engine.createNetwork("OpenVINO", "good", "CPU", staticIr(), kNone); });

    // The back-end refuses the property value: nothing is registered, the current network
    // stays, and the engine goes on working.
    const kel::PropertyMap bad = {{"RUNTIME_STREAMS_NUMBER", std::string("abc")}};
    const std::string first = t::thrownText([&] {
        t::capturedStderr([&] { engine.createNetwork("OpenVINO", "bad", "CPU", staticIr(), bad); });
    });
    EXPECT_THAT(first, HasSubstr("invalid stoi argument"));
    EXPECT_THAT(engine.getCreatedNetworkIdentifiers(), ElementsAre("good"));
    EXPECT_EQ(engine.getCurrentIdentifier(), "good");
    expectStaticIrWorks(engine);

    // The refused value stays stored for the identifier: a retry without properties meets it.
    const std::string second = t::thrownText([&] {
        t::capturedStderr([&] { engine.createNetwork("OpenVINO", "bad", "CPU", staticIr(), kNone); });
    });
    EXPECT_THAT(second, HasSubstr("invalid stoi argument"));

    // A broken ONNX buffer on the other engine (which re-selects its own current network)
    // leaves the current network usable too.
    const std::string junk = "not an onnx model";
    EXPECT_FALSE(t::thrownText([&] {
                     t::capturedStderr([&] {
                         engine.createNetwork("WindowsML", "junk", "CPU",
                                              std::vector<kel::ModelBuffer>{{junk.data(), junk.size()}}, kNone);
                     });
                 }).empty());
    expectStaticIrWorks(engine);
}

TEST(Networks, ARecreatedIdentifierStartsFromItsStoredProperties) {
    kel::MLEngine engine;
    std::vector<std::string> lines;
    engine.setLogCallback([&](const std::string& l) { lines.push_back(l); });
    auto logged = [&] {
        return std::count_if(lines.begin(), lines.end(), [](const std::string& l) {
            return l.find("[INFERENCE_THREADS_NUMBER] is [1]") != std::string::npos;
        });
    };
    t::capturedStderr([&] {
        engine.createNetwork("OpenVINO", "n1", "CPU", staticIr(), {{"INFERENCE_THREADS_NUMBER", std::string("1")}});
        engine.createNetwork("OpenVINO", "n2", "CPU", staticIr(), kNone);
    });
    EXPECT_EQ(logged(), 1);
    engine.removeNetwork("n1");
    t::capturedStderr([&] { engine.createNetwork("OpenVINO", "n1", "CPU", staticIr(), kNone); });
    EXPECT_EQ(logged(), 2);
    expectStaticIrWorks(engine);
}

TEST(Networks, SingleCompiledModelDirectoryGetsNoAdvice) {
    kel::MLEngine engine;
    t::TempDir dir;
    const auto advice = [&](const std::string& name) {
        std::filesystem::create_directories(dir / name);
        return t::capturedStderr([&] {
            t::thrownText([&] {
                engine.createNetwork("OpenVINO", name, "CPU", std::vector<std::string>{(dir / name).string()}, kNone);
            });
        });
    };
    EXPECT_THAT(advice("m.mlmodelc"), Not(HasSubstr("KEL Warning")));
    EXPECT_THAT(advice("p.mlpackage"), HasSubstr("Please use converted \".mlmodelc\" directory for Release. (Could "
                                                 "put it in function .framework \"Resource\" directory)"));
}

}  // namespace
