// ONNX backend node tests through kel (C interface, both engines) and through each runtime
// called directly, so a loss is kel's own and not its runtime's.
//
// Usage: kel-conformance NODE_TESTS_DIR [--sample N] [--filter TEXT] [--known FILE]
//                                      [--require-parity] [--verbose]
// Each test directory holds model.onnx and test_data_set_*/{input,output}_*.pb (serialized
// onnx.TensorProto). Outputs match when |got - want| <= atol + rtol * |want| for floating
// types (rtol 1e-3, atol 1e-5, NaN matches NaN) and exactly for every other type.
//
// Runtimes may crash or hang on a test, so tests run in a worker process; a worker that dies
// costs the test it was on (recorded as "crash") and a new worker carries on after it.
#include <kel/c/kel.h>
#include <onnxruntime_cxx_api.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <openvino/openvino.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr double kRtol = 1e-3, kAtol = 1e-5;

// ---- A reader for the few protobuf messages the tests use -------------------------------
struct Proto {
    const uint8_t* p;
    const uint8_t* end;
    bool ok = true;

    bool more() const { return ok && p < end; }
    uint64_t varint() {
        uint64_t v = 0;
        for (int shift = 0; shift < 64 && p < end; shift += 7) {
            const uint8_t b = *p++;
            v |= uint64_t(b & 0x7f) << shift;
            if (!(b & 0x80)) return v;
        }
        ok = false;
        return 0;
    }
    // Field number and wire type of the next field.
    std::pair<uint32_t, uint32_t> key() {
        const uint64_t k = varint();
        return {uint32_t(k >> 3), uint32_t(k & 7)};
    }
    Proto bytes() {
        const uint64_t n = varint();
        if (n > uint64_t(end - p)) {
            ok = false;
            return {p, p};
        }
        Proto sub{p, p + n};
        p += n;
        return sub;
    }
    void skip(uint32_t wire) {
        switch (wire) {
            case 0: varint(); break;
            case 1: p += 8; break;
            case 2: bytes(); break;
            case 5: p += 4; break;
            default: ok = false;
        }
        if (p > end) ok = false;
    }
    std::string str() {
        Proto s = bytes();
        return {reinterpret_cast<const char*>(s.p), size_t(s.end - s.p)};
    }
};

// Repeated numbers arrive packed (wire type 2) or one by one.
template <class F>
void numbers(Proto& m, uint32_t wire, uint32_t width, F&& take) {
    auto one = [&](Proto& q) {
        if (width == 0) {
            take(q.varint());
        } else {
            uint64_t v = 0;
            std::memcpy(&v, q.p, width);
            q.p += width;
            take(v);
        }
    };
    if (wire == 2) {
        Proto packed = m.bytes();
        while (packed.p < packed.end) one(packed);
    } else {
        one(m);
    }
}

size_t elementSize(int type) {
    switch (type) {
        case 1: case 6: case 12: return 4;
        case 2: case 3: case 9: case 17: case 18: case 19: case 20: return 1;
        case 4: case 5: case 10: case 16: return 2;
        case 7: case 11: case 13: case 14: return 8;
        case 15: return 16;
        default: return 0;  // strings, 4-bit types
    }
}

const char* typeName(int type) {
    static const char* names[] = {"undefined", "float", "uint8", "int8", "uint16", "int16",
                                  "int32", "int64", "string", "bool", "float16", "double",
                                  "uint32", "uint64", "complex64", "complex128", "bfloat16",
                                  "float8e4m3fn", "float8e4m3fnuz", "float8e5m2",
                                  "float8e5m2fnuz", "uint4", "int4"};
    return type >= 0 && type < 23 ? names[type] : "unknown";
}

struct Tensor {
    std::string name;
    int type = 0;
    std::vector<int64_t> dims;
    std::vector<uint8_t> bytes;
    size_t count() const {
        size_t n = 1;
        for (auto d : dims) n *= size_t(d);
        return n;
    }
};

