// The engine object: its engine table, versions, devices and properties, shared copies and
// plugin model libraries.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kel/cxx/MLEngine.hpp"
#include "tests/support/models.hpp"

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

namespace t = kel::test;

bool isLoaded(const std::filesystem::path& library) {
    void* h = dlopen(library.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (h) dlclose(h);
    return h != nullptr;
}

TEST(Engine, TableVersionsAndTheirRefusals) {
    auto loader = +[](const wchar_t*) -> void* { return nullptr; };
    kel::MLEngine engine(loader, loader);  // loaders are accepted and ignored
    EXPECT_THAT(engine.getSupportedEngines(), ElementsAre("OpenVINO", "WindowsML"));
    EXPECT_EQ(engine.getCurrentIdentifier(), "");
    EXPECT_EQ(t::thrownText([&] { engine.getCurrentEngine(); }), "invalid unordered_map<K, T> key");
    EXPECT_EQ(engine.version(), "2025.10.23-78560f91(x64)");
    EXPECT_THAT(engine.version("OpenVINO"), MatchesRegex("20[0-9][0-9]\\.[0-9]+\\.[0-9]+-.*"));
    EXPECT_THAT(engine.version("WindowsML"), MatchesRegex("[0-9]+\\.[0-9]+\\.[0-9]+"));
    EXPECT_THAT(engine.getSupportedDevices("WindowsML"), ElementsAre("AUTO", "CPU"));
    EXPECT_THAT(engine.getDeviceSupportProperties("WindowsML", "CPU"), IsEmpty());
    EXPECT_TRUE(std::holds_alternative<std::monostate>(engine.getDeviceProperty("WindowsML", "CPU", "FULL_DEVICE_NAME")));
    EXPECT_EQ(engine.getEngineMutableProperties("OpenVINO").at("CACHE_DIR"), "std::filesystem::path");
    EXPECT_THAT(engine.getEngineMutableProperties("WindowsML"), IsEmpty());
    const auto set = [&](const char* engineName, const char* name, std::any value) {
        return [=, &engine] { engine.setEnginePropertyForNetwork(engineName, "n", name, value); };
    };
    t::expectRefusals({
        {[&] { engine.getCurrentNetworkDevice(); }, "Network id [] not exists or created. Please check."},
        {[&] { engine.version(""); }, "Engine Name is empty!"},
        {[&] { engine.version("openvino"); }, "Not support openvino engine."},
        {[&] { engine.getModelInnerIDs("CoreML"); }, "Not support CoreML engine."},
        {[&] { engine.getSupportedDevices("openvino"); }, "Not support openvino engine."},
        // "AUTO" is refused before the engine name is even looked up.
        {[&] { engine.getDeviceSupportProperties("NoSuchEngine", "AUTO"); }, "could not get the property for AUTO device."},
        {[&] { engine.getDeviceSupportProperties("OpenVINO", ""); }, "device is empty! "},
        {[&] { engine.getDeviceProperty("OpenVINO", "CPU", ""); }, "supported_property is empty! "},
        {[&] { engine.getEngineMutableProperties("X"); }, "Engine [X] Not supported!"},
        {set("OpenVINO", "RUNTIME_STREAMS_NUMBER", "2"),
         "RUNTIME_STREAMS_NUMBER need std::string type, but the property_value is not! Please check."},
        {set("OpenVINO", "RUNTIME_STREAMS_NUMBER", std::any()),
         "RUNTIME_STREAMS_NUMBER need std::string type, but the property_value is not! Please check."},
        {set("OpenVINO", "CACHE_DIR", std::string("/tmp")),
         "CACHE_DIR need std::filesystem::path type, but the property_value is not! Please check."},
        {set("OpenVINO", "NUM_STREAMS", std::string("2")), "OpenVINO no NUM_STREAMS property! Please check."},
        {set("WindowsML", "CACHE_DIR", std::filesystem::path("/tmp")), "WindowsML no CACHE_DIR property! Please check."},
    });
    EXPECT_NO_THROW(set("OpenVINO", "CACHE_DIR", std::filesystem::path("/tmp"))());
}

TEST(Engine, AssignmentSharesTheImplementation) {
    kel::MLEngine a;
    std::vector<std::string> lines;
    {
        kel::MLEngine b;
        b = a;
        b.setLogCallback([&](const std::string& l) { lines.push_back(l); });
    }
    // a kept the callback installed through b, and outlives b without harm.
    lines.clear();
    a.setLogCallback([&](const std::string& l) { lines.push_back(l); });
    EXPECT_EQ(lines.size(), 2u);
}

TEST(Engine, HostDriverVersionsAreReplacedByTheLibrarysOwn) {
    kel::MLEngine engine;
    kel::PropertyMap props = {{"LOCAL_GPU_DRIVER_VERSION", std::string("31.0.101.2115")},
                              {"LOCAL_NPU_DRIVER_VERSION", std::string("32.0.100.9999")},
                              {"MIN_GPU_DRIVER_VERSION", std::string("1.0.100.1")}};
    engine.processPropertyForEngine("OpenVINO", props);
    // This machine has no Intel GPU or NPU: nothing replaces the host's values.
    EXPECT_THAT(props, ElementsAre(testing::Key("MIN_GPU_DRIVER_VERSION")));
    kel::PropertyMap other = {{"LOCAL_GPU_DRIVER_VERSION", std::string("x")}};
    engine.processPropertyForEngine("WindowsML", other);
    EXPECT_TRUE(other.empty());

    // Through creation the host's GPU driver version never reaches the back-end, so the
    // network moves to "AUTO" for want of a local GPU driver.
    std::vector<std::string> lines;
    engine.setLogCallback([&](const std::string& l) { lines.push_back(l); });
    t::capturedStderr([&] {
        t::thrownText([&] {
            engine.createNetwork("OpenVINO", "g", "GPU", std::vector<std::filesystem::path>{t::openvinoModel("static.xml")},
                                 {{"LOCAL_GPU_DRIVER_VERSION", std::string("31.0.101.2115")}});
        });
    });
    EXPECT_THAT(lines, Contains(HasSubstr("local GPU driver version: [], minimum GPU driver version: "
                                          "[32.0.101.2115], so change device from [GPU] to [AUTO]")));
}

TEST(InnerModels, RefusedLibrariesLeaveNothingBehind) {
    const std::pair<const char*, std::string> refusals[] = {
        {"kel_pm_bad_two_engines", "Register plugin model have 2 engines! Only 1 engine is allowed here."},
        {"kel_pm_bad_two_versions", "Register plugin model have 2 versions! Only 1 version is allowed here."},
        {"kel_pm_bad_openvino_one_model",
         "Register plugin model have 1 inner models! Only 2 inner model is allowed here.[For OpenVINO]"},
        {"kel_pm_bad_windowsml_two_models",
         "Register plugin model have 2 inner models! Only 1 inner model is allowed here.[For WindowsML]"},
        {"kel_pm_bad_zero_size", "Register plugin model can not get the model size"},
        {"kel_pm_bad_null_buffer", "Register plugin model can not get the model buffer"},
        {"kel_pm_bad_weights_size", "Register plugin model can not get the model1 size"},
        {"kel_pm_bad_weights_buffer", "Register plugin model can not get the model1 buffer"},
        {"kel_pm_bad_coreml", "CoreML Not support "},
        {"kel_pm_bad_empty_engine", "Engine Name is empty from plugin model!"},
        // Its exception lives in its own image: turned into kel's before the library goes.
        {"kel_pm_throwing", "plugin model library function kelModelCreate threw an exception of unknown type."},
    };
    kel::MLEngine engine;
    for (const auto& [library, text] : refusals) {
        const auto path = t::pluginLibrary(library);
        ASSERT_TRUE(std::filesystem::exists(path));
        t::expectRefusals({{[&] { engine.registerModelAsInnerID("m", path); }, text}});
        EXPECT_FALSE(isLoaded(path)) << library;
    }
    t::TempDir dir;
    t::writeFile(dir / "model.so", "plain text\n");
    t::expectRefusals({
        {[&] { engine.registerModelAsInnerID("m", dir / "missing.so"); },
         "Register path " + (dir / "missing.so").string() + " not exists."},
        {[&] { engine.registerModelAsInnerID("m", dir / "model.so"); },
         "register model file " + (dir / "model.so").string() + " is not a valid shared library."},
    });
    EXPECT_THAT(engine.getModelInnerIDs("OpenVINO"), IsEmpty());
    EXPECT_THAT(engine.getModelInnerIDs("WindowsML"), IsEmpty());
    // Nothing was kept under the identifier.
    engine.registerModelAsInnerID("m", t::pluginLibrary("kel_pm_openvino_static"));
    EXPECT_THAT(engine.getModelInnerIDs("OpenVINO"), ElementsAre("m"));
    t::expectRefusals({{[&] { engine.registerModelAsInnerID("m", t::pluginLibrary("kel_pm_windowsml_two_io")); },
                        "Model id [m] is existed! Please use another one."}});
}

TEST(InnerModels, UnregisteringWaitsForTheLastNetworkAndFreesTheLibrary) {
    const auto library = t::pluginLibrary("kel_pm_openvino_static");
    const auto nulled = t::pluginLibrary("kel_pm_null_object");
    {
        kel::MLEngine engine;
        engine.registerModelAsInnerID("static", library);
        // A null model object is registered like any other.
        engine.registerModelAsInnerID("null", nulled);
        EXPECT_THAT(engine.getModelInnerIDs("WindowsML"), ElementsAre("null"));
        engine.createNetwork("WindowsML", "nulled", "CPU", std::string("null"), {});
        EXPECT_THAT(engine.getInputLayerNames(), testing::UnorderedElementsAre("a", "b"));
        engine.createNetwork("OpenVINO", "n", "CPU", std::string("static"), {});
        engine.createNetwork("OpenVINO", "other", "CPU", std::string("static"), {});
        engine.removeNetwork("nulled");
        engine.unregisterInnerID("null");
        EXPECT_FALSE(isLoaded(nulled));

        engine.switchNetwork("n");
        t::expectRefusals({
            {[&] { engine.unregisterInnerID("static"); },
             "[2] network(s) is/are using inner model [static]. Please delete it/them first."},
            {[&] { engine.unregisterInnerID("nope"); }, "not found Model Id [nope] for unregister."},
        });
        engine.removeNetwork("other");
        t::expectRefusals({{[&] { engine.unregisterInnerID("static"); },
                            "[1] network(s) is/are using inner model [static]. Please delete it/them first."}});
        // With its last network gone (a new current one first), the model can go.
        t::capturedStderr([&] {
            engine.createNetwork("OpenVINO", "files", "CPU",
                                 std::vector<std::filesystem::path>{t::openvinoModel("static.xml")}, {});
        });
        engine.removeNetwork("n");
        engine.unregisterInnerID("static");
        EXPECT_THAT(engine.getModelInnerIDs("OpenVINO"), IsEmpty());
        EXPECT_FALSE(isLoaded(library));
        engine.registerModelAsInnerID("again", library);
        EXPECT_TRUE(isLoaded(library));
    }
    // Destroying the engine releases what is still registered.
    EXPECT_FALSE(isLoaded(library));
}

}  // namespace
