#include "kel_handle.hpp"

namespace kelrun {
namespace {

std::string trimmed(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' '))
        text.pop_back();
    return text;
}

}  // namespace

Kel::Kel() : handle_(kelCreate()) {
    if (auto text = takeError()) {
        kelDestory(handle_);
        throw KelError(*text);
    }
}

Kel::~Kel() {
    kelResetExceptionString(handle_);  // kelDestory refuses while a text is pending
    kelDestory(handle_);
}

std::optional<std::string> Kel::takeError() {
    if (!kelHasException(handle_)) return std::nullopt;
    std::uint64_t length = 0;
    std::string text = "unknown error";
    if (kelGetExceptionStringLength(handle_, &length) == 0) {
        std::vector<char> buffer(length + 1, '\0');
        if (kelGetExceptionString(handle_, buffer.data()) == 0) text.assign(buffer.data(), length);
    }
    kelResetExceptionString(handle_);
    return trimmed(text);
}

void Kel::check(const std::string& context) {
    if (auto text = takeError()) throw KelError(context.empty() ? *text : context + ": " + *text);
}

std::string Kel::selfVersion() {
    std::uint64_t length = 0;
    kelSelfVersion(handle_, &length, nullptr);
    check();
    std::string text(length, '\0');
    kelSelfVersion(handle_, nullptr, text.data());
    check();
    return text;
}

std::string Kel::version(const std::string& engine) {
    std::uint64_t length = 0;
    kelVersion(handle_, engine.c_str(), &length, nullptr);
    check();
    std::vector<char> text(length + 1, '\0');
    kelVersion(handle_, engine.c_str(), nullptr, text.data());
    check();
    return std::string(text.data(), length);
}

namespace {

// Reads one of kel's index-based lists: count, then length and bytes of each item.
template <typename Count, typename Length, typename Get>
std::vector<std::string> list(Kel& kel, Count count, Length length, Get get) {
    const int n = count();
    kel.check();
    std::vector<std::string> items;
    for (int i = 0; i < n; ++i) {
        const int size = length(i);
        kel.check();
        std::string item(static_cast<std::size_t>(size > 0 ? size : 0) + 1, '\0');
        get(i, item.data());
        kel.check();
        item.pop_back();
        items.push_back(item);
    }
    return items;
}

}  // namespace

std::vector<std::string> Kel::engines() {
    return list(
        *this, [&] { return kelGetSupportEngineNumber(handle_); },
        [&](int i) { return kelGetSupportEngineLength(handle_, i); },
        [&](int i, char* out) { kelGetSupportEngine(handle_, i, out); });
}

std::vector<std::string> Kel::devices(const std::string& engine) {
    const char* e = engine.c_str();
    return list(
        *this, [&] { return kelGetSupportDeviceNumber(handle_, e); },
        [&](int i) { return kelGetSupportDeviceLength(handle_, e, i); },
        [&](int i, char* out) { kelGetSupportDevice(handle_, e, i, out); });
}

std::vector<std::string> Kel::builtinModels(const std::string& engine) {
    const char* e = engine.c_str();
    return list(
        *this, [&] { return kelGetSupportBuiltinModelNumber(handle_, e); },
        [&](int i) { return kelGetSupportBuiltinModelLength(handle_, e, i); },
        [&](int i, char* out) { kelGetSupportBuiltinModelID(handle_, e, i, out); });
}

std::vector<std::string> Kel::inputs() {
    return list(
        *this, [&] { return kelGetInputLayerNumber(handle_); },
        [&](int i) { return kelGetInputLayerLength(handle_, i); },
        [&](int i, char* out) { kelGetInputLayer(handle_, i, out); });
}

std::vector<std::string> Kel::outputs() {
    return list(
        *this, [&] { return kelGetOutputLayerNumber(handle_); },
        [&](int i) { return kelGetOutputLayerLength(handle_, i); },
        [&](int i, char* out) { kelGetOutputLayer(handle_, i, out); });
}

void Kel::registerModel(const std::string& id, const std::string& library) {
    kelRegisterModelAsInnerIDwithString(handle_, id.c_str(), library.c_str());
    check();
}

void Kel::createByFiles(const std::string& engine, const std::string& id, const std::string& device,
                        const std::string& model, const std::string& weights) {
    kelCreateNetByFiles(handle_, engine.c_str(), id.c_str(), device.c_str(), model.c_str(),
                        weights.empty() ? nullptr : weights.c_str());
    check();
}

void Kel::createByBuiltin(const std::string& engine, const std::string& id, const std::string& device,
                          const std::string& model_id) {
    kelCreateNetByBuiltin(handle_, engine.c_str(), id.c_str(), device.c_str(), model_id.c_str());
    check();
}

void Kel::switchTo(const std::string& id) {
    int length = kelGetCurrentIdentifierLength(handle_);
    std::string current(static_cast<std::size_t>(length > 0 ? length : 0), '\0');
    if (length > 0) kelGetCurrentIdentifier(handle_, current.data());
    check();
    if (current == id) return;
    kelSwitchNetwork(handle_, id.c_str());
    check();
}

std::vector<std::uint64_t> Kel::dims(const std::string& layer) {
    std::uint64_t rank = 0;
    kelGetLayerDims(handle_, layer.c_str(), nullptr, &rank);
    check();
    std::vector<std::uint64_t> dims(rank);
    if (rank) kelGetLayerDims(handle_, layer.c_str(), dims.data(), nullptr);
    check();
    return dims;
}

std::optional<std::vector<std::uint64_t>> Kel::knownDims(const std::string& layer) {
    try {
        return dims(layer);
    } catch (const KelError&) {
        return std::nullopt;
    }
}

Precision Kel::precision(const std::string& layer) {
    Precision p;
    int length = 0;
    kelGetLayerPrecision(handle_, layer.c_str(), &p.size, &length, nullptr);
    check();
    std::vector<char> name(static_cast<std::size_t>(length > 0 ? length : 0) + 1, '\0');
    kelGetLayerPrecision(handle_, layer.c_str(), nullptr, nullptr, name.data());
    check();
    p.name = name.data();
    return p;
}

void Kel::setData(const std::string& layer, const void* data, const std::vector<std::uint64_t>& dims) {
    kelSetLayerData(handle_, layer.c_str(), data, dims.data(), dims.size());
    check();
}

const void* Kel::data(const std::string& layer) {
    const void* p = kelGetLayerData(handle_, layer.c_str());
    check();
    return p;
}

}  // namespace kelrun
