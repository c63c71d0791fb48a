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
void adviseOnNativeModels(const LogCallback& log, const std::string& network_identifier,
                          const std::vector<std::filesystem::path>& model_files) {
    std::string list = "[";
    for (std::size_t i = 0; i < model_files.size(); ++i) {
        if (i) list += ", ";
        list += utils::pathToString(model_files[i]);
    }
    list += "]. ";

    if (model_files.size() == 1) {
        const std::string name = utils::pathToString(model_files[0]);
        const auto status = std::filesystem::status(model_files[0]);
        if ((endsWith(name, ".mlmodel") && std::filesystem::is_regular_file(status)) ||
            (endsWith(name, ".mlpackage") && std::filesystem::is_directory(status))) {
            std::string text = fmt::format(
                "[{}] would create by {}Not recommend use native engine model for Release production. "
                "Please use converted \".mlmodelc\" directory for Release. (Could put it in function "
                ".framework \"Resource\" directory)",
                network_identifier, list);
            warn(log, text);
            return;
        }
        if (endsWith(name, ".mlmodelc") && std::filesystem::is_directory(status)) return;
    }
    std::string text = fmt::format(
        "[{}] would create by {}Not recommend use native engine model for Release production. Please "
        "select \"Plugin Model\" for Release.",
        network_identifier, list);
    warn(log, text);
}

}  // namespace

// Steps shared by every form once its own checks passed: store the given properties, take
// everything stored for the identifier, hand over to the back-end, then record the network.
template <class Source>
void MLEngine::Impl::createChecked(MLEngine& self, const std::string& engine,
                                   const std::string& network_identifier, const std::string& device,
                                   const Source& source, const PropertyMap& properties,
                                   std::optional<std::string> inner_model_identifier) {
    for (const auto& [key, value] : properties)
        self.setEnginePropertyForNetwork(engine, network_identifier, key, value);
    PropertyMap working;
    if (auto it = network_properties.find(network_identifier); it != network_properties.end())
        working = it->second;

    EngineBackend& backend = this->backend(engine);
    if (backend.wantsDriverVersions(device)) self.processPropertyForEngine(engine, working);
    try {
        backend.createNetwork(network_identifier, device, source, working);
    } catch (...) {
        // The engine stays as it was: the back-end drops what it kept of the attempt, and the
        // creation's own failure is what the host sees.
        try {
            const auto current = networks.find(current_network);
            const bool ours = current != networks.end() && current->second.backend == &backend;
            backend.forgetFailedCreation(network_identifier, ours ? current_network : std::string());
        } catch (...) {
        }
        throw;
    }

    current_network = network_identifier;
    NetworkRecord& record = networks[network_identifier];
    record.engine = engine;
    record.backend = &backend;
    record.inner_model_identifier = std::move(inner_model_identifier);
}

void MLEngine::createNetwork(const std::string& engine, const std::string& network_identifier,
                             const std::string& device, const std::string& inner_model_identifier,
                             const PropertyMap& properties) {
    if (engine.empty()) raise("Engine Name is empty!");
    if (network_identifier.empty()) raise("network_identifier  is empty! ");
    if (inner_model_identifier.empty()) raise("inner_model_identifier is empty! ");
    if (!impl_->hasEngine(engine)) raise("Not support {} engine.", engine);
    if (impl_->networks.count(network_identifier))
        raise("Network id [{}] is exists. Please select other different one.", network_identifier);
    impl_->createChecked(*this, engine, network_identifier, device, inner_model_identifier,
                         properties, inner_model_identifier);
}

void MLEngine::createNetwork(const std::string& engine, const std::string& network_identifier,
                             const std::string& device, const std::vector<ModelBuffer>& model_buffers,
                             const PropertyMap& properties) {
    if (engine.empty()) raise("Engine Name is empty!");
    if (network_identifier.empty()) raise("network_identifier is empty! ");
    if (!impl_->hasEngine(engine)) raise("Not support {} engine.", engine);
    if (impl_->networks.count(network_identifier))
        raise("Network id [{}] is exists. Please select other different one.", network_identifier);
    impl_->createChecked(*this, engine, network_identifier, device, model_buffers, properties,
                         std::nullopt);
}

void MLEngine::createNetwork(const std::string& engine, const std::string& network_identifier,
                             const std::string& device,
                             const std::vector<std::filesystem::path>& model_files,
                             const PropertyMap& properties) {
    if (engine.empty()) raise("Engine Name is empty!");
    if (network_identifier.empty()) raise("network_identifier is empty! ");
    if (model_files.empty()) raise("model_files is empty! ");
    if (!impl_->hasEngine(engine)) raise("Not support {} engine.", engine);
    if (impl_->networks.count(network_identifier))
        raise("Network id [{}] is exists. Please select other different one.", network_identifier);
    adviseOnNativeModels(impl_->log_callback, network_identifier, model_files);
    impl_->createChecked(*this, engine, network_identifier, device, model_files, properties,
                         std::nullopt);
}

void MLEngine::createNetwork(const std::string& engine, const std::string& network_identifier,
                             const std::string& device, const std::vector<std::string>& model_files,
                             const PropertyMap& properties) {
    createNetwork(engine, network_identifier, device,
                  std::vector<std::filesystem::path>(model_files.begin(), model_files.end()),
                  properties);
}

void MLEngine::createNetwork(const std::string& engine, const std::string& network_identifier,
                             const std::string& device, const std::vector<std::wstring>& model_files,
                             const PropertyMap& properties) {
    createNetwork(engine, network_identifier, device,
                  std::vector<std::filesystem::path>(model_files.begin(), model_files.end()),
                  properties);
}

}  // namespace kel