// TensorProto: dims 1, data_type 2, float_data 4, int32_data 5, string_data 6, int64_data 7,
// name 8, raw_data 9, double_data 10, uint64_data 11.
bool parseTensor(const std::vector<uint8_t>& file, Tensor& t, std::string& why) {
    Proto m{file.data(), file.data() + file.size()};
    std::vector<uint64_t> i32, i64, u64, f32, f64;
    bool raw = false, strings = false;
    while (m.more()) {
        auto [field, wire] = m.key();
        switch (field) {
            case 1: numbers(m, wire, 0, [&](uint64_t v) { t.dims.push_back(int64_t(v)); }); break;
            case 2: t.type = int(m.varint()); break;
            case 4: numbers(m, wire, 4, [&](uint64_t v) { f32.push_back(v); }); break;
            case 5: numbers(m, wire, 0, [&](uint64_t v) { i32.push_back(v); }); break;
            case 6: strings = true; m.skip(wire); break;
            case 7: numbers(m, wire, 0, [&](uint64_t v) { i64.push_back(v); }); break;
            case 8: t.name = m.str(); break;
            case 9: {
                Proto r = m.bytes();
                t.bytes.assign(r.p, r.end);
                raw = true;
                break;
            }
            case 10: numbers(m, wire, 8, [&](uint64_t v) { f64.push_back(v); }); break;
            case 11: numbers(m, wire, 0, [&](uint64_t v) { u64.push_back(v); }); break;
            default: m.skip(wire);
        }
    }
    if (!m.ok) return why = "unreadable tensor file", false;
    if (strings || t.type == 8) return why = "string tensor", false;
    const size_t size = elementSize(t.type);
    if (size == 0) return why = std::string(typeName(t.type)) + " tensor", false;
    if (raw) {
        if (t.bytes.size() != t.count() * size) return why = "raw data of the wrong size", false;
        return true;
    }
    // Typed fields: each number narrowed to the element's width, little-endian.
    const std::vector<uint64_t>* from = nullptr;
    size_t width = size;
    switch (t.type) {
        case 1: from = &f32; break;
        case 14: from = &f32; width = 4; break;
        case 7: from = &i64; break;
        case 11: from = &f64; break;
        case 15: from = &f64; width = 8; break;
        case 12: case 13: from = &u64; break;
        default: from = &i32;  // int8..int32, bool, float16, bfloat16, float8 (bit patterns)
    }
    t.bytes.resize(from->size() * width);
    for (size_t i = 0; i < from->size(); ++i) std::memcpy(&t.bytes[i * width], &(*from)[i], width);
    if (t.bytes.size() != t.count() * size) return why = "typed data of the wrong size", false;
    return true;
}

struct Graph {
    std::vector<std::string> inputs, outputs;  // inputs without initializers
    std::string non_tensor;                     // why the runner cannot feed or read it
};

