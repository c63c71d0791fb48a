// kel against the runtimes it wraps, in one process: the same model, inputs and settings
// through kel's C interface and through OpenVINO / ONNX Runtime called directly. Runs of the
// two sides alternate in blocks, so whatever else the machine does hits both alike.
//
// Usage: kel-bench MODELS_DIR SILERO_VAD_ONNX [--quick] [--memory] [MODEL...]
//   MODELS_DIR holds digits.{xml,onnx}, convnet.{xml,onnx} and wide_mlp.{xml,onnx}; naming
//   models (digits, silero_vad, convnet, wide_mlp) runs only those. The large model also gets
//   its memory weighed: resident memory per network and the peak of a creation; --memory
//   only weighs it.
#include <dlfcn.h>
#include <kel/c/kel.h>
#include <kel/c/kel_plugin_model.h>
#include <malloc.h>
#include <onnxruntime_cxx_api.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <openvino/openvino.hpp>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

namespace {

// A sanitizer's allocator holds freed memory back (quarantine) and adds its own: memory is
// printed then, not judged.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
#else
constexpr bool kSanitized = false;
#endif

using Clock = std::chrono::steady_clock;

double microsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

void* g_kel = nullptr;
std::string g_leftover;  // the last network of a finished row

// Any failure of kel ends the run with kel's own text.
void check(const char* what) {
    if (!kelHasException(g_kel)) return;
    uint64_t length = 0;
    kelGetExceptionStringLength(g_kel, &length);
    std::string text(length, '\0');
    kelGetExceptionString(g_kel, text.data());
    std::fprintf(stderr, "kel failed in %s: %s\n", what, text.c_str());
    std::exit(2);
}

struct Layer {
    std::string name;
    std::vector<int64_t> shape;
    ov::element::Type type;
    std::vector<uint8_t> a, b;  // b is the second buffer of a fed-back state
};

// A model as the benchmark sees it: inputs with their data, outputs with host buffers, and
// optionally state pairs (output i feeds input j at the next run).
struct Case {
    std::string name;
    std::string ir, onnx;  // ir empty: OpenVINO reads the ONNX file
    std::vector<Layer> inputs, outputs;
    std::vector<std::pair<int, int>> state;  // (output index, input index)
    int warmup, blocks, per_block, creations;
    int session_creations = 61;  // ONNX Runtime sessions take milliseconds: many more pairs
};

size_t bytesOf(const Layer& l) {
    size_t n = l.type.size();
    for (auto d : l.shape) n *= static_cast<size_t>(d);
    return n;
}

void fillRandom(Layer& l, std::mt19937& rng) {
    l.a.assign(bytesOf(l), 0);
    l.b.assign(bytesOf(l), 0);
    if (l.type == ov::element::f32) {
        std::uniform_real_distribution<float> u(-1.f, 1.f);
        auto* p = reinterpret_cast<float*>(l.a.data());
        for (size_t i = 0; i < l.a.size() / 4; ++i) p[i] = u(rng);
    }
}

double pick(std::vector<double> v, double q) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    return v[static_cast<size_t>(q * static_cast<double>(v.size() - 1) + 0.5)];
}

struct Stats {
    std::vector<double> creation_ms, first_us, latency_us;
    std::vector<double> block_p50;  // the median of each latency block, in run order
};

// The median over neighbouring kel and raw measurements of kel / raw. Noise from outside
// (other machines on the host, frequency changes) comes in bursts that hit one pair and not
// the next; the median of the pairs' ratios keeps them out where pooled figures do not.
double pairedRatio(const std::vector<double>& kel, const std::vector<double>& raw) {
    std::vector<double> ratios;
    for (size_t i = 0; i < std::min(kel.size(), raw.size()); ++i)
        if (raw[i] > 0) ratios.push_back(kel[i] / raw[i]);
    return pick(ratios, .5);
}

// One side of a comparison: create, run once, run repeatedly. `tidy` runs untimed after
// each creation and drops the network that the new one replaced. Only the creation is
// timed: dropping a session joins its worker threads, and on a machine of few cores that
// join waits for a scheduler slice while the new session's workers spin (about 4 ms here,
// on either side at random), which made the creation figures bimodal.
struct Runner {
    std::function<void()> create;
    std::function<void()> infer;
    std::function<std::vector<float>()> firstOutput;
    std::function<void()> tidy;
};

// ---- kel through its C interface -------------------------------------------------------
struct KelSide {
    const Case& c;
    std::string engine, id;
    int flip = 0, serial = 0;
    std::string live, replaced;

    // A finished row's network goes once the next row has made its first (the current
    // network cannot be removed): idle thread pools of earlier rows stay out of later ones.
    // That happens in tidy, outside the timing, as the raw side's drops do.
    ~KelSide() { g_leftover = live; }

