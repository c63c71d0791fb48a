// Plugin model libraries: registration, its refusals, and unregistration.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kel/cxx/MLEngine.hpp"
#include "tests/support/models.hpp"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

namespace t = kel::test;

bool isLoaded(const std::filesystem::path& library) {
    void* h = dlopen(library.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (h) dlclose(h);
    return h != nullptr;
}

struct Refusal {
    const char* library;
    const char* message;
};

TEST(InnerModels, BrokenLibrariesAreRefusedWithTheirTextsAndLeaveNothingBehind) {
    const Refusal refusals[] = {
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
    for (const auto& r : refusals) {
        SCOPED_TRACE(r.library);
        const auto path = t::pluginLibrary(r.library);
        ASSERT_TRUE(std::filesystem::exists(path));
        EXPECT_THAT(t::thrownText([&] { engine.registerModelAsInnerID("m", path); }),
                    HasSubstr("\n" + std::string(r.message) + "\n"));
        EXPECT_FALSE(isLoaded(path));
    }
    EXPECT_THAT(engine.getModelInnerIDs("OpenVINO"), IsEmpty());
    EXPECT_THAT(engine.getModelInnerIDs("WindowsML"), IsEmpty());
    // Nothing was kept under the identifier.
    engine.registerModelAsInnerID("m", t::pluginLibrary("kel_pm_openvino_static"));
    EXPECT_THAT(engine.getModelInnerIDs("OpenVINO"), ElementsAre("m"));
}

TEST(InnerModels, PathsThatAreNotLibrariesAreRefusedBeforeLoading) {
    kel::MLEngine engine;
    t::TempDir dir;
    t::writeFile(dir / "model.so", "plain text\n");
    EXPECT_THAT(t::thrownText([&] { engine.registerModelAsInnerID("m", dir / "missing.so"); }),
                HasSubstr("\nRegister path " + (dir / "missing.so").string() + " not exists.\n"));
    EXPECT_THAT(t::thrownText([&] { engine.registerModelAsInnerID("m", dir / "model.so"); }),
                HasSubstr("\nregister model file " + (dir / "model.so").string() +
                          " is not a valid shared library.\n"));
    engine.registerModelAsInnerID("m", t::pluginLibrary("kel_pm_openvino_static"));
    EXPECT_THAT(t::thrownText([&] { engine.registerModelAsInnerID("m", t::pluginLibrary("kel_pm_windowsml_two_io")); }),
                HasSubstr("\nModel id [m] is existed! Please use another one.\n"));
}

TEST(InnerModels, UnregisteringWaitsForTheLastNetworkAndFreesTheLibrary) {
    const auto library = t::pluginLibrary("kel_pm_openvino_static");
    {
        kel::MLEngine engine;
        engine.registerModelAsInnerID("static", library);
        EXPECT_TRUE(isLoaded(library));
        engine.createNetwork("OpenVINO", "n", "CPU", std::string("static"), {});
        engine.createNetwork("OpenVINO", "other", "CPU", std::string("static"), {});

        auto input = t::readArray<float>(t::openvinoModel("static.in.data.raw"));
        engine.setLayerData("data", input.data(), {1, 3, 4, 5});
        engine.infer();
        t::expectNear(static_cast<const float*>(engine.getLayerData("prob")),
                      t::readArray<float>(t::openvinoModel("static.out.prob.raw")));

        engine.switchNetwork("n");
        EXPECT_THAT(t::thrownText([&] { engine.unregisterInnerID("static"); }),
                    HasSubstr("\n[2] network(s) is/are using inner model [static]. Please delete it/them first.\n"));
        engine.removeNetwork("other");
        EXPECT_THAT(t::thrownText([&] { engine.unregisterInnerID("static"); }),
                    HasSubstr("\n[1] network(s) is/are using inner model [static]."));
        EXPECT_THAT(t::thrownText([&] { engine.unregisterInnerID("nope"); }),
                    HasSubstr("\nnot found Model Id [nope] for unregister.\n"));

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

TEST(InnerModels, ANullModelObjectIsRegisteredLikeAnyOther) {
    const auto library = t::pluginLibrary("kel_pm_null_object");
    kel::MLEngine engine;
    engine.registerModelAsInnerID("null", library);
    EXPECT_THAT(engine.getModelInnerIDs("WindowsML"), ElementsAre("null"));
    engine.createNetwork("WindowsML", "n", "CPU", std::string("null"), {});
    EXPECT_THAT(engine.getInputLayerNames(), testing::UnorderedElementsAre("a", "b"));
    t::capturedStderr([&] {
        engine.createNetwork("OpenVINO", "files", "CPU",
                             std::vector<std::filesystem::path>{t::openvinoModel("static.xml")}, {});
    });
    engine.removeNetwork("n");
    engine.unregisterInnerID("null");
    EXPECT_FALSE(isLoaded(library));
}

TEST(InnerModels, ListingNeedsAKnownEngine) {
    kel::MLEngine engine;
    EXPECT_THAT(t::thrownText([&] { engine.getModelInnerIDs(""); }), HasSubstr("\nEngine Name is empty!\n"));
    EXPECT_THAT(t::thrownText([&] { engine.getModelInnerIDs("CoreML"); }), HasSubstr("\nNot support CoreML engine.\n"));
}

}  // namespace