// ModelProto.graph 7; GraphProto initializer 5, input 11, output 12; ValueInfoProto name 1,
// type 2; TypeProto tensor 1, sequence 4, map 5, sparse tensor 8, optional 9.
Graph parseGraph(const std::vector<uint8_t>& file) {
    Graph g;
    Proto m{file.data(), file.data() + file.size()};
    std::set<std::string> initializers;
    std::vector<std::pair<std::string, int>> ins, outs;
    while (m.more()) {
        auto [field, wire] = m.key();
        if (field != 7 || wire != 2) {
            m.skip(wire);
            continue;
        }
        Proto graph = m.bytes();
        while (graph.more()) {
            auto [gf, gw] = graph.key();
            if (gf == 5 && gw == 2) {
                Proto init = graph.bytes();
                while (init.more()) {
                    auto [f, w] = init.key();
                    if (f == 8 && w == 2) initializers.insert(init.str());
                    else init.skip(w);
                }
            } else if ((gf == 11 || gf == 12) && gw == 2) {
                Proto info = graph.bytes();
                std::string name;
                int kind = 0;
                while (info.more()) {
                    auto [f, w] = info.key();
                    if (f == 1 && w == 2) {
                        name = info.str();
                    } else if (f == 2 && w == 2) {
                        Proto type = info.bytes();
                        while (type.more()) {
                            auto [tf, tw] = type.key();
                            if (tw == 2 && kind == 0) kind = int(tf);
                            type.skip(tw);
                        }
                    } else {
                        info.skip(w);
                    }
                }
                (gf == 11 ? ins : outs).emplace_back(name, kind);
            } else {
                graph.skip(gw);
            }
        }
    }
    auto check = [&](int kind) {
        if (kind == 4) g.non_tensor = "sequence";
        else if (kind == 5) g.non_tensor = "map";
        else if (kind == 8) g.non_tensor = "sparse tensor";
        else if (kind == 9) g.non_tensor = "optional";
    };
    for (auto& [name, kind] : ins)
        if (!initializers.contains(name)) g.inputs.push_back(name), check(kind);
    for (auto& [name, kind] : outs) g.outputs.push_back(name), check(kind);
    return g;
}

std::vector<uint8_t> readFile(const fs::path& path) {
    std::ifstream f(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>()};
}

double halfToDouble(uint16_t h) {
    const int e = (h >> 10) & 0x1f, f = h & 0x3ff;
    const double s = (h & 0x8000) ? -1 : 1;
    if (e == 0) return s * std::ldexp(f, -24);
    if (e == 31) return f ? NAN : s * INFINITY;
    return s * std::ldexp(f + 1024, e - 25);
}

bool isFloating(int type) { return type == 1 || type == 10 || type == 11 || type == 16 || type == 14 || type == 15; }

double floatAt(int type, const uint8_t* p, size_t i) {
    switch (type) {
        case 1: case 14: { float v; std::memcpy(&v, p + 4 * i, 4); return v; }
        case 11: case 15: { double v; std::memcpy(&v, p + 8 * i, 8); return v; }
        case 10: { uint16_t v; std::memcpy(&v, p + 2 * i, 2); return halfToDouble(v); }
        case 16: {
            uint16_t v;
            std::memcpy(&v, p + 2 * i, 2);
            uint32_t bits = uint32_t(v) << 16;
            float f;
            std::memcpy(&f, &bits, 4);
            return f;
        }
    }
    return 0;
}

// Empty when the data match the expected tensor; otherwise why not.
std::string compare(const Tensor& want, const uint8_t* got, size_t got_count) {
    if (got_count != want.count())
        return "output " + want.name + ": " + std::to_string(got_count) + " elements, want " +
               std::to_string(want.count());
    if (want.count() == 0) return {};
    if (!got) return "output " + want.name + ": no data";
    if (!isFloating(want.type)) {
        if (std::memcmp(got, want.bytes.data(), want.bytes.size()) != 0)
            return "output " + want.name + ": values differ";
        return {};
    }
    const size_t n = want.type == 14 || want.type == 15 ? want.count() * 2 : want.count();
    for (size_t i = 0; i < n; ++i) {
        const double a = floatAt(want.type, got, i), b = floatAt(want.type, want.bytes.data(), i);
        if (std::isnan(a) && std::isnan(b)) continue;
        if (a == b) continue;
        if (!(std::fabs(a - b) <= kAtol + kRtol * std::fabs(b))) {
            char text[160];
            std::snprintf(text, sizeof text, ": element %zu is %g, want %g", i, a, b);
            return "output " + want.name + text;
        }
    }
    return {};
}

struct DataSet {
    std::vector<Tensor> inputs, outputs;
};

struct Test {
    std::string name;
    fs::path model;
    Graph graph;
    std::vector<DataSet> sets;
    std::string unrunnable;  // why the runner cannot express this test (same on every path)
};