    void bind(bool swapped) {
        for (size_t i = 0; i < c.inputs.size(); ++i) {
            auto& l = const_cast<Layer&>(c.inputs[i]);
            if (l.shape.empty()) continue;  // scalars are written into kel's own memory
            bool is_state = false;
            for (auto [o, in] : c.state) is_state |= (in == static_cast<int>(i));
            void* data = (is_state && swapped) ? l.b.data() : l.a.data();
            std::vector<uint64_t> dims(l.shape.begin(), l.shape.end());
            kelSetLayerData(g_kel, l.name.c_str(), data, dims.data(), dims.size());
        }
        for (size_t o = 0; o < c.outputs.size(); ++o) {
            auto& l = const_cast<Layer&>(c.outputs[o]);
            int in = -1;
            for (auto [so, si] : c.state)
                if (so == static_cast<int>(o)) in = si;
            if (in < 0 && c.state.empty()) continue;  // static outputs stay in kel's memory
            auto& target = in >= 0 ? const_cast<Layer&>(c.inputs[in]) : l;
            void* data = in >= 0 ? (swapped ? target.a.data() : target.b.data()) : l.a.data();
            std::vector<uint64_t> dims(l.shape.begin(), l.shape.end());
            kelSetLayerData(g_kel, l.name.c_str(), data, dims.data(), dims.size());
        }
        check("kelSetLayerData");
    }

    void create() {
        const bool vino = engine == "OpenVINO";
        const std::string& file = vino && !c.ir.empty() ? c.ir : c.onnx;
        // Identifiers are never reused; the previous network goes in tidy, once the new one
        // is current.
        const std::string name = id + "-" + std::to_string(++serial);
        kelCreateNetByFiles(g_kel, engine.c_str(), name.c_str(), "CPU", file.c_str(), nullptr);
        check("kelCreateNetByFiles");
        replaced = live;
        live = name;
        for (auto& l : c.inputs)
            if (l.shape.empty()) {
                void* p = kelGetLayerData(g_kel, l.name.c_str());
                check("kelGetLayerData");
                std::memcpy(p, l.a.data(), l.a.size());
            }
        flip = 0;
        bind(false);
    }
    void tidy() {
        for (auto* gone : {&replaced, &g_leftover})
            if (!gone->empty()) {
                kelRemoveNetwork(g_kel, gone->c_str());
                check("kelRemoveNetwork");
                gone->clear();
            }
    }
    void infer() {
        kelInfer(g_kel);
        if (!c.state.empty()) bind(flip ^= 1);
    }
    std::vector<float> firstOutput() {
        void* p = kelGetLayerData(g_kel, c.outputs[0].name.c_str());
        check("kelGetLayerData");
        const auto* f = static_cast<const float*>(p);
        return {f, f + bytesOf(c.outputs[0]) / 4};
    }
};

// ---- OpenVINO directly -----------------------------------------------------------------
struct VinoSide {
    const Case& c;
    ov::Core& shared_core;
    bool fresh_core = false;  // as kel does: every network gets its own ov::Core
    std::unique_ptr<ov::Core> own_core, replaced_core;
    ov::CompiledModel compiled, replaced;
    ov::InferRequest request, replaced_request;
    std::vector<ov::Tensor> in_a, in_b, out_tensors;
    int flip = 0;

    void bind(bool swapped) {
        for (size_t i = 0; i < c.inputs.size(); ++i) {
            bool is_state = false;
            for (auto [o, in] : c.state) is_state |= (in == static_cast<int>(i));
            request.set_tensor(c.inputs[i].name, is_state && swapped ? in_b[i] : in_a[i]);
        }
        for (auto [o, in] : c.state)
            request.set_tensor(c.outputs[o].name, swapped ? in_a[in] : in_b[in]);
        // As on kel's side: with state, every output is bound to host memory.
        for (size_t o = 0; o < c.outputs.size() && !c.state.empty(); ++o) {
            bool is_state = false;
            for (auto [so, si] : c.state) is_state |= (so == static_cast<int>(o));
            if (!is_state) request.set_tensor(c.outputs[o].name, out_tensors[o]);
        }
    }
    void create() {
        if (fresh_core) replaced_core = std::move(own_core), own_core = std::make_unique<ov::Core>();
        ov::Core& core = fresh_core ? *own_core : shared_core;
        replaced_request = std::move(request);
        replaced = std::move(compiled);
        auto model = core.read_model(c.ir.empty() ? c.onnx : c.ir);
        compiled = core.compile_model(model, "CPU");
        request = compiled.create_infer_request();
        in_a.clear();
        in_b.clear();
        for (auto& l : c.inputs) {
            auto& m = const_cast<Layer&>(l);
            ov::Shape shape(l.shape.begin(), l.shape.end());
            in_a.emplace_back(l.type, shape, m.a.data());
            in_b.emplace_back(l.type, shape, m.b.data());
        }
        out_tensors.clear();
        for (auto& l : c.outputs) {
            auto& m = const_cast<Layer&>(l);
            out_tensors.emplace_back(l.type, ov::Shape(l.shape.begin(), l.shape.end()), m.a.data());
        }
        flip = 0;
        bind(false);
    }
    void tidy() {
        replaced_request = {};
        replaced = {};
        replaced_core.reset();
    }
    void infer() {
        request.infer();
        if (!c.state.empty()) bind(flip ^= 1);
    }
    std::vector<float> firstOutput() {
        auto t = request.get_tensor(c.outputs[0].name);
        const float* f = t.data<const float>();
        return {f, f + t.get_size()};
    }
};

