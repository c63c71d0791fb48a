#pragma once
// A scripted machine-learning runtime: models are looked up by their bytes, so tests can
// declare what ONNX Runtime cannot express (image, sequence and map features, any tensor
// kind, zero dimensions), make any step fail, and see what was bound.
#include <functional>
#include <map>
#include <string>

#include "modules/windows-ml/platform.hpp"

namespace kel::test {

namespace wmp = kel::windows_ml_platform;

struct FakeModelFeatures {
    std::vector<wmp::FeatureDescription> inputs, outputs;
};

struct FakeTensor {
    std::uint32_t kind;
    std::vector<std::int64_t> shape;
    std::vector<std::uint8_t> bytes;
};

class FakePlatform : public wmp::Platform {
public:
    std::map<std::string, FakeModelFeatures> models;  // by model bytes
    std::string fail_at;                          // the operation that fails
    std::vector<wmp::DeviceKind> devices_created;
    wmp::DeviceKind session_device = wmp::Default;
    std::map<std::string, FakeTensor> last_bound;
    // Output values of one evaluation from the bound inputs.
    std::function<std::map<std::string, wmp::TensorValues>(const std::map<std::string, FakeTensor>&)>
        compute = [](const auto&) { return std::map<std::string, wmp::TensorValues>{}; };

    static constexpr std::int32_t kFailCode = static_cast<std::int32_t>(0x80004005);

    std::shared_ptr<wmp::Stream> createStream() override {
        step("createStream");
        return std::make_shared<S>();
    }
    void storeBytes(wmp::Stream& s, const std::uint8_t* data, std::size_t size) override {
        step("storeBytes");
        static_cast<S&>(s).bytes.append(reinterpret_cast<const char*>(data), size);
    }
    std::shared_ptr<wmp::Buffer> writeBuffer(const std::uint8_t* data, std::size_t size) override {
        step("writeBuffer");
        auto b = std::make_shared<B>();
        b->bytes.assign(data, data + size);
        return b;
    }
    std::shared_ptr<wmp::StreamReference> createStreamReference(
        const std::shared_ptr<wmp::Stream>& s) override {
        step("createStreamReference");
        auto r = std::make_shared<R>();
        r->bytes = static_cast<S&>(*s).bytes;
        return r;
    }
    std::shared_ptr<wmp::Model> loadModel(wmp::StreamReference& r) override {
        step("loadModel");
        auto it = models.find(static_cast<R&>(r).bytes);
        if (it == models.end()) throw wmp::PlatformError(kFailCode, "not a model");
        auto m = std::make_shared<M>();
        m->features = it->second;
        return m;
    }
    std::vector<wmp::FeatureDescription> inputFeatures(wmp::Model& m) override {
        step("inputFeatures");
        return static_cast<M&>(m).features.inputs;
    }
    std::vector<wmp::FeatureDescription> outputFeatures(wmp::Model& m) override {
        step("outputFeatures");
        return static_cast<M&>(m).features.outputs;
    }
    std::shared_ptr<wmp::Device> createDevice(wmp::DeviceKind kind) override {
        step("createDevice");
        devices_created.push_back(kind);
        auto d = std::make_shared<D>();
        d->kind = kind;
        return d;
    }
    std::shared_ptr<wmp::Session> createSession(const std::shared_ptr<wmp::Model>&,
                                                const std::shared_ptr<wmp::Device>& d) override {
        step("createSession");
        session_device = static_cast<D&>(*d).kind;
        return std::make_shared<wmp::Session>();
    }
    std::shared_ptr<wmp::Binding> createBinding(const std::shared_ptr<wmp::Session>&) override {
        step("createBinding");
        return std::make_shared<Bn>();
    }
    std::shared_ptr<wmp::Value> createTensor(std::uint32_t kind, const std::vector<std::int64_t>& shape,
                                             const std::shared_ptr<wmp::Buffer>& b) override {
        step("createTensor");
        auto v = std::make_shared<V>();
        v->tensor = {kind, shape, static_cast<B&>(*b).bytes};
        return v;
    }
    void bind(wmp::Binding& b, const std::string& name,
              const std::shared_ptr<wmp::Value>& v) override {
        step("bind");
        static_cast<Bn&>(b).bound[name] = static_cast<V&>(*v).tensor;
    }
    std::shared_ptr<wmp::EvaluationResult> evaluate(wmp::Session&, wmp::Binding& b,
                                                    const std::string&) override {
        step("evaluate");
        last_bound = static_cast<Bn&>(b).bound;
        auto r = std::make_shared<Res>();
        r->outputs = compute(last_bound);
        return r;
    }
    std::shared_ptr<wmp::Value> lookupOutput(wmp::EvaluationResult& r,
                                             const std::string& name) override {
        step("lookupOutput");
        auto& outputs = static_cast<Res&>(r).outputs;
        auto it = outputs.find(name);
        if (it == outputs.end()) throw wmp::PlatformError(kFailCode, "no output " + name);
        auto v = std::make_shared<V>();
        v->values = it->second;
        return v;
    }
    wmp::TensorValues readValues(wmp::Value& v, std::uint32_t) override {
        step("readValues");
        return static_cast<V&>(v).values;
    }

private:
    struct S : wmp::Stream { std::string bytes; };
    struct R : wmp::StreamReference { std::string bytes; };
    struct B : wmp::Buffer { std::vector<std::uint8_t> bytes; };
    struct M : wmp::Model { FakeModelFeatures features; };
    struct D : wmp::Device { wmp::DeviceKind kind; };
    struct Bn : wmp::Binding { std::map<std::string, FakeTensor> bound; };
    struct V : wmp::Value {
        FakeTensor tensor;
        wmp::TensorValues values;
    };
    struct Res : wmp::EvaluationResult { std::map<std::string, wmp::TensorValues> outputs; };

    void step(const std::string& name) {
        if (fail_at == name) throw wmp::PlatformError(kFailCode, name + " failed");
    }
};

inline wmp::FeatureDescription tensor(std::string name, std::uint32_t kind,
                                      std::vector<std::int64_t> shape) {
    return {std::move(name), wmp::Tensor, kind, std::move(shape)};
}

}  // namespace kel::test
