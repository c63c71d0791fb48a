// kel::MLEngine: its engine table, plugin model libraries and shared copies, and its networks.
#include <dlfcn.h>
#include <sys/utsname.h>
#include <gmock/gmock.h>

#include "kel/cxx/MLEngine.hpp"
#include "tests/support/models.hpp"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

namespace {

namespace t = kel::test;

bool isLoaded(const std::filesystem::path& library) {
    void* h = dlopen(library.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (h) dlclose(h);
    return h != nullptr;
}

TEST(Engine, TableAndItsRefusals) {
    auto loader = +[](const wchar_t*) -> void* { return nullptr; };
    kel::MLEngine engine(loader, loader);  // loaders are accepted and ignored
    EXPECT_EQ(t::thrownText([&] { engine.getCurrentEngine(); }), "invalid unordered_map<K, T> key");
    utsname os{};  // WindowsML answers with the system's version: here the kernel release's numbers
    unsigned v[3] = {};
    ASSERT_TRUE(uname(&os) == 0 && std::sscanf(os.release, "%u.%u.%u", &v[0], &v[1], &v[2]) == 3);
    EXPECT_EQ(engine.version("WindowsML"), std::to_string(v[0]) + "." + std::to_string(v[1]) + "." + std::to_string(v[2]));
    t::expectRefusals({
        {[&] { engine.version("openvino"); }, "Not support openvino engine."},
        {[&] { engine.getModelInnerIDs("X"); }, "Not support X engine."},
        {[&] { engine.getSupportedDevices("X"); }, "Not support X engine."},
        // "AUTO" is refused before the engine name is even looked up.
        {[&] { engine.getDeviceSupportProperties("NoSuchEngine", "AUTO"); },
         "could not get the property for AUTO device."},
        {[&] { engine.getDeviceSupportProperties("OpenVINO", ""); }, "device is empty! "},
        {[&] { engine.getDeviceProperty("OpenVINO", "", ""); }, "device is empty! "},
        {[&] { engine.getDeviceProperty("OpenVINO", "CPU", ""); }, "supported_property is empty! "},
        {[&] { engine.getEngineMutableProperties("X"); }, "Engine [X] Not supported!"},
        {[&] { engine.setEnginePropertyForNetwork("WindowsML", "n", "CACHE_DIR", std::filesystem::path("/tmp")); },
         "WindowsML no CACHE_DIR property! Please check."},
    });
}

TEST(Engine, HostDriverVersionsAreReplacedByTheLibrarysOwn) {
    kel::MLEngine engine;
    std::vector<std::string> lines;
    engine.setLogCallback([&](const std::string& l) { lines.push_back(l); });
    const kel::PropertyMap host = {{"LOCAL_GPU_DRIVER_VERSION", std::string("31.0.101.2115")},
                                   {"LOCAL_NPU_DRIVER_VERSION", std::string("32.0.100.9999")},
                                   {"MIN_GPU_DRIVER_VERSION", std::string("1.0.100.1")}};
    // WindowsML looks for no drivers of its own: the host's values just go.
    kel::PropertyMap properties = host;
    engine.processPropertyForEngine("WindowsML", properties);
    EXPECT_THAT(properties, ElementsAre(testing::Key("MIN_GPU_DRIVER_VERSION")));
    // OpenVINO finds no Intel GPU here, so creation moves the network to "AUTO".
    const std::vector<std::filesystem::path> files{t::openvinoModel("static.xml")};
    t::capturedStderr([&] { t::thrownText([&] { engine.createNetwork("OpenVINO", "g", "GPU", files, host); }); });
    EXPECT_THAT(lines, testing::Contains(HasSubstr("local GPU driver version: [], minimum GPU driver version: [1.0.100.1], "
                                                   "so change device from [GPU] to [AUTO] with [GPU,CPU] multi-device "
                                                   "priorities.")));
}

TEST(InnerModels, RefusedLibrariesLeaveNothingAndUnregisteringWaitsForTheLastNetwork) {
    t::TempDir dir;
    t::writeFile(dir / "model.so", "plain text\n");
    const auto bad = [](const char* name) { return t::pluginLibrary(std::string("kel_pm_bad_") + name); };
    const std::pair<std::filesystem::path, std::string> refusals[] = {
        {bad("two_engines"), "Register plugin model have 2 engines! Only 1 engine is allowed here."},
        {bad("two_versions"), "Register plugin model have 2 versions! Only 1 version is allowed here."},
        {bad("openvino_one_model"),
         "Register plugin model have 1 inner models! Only 2 inner model is allowed here.[For OpenVINO]"},
        {bad("windowsml_two_models"),
         "Register plugin model have 2 inner models! Only 1 inner model is allowed here.[For WindowsML]"},
        {bad("zero_size"), "Register plugin model can not get the model size"},
        {bad("null_buffer"), "Register plugin model can not get the model buffer"},
        {bad("weights_size"), "Register plugin model can not get the model1 size"},
        {bad("weights_buffer"), "Register plugin model can not get the model1 buffer"},
        {bad("coreml"), "CoreML Not support "},
        {bad("empty_engine"), "Engine Name is empty from plugin model!"},
        {bad("negative_length"), "Register plugin model reports a length of -1 for its engine name!"},
        // Its exception lives in its own image: turned into kel's before the library goes.
        {t::pluginLibrary("kel_pm_throwing"),
         "plugin model library function kelModelCreate threw an exception of unknown type."},
        {dir / "missing.so", "Register path " + (dir / "missing.so").string() + " not exists."},
        {dir / "model.so", "register model file " + (dir / "model.so").string() + " is not a valid shared library."},
    };
    const auto library = t::pluginLibrary("kel_pm_openvino_static");
    {
        kel::MLEngine engine;
        for (const auto& [path, text] : refusals) {
            t::expectRefusals({{[&] { engine.registerModelAsInnerID("m", path); }, text}});
            EXPECT_FALSE(isLoaded(path)) << path;
        }
        // Nothing was kept under the identifier.
        engine.registerModelAsInnerID("m", library);
        engine.createNetwork("OpenVINO", "current", "CPU", std::string("m"), {});
        t::expectRefusals({
            {[&] { engine.registerModelAsInnerID("m", t::pluginLibrary("kel_pm_windowsml_two_io")); },
             "Model id [m] is existed! Please use another one."},
            {[&] { engine.unregisterInnerID("m"); },
             "[1] network(s) is/are using inner model [m]. Please delete it/them first."},
            {[&] { engine.unregisterInnerID("nope"); }, "not found Model Id [nope] for unregister."},
        });
        // A null model object registers like any other; its network becomes current, so "m" can go.
        engine.registerModelAsInnerID("null", t::pluginLibrary("kel_pm_null_object"));
        engine.createNetwork("WindowsML", "nulled", "CPU", std::string("null"), {});
        EXPECT_THAT(engine.getInputLayerNames(), UnorderedElementsAre("a", "b"));
        engine.removeNetwork("current");
        engine.unregisterInnerID("m");
        EXPECT_FALSE(isLoaded(library));
        {
            kel::MLEngine copy;
            copy = engine;
            copy.registerModelAsInnerID("again", library);
        }
        // What an assigned copy did is the engine's own, and outlives the copy.
        EXPECT_THAT(engine.getModelInnerIDs("OpenVINO"), ElementsAre("again"));
        EXPECT_TRUE(isLoaded(library));
    }
    // Destroying the engine releases what is still registered.
    EXPECT_FALSE(isLoaded(library));
}

TEST(Networks, RegistryRulesAndTheirTexts) {
    kel::MLEngine engine;
    // A layer call before any network is located at the operation's own file, not the helper's.
    EXPECT_EQ(t::kelMessageFrom("kel/cxx/getLayerDims.cpp", [&] { engine.getLayerDims("x"); }),
              "Please Create a network with craeteNetwork API first.");

    const std::vector<kel::ModelBuffer> none;
    const std::vector<std::filesystem::path> noFiles;
    t::expectRefusals({
        {[&] { engine.createNetwork("", "n", "CPU", std::string("m"), {}); }, "Engine Name is empty!"},
        {[&] { engine.createNetwork("OpenVINO", "", "CPU", std::string("m"), {}); },
         "network_identifier  is empty! "},
        {[&] { engine.createNetwork("OpenVINO", "n", "CPU", std::string(), {}); },
         "inner_model_identifier is empty! "},
        {[&] { engine.createNetwork("OpenVINO", "", "CPU", noFiles, {}); }, "network_identifier is empty! "},
        {[&] { engine.createNetwork("OpenVINO", "n", "CPU", noFiles, {}); }, "model_files is empty! "},
        {[&] { engine.createNetwork("Onnx", "n", "CPU", none, {}); }, "Not support Onnx engine."},
    });
    // The advice's status query fails for a name too long for the file system, whatever it ends with.
    const std::vector<std::filesystem::path> tooLong{std::string(300, 'x') + ".xml"};
    EXPECT_THAT(t::thrownText([&] { engine.createNetwork("OpenVINO", "n", "CPU", tooLong, {}); }),
                testing::StartsWith("filesystem error: status: File name too long"));
    const t::TempDir dir;  // Core ML: ".mlmodel" files, ".mlpackage" directories; ".mlmodelc" no advice
    for (const char* made : {"d.mlpackage", "d.mlmodelc", "d.mlmodel"}) std::filesystem::create_directory(dir / made);
    t::writeFile(dir / "m.mlmodel", "x");
    const std::string compiled = "Please use converted \".mlmodelc\" directory for Release. (Could put it in function "
                                 ".framework \"Resource\" directory)";
    const std::pair<const char*, std::string> advices[] = {{"m.mlmodel", compiled}, {"d.mlpackage", compiled},
                                                           {"d.mlmodelc", ""}, {"d.mlmodel", "Please select"}};
    for (const auto& [name, advised] : advices) {
        const auto advice = t::capturedStderr([&] {
            t::thrownText([&] { engine.createNetwork("OpenVINO", "n", "CPU", std::vector{dir / name}, {}); });
        });
        const std::string line = "[n] would create by [" + (dir / name).string() +
                                 "]. Not recommend use native engine model for Release production. " + advised;
        EXPECT_EQ(advice.find(advised.empty() ? "Not recommend" : line) != std::string::npos, !advised.empty()) << name;
    }
    // One network on each engine; creation from files advises plugin models, naming every file.
    engine.registerModelAsInnerID("two_io", t::pluginLibrary("kel_pm_windowsml_two_io"));
    const auto advice = t::capturedStderr([&] { engine.createNetwork("OpenVINO", "net1", "CPU", t::staticIr(), {}); });
    engine.createNetwork("WindowsML", "net2", "CPU", std::string("two_io"), {});
    EXPECT_THAT(advice, HasSubstr("[net1] would create by [" + t::staticIr()[0].string() + ", " + t::staticIr()[1].string() +
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
            t::capturedStderr([&] { engine.createNetwork("OpenVINO", id, "CPU", t::staticIr(), properties); });
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