// ---- ONNX Runtime directly -------------------------------------------------------------
ONNXTensorElementDataType ortType(ov::element::Type t) {
    if (t == ov::element::f32) return ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT;
    if (t == ov::element::i64) return ONNX_TENSOR_ELEMENT_DATA_TYPE_INT64;
    std::fprintf(stderr, "element type %s has no place in this benchmark\n", t.to_string().c_str());
    std::exit(2);
}

struct OrtSide {
    const Case& c;
    Ort::Env& env;
    // As kel does: the file read into memory, the session made from those bytes, which then
    // go (the session has its own copy). Otherwise the runtime reads the file by its path.
    bool from_memory = false;
    std::unique_ptr<Ort::Session> session, replaced;
    std::vector<const char*> in_names, out_names;
    std::vector<Ort::Value> ins[2], outs[2];
    std::vector<std::vector<uint8_t>> out_memory;
    int flip = 0;

    Ort::Value view(const Layer& l, std::vector<uint8_t>& bytes) {
        auto memory = Ort::MemoryInfo::CreateCpu(OrtArenaAllocator, OrtMemTypeDefault);
        return Ort::Value::CreateTensor(memory, bytes.data(), bytes.size(), l.shape.data(),
                                        l.shape.size(), ortType(l.type));
    }
    void create() {
        Ort::SessionOptions options;  // kel's back-end sets none either
        replaced = std::move(session);
        if (from_memory) {
            std::ifstream file(c.onnx, std::ios::binary | std::ios::ate);
            const auto size = static_cast<size_t>(file.tellg());
            // Not zero-filled first, as kel's buffer is not: the read overwrites it.
            auto bytes = std::make_unique_for_overwrite<char[]>(size);
            file.seekg(0).read(bytes.get(), static_cast<std::streamsize>(size));
            session = std::make_unique<Ort::Session>(env, bytes.get(), size, options);
        } else {
            session = std::make_unique<Ort::Session>(env, c.onnx.c_str(), options);
        }
        in_names.clear();
        out_names.clear();
        out_memory.clear();
        for (int s = 0; s < 2; ++s) ins[s].clear(), outs[s].clear();
        for (auto& l : c.inputs) in_names.push_back(l.name.c_str());
        for (auto& l : c.outputs) out_names.push_back(l.name.c_str());
        out_memory.reserve(c.outputs.size());
        for (auto& l : c.outputs) out_memory.emplace_back(bytesOf(l));
        // Two sets of pre-made values; with state, the second has the state buffers swapped.
        for (int s = 0; s < 2; ++s) {
            for (size_t i = 0; i < c.inputs.size(); ++i) {
                auto& l = const_cast<Layer&>(c.inputs[i]);
                bool is_state = false;
                for (auto [o, in] : c.state) is_state |= (in == static_cast<int>(i));
                ins[s].push_back(view(l, is_state && s ? l.b : l.a));
            }
            for (size_t o = 0; o < c.outputs.size(); ++o) {
                int in = -1;
                for (auto [so, si] : c.state)
                    if (so == static_cast<int>(o)) in = si;
                auto& l = c.outputs[o];
                if (in >= 0) {
                    auto& t = const_cast<Layer&>(c.inputs[in]);
                    outs[s].push_back(view(l, s ? t.a : t.b));
                } else {
                    outs[s].push_back(view(l, out_memory[o]));
                }
            }
        }
        flip = 0;
    }
    void tidy() {
        replaced.reset();
    }
    void infer() {
        session->Run(Ort::RunOptions{nullptr}, in_names.data(), ins[flip].data(), in_names.size(),
                     out_names.data(), outs[flip].data(), out_names.size());
        if (!c.state.empty()) flip ^= 1;
    }
    std::vector<float> firstOutput() {
        const float* f = outs[flip ^ (c.state.empty() ? 0 : 1)][0].GetTensorData<float>();
        return {f, f + bytesOf(c.outputs[0]) / 4};
    }
};

// Fresh inputs for both sides: state starts at zero for each creation.
void resetState(Case& c) {
    for (auto [o, i] : c.state) {
        std::fill(c.inputs[i].a.begin(), c.inputs[i].a.end(), 0);
        std::fill(c.inputs[i].b.begin(), c.inputs[i].b.end(), 0);
    }
}

struct Row {
    std::string model, engine;
    Stats kel, raw;
    double max_diff = 0;
};

