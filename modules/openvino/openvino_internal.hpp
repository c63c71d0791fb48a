#pragma once
// The OpenVINO back-end's own parts: its state and the steps of bring-up and of network
// properties, as free functions over that state. Only the back-end's files and its tests
// include this header; unlike openvino.hpp it carries the runtime's types.
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <openvino/openvino.hpp>
#include <optional>
#include <source_location>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "kel/common/error.hpp"
#include "kel/cxx/types.hpp"
#include "kel/utils/platform.hpp"

namespace kel::vino {

// One compiled form of a network and its request.
struct CompiledSlot {
    ov::CompiledModel compiled_model;
    ov::InferRequest request;
};

// What the layer calls need of a port, worked out once when the network is compiled: the
// per-call lookups by name cost more than a small network's inference.
struct LayerPort {
    ov::Output<const ov::Node> port;
    ov::element::Type type;
    bool dynamic = false;
    bool output = false;              // the name is an output's (and no input's)
    std::vector<std::uint64_t> dims;  // the declared dims of a static layer
    // The last two tensors bound to the layer: a host that alternates two buffers (state fed
    // back) gets the same tensors again, which the runtime takes faster than new ones.
    struct Bound {
        ov::Tensor tensor;
        void* data = nullptr;
        std::vector<std::uint64_t> dims;
    };
    Bound recent[2];
    int next = 0;
};

struct VinoNetworkRecord {
    VinoNetworkRecord() = default;
    explicit VinoNetworkRecord(ov::Core networkCore) : core(std::move(networkCore)) {}

    ov::Core core;
    std::string device;
    std::shared_ptr<char[]> model_text;  // private copy of the XML text plus one zero byte
    std::uint64_t model_text_size = 0;
    std::vector<std::string> input_names;
    std::vector<std::string> output_names;
    std::unordered_map<std::string, std::vector<std::uint64_t>> layer_data_state;
    std::shared_ptr<ov::Model> model;
    std::uint64_t slot_key = 0;
    std::map<std::uint64_t, CompiledSlot> slots;
    std::unordered_map<std::string, LayerPort> layers;  // inputs win over outputs of a name
    bool inferred = false;  // dynamic outputs have the dims of the last inference from now on
};

struct vino_InferenceEngine {
    ov::Core core;  // device queries and the version; networks have cores of their own
    std::string current_network;
    std::map<std::string, VinoNetworkRecord> networks;
    std::vector<std::string> supported_devices;
    LogCallback log_callback;
    std::map<std::string, std::vector<ModelBuffer>> inner_models;
};

inline VinoNetworkRecord& networkRecord(vino_InferenceEngine& engine, const std::string& networkIdentifier) {
    return checkedAt(engine.networks, networkIdentifier, kOrderedMapKeyText);
}

// --- bring-up (vino_bringup.cpp) ---------------------------------------------------

// The directory of kel's own file, or the one a test put in its place (vino_test_hooks.hpp).
std::wstring getLibraryDirectory();

bool checkDynamicLibrary(const std::wstring& name, bool throwOnFailure);
void bindRuntimeLibrary(const std::wstring& name);
std::string generateTempOVPluginsXML();
void remove_xml(const std::filesystem::path& path);
void checkCPUFeatures(vino_InferenceEngine& engine, const std::string& networkIdentifier,
                      bool (*hasSse42)() = &utils::hostHasSse42);

std::string makeLogTag(std::source_location location = std::source_location::current());
void logMessage(const vino_InferenceEngine& engine, const std::string& line);

// --- network properties (vino_properties.cpp) --------------------------------------

// Every key a host may give an OpenVINO network, with the type its value must hold.
const std::unordered_map<std::string, std::string>& PropertyTypeTable();

// May move a GPU or NPU network to "AUTO"; returns what is left for the later steps.
PropertyMap checkXPUProperties(vino_InferenceEngine& engine, const std::string& networkIdentifier,
                               const PropertyMap& properties);
void setNetworkCacheDir(vino_InferenceEngine& engine, const std::string& networkIdentifier,
                        const PropertyMap& properties);
ov::AnyMap parseProperties(vino_InferenceEngine& engine, const std::string& networkIdentifier,
                           const PropertyMap& properties);

std::vector<int> parseVersionNumbers(std::string_view text);
bool isIntelDriverVersion(const std::string& version);
bool compareDriverVersion(const std::string& minimum, const std::string& local, int mode);

// --- device queries (vino-api2.0.cpp) ----------------------------------------------

DevicePropertyValue getDeviceProperty(vino_InferenceEngine& engine, const std::string& device,
                                      const std::string& property);

}  // namespace kel::vino
