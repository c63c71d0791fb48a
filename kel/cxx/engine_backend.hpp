#pragma once
// What the facade asks of an engine. Each engine is one class deriving from EngineBackend
// and one line in the registry (engineRegistry); the facade reaches it only through this
// class and picks no code by engine name, save where the behaviour names one (the driver
// versions, a plugin library's buffer count). What every back-end may rely on and keep to:
// - Calls come from one thread at a time (an MLEngine is not synchronised), and every
//   MLEngine has back-end objects of its own (EngineRegistration).
// - The facade has made the checks named at each method; identifiers it passes name
//   this back-end's networks and inner models unless said otherwise.
// - Failures are thrown. The back-end's own refusals are kel::KELException, raised with
//   kel::raise and a message naming the offending value; other exceptions may pass
//   through as they come: std::out_of_range from checkedAt, the "Bad any_cast" of anyAs,
//   the file system's, the runtime's (ov::Exception, windows_ml_platform::PlatformError,
//   winrt::hresult_error). The facade hands them to the host unchanged, except at
//   registerModelAsInnerID; the C interface keeps what() as the handle's text.
#include <any>
#include <cstdint>
#include <filesystem>
#include <string>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kel/common/error.hpp"
#include "kel/cxx/types.hpp"

namespace kel {

class EngineBackend {
public:
    virtual ~EngineBackend() = default;

    // Networks; the back-end keeps its own current network, set by creation and switch.
    // Each createNetwork form loads a model as a network under `networkIdentifier` on
    // `device` and, on success, makes it this back-end's current network, as the facade
    // then makes it the host's. The facade has checked that the identifier is non-empty
    // and names no network of any engine; the device comes unchecked (OpenVINO's runtime
    // refuses one it lacks, WindowsML once it has listed its devices). `properties` are
    // those stored for the identifier under any engine's name: each key is in some engine's
    // getEngineMutableProperties(), its value checked as said there; keys the back-end does
    // not know are ignored (both engines). A failure throws; forgetFailedCreation follows.
    // This form takes the buffers registered under `innerModelIdentifier` (non-empty; the
    // facade has not checked that it is registered, nor for which engine): an identifier
    // this back-end does not hold is refused.
    virtual void createNetwork(const std::string& networkIdentifier, const std::string& device,
                               const std::string& innerModelIdentifier, const PropertyMap& properties) = 0;
    // From models in memory, (bytes, byte count) each; the list may be empty. OpenVINO
    // takes one or two (model, weights), WindowsML one. A back-end may copy the bytes
    // (WindowsML; OpenVINO an IR's XML text) or use them in place for the network's life
    // (OpenVINO, an IR's weights): the host keeps them while the network exists.
    virtual void createNetwork(const std::string& networkIdentifier, const std::string& device,
                               const std::vector<ModelBuffer>& buffers, const PropertyMap& properties) = 0;
    // From model files, a non-empty list: OpenVINO takes one or two (model, weights),
    // WindowsML one.
    virtual void createNetwork(const std::string& networkIdentifier, const std::string& device,
                               const std::vector<std::filesystem::path>& files,
                               const PropertyMap& properties) = 0;
    // Drops the network and all the back-end kept for it, memory getLayerData gave out too.
    // Never the host's current network, but maybe this back-end's own current one (the
    // host's is then on another engine, and a create or switch comes before any layer
    // call). forgetFailedCreation's default passes identifiers held in part or not at all:
    // one the back-end does not hold is ignored (both engines).
    virtual void removeNetwork(const std::string& networkIdentifier) = 0;
    // Makes the network this back-end's current one; it may already be. Never the host's
    // current network. Each network keeps its bound layers and shapes across switches. An
    // identifier the back-end does not hold changes nothing (both engines).
    virtual void switchNetwork(const std::string& networkIdentifier) = 0;
    // The device the network runs on, which need not be the text creation was given:
    // WindowsML resolves "AUTO" to "GPU" or "CPU", OpenVINO moves a "GPU" or "NPU" network
    // to "AUTO" when its driver is not known to meet the minimum.
    virtual std::string getNetworkDevice(const std::string& networkIdentifier) = 0;