// The runtimes' worker threads spin for a while after each run (ONNX Runtime's for tens of
// milliseconds); on a machine of few cores they would slow whatever comes next, the other
// side's work included (a convnet run takes twice as long right after the other session's).
// Untimed pauses at each switch of side let them go to sleep first.
void settle(int milliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds)); }

Row compare(Case& c, const std::string& engine, int creations, Runner kel, Runner raw) {
    Row row{c.name, engine, {}, {}, 0};
    // Creation and first inference, alternating which side goes first.
    for (int r = 0; r < creations; ++r) {
        for (int side = 0; side < 2; ++side) {
            const bool k = (side == 0) == (r % 2 == 0);
            Runner& run = k ? kel : raw;
            Stats& s = k ? row.kel : row.raw;
            resetState(c);
            settle(100);
            auto t0 = Clock::now();
            run.create();
            s.creation_ms.push_back(microsSince(t0) / 1000.0);
            if (run.tidy) run.tidy();
            t0 = Clock::now();
            run.infer();
            s.first_us.push_back(microsSince(t0));
        }
    }
    // Both sides hold a live network now; the first output of each is compared.
    resetState(c);
    kel.create();
    if (kel.tidy) kel.tidy();
    kel.infer();
    auto a = kel.firstOutput();
    resetState(c);
    raw.create();
    if (raw.tidy) raw.tidy();
    raw.infer();
    auto b = raw.firstOutput();
    for (size_t i = 0; i < std::min(a.size(), b.size()); ++i)
        row.max_diff = std::max<double>(row.max_diff, std::abs(a[i] - b[i]));
    if (a.size() != b.size()) row.max_diff = 1e30;

    for (int i = 0; i < c.warmup; ++i) kel.infer(), raw.infer();
    for (int blk = 0; blk < c.blocks; ++blk) {
        for (int side = 0; side < 2; ++side) {
            const bool k = (side == 0) == (blk % 2 == 0);
            Runner& run = k ? kel : raw;
            Stats& s = k ? row.kel : row.raw;
            settle(100);
            std::vector<double> block;
            for (int i = 0; i < c.per_block; ++i) {
                auto t0 = Clock::now();
                run.infer();
                block.push_back(microsSince(t0));
            }
            s.latency_us.insert(s.latency_us.end(), block.begin(), block.end());
            s.block_p50.push_back(pick(block, .5));
        }
    }
    return row;
}

std::string cell(double k, double r, const char* fmt) {
    char a[32], b[32], buf[96];
    std::snprintf(a, sizeof a, fmt, k);
    std::snprintf(b, sizeof b, fmt, r);
    std::snprintf(buf, sizeof buf, "%s / %s (%.3f)", a, b, r > 0 ? k / r : 0.0);
    return buf;
}

std::string fixed3(double v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.3f", v);
    return buf;
}

std::string machine() {
    std::ifstream cpuinfo("/proc/cpuinfo");
    std::string line, model = "unknown processor";
    while (std::getline(cpuinfo, line))
        if (line.rfind("model name", 0) == 0) {
            model = line.substr(line.find(':') + 2);
            break;
        }
    return model + ", " + std::to_string(std::thread::hardware_concurrency()) + " hardware threads";
}

// What the WindowsML path copies per inference costs at least one memcpy of those bytes.
double memcpyMicros(size_t bytes) {
    if (bytes == 0) return 0;
    std::vector<uint8_t> from(bytes, 1), to(bytes);
    std::vector<double> t;
    for (int i = 0; i < 2001; ++i) {
        auto t0 = Clock::now();
        std::memcpy(to.data(), from.data(), bytes);
        asm volatile("" : : "r"(to.data()) : "memory");
        t.push_back(microsSince(t0));
    }
    std::sort(t.begin(), t.end());
    return t[t.size() / 2];
}

}  // namespace

// ---- Memory: what a network keeps, and what its creation needs at its peak -------------
size_t residentBytes() {
    long pages = 0, resident = 0;
    if (FILE* f = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
        std::fclose(f);
    }
    return static_cast<size_t>(resident) * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

// The resident high-water mark since the last resetPeak (Linux: VmHWM, reset through clear_refs).
size_t peakBytes() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmHWM:", 0) == 0) return std::stoul(line.substr(6)) * 1024;
    return 0;
}
void resetPeak() { std::ofstream("/proc/self/clear_refs") << "5"; }

