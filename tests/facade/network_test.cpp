// Networks through kel::MLEngine: creation forms, the registry, routing and failures.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "kel/cxx/MLEngine.hpp"
#include "tests/support/models.hpp"

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
    t::expectNear(static_cast<const float*>(engine.getLayerData("prob")),
                  t::readArray<float>(t::openvinoModel("static.out.prob.raw")));
}

// Runs the "static_two_io" ONNX network (inputs a, b; outputs sum, product) that is current.
void expectTwoIoWorks(kel::MLEngine& engine) {
    std::vector<float> a(6, 1.5f), b(6, 2.0f);
    engine.setLayerData("a", static_cast<void*>(a.data()), {1, 2, 3});
    engine.setLayerData("b", static_cast<void*>(b.data()), {1, 2, 3});
    engine.infer();
    EXPECT_EQ(static_cast<const float*>(engine.getLayerData("sum"))[5], 3.5f);
    EXPECT_EQ(static_cast<const float*>(engine.getLayerData("product"))[5], 3.0f);
}

TEST(Networks, EveryCreationFormRunsAndSwitchingRoutesLayers) {
    kel::MLEngine engine;
    const std::string err =
        t::capturedStderr([&] { engine.createNetwork("OpenVINO", "files", "CPU", staticIr(), kNone); });
    // File-based creation advises plugin models for products, naming every file.
    EXPECT_THAT(err, HasSubstr("[files] would create by [" + staticIr()[0].string() + ", " +
                               staticIr()[1].string() + "]. Not recommend use native engine model for "
                               "Release production. Please select \"Plugin Model\" for Release."));
    expectStaticIrWorks(engine);

    // From a plugin model library, on the other engine (the flat suite creates from buffers).
    engine.registerModelAsInnerID("two_io", t::pluginLibrary("kel_pm_windowsml_two_io"));
    t::capturedStderr([&] { engine.createNetwork("WindowsML", "plugin", "CPU", std::string("two_io"), kNone); });

    // Layer calls follow the current network across engines.
    engine.switchNetwork("files");
    expectStaticIrWorks(engine);
    engine.switchNetwork("plugin");
    expectTwoIoWorks(engine);
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
        {[&] { engine.createNetwork("", "n", "CPU", std::string("m"), kNone); }, "Engine Name is empty!"},
        {[&] { engine.createNetwork("OpenVINO", "", "CPU", std::string("m"), kNone); },
         "network_identifier  is empty! "},
        {[&] { engine.createNetwork("OpenVINO", "", "CPU", none, kNone); }, "network_identifier is empty! "},
        {[&] { engine.createNetwork("OpenVINO", "n", "CPU", std::string(), kNone); },
         "inner_model_identifier is empty! "},
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
    engine.switchNetwork("net1");
    engine.removeNetwork("net2");
    EXPECT_THAT(engine.getCreatedNetworkIdentifiers(), ElementsAre("net1"));
}

TEST(Networks, AFailedCreationChangesNothingButTheStoredPropertiesWhichOutliveTheirNetwork) {
    kel::MLEngine engine;
    std::vector<std::string> lines;
    engine.setLogCallback([&](const std::string& l) { lines.push_back(l); });
    const auto create = [&](const char* id, const kel::PropertyMap& properties) {
        return t::thrownText([&] {
            t::capturedStderr([&] { engine.createNetwork("OpenVINO", id, "CPU", staticIr(), properties); });
        });
    };
    EXPECT_EQ(create("stored", {{"INFERENCE_THREADS_NUMBER", std::string("1")}}), "");
    EXPECT_EQ(create("good", kNone), "");

    // The back-end refuses the property value: nothing is registered, the current network
    // stays, and the engine goes on working.
    EXPECT_THAT(create("bad", {{"RUNTIME_STREAMS_NUMBER", std::string("abc")}}), HasSubstr("invalid stoi argument"));
    EXPECT_THAT(engine.getCreatedNetworkIdentifiers(), UnorderedElementsAre("stored", "good"));
    EXPECT_EQ(engine.getCurrentIdentifier(), "good");
    expectStaticIrWorks(engine);
    // The refused value stays stored for the identifier: a retry without properties meets it.
    EXPECT_THAT(create("bad", kNone), HasSubstr("invalid stoi argument"));

    // A broken ONNX buffer on the other engine (which re-selects its own current network)
    // leaves the current network usable too.
    const std::vector<kel::ModelBuffer> buffers{{"not an onnx model", 17}};
    EXPECT_NE(t::thrownText([&] { engine.createNetwork("WindowsML", "junk", "CPU", buffers, kNone); }), "");
    expectStaticIrWorks(engine);

    // Removing a network keeps its stored properties for a network of the same identifier.
    engine.removeNetwork("stored");
    lines.clear();
    EXPECT_EQ(create("stored", kNone), "");
    EXPECT_THAT(lines, testing::Contains(HasSubstr("[INFERENCE_THREADS_NUMBER] is [1]")));
}

TEST(Networks, CompiledModelDirectoriesGetNoAdviceAndPackagesTheirOwn) {
    kel::MLEngine engine;
    t::TempDir dir;
    const auto advice = [&](const std::string& name) {
        std::filesystem::create_directories(dir / name);
        const std::vector<std::string> files{(dir / name).string()};
        return t::capturedStderr(
            [&] { t::thrownText([&] { engine.createNetwork("OpenVINO", name, "CPU", files, kNone); }); });
    };
    EXPECT_THAT(advice("m.mlmodelc"), Not(HasSubstr("KEL Warning")));
    EXPECT_THAT(advice("p.mlpackage"), HasSubstr("Please use converted \".mlmodelc\" directory for Release."));
}

}  // namespace
