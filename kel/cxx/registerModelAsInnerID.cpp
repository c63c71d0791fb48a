#include <filesystem>

#include "kel/c/kel_plugin_model.h"
#include "kel/cxx/engine_impl.hpp"
#include "kel/utils/platform.hpp"
#include "kel/utils/shared_library.hpp"
#include "kel/utils/text.hpp"

namespace kel {

namespace {

// The eleven exports of a plugin model library, resolved by name.
struct PluginModelApi {
    kelModelCreateFn create;
    kelModelDestoryFn destroy;
    kelModelGetEngineNumberFn engineNumber;
    kelModelGetEngineNameLengthFn engineNameLength;
    kelModelGetEngineNameFn engineName;
    kelModelGetVersionNumberFn versionNumber;
    kelModelGetVersionNameLengthFn versionNameLength;
    kelModelGetVersionNameFn versionName;
    kelModelGetModelNumberFn modelNumber;
    kelModelGetModelSizeFn modelSize;
    kelModelGetModelBufferFn modelBuffer;

    explicit PluginModelApi(const std::shared_ptr<void>& library) {
        resolve(library, create, "kelModelCreate");
        resolve(library, destroy, "kelModelDestory");
        resolve(library, engineNumber, "kelModelGetEngineNumber");
        resolve(library, engineNameLength, "kelModelGetEngineNameLength");
        resolve(library, engineName, "kelModelGetEngineName");
        resolve(library, versionNumber, "kelModelGetVersionNumber");
        resolve(library, versionNameLength, "kelModelGetVersionNameLength");
        resolve(library, versionName, "kelModelGetVersionName");
        resolve(library, modelNumber, "kelModelGetModelNumber");
        resolve(library, modelSize, "kelModelGetModelSize");
        resolve(library, modelBuffer, "kelModelGetModelBuffer");
    }

    template <class Fn>
    static void resolve(const std::shared_ptr<void>& library, Fn& fn, const char* name) {
        fn = reinterpret_cast<Fn>(utils::getSymbol(library, name));
    }
};

// Runs a function of the plugin. What it throws becomes kel's error here, while the library
// is still loaded: the exception object and its type live in the library's image, which
// unwinding past this point may unload.
template <class Fn, class... Args>
auto pluginCall(const char* name, Fn fn, Args... args) -> decltype(fn(args...)) {
    try {
        return fn(args...);
    } catch (const std::exception& e) {
        raise("plugin model library function {} threw: {}", name, e.what());
    } catch (...) {
        raise("plugin model library function {} threw an exception of unknown type.", name);
    }
}

// A text handed out by length, then by a copy of exactly that many bytes.
template <class Length, class Copy>
std::string readText(const char* what, Length&& length, Copy&& copy) {
    const int n = length();
    // No buffer fits a negative length: refused before the library writes anything.
    if (n < 0) raise("Register plugin model reports a length of {} for its {}!", n, what);
    std::string text(static_cast<std::size_t>(n), '\0');
    copy(text.data());
    return text;
}

}  // namespace

void MLEngine::registerModelAsInnerID(const std::string& innerModelIdentifier,
                                      const std::filesystem::path& library_path) {
    std::error_code ec;
    if (!std::filesystem::exists(library_path, ec))
        raiseText("Register path " + utils::pathToString(library_path) + " not exists.");
    if (!utils::checkLibraryImage(library_path.wstring()))
        raise("register model file {} is not a valid shared library.", utils::pathToString(library_path));
    if (impl_->inner_models.count(innerModelIdentifier))
        raise("Model id [{}] is existed! Please use another one.", innerModelIdentifier);

    std::shared_ptr<void> library = utils::load_shared_object(library_path.wstring(), impl_->library_loaders[0]);
    const PluginModelApi api(library);
    // A null model object is the library's own business: it is passed back as it came.
    void* raw = pluginCall("kelModelCreate", api.create);
    // The model object's release needs the library's code: its owner keeps the library too.
    std::shared_ptr<void> model(raw, [destroy = api.destroy, library](void* h) {
        try {
            destroy(h);
        } catch (...) {  // a release cannot fail further; the library still goes
        }
    });

    const int engines = pluginCall("kelModelGetEngineNumber", api.engineNumber, raw);
    if (engines != 1) raise("Register plugin model have {} engines! Only 1 engine is allowed here.", engines);
    const std::string engine =
        readText("engine name", [&] { return pluginCall("kelModelGetEngineNameLength", api.engineNameLength, raw, 0); },
                 [&](char* out) { pluginCall("kelModelGetEngineName", api.engineName, raw, out, 0); });
    const int versions = pluginCall("kelModelGetVersionNumber", api.versionNumber, raw, engine.c_str());
    if (versions != 1)
        raise("Register plugin model have {} versions! Only 1 version is allowed here.", versions);
    const std::string version =
        readText("version name",
                 [&] { return pluginCall("kelModelGetVersionNameLength", api.versionNameLength, raw, engine.c_str(), 0); },
                 [&](char* out) { pluginCall("kelModelGetVersionName", api.versionName, raw, out, engine.c_str(), 0); });

    // Any engine name that contains the word counts as OpenVINO.
    const bool isOpenvino = engine.find(kOpenVINO) != std::string::npos;
    const bool isCoreml = engine.find(kCoreML) != std::string::npos;
    const int models = pluginCall("kelModelGetModelNumber", api.modelNumber, raw, engine.c_str(), version.c_str());
    if (isOpenvino && models != 2)
        raise("Register plugin model have {} inner models! Only 2 inner model is allowed here.[For OpenVINO]",
              models);
    if (!isOpenvino && models != 1)
        raise("Register plugin model have {} inner models! Only 1 inner model is allowed here.[For {}]",
              models, engine);
    if (models == 0) raise("Register plugin model can not get the model information");

    std::vector<ModelBuffer> buffers;
    const std::uint64_t size0 = pluginCall("kelModelGetModelSize", api.modelSize, raw, engine.c_str(), version.c_str(), 0);
    if (size0 == 0 && !isCoreml) raise("Register plugin model can not get the model size");
    const void* buffer0 = pluginCall("kelModelGetModelBuffer", api.modelBuffer, raw, engine.c_str(), version.c_str(), 0);
    if (!buffer0 && !isCoreml) raise("Register plugin model can not get the model buffer");
    buffers.emplace_back(buffer0, static_cast<std::size_t>(size0));
    if (isOpenvino) {
        const std::uint64_t size1 = pluginCall("kelModelGetModelSize", api.modelSize, raw, engine.c_str(), version.c_str(), 1);
        if (size1 == 0) raise("Register plugin model can not get the model1 size");
        const void* buffer1 = pluginCall("kelModelGetModelBuffer", api.modelBuffer, raw, engine.c_str(), version.c_str(), 1);
        if (!buffer1) raise("Register plugin model can not get the model1 buffer");
        buffers.emplace_back(buffer1, static_cast<std::size_t>(size1));
    }
    if (engine.empty()) raise("Engine Name is empty from plugin model!");

    try {
        if (EngineBackend* backend = impl_->findBackend(engine))
            backend->registerModelAsInnerID(innerModelIdentifier, buffers);
        else
            raise("{} Not support ", engine);
    } catch (const KELException&) {
        throw;
    } catch (const std::exception& e) {
        raise("process have exception: {}", e.what());
    }

    impl_->inner_models[innerModelIdentifier] =
        InnerModelRecord{std::move(library), std::move(model), engine, version};
}

}  // namespace kel