std::string readAll(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// printf into a string.
template <class... Args>
std::string format(const char* fmt, Args... args) {
    std::string text(static_cast<size_t>(std::snprintf(nullptr, 0, fmt, args...)), '\0');
    std::snprintf(text.data(), text.size() + 1, fmt, args...);
    return text;
}

// One way of making a network: `make` adds one to what is kept; `drop` lets all go.
struct MemoryWay {
    std::function<void()> make, drop;
};

// Each measurement runs in a process of its own (this program again, with --weigh-child), on
// a heap that only the runtimes' loading and one creation and drop of the same kind have
// touched. In one long process ONNX Runtime's creation peak moved by 4 to 25 MB with what
// had been freed before it, on either side alike.
// In the child: one network made and dropped first, uncounted (the first creation of a kind
// loads and caches what later ones reuse: 30 MB for OpenVINO's); then the peak of one
// creation above the memory before it, and the resident memory per network with `count`
// kept at once. Freed memory goes back to the system before each reading.
std::pair<double, double> weighOnce(const MemoryWay& way, int count) {
    way.make();
    way.drop();
    malloc_trim(0);
    resetPeak();
    const size_t start = residentBytes();
    way.make();
    const double peak = static_cast<double>(peakBytes() - start) / 1e6;
    for (int i = 1; i < count; ++i) way.make();
    malloc_trim(0);
    const double perNetwork = static_cast<double>(residentBytes() - start) / 1e6 / count;
    way.drop();
    return {peak, perNetwork};
}

// A plugin model library as a host without kel would use it: loaded, its model object
// made, its buffers handed to the runtime. Its pages are read once first, so that mapping
// them in falls on neither side.
struct PluginLibrary {
    void* library = nullptr;
    void* model = nullptr;
    std::vector<std::pair<const void*, size_t>> buffers;
    PluginLibrary(const std::string& path, const char* engine) {
        library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!library) return;
        const auto create = reinterpret_cast<kelModelCreateFn>(dlsym(library, "kelModelCreate"));
        const auto size = reinterpret_cast<kelModelGetModelSizeFn>(dlsym(library, "kelModelGetModelSize"));
        const auto buffer = reinterpret_cast<kelModelGetModelBufferFn>(dlsym(library, "kelModelGetModelBuffer"));
        model = create();
        for (int i = 0; i < (std::string(engine) == "OpenVINO" ? 2 : 1); ++i)
            buffers.emplace_back(buffer(model, engine, "1.0", i), size(model, engine, "1.0", i));
        volatile uint8_t sum = 0;
        for (const auto& [data, bytes] : buffers)
            for (size_t i = 0; i < bytes; i += 4096) sum = sum + static_cast<const uint8_t*>(data)[i];
    }
    PluginLibrary(const PluginLibrary&) = delete;
    ~PluginLibrary() {
        if (!library) return;
        reinterpret_cast<kelModelDestoryFn>(dlsym(library, "kelModelDestory"))(model);
        dlclose(library);
    }
};

const char* const kMemoryWays[] = {"OpenVINO, IR files",     "OpenVINO, IR buffers",
                                   "OpenVINO, plugin model library", "WindowsML, ONNX file",
                                   "WindowsML, ONNX buffer", "WindowsML, plugin model library"};

// Built beside the models when the build made them (CMake: kel_add_plugin_model).
std::string pluginLibraryPath(const std::string& dir, const Case& c, int way) {
    if (way != 2 && way != 5) return "";
    return dir + "/lib" + c.name + (way == 2 ? "_openvino.so" : "_windowsml.so");
}