Test loadTest(const fs::path& dir) {
    Test t;
    t.name = dir.filename().string();
    t.model = dir / "model.onnx";
    t.graph = parseGraph(readFile(t.model));
    if (!t.graph.non_tensor.empty()) {
        t.unrunnable = t.graph.non_tensor + " input or output";
        return t;
    }
    std::vector<fs::path> sets;
    for (auto& e : fs::directory_iterator(dir))
        if (e.is_directory() && e.path().filename().string().rfind("test_data_set_", 0) == 0)
            sets.push_back(e.path());
    std::sort(sets.begin(), sets.end());
    for (auto& s : sets) {
        DataSet d;
        for (int io = 0; io < 2; ++io) {
            const char* prefix = io ? "output_" : "input_";
            for (int i = 0;; ++i) {
                const fs::path p = s / (prefix + std::to_string(i) + ".pb");
                if (!fs::exists(p)) break;
                Tensor tensor;
                std::string why;
                if (!parseTensor(readFile(p), tensor, why)) {
                    t.unrunnable = why;
                    return t;
                }
                // Test files name their tensor; when one does not, the graph's order does.
                const auto& names = io ? t.graph.outputs : t.graph.inputs;
                if (tensor.name.empty() && size_t(i) < names.size()) tensor.name = names[i];
                (io ? d.outputs : d.inputs).push_back(std::move(tensor));
            }
        }
        t.sets.push_back(std::move(d));
    }
    if (t.sets.empty()) t.unrunnable = "no test data";
    return t;
}

// ---- The four paths ------------------------------------------------------------------
const char* kPaths[] = {"kel OpenVINO", "OpenVINO", "kel WindowsML", "ONNX Runtime"};

void* g_kel = nullptr;
int g_network = 0;

std::string kelError() {
    if (!kelHasException(g_kel)) return {};
    uint64_t length = 0;
    kelGetExceptionStringLength(g_kel, &length);
    std::string text(length, '\0');
    kelGetExceptionString(g_kel, text.data());
    kelResetExceptionString(g_kel);
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text.empty() ? "failed without text" : text;
}

// A raw runtime's failure as one line of the report.
std::string failureText(const std::exception& e) {
    std::string text = e.what();
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text.substr(0, 300);
}