    // Inner models. Keeps `buffers` under `innerModelIdentifier` for the inner-model
    // createNetwork. They belong to a plugin library's model, which the facade keeps until
    // unregisterInnerID has returned (and frees before the back-ends at the end: no
    // destructor may read them), so pointers may be kept (both engines do). The facade has
    // checked that no inner model of any engine has the identifier, and that there are two
    // buffers (model, weights) if the engine's name contains "OpenVINO", else one, each
    // with data and a size (unless the name contains "CoreML"). A std::exception other
    // than KELException reaches the host as KELException "process have exception: <what>".
    virtual void registerModelAsInnerID(const std::string& innerModelIdentifier,
                                        const std::vector<ModelBuffer>& buffers) = 0;
    // Forgets the inner model, whose buffers the facade then releases; no network made
    // from it exists. One the back-end does not hold: OpenVINO ignores it, WindowsML
    // raises KELException; either is allowed. On a throw the facade keeps its record.
    virtual void unregisterInnerID(const std::string& innerModelIdentifier) = 0;
    // The identifiers registered and not unregistered, in any order.
    virtual std::vector<std::string> getModelInnerIDs() = 0;

    // Layers and inference on the back-end's current network, called only while the host's
    // current network is one of this back-end's, which create, switch and
    // forgetFailedCreation have made its current too. Before any network exists the facade
    // refuses them itself (KELException "Please Create a network with craeteNetwork API
    // first.", std::out_of_range at setLayerData and getLayerPrecision), so "no current
    // network" needs no answer here (OpenVINO throws std::out_of_range, WindowsML answers
    // as for an empty network). Layer names come unchecked: one that is neither an input
    // nor an output is refused with KELException ("... is not found in ... layers."). A
    // name both an input and an output carry means the input.

    // The current network's input (output) layer names, in any order: OpenVINO gives the
    // model's order, WindowsML its table's.
    virtual std::vector<std::string> getInputLayerNames() = 0;
    virtual std::vector<std::string> getOutputLayerNames() = 0;
    // Binds host memory to a layer, input or output. `data` holds a pointer: void*, const
    // void*, std::uint8_t* or const std::uint8_t* in both engines (the C interface passes
    // const void*), float* or const float* too in OpenVINO. Refused with KELException: any
    // other type (named), an empty std::any, a null pointer, empty `dims`, an unknown
    // layer. No conversion: the memory holds the layer's element type (getLayerPrecision).
    // `dims` give a dynamic layer its shape (WindowsML checks their rank and range); for a
    // fixed shape OpenVINO refuses any other dims, WindowsML refuses only a 0 in them. The
    // memory stays the host's and is used until the layer is bound again or the network
    // removed: each infer reads an input as it is then and writes an output there,
    // OpenVINO in place, WindowsML by copies at infer. A refused call may have kept the
    // new pointer (WindowsML).
    virtual void setLayerData(const std::string& layer, std::any data, const std::vector<std::uint64_t>& dims) = 0;
    // The layer's memory: the host's pointer once it bound one, else the back-end's
    // (OpenVINO the runtime's tensor, WindowsML a zeroed buffer made at creation), where a
    // host may fill an input before infer and read an output after. The back-end's lives
    // until the layer is bound again, the network's next infer (a dynamic output may move)
    // or its removal. A dynamic layer with no dims yet is refused with KELException; after
    // an infer OpenVINO answers for a dynamic output the host did not bind, WindowsML not.
    virtual void* getLayerData(const std::string& layer) = 0;
    // The layer's shape: the declared one, or the dims last given to setLayerData for a
    // dynamic layer (OpenVINO: that of the last infer for a dynamic output), else refused
    // with KELException. A scalar is [] in OpenVINO, [1] in WindowsML.
    virtual const std::vector<std::uint64_t> getLayerDims(const std::string& layer) = 0;
    // The layer's element type as (name, bytes per element): "FP32" 4, "FP16" 2, "FP64" 8,
    // "I8" 1, "I16" 2, "I32" 4, "I64" 8, "U8" 1, "U16" 2, "U32" 4, "U64" 8, "BOOL" 1; OpenVINO
    // also "BF16" 2 and, with size 0, "DYNAMIC", "I4", "U4", "U1". A type it cannot name is
    // refused with KELException (WindowsML refuses it at creation).
    virtual std::tuple<std::string, std::uint64_t> getLayerPrecision(const std::string& layer) = 0;
    // Runs the current network once and returns when the outputs are written, reading the
    // inputs as they are now. Runtime failures pass as the runtime's exceptions; a failed
    // infer may have written some outputs. WindowsML skips a dynamic output the host did
    // not bind, and writes an "FP16" output as 32-bit floats: 4 bytes a value.
    virtual void infer() = 0;