// The child's side: way `way` made by kel (side 0) or by the runtime directly (side 1),
// weighed once; prints "peak per-network" in MB.
int weighChild(const Case& c, const std::string& dir, int way, int side, int count) {
    ::setenv("ORT_DISABLE_TELEMETRY", "1", 0);
    Ort::Env env(ORT_LOGGING_LEVEL_FATAL, "bench");
    env.DisableTelemetryEvents();
    const std::string xml = readAll(c.ir), bin = readAll(c.ir.substr(0, c.ir.size() - 4) + ".bin");
    const std::string onnx = readAll(c.onnx);
    const std::string library = pluginLibraryPath(dir, c, way);
    const bool vinoWay = way < 3;
    std::unique_ptr<PluginLibrary> plugin;
    if (!library.empty()) {
        plugin = std::make_unique<PluginLibrary>(library, vinoWay ? "OpenVINO" : "WindowsML");
        if (!plugin->library) return 2;
    }
    void* kel = nullptr;
    int serial = 0;
    const auto renew = [&] {
        if (kel) kelDestory(kel);
        kel = kelCreate();
        serial = 0;
        if (!library.empty()) kelRegisterModelAsInnerIDwithString(kel, "large", library.c_str());
        g_kel = kel;
        check("registering the plugin model library");
    };
    renew();
    const char* engine = vinoWay ? "OpenVINO" : "WindowsML";
    const auto kelMake = [&] {
        const std::string id = "n" + std::to_string(++serial);
        switch (way % 3) {
            case 0: kelCreateNetByFiles(kel, engine, id.c_str(), "CPU", vinoWay ? c.ir.c_str() : c.onnx.c_str(), nullptr); break;
            case 1:
                if (vinoWay) kelCreateNetByBuffers(kel, engine, id.c_str(), "CPU", xml.data(), xml.size(), bin.data(), bin.size());
                else kelCreateNetByBuffers(kel, engine, id.c_str(), "CPU", onnx.data(), onnx.size(), nullptr, 0);
                break;
            default: kelCreateNetByBuiltin(kel, engine, id.c_str(), "CPU", "large");
        }
        check("creating a network to weigh");
    };
    std::vector<std::tuple<std::unique_ptr<ov::Core>, ov::CompiledModel, ov::InferRequest>> vino;
    std::vector<std::unique_ptr<Ort::Session>> ort;
    const auto vinoMake = [&](auto read) {
        auto core = std::make_unique<ov::Core>();  // as kel: a Core per network
        auto compiled = core->compile_model(read(*core), "CPU");
        auto request = compiled.create_infer_request();
        vino.emplace_back(std::move(core), std::move(compiled), std::move(request));
    };
    const auto rawMake = [&] {
        const void* text = xml.data();
        size_t text_size = xml.size();
        const void* weights = bin.data();
        size_t weights_size = bin.size();
        const void* model = onnx.data();
        size_t model_size = onnx.size();
        if (plugin) {
            std::tie(text, text_size) = plugin->buffers[0];
            std::tie(model, model_size) = plugin->buffers[0];
            if (vinoWay) std::tie(weights, weights_size) = plugin->buffers[1];
        }
        if (vinoWay && way == 0)
            vinoMake([&](ov::Core& core) { return core.read_model(c.ir); });
        else if (vinoWay)
            vinoMake([&](ov::Core& core) {
                return core.read_model(std::string(static_cast<const char*>(text), text_size),
                                       ov::Tensor(ov::element::u8, {weights_size}, const_cast<void*>(weights)));
            });
        else if (way == 3)
            ort.push_back(std::make_unique<Ort::Session>(env, c.onnx.c_str(), Ort::SessionOptions{}));
        else
            ort.push_back(std::make_unique<Ort::Session>(env, model, model_size, Ort::SessionOptions{}));
    };
    const MemoryWay chosen = side == 0 ? MemoryWay{kelMake, renew}
                                       : MemoryWay{rawMake, [&] { vino.clear(); ort.clear(); }};
    const auto [peak, perNetwork] = weighOnce(chosen, count);
    std::printf("%.3f %.3f\n", peak, perNetwork);
    kelDestory(kel);
    return 0;
}