std::string runKel(const Test& t, const char* engine) {
    const bool windows_ml = std::strcmp(engine, "WindowsML") == 0;
    // Each test gets its own network; the previous one goes once the new one is current.
    const std::string id = "t" + std::to_string(++g_network);
    const std::string previous = "t" + std::to_string(g_network - 1);
    kelCreateNetByFiles(g_kel, engine, id.c_str(), "CPU", t.model.c_str(), nullptr);
    if (auto e = kelError(); !e.empty()) return "create: " + e;
    kelRemoveNetwork(g_kel, previous.c_str());
    kelError();  // there may be none to remove

    std::vector<std::vector<uint8_t>> outputs;  // host buffers for dynamic WindowsML outputs
    for (const auto& set : t.sets) {
        for (const auto& in : set.inputs) {
            uint64_t size = 0;
            kelGetLayerPrecision(g_kel, in.name.c_str(), &size, nullptr, nullptr);
            if (auto e = kelError(); !e.empty()) return "input " + in.name + ": " + e;
            if (size != elementSize(in.type))
                return "input " + in.name + ": kel's element size " + std::to_string(size) +
                       " for " + typeName(in.type);
            static uint8_t empty[16];
            const void* data = in.bytes.empty() ? empty : in.bytes.data();
            if (in.dims.empty()) {
                // A scalar has no dimensions to pass; it is written into kel's own memory.
                void* p = kelGetLayerData(g_kel, in.name.c_str());
                if (auto e = kelError(); !e.empty()) return "scalar input " + in.name + ": " + e;
                std::memcpy(p, data, in.bytes.size());
            } else {
                std::vector<uint64_t> dims(in.dims.begin(), in.dims.end());
                kelSetLayerData(g_kel, in.name.c_str(), data, dims.data(), dims.size());
                if (auto e = kelError(); !e.empty()) return "input " + in.name + ": " + e;
            }
        }
        // WindowsML writes a dynamic output only into memory the host bound to it.
        if (windows_ml) {
            outputs.clear();
            for (const auto& want : set.outputs) {
                uint64_t rank = 0;
                kelGetLayerDims(g_kel, want.name.c_str(), nullptr, &rank);
                std::vector<uint64_t> dims(rank);
                kelGetLayerDims(g_kel, want.name.c_str(), dims.data(), &rank);
                if (kelError().empty()) continue;
                dims.assign(want.dims.begin(), want.dims.end());
                if (dims.empty()) dims.push_back(1);
                // Room to spare: a wrong result must fail the comparison, not overrun.
                outputs.emplace_back(4 * (want.count() * 8 + 64));
                kelSetLayerData(g_kel, want.name.c_str(), outputs.back().data(), dims.data(),
                                dims.size());
                if (auto e = kelError(); !e.empty()) return "output " + want.name + ": " + e;
            }
        }
        kelInfer(g_kel);
        if (auto e = kelError(); !e.empty()) return "infer: " + e;
        for (const auto& want : set.outputs) {
            uint64_t size = 0, rank = 0;
            kelGetLayerPrecision(g_kel, want.name.c_str(), &size, nullptr, nullptr);
            kelGetLayerDims(g_kel, want.name.c_str(), nullptr, &rank);
            std::vector<uint64_t> dims(rank);
            kelGetLayerDims(g_kel, want.name.c_str(), dims.data(), &rank);
            const void* data = kelGetLayerData(g_kel, want.name.c_str());
            if (auto e = kelError(); !e.empty()) return "output " + want.name + ": " + e;
            if (size != elementSize(want.type))
                return "output " + want.name + ": kel's element size " + std::to_string(size) +
                       " for " + typeName(want.type);
            size_t count = 1;
            for (auto d : dims) count *= d;
            // WindowsML shows a scalar as one element of one dimension.
            const std::vector<uint64_t> want_dims(want.dims.begin(), want.dims.end());
            const bool scalar_as_one = want_dims.empty() && dims == std::vector<uint64_t>{1};
            if (dims != want_dims && !scalar_as_one && count == want.count())
                return "output " + want.name + ": dims differ";
            // WindowsML hands half-precision outputs out as 32-bit floats.
            if (windows_ml && want.type == 10) {
                Tensor as_float = want;
                as_float.type = 1;
                as_float.bytes.resize(want.count() * 4);
                for (size_t i = 0; i < want.count(); ++i) {
                    const float v = static_cast<float>(floatAt(10, want.bytes.data(), i));
                    std::memcpy(as_float.bytes.data() + 4 * i, &v, 4);
                }
                if (auto why = compare(as_float, static_cast<const uint8_t*>(data), count); !why.empty())
                    return why;
                continue;
            }
            if (auto why = compare(want, static_cast<const uint8_t*>(data), count); !why.empty())
                return why;
        }
    }
    return {};
}

ov::element::Type ovType(int type) {
    switch (type) {
        case 1: return ov::element::f32;
        case 2: return ov::element::u8;
        case 3: return ov::element::i8;
        case 4: return ov::element::u16;
        case 5: return ov::element::i16;
        case 6: return ov::element::i32;
        case 7: return ov::element::i64;
        case 9: return ov::element::boolean;
        case 10: return ov::element::f16;
        case 11: return ov::element::f64;
        case 12: return ov::element::u32;
        case 13: return ov::element::u64;
        case 16: return ov::element::bf16;
        case 17: return ov::element::f8e4m3;
        case 19: return ov::element::f8e5m2;
        default: return ov::element::dynamic;
    }
}