    // Devices, properties, version, logging; an engine name the host gave is checked.
    // The device names this engine offers, "AUTO" first in both; never empty (both
    // engines raise KELException instead).
    virtual std::vector<std::string> getSupportedDevices() = 0;
    // The network property keys this engine takes, each with the type its std::any must
    // hold as text; empty for none (WindowsML). The facade refuses other keys and checks
    // values of "std::string", "std::filesystem::path" and "std::vector<std::string>".
    virtual std::unordered_map<std::string, std::string> getEngineMutableProperties() = 0;
    // The properties offered to hosts for `device` (getDeviceProperty may answer others);
    // none by default. The facade has refused an empty device and "AUTO". OpenVINO offers
    // none for a device it does not have.
    virtual std::vector<std::string> getDeviceSupportProperties(const std::string&) { return {}; }
    // One property of a device; std::monostate by default and for a device or property the
    // engine does not know. The facade has refused an empty device or property but passes
    // "AUTO" (OpenVINO refuses it).
    virtual DevicePropertyValue getDeviceProperty(const std::string&, const std::string&) { return {}; }
    // The engine runtime's version text (OpenVINO its build number, WindowsML the system's
    // "major.minor.build"). The facade asks a back-end made for the query, not the table's.
    virtual std::string version() = 0;
    // The host's callback, possibly empty, handed to every back-end whenever the host sets
    // one; a back-end may keep it and log through it when non-empty (OpenVINO does).
    virtual void setLogCallback(LogCallback) {}

    // Engine-specific steps of the facade's operations, with the common behaviour as default.
    // Whether a network for `device` gets the local driver versions among its properties:
    // the facade drops the host's LOCAL_GPU_DRIVER_VERSION and LOCAL_NPU_DRIVER_VERSION and
    // puts in those it found, which it gathers for "OpenVINO" only (OpenVINO: "GPU", "NPU").
    virtual bool wantsDriverVersions(const std::string& /*device*/) const { return false; }
    // Drops what a failed creation left; `facade_current` is the facade's current network if
    // it belongs to this back-end, else empty. Called after every createNetwork here that
    // threw, even before anything was stored: nothing may remain under `networkIdentifier`,
    // and a non-empty `facade_current` must be current here again. What it throws is
    // swallowed: the host sees the creation's exception. The default suits a back-end that
    // makes a network current once complete (OpenVINO); WindowsML also switches back.
    virtual void forgetFailedCreation(const std::string& networkIdentifier, const std::string& /*facade_current*/) {
        removeNetwork(networkIdentifier);
    }
};

// How the engine table makes an engine and reaches it: the back-end object by value in a
// std::any, seen through EngineBackend. `name` is the engine name hosts pass and plugin
// libraries give, compared exactly. `make` builds a fresh back-end: once per MLEngine, in
// registry order, and once per version(name) query; a throw ends that construction or
// query. The object stays in place for the MLEngine's life and goes last, without
// removeNetwork calls. engineRegistration<Backend> needs a default- and copy-constructible
// Backend (std::any's rule), though nothing copies one at run time.
struct EngineRegistration {
    std::string name;
    std::any (*make)();
    EngineBackend& (*view)(std::any&);
};

template <class Backend>
EngineRegistration engineRegistration(std::string name) {
    return {std::move(name), [] { return std::any(Backend()); },
            [](std::any& held) -> EngineBackend& { return anyAs<Backend>(held); }};
}

// The engines each new MLEngine constructs, in this order (MLEngine.cpp).
std::vector<EngineRegistration>& engineRegistry();

}  // namespace kel