// The memory table of the large model, as text: for each way, kel and raw in turn, `rounds`
// processes a side; the medians. `heavier` names the ways where kel keeps a quarter more per
// network than raw, or needs three quarters of a copy of the model more at its peak: kel's
// extra is at most a third of a copy, where keeping the bytes or holding them through the
// whole creation would cost a whole copy.
std::string weighLargeModel(const Case& c, const std::string& dir, const std::vector<std::string>& self,
                            int count, int rounds, std::string& heavier) {
    const double model_mb = static_cast<double>(std::filesystem::file_size(c.onnx)) / 1e6;
    std::string table = format("\nMemory of %s (%.1f MB of weights), MB, kel / raw: resident per network with %d kept "
                               "at once (ratio) and the creation peak above the start (kel's extra, in copies of the "
                               "model), the medians of %d processes a side:\n\n"
                               "| engine, source | resident per network | creation peak |\n|---|---|---|\n",
                               c.name.c_str(), model_mb, count, rounds);
    for (int way = 0; way < static_cast<int>(std::size(kMemoryWays)); ++way) {
        const std::string library = pluginLibraryPath(dir, c, way);
        if (!library.empty() && !std::filesystem::exists(library)) {
            table += format("| %s | not built | |\n", kMemoryWays[way]);
            continue;
        }
        std::vector<double> peaks[2], perNetwork[2];
        for (int round = 0; round < rounds; ++round)
            for (int side = 0; side < 2; ++side) {
                std::string command;
                for (const auto& arg : self) command += "'" + arg + "' ";
                command += format("--weigh-child %d %d %d 2>/dev/null", way, side, count);
                FILE* child = popen(command.c_str(), "r");
                double peak = 0, per = 0;
                const bool read = child && std::fscanf(child, "%lf %lf", &peak, &per) == 2;
                if (!child || pclose(child) != 0 || !read) {
                    std::fprintf(stderr, "weighing %s failed: %s\n", kMemoryWays[way], command.c_str());
                    std::exit(2);
                }
                peaks[side].push_back(peak);
                perNetwork[side].push_back(per);
            }
        const double kelPeak = pick(peaks[0], .5), rawPeak = pick(peaks[1], .5);
        if (pick(perNetwork[0], .5) > 1.25 * pick(perNetwork[1], .5) || kelPeak - rawPeak > .75 * model_mb)
            heavier += std::string(heavier.empty() ? "" : "; ") + kMemoryWays[way];
        table += format("| %s | %s | %.1f / %.1f (%+.2f) |\n", kMemoryWays[way],
                        cell(pick(perNetwork[0], .5), pick(perNetwork[1], .5), "%.1f").c_str(), kelPeak, rawPeak,
                        (kelPeak - rawPeak) / model_mb);
    }
    return table;
}

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s MODELS_DIR SILERO_VAD_ONNX [--quick] [--memory] [MODEL...]\n", argv[0]);
        return 1;
    }
    const std::string dir = argv[1];
    bool quick = false, memoryOnly = false;
    std::vector<std::string> only;
    int child[3] = {-1, 0, 0};  // --weigh-child WAY SIDE COUNT
    for (int i = 3; i < argc; ++i) {
        if (std::string(argv[i]) == "--quick")
            quick = true;
        else if (std::string(argv[i]) == "--memory")
            memoryOnly = true;
        else if (std::string(argv[i]) == "--weigh-child" && i + 3 < argc)
            for (int& n : child) n = std::atoi(argv[++i]);
        else
            only.push_back(argv[i]);
    }
    auto scale = [&](int n) { return quick ? std::max(1, n / 50) : n; };

    std::mt19937 rng(8);
    std::vector<Case> cases;
    {
        Case c{"digits", dir + "/digits.xml", dir + "/digits.onnx", {}, {}, {}, 200, 40, 500, 15};
        c.inputs.push_back({"pixels", {1, 64}, ov::element::f32, {}, {}});
        c.outputs.push_back({"scores", {1, 10}, ov::element::f32, {}, {}});
        cases.push_back(c);
    }
    {
        Case c{"silero_vad", "", argv[2], {}, {}, {}, 50, 40, 50, 15};
        c.inputs.push_back({"input", {1, 1536}, ov::element::f32, {}, {}});
        c.inputs.push_back({"sr", {}, ov::element::i64, {}, {}});
        c.inputs.push_back({"h", {2, 1, 64}, ov::element::f32, {}, {}});
        c.inputs.push_back({"c", {2, 1, 64}, ov::element::f32, {}, {}});
        c.outputs.push_back({"output", {1, 1}, ov::element::f32, {}, {}});
        c.outputs.push_back({"hn", {2, 1, 64}, ov::element::f32, {}, {}});
        c.outputs.push_back({"cn", {2, 1, 64}, ov::element::f32, {}, {}});
        c.state = {{1, 2}, {2, 3}};
        cases.push_back(c);
    }
    {
        Case c{"convnet", dir + "/convnet.xml", dir + "/convnet.onnx", {}, {}, {}, 10, 30, 10, 25};
        c.inputs.push_back({"image", {1, 3, 128, 128}, ov::element::f32, {}, {}});
        c.outputs.push_back({"scores", {1, 10}, ov::element::f32, {}, {}});
        cases.push_back(c);
    }
    {
        Case c{"wide_mlp", dir + "/wide_mlp.xml", dir + "/wide_mlp.onnx", {}, {}, {}, 5, 10, 10, 5};
        c.session_creations = 9;
        c.inputs.push_back({"features", {1, 1024}, ov::element::f32, {}, {}});
        c.outputs.push_back({"embedding", {1, 1024}, ov::element::f32, {}, {}});
        cases.push_back(c);
    }
    if (!only.empty())
        std::erase_if(cases, [&](const Case& c) {
            return std::find(only.begin(), only.end(), c.name) == only.end();
        });
    for (auto& c : cases) {
        for (auto& l : c.inputs) fillRandom(l, rng);
        for (auto& l : c.outputs) fillRandom(l, rng);
        for (auto& l : c.inputs)
            if (l.name == "sr") *reinterpret_cast<int64_t*>(l.a.data()) = 16000;
        if (quick) c.warmup = 2, c.blocks = 2, c.per_block = scale(c.per_block), c.creations = 1,
                   c.session_creations = 1;
    }

    std::string memory, heavier;
    for (auto& c : cases) {
        if (c.name != "wide_mlp") continue;
        if (child[0] >= 0) return weighChild(c, dir, child[0], child[1], child[2]);
        const std::string self = std::filesystem::read_symlink("/proc/self/exe");
        memory = weighLargeModel(c, dir, {self, argv[1], argv[2], "wide_mlp"}, quick ? 1 : 8, quick ? 1 : 3, heavier);
    }

    g_kel = kelCreate();
    check("kelCreate");
    ov::Core core;
    // Settled as kel settles its own (the runtime's environment is one per process, made
    // here first): with telemetry on, a sender thread runs beside both sides and every
    // session creation stores an event.
    ::setenv("ORT_DISABLE_TELEMETRY", "1", 0);
    Ort::Env env(ORT_LOGGING_LEVEL_FATAL, "bench");
    env.DisableTelemetryEvents();

    std::vector<Row> rows;
    std::vector<std::pair<std::string, size_t>> copied;
    for (auto& c : cases) {
        if (memoryOnly) break;
        {
            KelSide k{c, "OpenVINO", c.name + "-openvino"};
            VinoSide v{c, core};
            rows.push_back(compare(c, "OpenVINO", c.creations, {[&] { k.create(); }, [&] { k.infer(); },
                                                   [&] { return k.firstOutput(); }, [&] { k.tidy(); }},
                                   {[&] { v.create(); }, [&] { v.infer(); },
                                    [&] { return v.firstOutput(); }, [&] { v.tidy(); }}));
        }
        {
            // Against a raw side that, like kel, starts each network on a Core of its own: the
            // CPU plugin instance a network compiles on shows in its latency too.
            KelSide k{c, "OpenVINO", c.name + "-openvino-fresh"};
            VinoSide v{c, core, true};
            rows.push_back(compare(c, "OpenVINO, raw on a new ov::Core per network", c.creations,
                                   {[&] { k.create(); }, [&] { k.infer(); },
                                    [&] { return k.firstOutput(); }, [&] { k.tidy(); }},
                                   {[&] { v.create(); }, [&] { v.infer(); },
                                    [&] { return v.firstOutput(); }, [&] { v.tidy(); }}));
        }
        {
            KelSide k{c, "WindowsML", c.name + "-windowsml"};
            OrtSide o{c, env};
            rows.push_back(compare(c, "WindowsML", c.session_creations, {[&] { k.create(); }, [&] { k.infer(); },
                                                    [&] { return k.firstOutput(); }, [&] { k.tidy(); }},
                                   {[&] { o.create(); }, [&] { o.infer(); },
                                    [&] { return o.firstOutput(); }, [&] { o.tidy(); }}));
        }
        {
            KelSide k{c, "WindowsML", c.name + "-windowsml-memory"};
            OrtSide o{c, env, true};
            rows.push_back(compare(c, "WindowsML, raw from the file's bytes in memory",
                                   c.session_creations,
                                   {[&] { k.create(); }, [&] { k.infer(); },
                                    [&] { return k.firstOutput(); }, [&] { k.tidy(); }},
                                   {[&] { o.create(); }, [&] { o.infer(); },
                                    [&] { return o.firstOutput(); }, [&] { o.tidy(); }}));
        }
        size_t bytes = 0;
        for (auto& l : c.inputs) bytes += bytesOf(l);
        for (auto& l : c.outputs) bytes += bytesOf(l);
        copied.emplace_back(c.name, bytes);
    }

    std::printf("Machine: %s\n\n", machine().c_str());
    if (!memoryOnly) {
    std::printf("Cells: kel / raw (ratio of the two). Creation: median of %s; latency over %s. "
                "Paired ratios: the median over neighbouring kel and raw creations, or latency "
                "blocks, of kel / raw.\n\n",
                quick ? "1" : "15-25 creations (OpenVINO) or 61 (WindowsML)", quick ? "a short run" : "alternating blocks");
    std::printf("| model | engine | creation ms | creation, paired ratio | first inference µs | min µs "
                "| p50 µs | p50, paired ratio | p90 µs | p99 µs | max abs diff |\n"
                "|---|---|---|---|---|---|---|---|---|---|---|\n");
    for (auto& r : rows) {
        const Stats& k = r.kel;
        const Stats& w = r.raw;
        const std::string creation =
            cell(pick(k.creation_ms, .5), pick(w.creation_ms, .5), "%.1f") + " | " +
            fixed3(pairedRatio(k.creation_ms, w.creation_ms)) + " | " +
            cell(pick(k.first_us, .5), pick(w.first_us, .5), "%.0f");
        std::printf("| %s | %s | %s | %s | %s | %s | %s | %s | %.1e |\n", r.model.c_str(),
                    r.engine.c_str(), creation.c_str(),
                    cell(pick(k.latency_us, 0), pick(w.latency_us, 0), "%.1f").c_str(),
                    cell(pick(k.latency_us, .5), pick(w.latency_us, .5), "%.1f").c_str(),
                    fixed3(pairedRatio(k.block_p50, w.block_p50)).c_str(),
                    cell(pick(k.latency_us, .9), pick(w.latency_us, .9), "%.1f").c_str(),
                    cell(pick(k.latency_us, .99), pick(w.latency_us, .99), "%.1f").c_str(),
                    r.max_diff);
    }
    std::printf("\nmemcpy calibration (bytes the WindowsML path copies per inference, inputs in "
                "and outputs out):\n\n| model | bytes | one memcpy of them, p50 µs |\n|---|---|---|\n");
    for (auto& [name, bytes] : copied)
        std::printf("| %s | %zu | %.2f |\n", name.c_str(), bytes, memcpyMicros(bytes));
    }

    std::fputs(memory.c_str(), stdout);

    kelDestory(g_kel);
    for (auto& r : rows)
        if (r.max_diff > 1e-3) {
            std::fprintf(stderr, "%s on %s: kel and raw outputs differ by %g\n", r.model.c_str(),
                         r.engine.c_str(), r.max_diff);
            return 3;
        }
    if (!heavier.empty() && !kSanitized) {
        std::fprintf(stderr, "kel needs more memory than the raw runtime: %s\n", heavier.c_str());
        return 3;
    }
    return 0;
}