std::string runVino(const Test& t, ov::Core& core) {
    try {
        auto model = core.read_model(t.model.string());
        auto compiled = core.compile_model(model, "CPU");
        auto request = compiled.create_infer_request();
        for (const auto& set : t.sets) {
            for (const auto& in : set.inputs) {
                static uint8_t empty[16];
                void* data = in.bytes.empty() ? empty : const_cast<uint8_t*>(in.bytes.data());
                // As kel does: the port's element type, when its width is the data's.
                auto type = ovType(in.type);
                const auto port = compiled.input(in.name).get_element_type();
                if (port.size() == elementSize(in.type)) type = port;
                request.set_tensor(in.name, ov::Tensor(type,
                                                       ov::Shape(in.dims.begin(), in.dims.end()),
                                                       data));
            }
            request.infer();
            for (size_t i = 0; i < set.outputs.size(); ++i) {
                const auto& want = set.outputs[i];
                auto got = request.get_output_tensor(i);
                if (got.get_element_type() != ovType(want.type))
                    return "output " + want.name + ": element type " +
                           got.get_element_type().to_string() + ", want " + typeName(want.type);
                const auto shape = got.get_shape();
                if (std::vector<int64_t>(shape.begin(), shape.end()) != want.dims)
                    return "output " + want.name + ": shape differs";
                if (auto why = compare(want, static_cast<const uint8_t*>(got.data()), got.get_size());
                    !why.empty())
                    return why;
            }
        }
    } catch (const std::exception& e) {
        return failureText(e);
    }
    return {};
}

std::string runOrt(const Test& t, Ort::Env& env) {
    try {
        Ort::SessionOptions options;
        Ort::Session session(env, t.model.c_str(), options);
        auto memory = Ort::MemoryInfo::CreateCpu(OrtArenaAllocator, OrtMemTypeDefault);
        for (const auto& set : t.sets) {
            std::vector<Ort::Value> inputs;
            std::vector<const char*> in_names, out_names;
            for (const auto& in : set.inputs) {
                static uint8_t empty[16];
                void* data = in.bytes.empty() ? empty : const_cast<uint8_t*>(in.bytes.data());
                inputs.push_back(Ort::Value::CreateTensor(
                    memory, data, in.bytes.size(), in.dims.data(), in.dims.size(),
                    static_cast<ONNXTensorElementDataType>(in.type)));
                in_names.push_back(in.name.c_str());
            }
            for (const auto& name : t.graph.outputs) out_names.push_back(name.c_str());
            auto outputs = session.Run(Ort::RunOptions{nullptr}, in_names.data(), inputs.data(),
                                       inputs.size(), out_names.data(), out_names.size());
            for (size_t i = 0; i < set.outputs.size() && i < outputs.size(); ++i) {
                const auto& want = set.outputs[i];
                auto info = outputs[i].GetTensorTypeAndShapeInfo();
                if (int(info.GetElementType()) != want.type)
                    return "output " + want.name + ": element type " +
                           std::to_string(int(info.GetElementType())) + ", want " +
                           typeName(want.type);
                if (info.GetShape() != want.dims) return "output " + want.name + ": shape differs";
                if (auto why = compare(want, static_cast<const uint8_t*>(outputs[i].GetTensorRawData()),
                                       info.GetElementCount());
                    !why.empty())
                    return why;
            }
        }
    } catch (const std::exception& e) {
        return failureText(e);
    }
    return {};
}

