// kel's flat C interface wrapped for kel-run: a pending text on the handle becomes a KelError
// carrying that text, so every call site reports the library's own words.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "kel/c/kel.h"

namespace kelrun {

struct KelError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Precision {
    std::string name;
    std::uint64_t size = 0;
};

class Kel {
public:
    Kel();
    ~Kel();
    Kel(const Kel&) = delete;
    Kel& operator=(const Kel&) = delete;

    // Throws KelError with the pending text, prefixed by `context` when given.
    void check(const std::string& context = {});
    // The pending text (cleared), or nothing.
    std::optional<std::string> takeError();

    std::string selfVersion();
    std::string version(const std::string& engine);
    std::vector<std::string> engines();
    std::vector<std::string> devices(const std::string& engine);
    std::vector<std::string> builtinModels(const std::string& engine);

    void registerModel(const std::string& id, const std::string& library);
    void createByFiles(const std::string& engine, const std::string& id, const std::string& device,
                       const std::string& model, const std::string& weights);
    void createByBuiltin(const std::string& engine, const std::string& id, const std::string& device,
                         const std::string& model_id);
    // Makes the network current; a no-op (not an error) when it already is.
    void switchTo(const std::string& id);

    std::vector<std::string> inputs();
    std::vector<std::string> outputs();
    std::vector<std::uint64_t> dims(const std::string& layer);
    // Dims when kel knows them already; a dynamic layer answers nothing and leaves no text.
    std::optional<std::vector<std::uint64_t>> knownDims(const std::string& layer);
    Precision precision(const std::string& layer);
    void setData(const std::string& layer, const void* data, const std::vector<std::uint64_t>& dims);
    const void* data(const std::string& layer);
    // Unchecked on purpose: the timing loops check once after each call.
    void infer() { kelInfer(handle_); }
    bool failed() { return kelHasException(handle_); }

private:
    void* handle_;
};

}  // namespace kelrun
