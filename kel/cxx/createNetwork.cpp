#include <filesystem>

#include "kel/common/log.hpp"
#include "kel/cxx/engine_impl.hpp"
#include "kel/utils/text.hpp"

namespace kel {

namespace {

bool endsWith(const std::string& text, const std::string& suffix) {
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// Native engine formats are fine while developing; products should ship plugin models.
void adviseOnNativeModels(const LogCallback& log, const std::string& networkIdentifier,
                          const std::vector<std::filesystem::path>& modelFiles) {
    std::string list = "[";
    for (std::size_t i = 0; i < modelFiles.size(); ++i) {
        if (i) list += ", ";
        list += utils::pathToString(modelFiles[i]);
    }
    list += "]. ";

    if (modelFiles.size() == 1) {
        const std::string name = utils::pathToString(modelFiles[0]);
        // One status query whatever the name: a failure other than "not found" is the
        // file system's error, for every single path.
        const std::filesystem::file_status kind = std::filesystem::status(modelFiles[0]);
        if ((endsWith(name, ".mlmodel") && std::filesystem::is_regular_file(kind)) ||
            (endsWith(name, ".mlpackage") && std::filesystem::is_directory(kind))) {
            std::string text = fmt::format(
                "[{}] would create by {}Not recommend use native engine model for Release production. "
                "Please use converted \".mlmodelc\" directory for Release. (Could put it in function "
                ".framework \"Resource\" directory)",
                networkIdentifier, list);
            warn(log, text);
            return;
        }
        if (endsWith(name, ".mlmodelc") && std::filesystem::is_directory(kind)) return;
    }
    std::string text = fmt::format(
        "[{}] would create by {}Not recommend use native engine model for Release production. Please "
        "select \"Plugin Model\" for Release.",
        networkIdentifier, list);
    warn(log, text);
}

}  // namespace

// Steps shared by every form once its own checks passed: store the given properties, take
// everything stored for the identifier, hand over to the back-end, then record the network.
template <class Source>
void MLEngine::Impl::createChecked(MLEngine& self, const std::string& engine,
                                   const std::string& networkIdentifier, const std::string& device,
                                   const Source& source, const PropertyMap& properties,
                                   std::optional<std::string> innerModelIdentifier) {
    for (const auto& [key, value] : properties)
        self.setEnginePropertyForNetwork(engine, networkIdentifier, key, value);
    PropertyMap working;
    if (auto it = network_properties.find(networkIdentifier); it != network_properties.end())
        working = it->second;

    EngineBackend& backend = this->backend(engine);
    if (backend.wantsDriverVersions(device)) self.processPropertyForEngine(engine, working);
    try {
        backend.createNetwork(networkIdentifier, device, source, working);
    } catch (...) {
        // The engine stays as it was: the back-end drops what it kept of the attempt, and the
        // creation's own failure is what the host sees.
        try {
            const auto current = networks.find(current_network);
            const bool ours = current != networks.end() && current->second.backend == &backend;
            backend.forgetFailedCreation(networkIdentifier, ours ? current_network : std::string());
        } catch (...) {
        }
        throw;
    }

    current_network = networkIdentifier;
    NetworkRecord& record = networks[networkIdentifier];
    record.engine = engine;
    record.backend = &backend;
    record.inner_model_identifier = std::move(innerModelIdentifier);
}

void MLEngine::createNetwork(const std::string& engine, const std::string& networkIdentifier,
                             const std::string& device, const std::string& innerModelIdentifier,
                             const PropertyMap& properties) {
    if (engine.empty()) raise("Engine Name is empty!");
    if (networkIdentifier.empty()) raise("network_identifier  is empty! ");
    if (innerModelIdentifier.empty()) raise("inner_model_identifier is empty! ");
    if (!impl_->hasEngine(engine)) raise("Not support {} engine.", engine);
    if (impl_->networks.count(networkIdentifier))
        raise("Network id [{}] is exists. Please select other different one.", networkIdentifier);
    impl_->createChecked(*this, engine, networkIdentifier, device, innerModelIdentifier,
                         properties, innerModelIdentifier);
}

void MLEngine::createNetwork(const std::string& engine, const std::string& networkIdentifier,
                             const std::string& device, const std::vector<ModelBuffer>& modelBuffers,
                             const PropertyMap& properties) {
    if (engine.empty()) raise("Engine Name is empty!");
    if (networkIdentifier.empty()) raise("network_identifier is empty! ");
    if (!impl_->hasEngine(engine)) raise("Not support {} engine.", engine);
    if (impl_->networks.count(networkIdentifier))
        raise("Network id [{}] is exists. Please select other different one.", networkIdentifier);
    impl_->createChecked(*this, engine, networkIdentifier, device, modelBuffers, properties,
                         std::nullopt);
}

void MLEngine::createNetwork(const std::string& engine, const std::string& networkIdentifier,
                             const std::string& device,
                             const std::vector<std::filesystem::path>& modelFiles,
                             const PropertyMap& properties) {
    if (engine.empty()) raise("Engine Name is empty!");
    if (networkIdentifier.empty()) raise("network_identifier is empty! ");
    if (modelFiles.empty()) raise("model_files is empty! ");
    if (!impl_->hasEngine(engine)) raise("Not support {} engine.", engine);
    if (impl_->networks.count(networkIdentifier))
        raise("Network id [{}] is exists. Please select other different one.", networkIdentifier);
    adviseOnNativeModels(impl_->log_callback, networkIdentifier, modelFiles);
    impl_->createChecked(*this, engine, networkIdentifier, device, modelFiles, properties,
                         std::nullopt);
}

void MLEngine::createNetwork(const std::string& engine, const std::string& networkIdentifier,
                             const std::string& device, const std::vector<std::string>& modelFiles,
                             const PropertyMap& properties) {
    createNetwork(engine, networkIdentifier, device,
                  std::vector<std::filesystem::path>(modelFiles.begin(), modelFiles.end()),
                  properties);
}

void MLEngine::createNetwork(const std::string& engine, const std::string& networkIdentifier,
                             const std::string& device, const std::vector<std::wstring>& modelFiles,
                             const PropertyMap& properties) {
    createNetwork(engine, networkIdentifier, device,
                  std::vector<std::filesystem::path>(modelFiles.begin(), modelFiles.end()),
                  properties);
}

}  // namespace kel