// ---- Worker and parent ------------------------------------------------------------------
// The worker reports "B test path" before a path and "R test path result" after it.
[[noreturn]] void worker(const std::vector<fs::path>& dirs, size_t test, int path, int fd,
                         bool verbose) {
    if (!verbose) {
        const int null = ::open("/dev/null", O_WRONLY);
        dup2(null, 2);
    }
    FILE* out = fdopen(fd, "w");
    g_kel = kelCreate();
    if (auto e = kelError(); !e.empty()) {
        std::fprintf(out, "F %s\n", e.c_str());
        std::fflush(out);
        _exit(2);
    }
    ov::Core core;
    Ort::Env env(ORT_LOGGING_LEVEL_FATAL, "conformance");
    for (; test < dirs.size(); ++test, path = 0) {
        const Test t = loadTest(dirs[test]);
        for (; path < 4; ++path) {
            std::fprintf(out, "B %zu %d\n", test, path);
            std::fflush(out);
            std::string result;
            if (!t.unrunnable.empty()) {
                result = "unrunnable: " + t.unrunnable;
            } else {
                alarm(120);
                switch (path) {
                    case 0: result = runKel(t, "OpenVINO"); break;
                    case 1: result = runVino(t, core); break;
                    case 2: result = runKel(t, "WindowsML"); break;
                    case 3: result = runOrt(t, env); break;
                }
                alarm(0);
            }
            std::fprintf(out, "R %zu %d %s\n", test, path, result.empty() ? "pass" : result.c_str());
            std::fflush(out);
        }
    }
    std::fflush(out);
    _exit(0);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr,
                     "usage: %s NODE_TESTS_DIR [--sample N] [--filter TEXT] [--known FILE] "
                     "[--require-parity] [--verbose]\n",
                     argv[0]);
        return 1;
    }
    size_t sample = 0;
    std::string filter, known_file;
    bool parity = false, verbose = false;
    for (int i = 2; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--sample" && i + 1 < argc) sample = std::stoul(argv[++i]);
        else if (a == "--filter" && i + 1 < argc) filter = argv[++i];
        else if (a == "--known" && i + 1 < argc) known_file = argv[++i];
        else if (a == "--require-parity") parity = true;
        else if (a == "--verbose") verbose = true;
        else return std::fprintf(stderr, "unknown argument %s\n", a.c_str()), 1;
    }

    std::vector<fs::path> dirs;
    std::error_code ec;
    for (auto& e : fs::directory_iterator(argv[1], ec))
        if (fs::exists(e.path() / "model.onnx") &&
            e.path().filename().string().find(filter) != std::string::npos)
            dirs.push_back(e.path());
    if (ec || dirs.empty()) {
        std::fprintf(stderr, "no tests found under %s\n", argv[1]);
        return 1;
    }
    std::sort(dirs.begin(), dirs.end());
    if (sample && sample < dirs.size()) {
        // Evenly spread over the alphabet, so the sample spans many operators.
        std::vector<fs::path> picked;
        for (size_t i = 0; i < sample; ++i) picked.push_back(dirs[i * dirs.size() / sample]);
        dirs = picked;
    }

    // Losses kel is known to have, one "test_name reason" a line.
    std::map<std::string, std::string> known;
    if (!known_file.empty()) {
        std::ifstream f(known_file);
        std::string line;
        while (std::getline(f, line)) {
            if (line.empty() || line[0] == '#') continue;
            const auto space = line.find(' ');
            known[line.substr(0, space)] = space == std::string::npos ? "" : line.substr(space + 1);
        }
    }

    std::vector<std::array<std::string, 4>> results(dirs.size());
    size_t test = 0;
    int path = 0;
    while (test < dirs.size()) {
        int fds[2];
        if (pipe(fds) != 0) return std::perror("pipe"), 1;
        const pid_t pid = fork();
        if (pid == 0) {
            close(fds[0]);
            worker(dirs, test, path, fds[1], verbose);
        }
        close(fds[1]);
        FILE* in = fdopen(fds[0], "r");
        char* line = nullptr;
        size_t cap = 0;
        size_t cur_test = test;
        int cur_path = path;
        bool begun = false;
        while (getline(&line, &cap, in) > 0) {
            std::string l(line);
            if (!l.empty() && l.back() == '\n') l.pop_back();
            if (l[0] == 'F') {
                std::fprintf(stderr, "kel cannot start: %s\n", l.c_str() + 2);
                return 2;
            }
            std::istringstream s(l.substr(2));
            s >> cur_test >> cur_path;
            if (l[0] == 'B') {
                begun = true;
            } else {
                std::string rest;
                std::getline(s >> std::ws, rest);
                results[cur_test][cur_path] = rest;
                begun = false;
                if (!verbose && cur_path == 3 && isatty(2))
                    std::fprintf(stderr, "\r%zu/%zu", cur_test + 1, dirs.size());
            }
        }
        free(line);
        fclose(in);
        int status = 0;
        waitpid(pid, &status, 0);
        if (!begun) break;  // the worker finished
        const bool timeout = WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM;
        results[cur_test][cur_path] =
            timeout ? "timeout" : "crash (signal " + std::to_string(WTERMSIG(status)) + ")";
        test = cur_test;
        path = cur_path + 1;
        if (path == 4) ++test, path = 0;
    }
    if (!verbose && isatty(2)) std::fprintf(stderr, "\n");

    // Per engine: raw passes, kel passes, kel passes among raw passes.
    std::printf("Tests: %zu under %s; tolerance rtol %g, atol %g for floating types, exact "
                "otherwise.\n\n",
                dirs.size(), argv[1], kRtol, kAtol);
    size_t unrunnable = 0;
    std::map<std::string, size_t> unrunnable_why;
    for (auto& r : results)
        if (r[0].rfind("unrunnable: ", 0) == 0) ++unrunnable, ++unrunnable_why[r[0].substr(12)];
    std::printf("| engine | tests run | raw runtime passes | kel passes | kel passes of the raw "
                "passes | ratio |\n|---|---|---|---|---|---|\n");
    int unexpected = 0;
    std::vector<std::string> lost_lines, gained_lines;
    for (int engine = 0; engine < 2; ++engine) {
        const int k = engine * 2, raw = k + 1;
        size_t raw_pass = 0, kel_pass = 0, both = 0;
        for (size_t i = 0; i < dirs.size(); ++i) {
            const auto& r = results[i];
            if (r[0].rfind("unrunnable: ", 0) == 0) continue;
            const bool rp = r[raw] == "pass", kp = r[k] == "pass";
            raw_pass += rp, kel_pass += kp, both += rp && kp;
            const std::string name = dirs[i].filename().string();
            if (rp && !kp) {
                const auto it = known.find(name);
                const bool expected = it != known.end();
                unexpected += !expected;
                lost_lines.push_back(std::string(engine ? "WindowsML" : "OpenVINO") + " " + name +
                                     ": " + r[k] + (expected ? "" : "  [not in the known list]"));
            }
            if (kp && !rp)
                gained_lines.push_back(std::string(engine ? "WindowsML" : "OpenVINO") + " " +
                                       name + ": raw " + r[raw]);
        }
        std::printf("| %s | %zu | %zu | %zu | %zu | %.3f |\n", engine ? "WindowsML (ONNX Runtime)" : "OpenVINO",
                    dirs.size() - unrunnable, raw_pass, kel_pass, both,
                    raw_pass ? double(both) / double(raw_pass) : 1.0);
    }
    std::printf("\nNot run on any path (%zu):", unrunnable);
    for (auto& [why, n] : unrunnable_why) std::printf(" %s %zu;", why.c_str(), n);
    std::printf("\n\nTests kel loses (its runtime passes, kel does not): %zu\n", lost_lines.size());
    for (auto& l : lost_lines) std::printf("- %s\n", l.c_str());
    if (!gained_lines.empty()) {
        std::printf("\nTests kel passes that its runtime called directly does not: %zu\n",
                    gained_lines.size());
        for (auto& l : gained_lines) std::printf("- %s\n", l.c_str());
    }
    if (verbose) {
        std::printf("\nAll results:\n");
        for (size_t i = 0; i < dirs.size(); ++i)
            for (int p = 0; p < 4; ++p)
                std::printf("%s\t%s\t%s\n", dirs[i].filename().c_str(), kPaths[p],
                            results[i][p].c_str());
    }
    return parity && unexpected ? 3 : 0;
}
