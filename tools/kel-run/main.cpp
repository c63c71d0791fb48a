// kel-run: runs neural networks through kel's flat C interface, the way our users call kel.
// With no model it classifies the held-out digits on both engines; with one it measures it.
#ifdef _WIN32
#include <windows.h>
#include <io.h>
#else
#include <unistd.h>
#endif

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "kel_handle.hpp"
#include "npy.hpp"

// Where the built-in job's files are, relative to kel-run's own directory in an installed
// tree (tried first, so a moved tree uses its own), then in the build tree.
#ifndef KEL_RUN_INSTALLED_PLUGINS
#define KEL_RUN_INSTALLED_PLUGINS "../lib/kel"
#endif
#ifndef KEL_RUN_INSTALLED_DIGITS
#define KEL_RUN_INSTALLED_DIGITS "../share/kel/digits"
#endif
#ifndef KEL_RUN_DIGITS_DIR
#define KEL_RUN_DIGITS_DIR "models"
#endif

namespace fs = std::filesystem;
using namespace kelrun;
using Clock = std::chrono::steady_clock;

namespace {

enum ExitCode { kOk = 0, kKelFailure = 1, kUsage = 2, kBelowExpectation = 3 };

// Held-out accuracy and cross-engine agreement the default run must reach.
constexpr double kMinAccuracy = 0.90;
constexpr double kMinAgreement = 0.95;

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

const char* kHelp = R"(Usage:
  kel-run [--json] [-d DEVICE] [--data DIR]
      The built-in job: classifies the held-out digits with the bundled classifier on both
      engines (OpenVINO and WindowsML) and reports accuracy, latency, throughput, network
      creation time and how often the engines agree.
  kel-run -m MODEL.xml [-w MODEL.bin] | -m MODEL.onnx | --plugin LIB.so  [options]
      Runs one model and reports its timing.
  kel-run --compare -m MODEL.onnx [--ir MODEL.xml [-w MODEL.bin]]  [options]
      Runs one model on both engines with the same inputs (the ONNX file on WindowsML and,
      unless --ir names an IR for it, on OpenVINO) and reports, per output, whether they
      agree within the tolerance, then both engines' creation time and latency.
  kel-run --list      engines and their devices

Model:
  -m, --model FILE        OpenVINO IR (.xml) or ONNX (.onnx) file
  -w, --weights FILE      IR weights (default: the .bin beside the .xml)
      --plugin LIB        a plugin model library (built with kel_add_plugin_model)
  -e, --engine NAME       OpenVINO | WindowsML (default: WindowsML for .onnx, OpenVINO
                          otherwise; for --plugin the engine the library is made for)
  -d, --device NAME       CPU | AUTO | GPU | ... (default CPU)
Inputs:
  -i, --input LAYER=FILE.npy   feed LAYER from a .npy file (repeatable)
      --fill random|zero       inputs without a file (default random)
      --seed N                 seed of the random inputs (default 1)
      --shape LAYER=[d0,d1,...] dims of a dynamic layer, input or output (repeatable)
Run:
  -n, --iterations N      number of measured inferences (default 100)
  -t, --time SECONDS      run for this long instead of a count
      --warmup N          inferences before measuring (default 1)
  -o, --output-dir DIR    write each output of the last inference as DIR/<layer>.npy
      --rtol R, --atol A  --compare: outputs agree when |a - b| <= A + R * |b| for every
                          element (default 1e-3 and 1e-5)
      --json              one JSON report on stdout instead of text
      --data DIR          the built-in job's held-out digits (digits_heldout_{x,y}.npy)
  -h, --help              this text

Exit codes:
  0  success
  1  kel or the model failed (the library's error text is printed)
  2  bad command line or input file
  3  the built-in job's accuracy (<= 90%) or agreement (< 95%) fell below expectation;
     with --compare, an output on which the engines do not agree
)";

// ---- Small helpers ---------------------------------------------------------------------

std::string dimsText(const std::vector<std::uint64_t>& dims) {
    std::string text = "[";
    for (std::size_t i = 0; i < dims.size(); ++i) text += (i ? "," : "") + std::to_string(dims[i]);
    return text + "]";
}

std::uint64_t elementCount(const std::vector<std::uint64_t>& dims) {
    std::uint64_t n = 1;
    for (auto d : dims) n *= d;
    return n;
}

std::string fixed(double value, int digits) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%.*f", digits, value);
    return buffer;
}

std::string jsonString(const std::string& text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20) {
            char buffer[8];
            std::snprintf(buffer, sizeof buffer, "\\u%04x", c);
            out += buffer;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out + "\"";
}

std::string jsonNumber(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return std::isfinite(value) ? text : "null";
}

std::string jsonDims(const std::vector<std::uint64_t>& dims) {
    std::string text = "[";
    for (std::size_t i = 0; i < dims.size(); ++i) text += (i ? ", " : "") + std::to_string(dims[i]);
    return text + "]";
}

std::string executableDir() {
#ifdef _WIN32
    wchar_t name[MAX_PATH] = {};
    const DWORD length = GetModuleFileNameW(nullptr, name, MAX_PATH);
    return length == 0 || length == MAX_PATH ? std::string(".") : fs::path(name).parent_path().string();
#else
    std::error_code ec;
    const fs::path self = fs::read_symlink("/proc/self/exe", ec);
    return ec ? std::string(".") : self.parent_path().string();
#endif
}

bool stdoutIsTerminal() {
#ifdef _WIN32
    return _isatty(_fileno(stdout)) != 0;
#else
    return isatty(STDOUT_FILENO) != 0;
#endif
}

// Latency figures of one run, in seconds.
struct Stats {
    std::size_t count = 0;
    double total = 0, min = 0, max = 0, mean = 0, p50 = 0, p90 = 0, p95 = 0, p99 = 0, p999 = 0;
};

Stats summarize(std::vector<double> samples) {
    Stats s;
    if (samples.empty()) return s;
    std::sort(samples.begin(), samples.end());
    s.count = samples.size();
    for (double v : samples) s.total += v;
    s.min = samples.front();
    s.max = samples.back();
    s.mean = s.total / static_cast<double>(s.count);
    // Nearest rank: the smallest sample with at least p of the samples at or below it.
    auto rank = [&](double p) {
        const auto k = static_cast<std::size_t>(std::ceil(p * static_cast<double>(s.count)));
        return samples[std::clamp<std::size_t>(k, 1, s.count) - 1];
    };
    s.p50 = rank(0.50);
    s.p90 = rank(0.90);
    s.p95 = rank(0.95);
    s.p99 = rank(0.99);
    s.p999 = rank(0.999);
    return s;
}

// "\r[ 123 / 500 ] 2.1 s" on a terminal, once a run has lasted a second.
class Progress {
public:
    Progress(bool enabled, std::string label) : enabled_(enabled && stdoutIsTerminal()), label_(std::move(label)) {}
    void update(std::size_t done, std::size_t total, double limitSeconds) {
        if (!enabled_) return;
        const auto now = Clock::now();
        const double elapsed = std::chrono::duration<double>(now - start_).count();
        if (elapsed < 1.0 || now - last_ < std::chrono::milliseconds(100)) return;
        last_ = now;
        if (total)
            std::printf("\r%s [ %zu / %zu ] %.1f s", label_.c_str(), done, total, elapsed);
        else
            std::printf("\r%s [ %zu ] %.1f / %.1f s", label_.c_str(), done, elapsed, limitSeconds);
        std::fflush(stdout);
        shown_ = true;
    }
    ~Progress() {
        if (shown_) {
            std::printf("\r\033[K");
            std::fflush(stdout);
        }
    }

private:
    bool enabled_;
    std::string label_;
    Clock::time_point start_ = Clock::now(), last_{};
    bool shown_ = false;
};

// ---- Command line ----------------------------------------------------------------------

struct Options {
    std::string model, weights, plugin, engine, device = "CPU";
    std::map<std::string, std::string> input_files;
    std::map<std::string, std::vector<std::uint64_t>> shapes;
    std::string fill = "random";
    std::uint64_t seed = 1;
    std::uint64_t iterations = 100;
    double seconds = 0;
    std::uint64_t warmup = 1;
    std::string output_dir;
    std::string data_dir;
    bool json = false, list = false, help = false;
    bool compare = false;
    std::string ir;
    double rtol = 1e-3, atol = 1e-5;
};

double parseTolerance(const std::string& option, const std::string& text) {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !(value >= 0) || !std::isfinite(value))
        throw UsageError(option + " takes a number of at least 0, not '" + text + "'");
    return value;
}

std::uint64_t parseCount(const std::string& option, const std::string& text) {
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos)
        throw UsageError(option + " takes a whole number, not '" + text + "'");
    try {
        return std::stoull(text);
    } catch (const std::exception&) {
        throw UsageError(option + ": '" + text + "' is out of range");
    }
}

std::pair<std::string, std::string> splitAssignment(const std::string& option, const std::string& text) {
    const auto eq = text.rfind('=');
    if (eq == std::string::npos || eq == 0 || eq + 1 == text.size())
        throw UsageError(option + " takes LAYER=VALUE, not '" + text + "'");
    return {text.substr(0, eq), text.substr(eq + 1)};
}

std::vector<std::uint64_t> parseShape(const std::string& text) {
    std::string body = text;
    if (body.size() >= 2 && body.front() == '[' && body.back() == ']') body = body.substr(1, body.size() - 2);
    std::vector<std::uint64_t> dims;
    std::stringstream parts(body);
    std::string part;
    while (std::getline(parts, part, ',')) {
        const std::uint64_t d = parseCount("--shape", part);
        if (d == 0) throw UsageError("--shape: a dimension cannot be 0 in '" + text + "'");
        dims.push_back(d);
    }
    if (dims.empty()) throw UsageError("--shape: no dimensions in '" + text + "'");
    return dims;
}

Options parseArguments(int argc, char** argv) {
    Options o;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i], value;
        bool has_inline = false;
        if (arg.rfind("--", 0) == 0 && arg.find('=') != std::string::npos) {
            value = arg.substr(arg.find('=') + 1);
            arg = arg.substr(0, arg.find('='));
            has_inline = true;
        }
        auto next = [&]() -> std::string {
            if (has_inline) return value;
            if (i + 1 >= argc) throw UsageError(arg + " needs a value");
            return argv[++i];
        };
        if (arg == "-h" || arg == "--help") o.help = true;
        else if (arg == "--json") o.json = true;
        else if (arg == "--list") o.list = true;
        else if (arg == "-m" || arg == "--model") o.model = next();
        else if (arg == "-w" || arg == "--weights") o.weights = next();
        else if (arg == "--plugin") o.plugin = next();
        else if (arg == "-e" || arg == "--engine") o.engine = next();
        else if (arg == "-d" || arg == "--device") o.device = next();
        else if (arg == "-i" || arg == "--input") {
            auto [layer, file] = splitAssignment(arg, next());
            o.input_files[layer] = file;
        } else if (arg == "--shape") {
            auto [layer, dims] = splitAssignment(arg, next());
            o.shapes[layer] = parseShape(dims);
        } else if (arg == "--fill") {
            o.fill = next();
            if (o.fill != "random" && o.fill != "zero")
                throw UsageError("--fill takes random or zero, not '" + o.fill + "'");
        } else if (arg == "--seed") o.seed = parseCount(arg, next());
        else if (arg == "-n" || arg == "--iterations") {
            o.iterations = parseCount(arg, next());
            if (o.iterations == 0) throw UsageError(arg + " must be at least 1");
        } else if (arg == "-t" || arg == "--time") {
            const std::string text = next();
            char* end = nullptr;
            o.seconds = std::strtod(text.c_str(), &end);
            if (text.empty() || *end != '\0' || !(o.seconds > 0) || !std::isfinite(o.seconds))
                throw UsageError(arg + " takes a positive number of seconds, not '" + text + "'");
        } else if (arg == "--warmup") o.warmup = parseCount(arg, next());
        else if (arg == "-o" || arg == "--output-dir") o.output_dir = next();
        else if (arg == "--data") o.data_dir = next();
        else if (arg == "--compare") o.compare = true;
        else if (arg == "--ir") o.ir = next();
        else if (arg == "--rtol") o.rtol = parseTolerance(arg, next());
        else if (arg == "--atol") o.atol = parseTolerance(arg, next());
        else throw UsageError("unknown argument '" + arg + "' (see --help)");
    }
    if (!o.model.empty() && !o.plugin.empty()) throw UsageError("give either -m or --plugin, not both");
    if (!o.weights.empty() && o.model.empty()) throw UsageError("-w needs -m");
    if (o.compare && (o.model.empty() || !o.plugin.empty())) throw UsageError("--compare needs -m (and no --plugin)");
    if (!o.ir.empty() && !o.compare) throw UsageError("--ir goes with --compare");
    return o;
}

// ---- The built-in job -------------------------------------------------------------------

struct EngineResult {
    std::string engine, version;
    double creation_ms = 0, first_us = 0;
    std::size_t correct = 0;
    Stats latency;
    double throughput = 0;
    std::vector<float> scores;  // samples x classes
};

EngineResult classifyDigits(Kel& kel, const std::string& engine, const std::string& library,
                            const std::string& device, const NpyArray& x, const NpyArray& y,
                            bool progress_allowed) {
    constexpr std::size_t kPixels = 64, kClasses = 10;
    EngineResult r;
    r.engine = engine;
    r.version = kel.version(engine);
    const std::string id = "digits-" + engine;
    kel.registerModel(id, library);
    kel.devices(engine);  // see runModel
    const auto t0 = Clock::now();
    kel.createByBuiltin(engine, id, device, id);
    r.creation_ms = std::chrono::duration<double, std::milli>(Clock::now() - t0).count();

    const auto out_dims = kel.dims("scores");
    if (elementCount(out_dims) != kClasses)
        throw KelError("the digits classifier's output has dims " + dimsText(out_dims) + ", expected [1,10]");

    const auto* pixels = reinterpret_cast<const float*>(x.bytes.data());
    const auto* labels = reinterpret_cast<const std::int64_t*>(y.bytes.data());
    const std::size_t samples = x.shape[0];
    const std::vector<std::uint64_t> in_dims{1, kPixels};
    r.scores.resize(samples * kClasses);
    std::vector<double> times;
    times.reserve(samples);
    Progress progress(progress_allowed, engine);

    // The first inference pays for lazy set-up; it is reported apart from the others.
    kel.setData("pixels", pixels, in_dims);
    auto w0 = Clock::now();
    kel.infer();
    kel.check(engine);
    r.first_us = std::chrono::duration<double, std::micro>(Clock::now() - w0).count();

    const auto run_start = Clock::now();
    for (std::size_t i = 0; i < samples; ++i) {
        const auto s0 = Clock::now();
        kel.setData("pixels", pixels + i * kPixels, in_dims);
        kel.infer();
        const auto s1 = Clock::now();
        kel.check(engine);
        times.push_back(std::chrono::duration<double>(s1 - s0).count());
        const auto* out = static_cast<const float*>(kel.data("scores"));
        std::copy(out, out + kClasses, r.scores.begin() + static_cast<std::ptrdiff_t>(i * kClasses));
        const auto best = std::max_element(out, out + kClasses) - out;
        if (best == labels[i]) ++r.correct;
        progress.update(i + 1, samples, 0);
    }
    const double wall = std::chrono::duration<double>(Clock::now() - run_start).count();
    r.latency = summarize(times);
    r.throughput = wall > 0 ? static_cast<double>(samples) / wall : 0;
    return r;
}

// The first of the directories that holds `file`; the last one when none does, so the
// error names a place.
std::string dirHolding(const std::vector<std::string>& dirs, const std::string& file) {
    for (const auto& dir : dirs)
        if (fs::exists(fs::path(dir) / file)) return dir;
    return dirs.back();
}

int runDefault(const Options& o) {
    const std::string self_dir = executableDir();
    const std::string bin = dirHolding({self_dir + "/" KEL_RUN_INSTALLED_PLUGINS, self_dir},
                                       KEL_RUN_DIGITS_OPENVINO);
    const std::string data =
        !o.data_dir.empty() ? o.data_dir
                            : dirHolding({self_dir + "/" KEL_RUN_INSTALLED_DIGITS, KEL_RUN_DIGITS_DIR},
                                         "digits_heldout_x.npy");
    NpyArray x, y;
    try {
        x = readNpy(data + "/digits_heldout_x.npy");
        y = readNpy(data + "/digits_heldout_y.npy");
    } catch (const std::runtime_error& e) {
        throw UsageError(std::string(e.what()) + " (the held-out digits; see --data)");
    }
    if (x.precision != "FP32" || x.shape.size() != 2 || x.shape[1] != 64 || y.precision != "I64" ||
        y.shape.size() != 1 || y.shape[0] != x.shape[0] || x.shape[0] == 0)
        throw UsageError("the held-out digits in " + data + " are not float32 [N,64] and int64 [N]");

    Kel kel;
    const std::string self = kel.selfVersion();
    std::vector<EngineResult> results;
    results.push_back(classifyDigits(kel, "OpenVINO", bin + "/" KEL_RUN_DIGITS_OPENVINO, o.device, x, y, !o.json));
    results.push_back(classifyDigits(kel, "WindowsML", bin + "/" KEL_RUN_DIGITS_WINDOWSML, o.device, x, y, !o.json));

    const std::size_t samples = x.shape[0];
    std::size_t agree = 0;
    double max_difference = 0;
    for (std::size_t i = 0; i < samples; ++i) {
        const float* a = &results[0].scores[i * 10];
        const float* b = &results[1].scores[i * 10];
        if (std::max_element(a, a + 10) - a == std::max_element(b, b + 10) - b) ++agree;
        for (int k = 0; k < 10; ++k) max_difference = std::max(max_difference, std::fabs(double(a[k]) - b[k]));
    }
    const double agreement = static_cast<double>(agree) / static_cast<double>(samples);
    bool passed = agreement >= kMinAgreement;
    for (const auto& r : results)
        passed = passed && static_cast<double>(r.correct) / static_cast<double>(samples) > kMinAccuracy;

    auto accuracy = [&](const EngineResult& r) { return 100.0 * double(r.correct) / double(samples); };
    if (o.json) {
        std::string j = "{\"job\": \"digits\", \"kel_version\": " + jsonString(self) +
                        ", \"device\": " + jsonString(o.device) + ", \"samples\": " + std::to_string(samples) +
                        ", \"engines\": [";
        for (std::size_t k = 0; k < results.size(); ++k) {
            const auto& r = results[k];
            const auto& s = r.latency;
            j += std::string(k ? ", " : "") + "{\"engine\": " + jsonString(r.engine) +
                 ", \"runtime_version\": " + jsonString(r.version) +
                 ", \"network_creation_ms\": " + fixed(r.creation_ms, 3) +
                 ", \"first_inference_us\": " + fixed(r.first_us, 1) +
                 ", \"correct\": " + std::to_string(r.correct) +
                 ", \"accuracy\": " + fixed(accuracy(r) / 100, 6) +
                 ", \"latency_us\": {\"min\": " + fixed(s.min * 1e6, 2) + ", \"p50\": " + fixed(s.p50 * 1e6, 2) +
                 ", \"p90\": " + fixed(s.p90 * 1e6, 2) + ", \"p99\": " + fixed(s.p99 * 1e6, 2) +
                 ", \"mean\": " + fixed(s.mean * 1e6, 2) + ", \"max\": " + fixed(s.max * 1e6, 2) +
                 "}, \"throughput_per_s\": " + fixed(r.throughput, 1) + "}";
        }
        j += "], \"agreement\": {\"same_class\": " + std::to_string(agree) + ", \"rate\": " + fixed(agreement, 6) +
             ", \"max_abs_score_difference\": " + fixed(max_difference, 8) + "}, \"passed\": " +
             (passed ? "true" : "false") + "}";
        std::printf("%s\n", j.c_str());
        return passed ? kOk : kBelowExpectation;
    }

    std::printf("kel-run: the built-in digits classifier on both engines\n");
    std::printf("kel version:                %s\n", self.c_str());
    for (const auto& r : results) std::printf("%-9s runtime version:  %s\n", r.engine.c_str(), r.version.c_str());
    std::printf("Held-out digits:            %zu images of 8x8 pixels, device %s\n\n", samples, o.device.c_str());
    std::printf("%-28s %14s %14s\n", "", results[0].engine.c_str(), results[1].engine.c_str());
    auto row = [&](const char* name, auto value) {
        std::printf("%-28s %14s %14s\n", name, value(results[0]).c_str(), value(results[1]).c_str());
    };
    row("Accuracy", [&](const EngineResult& r) { return fixed(accuracy(r), 2) + " %"; });
    row("Correct", [&](const EngineResult& r) { return std::to_string(r.correct) + "/" + std::to_string(samples); });
    row("Network creation (ms)", [](const EngineResult& r) { return fixed(r.creation_ms, 2); });
    row("First inference (us)", [](const EngineResult& r) { return fixed(r.first_us, 1); });
    row("Latency min (us)", [](const EngineResult& r) { return fixed(r.latency.min * 1e6, 1); });
    row("Latency p50 (us)", [](const EngineResult& r) { return fixed(r.latency.p50 * 1e6, 1); });
    row("Latency p90 (us)", [](const EngineResult& r) { return fixed(r.latency.p90 * 1e6, 1); });
    row("Latency p99 (us)", [](const EngineResult& r) { return fixed(r.latency.p99 * 1e6, 1); });
    row("Latency mean (us)", [](const EngineResult& r) { return fixed(r.latency.mean * 1e6, 1); });
    row("Throughput (inferences/s)", [](const EngineResult& r) { return fixed(r.throughput, 0); });
    std::printf("\nAgreement: %zu/%zu held-out digits (%.2f %%) get the same class on both engines;"
                " largest score difference %.2e\n",
                agree, samples, 100 * agreement, max_difference);
    std::printf("Result: %s (expected accuracy above %.0f %% on both engines and agreement of at least %.0f %%)\n",
                passed ? "PASS" : "BELOW EXPECTATION", 100 * kMinAccuracy, 100 * kMinAgreement);
    return passed ? kOk : kBelowExpectation;
}

// ---- One model -------------------------------------------------------------------------

struct InputPlan {
    std::string name, source;
    Precision precision;
    std::vector<std::uint64_t> dims;
    std::vector<std::uint8_t> bytes;
};

struct OutputReport {
    std::string name, precision, file, note;
    std::vector<std::uint64_t> dims;
};

std::uint16_t toHalf(float value) {
    std::uint32_t bits;
    std::memcpy(&bits, &value, 4);
    const std::uint16_t sign = static_cast<std::uint16_t>((bits >> 16) & 0x8000);
    const int exponent = static_cast<int>((bits >> 23) & 0xff) - 127 + 15;
    if (exponent <= 0) return sign;
    if (exponent >= 31) return sign | 0x7c00;
    return static_cast<std::uint16_t>(sign | exponent << 10 | (bits & 0x7fffff) >> 13);
}

// Random values every type holds and most models accept: [0,1) for floats, 0..9 for
// integers (small enough to be valid indices), 0/1 for booleans.
void fillRandom(InputPlan& in, std::mt19937_64& rng) {
    std::uniform_real_distribution<float> real(0.f, 1.f);
    std::uniform_int_distribution<int> digit(0, 9);
    const std::string& p = in.precision.name;
    const std::size_t n = elementCount(in.dims);
    auto put = [&](auto value, std::size_t i) { std::memcpy(in.bytes.data() + i * sizeof value, &value, sizeof value); };
    for (std::size_t i = 0; i < n; ++i) {
        if (p == "FP32") put(real(rng), i);
        else if (p == "FP64") put(static_cast<double>(real(rng)), i);
        else if (p == "FP16") put(toHalf(real(rng)), i);
        else if (p == "BF16") { float f = real(rng); std::uint32_t b; std::memcpy(&b, &f, 4); put(static_cast<std::uint16_t>(b >> 16), i); }
        else if (p == "BOOL") put(static_cast<std::uint8_t>(digit(rng) & 1), i);
        else if (p == "U8" || p == "I8") put(static_cast<std::uint8_t>(digit(rng)), i);
        else if (p == "U16" || p == "I16") put(static_cast<std::uint16_t>(digit(rng)), i);
        else if (p == "U32" || p == "I32") put(static_cast<std::uint32_t>(digit(rng)), i);
        else if (p == "U64" || p == "I64") put(static_cast<std::uint64_t>(digit(rng)), i);
        else return;  // a type kel-run cannot generate stays zero; kel decides whether it runs
    }
}

InputPlan planInput(Kel& kel, const Options& o, const std::string& name, std::mt19937_64& rng) {
    InputPlan in;
    in.name = name;
    in.precision = kel.precision(name);
    const auto known = kel.knownDims(name);
    const auto shape = o.shapes.find(name);
    const auto file = o.input_files.find(name);
    if (file != o.input_files.end()) {
        NpyArray array;
        try {
            array = readNpy(file->second);
        } catch (const std::runtime_error& e) {
            throw UsageError(e.what());
        }
        if (array.precision != in.precision.name)
            throw UsageError(file->second + " holds " + array.precision + " but input " + name + " takes " +
                             in.precision.name);
        in.dims = shape != o.shapes.end() ? shape->second : array.shape;
        if (known && elementCount(*known) != elementCount(array.shape))
            throw UsageError(file->second + " holds " + dimsText(array.shape) + " but input " + name + " is " +
                             dimsText(*known));
        if (elementCount(in.dims) != elementCount(array.shape))
            throw UsageError(file->second + " holds " + dimsText(array.shape) + ", not --shape " + dimsText(in.dims));
        in.bytes = std::move(array.bytes);
        in.source = file->second;
        return in;
    }
    if (shape != o.shapes.end()) {
        in.dims = shape->second;
    } else if (known) {
        in.dims = *known;
    } else {
        // Ask again for the library's own words on why the layer cannot be fed.
        try {
            kel.dims(name);
        } catch (const KelError& e) {
            throw KelError(std::string(e.what()) + "\n(input " + name + " has a dynamic shape: give --shape " + name +
                           "=[...] or -i " + name + "=file.npy)");
        }
    }
    // Types without a byte size still get a buffer, so kel itself can say what it makes of them.
    // A static layer may keep its declared dims whatever --shape says: room for both.
    const std::uint64_t element = std::max<std::uint64_t>(in.precision.size, 1);
    const std::uint64_t count = std::max(elementCount(in.dims), known ? elementCount(*known) : 0);
    in.bytes.assign(count * element, 0);
    in.source = o.fill;
    if (o.fill == "random") fillRandom(in, rng);
    return in;
}

std::string fileNameFor(const std::string& layer) {
    std::string name = layer;
    for (char& c : name)
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '_' && c != '.') c = '_';
    return name + ".npy";
}

int runModel(const Options& o) {
    Kel kel;
    const std::string self = kel.selfVersion();
    std::string engine = o.engine, source;
    const std::string id = "kel-run";

    double creation_ms = 0;
    if (!o.plugin.empty()) {
        source = o.plugin;
        kel.registerModel(id, o.plugin);
        if (engine.empty()) {
            for (const auto& e : kel.engines()) {
                const auto ids = kel.builtinModels(e);
                if (std::find(ids.begin(), ids.end(), id) != ids.end()) engine = e;
            }
            if (engine.empty()) throw KelError(o.plugin + " registered, but no engine lists its model");
        }
        kel.devices(engine);
        const auto t0 = Clock::now();
        kel.createByBuiltin(engine, id, o.device, id);
        creation_ms = std::chrono::duration<double, std::milli>(Clock::now() - t0).count();
    } else {
        source = o.model;
        if (engine.empty()) engine = fs::path(o.model).extension() == ".onnx" ? "WindowsML" : "OpenVINO";
        // The engine's device list is asked for first: the WindowsML engine checks a device
        // name only once that list exists, and runs any name on the processor before. A
        // mistyped device is to be the engine's error here, not a run on the processor.
        kel.devices(engine);
        const auto t0 = Clock::now();
        kel.createByFiles(engine, id, o.device, o.model, o.weights);
        creation_ms = std::chrono::duration<double, std::milli>(Clock::now() - t0).count();
    }
    const std::string runtime = kel.version(engine);

    std::mt19937_64 rng(o.seed);
    std::vector<InputPlan> inputs;
    for (const auto& name : kel.inputs()) inputs.push_back(planInput(kel, o, name, rng));
    for (const auto& [layer, file] : o.input_files)
        if (std::none_of(inputs.begin(), inputs.end(), [&](const InputPlan& p) { return p.name == layer; }))
            throw UsageError("-i " + layer + ": the model has no input named " + layer);
    for (auto& in : inputs) kel.setData(in.name, in.bytes.data(), in.dims);

    // Outputs given a --shape get buffers of ours; the others are kel's.
    const auto output_names = kel.outputs();
    std::map<std::string, std::vector<std::uint8_t>> output_buffers;
    for (const auto& [layer, dims] : o.shapes) {
        const bool is_input = std::any_of(inputs.begin(), inputs.end(), [&](const InputPlan& p) { return p.name == layer; });
        if (is_input) continue;
        if (std::find(output_names.begin(), output_names.end(), layer) == output_names.end())
            throw UsageError("--shape " + layer + ": the model has no layer named " + layer);
        auto& buffer = output_buffers[layer];
        buffer.assign(elementCount(dims) * std::max<std::uint64_t>(kel.precision(layer).size, 1), 0);
        kel.setData(layer, buffer.data(), dims);
    }

    std::vector<double> times;
    double first_ms = 0;
    auto timed_infer = [&]() {
        const auto t0 = Clock::now();
        kel.infer();
        const double s = std::chrono::duration<double>(Clock::now() - t0).count();
        kel.check();
        return s;
    };
    for (std::uint64_t w = 0; w < o.warmup; ++w) {
        const double s = timed_infer();
        if (w == 0) first_ms = s * 1e3;
    }
    {
        Progress progress(!o.json, "kel-run");
        const auto start = Clock::now();
        const bool by_time = o.seconds > 0;
        for (std::size_t i = 0;; ++i) {
            if (by_time ? std::chrono::duration<double>(Clock::now() - start).count() >= o.seconds
                        : i >= o.iterations)
                break;
            times.push_back(timed_infer());
            if (o.warmup == 0 && i == 0) first_ms = times.back() * 1e3;
            progress.update(i + 1, by_time ? 0 : o.iterations, o.seconds);
        }
    }
    const double wall = [&] { double t = 0; for (double v : times) t += v; return t; }();
    const Stats s = summarize(times);
    const double fps = wall > 0 ? static_cast<double>(s.count) / wall : 0;

    if (!o.output_dir.empty()) {
        std::error_code ec;
        fs::create_directories(o.output_dir, ec);
        if (ec) throw UsageError("-o " + o.output_dir + ": " + ec.message());
    }
    std::vector<OutputReport> outputs;
    for (const auto& name : output_names) {
        OutputReport out;
        out.name = name;
        out.precision = kel.precision(name).name;
        const auto dims = kel.knownDims(name);
        if (!dims) {
            out.note = "dynamic shape; give --shape " + name + "=[...] to read it";
            outputs.push_back(out);
            continue;
        }
        out.dims = *dims;
        if (!o.output_dir.empty()) {
            const std::size_t element = npyElementSize(out.precision);
            if (element == 0) {
                out.note = out.precision + " cannot be written as .npy";
            } else {
                out.file = (fs::path(o.output_dir) / fileNameFor(name)).string();
                try {
                    writeNpy(out.file, out.precision, out.dims, kel.data(name), elementCount(out.dims) * element);
                } catch (const std::runtime_error& e) {
                    throw UsageError(e.what());
                }
            }
        }
        outputs.push_back(out);
    }

    if (o.json) {
        std::string j = "{\"job\": \"model\", \"kel_version\": " + jsonString(self) + ", \"model\": " +
                        jsonString(source) + ", \"engine\": " + jsonString(engine) + ", \"runtime_version\": " +
                        jsonString(runtime) + ", \"device\": " + jsonString(o.device) +
                        ", \"network_creation_ms\": " + fixed(creation_ms, 3) + ", \"inputs\": [";
        for (std::size_t k = 0; k < inputs.size(); ++k)
            j += std::string(k ? ", " : "") + "{\"name\": " + jsonString(inputs[k].name) + ", \"precision\": " +
                 jsonString(inputs[k].precision.name) + ", \"shape\": " + jsonDims(inputs[k].dims) +
                 ", \"source\": " + jsonString(inputs[k].source) + "}";
        j += "], \"outputs\": [";
        for (std::size_t k = 0; k < outputs.size(); ++k) {
            j += std::string(k ? ", " : "") + "{\"name\": " + jsonString(outputs[k].name) + ", \"precision\": " +
                 jsonString(outputs[k].precision) + ", \"shape\": " + jsonDims(outputs[k].dims);
            if (!outputs[k].file.empty()) j += ", \"file\": " + jsonString(outputs[k].file);
            if (!outputs[k].note.empty()) j += ", \"note\": " + jsonString(outputs[k].note);
            j += "}";
        }
        j += "], \"first_inference_ms\": " + fixed(first_ms, 4) + ", \"count\": " + std::to_string(s.count) +
             ", \"duration_ms\": " + fixed(wall * 1e3, 3) + ", \"latency_ms\": {\"median\": " + fixed(s.p50 * 1e3, 4) +
             ", \"average\": " + fixed(s.mean * 1e3, 4) + ", \"min\": " + fixed(s.min * 1e3, 4) + ", \"max\": " +
             fixed(s.max * 1e3, 4) + ", \"p90\": " + fixed(s.p90 * 1e3, 4) + ", \"p95\": " + fixed(s.p95 * 1e3, 4) +
             ", \"p99\": " + fixed(s.p99 * 1e3, 4) + "}, \"throughput_fps\": " + fixed(fps, 2) + "}";
        std::printf("%s\n", j.c_str());
        return kOk;
    }

    std::printf("kel version: %s\n%s runtime version: %s\n", self.c_str(), engine.c_str(), runtime.c_str());
    std::printf("Model: %s\nEngine: %s, device %s\n", source.c_str(), engine.c_str(), o.device.c_str());
    std::printf("Network creation took %.2f ms\n", creation_ms);
    for (const auto& in : inputs)
        std::printf("Input  %-20s %-5s %-18s %s\n", in.name.c_str(), in.precision.name.c_str(),
                    dimsText(in.dims).c_str(), in.source.c_str());
    for (const auto& out : outputs)
        std::printf("Output %-20s %-5s %-18s %s\n", out.name.c_str(), out.precision.c_str(),
                    out.dims.empty() && !out.note.empty() ? "?" : dimsText(out.dims).c_str(),
                    !out.note.empty() ? out.note.c_str() : out.file.c_str());
    std::printf("\nAs OpenVINO's benchmark tool reports it:\n");
    std::printf("First inference took %.3f ms\n", first_ms);
    std::printf("Count:            %zu iterations\n", s.count);
    std::printf("Duration:         %.2f ms\n", wall * 1e3);
    std::printf("Latency:\n");
    std::printf("   Median:        %.3f ms\n", s.p50 * 1e3);
    std::printf("   Average:       %.3f ms\n", s.mean * 1e3);
    std::printf("   Min:           %.3f ms\n", s.min * 1e3);
    std::printf("   Max:           %.3f ms\n", s.max * 1e3);
    std::printf("Throughput:       %.2f FPS\n", fps);
    std::printf("\nAs ONNX Runtime's performance test reports it:\n");
    std::printf("Session creation time cost: %.6f s\n", creation_ms / 1e3);
    std::printf("First inference time cost: %.4f ms\n", first_ms);
    std::printf("Total inference time cost: %.6f s\n", wall);
    std::printf("Total inference requests: %zu\n", s.count);
    std::printf("Average inference time cost: %.6f ms\n", s.mean * 1e3);
    std::printf("Number of inferences per second: %.2f\n", fps);
    std::printf("Min Latency: %.6f s\n", s.min);
    std::printf("Max Latency: %.6f s\n", s.max);
    std::printf("P50 Latency: %.6f s\n", s.p50);
    std::printf("P90 Latency: %.6f s\n", s.p90);
    std::printf("P95 Latency: %.6f s\n", s.p95);
    std::printf("P99 Latency: %.6f s\n", s.p99);
    std::printf("P999 Latency: %.6f s\n", s.p999);
    return kOk;
}

// ---- Both engines on one model ------------------------------------------------------------

float fromHalf(std::uint16_t h) {
    const std::uint32_t sign = static_cast<std::uint32_t>(h & 0x8000u) << 16;
    const std::uint32_t exponent = (h >> 10) & 0x1fu, mantissa = h & 0x3ffu;
    if (exponent == 0) {  // zero or subnormal
        const float f = std::ldexp(static_cast<float>(mantissa), -24);
        return sign ? -f : f;
    }
    const std::uint32_t bits = sign | (exponent == 31 ? 0x7f800000u : (exponent + 112) << 23) | mantissa << 13;
    float f;
    std::memcpy(&f, &bits, 4);
    return f;
}

// An output's elements as doubles, or nothing for a type that has no numbers. "WindowsML"
// hands FP16 outputs out as 32-bit floats.
std::vector<double> valuesOf(const void* data, const std::string& p, std::size_t n, bool halvesAsFloats) {
    std::vector<double> v(n);
    const auto* bytes = static_cast<const unsigned char*>(data);
    const auto read = [&](auto sample, auto convert) {
        for (std::size_t i = 0; i < n; ++i) {
            std::memcpy(&sample, bytes + i * sizeof sample, sizeof sample);
            v[i] = static_cast<double>(convert(sample));
        }
    };
    const auto same = [](auto x) { return x; };
    if (p == "FP32" || (p == "FP16" && halvesAsFloats)) read(float{}, same);
    else if (p == "FP64") read(double{}, same);
    else if (p == "FP16") read(std::uint16_t{}, fromHalf);
    else if (p == "BF16") read(std::uint16_t{}, [](std::uint16_t b) { std::uint32_t w = std::uint32_t{b} << 16; float f; std::memcpy(&f, &w, 4); return f; });
    else if (p == "U8" || p == "BOOL") read(std::uint8_t{}, same);
    else if (p == "I8") read(std::int8_t{}, same);
    else if (p == "U16") read(std::uint16_t{}, same);
    else if (p == "I16") read(std::int16_t{}, same);
    else if (p == "U32") read(std::uint32_t{}, same);
    else if (p == "I32") read(std::int32_t{}, same);
    else if (p == "U64") read(std::uint64_t{}, same);
    else if (p == "I64") read(std::int64_t{}, same);
    else return {};
    return v;
}

struct CompareSide {
    std::string engine, id, model, weights, error;
    bool created = false;
    double creation_ms = 0, throughput = 0;
    Stats latency;
    std::vector<std::string> output_names;
    std::map<std::string, std::string> precisions, notes;
    std::map<std::string, std::pair<std::vector<std::uint64_t>, std::vector<double>>> outputs;  // dims, values
};

struct Verdict {
    std::string name, note;
    std::vector<std::uint64_t> dims[2];
    double max_abs = 0, max_rel = 0;
    bool agree = false;
};

// Creates the model on the side's engine, feeds it `inputs`, runs it and reads its outputs.
// An output whose shape the model leaves open is read with --shape or, on WindowsML, with the
// shape OpenVINO (run first) found for it.
void runSide(Kel& kel, const Options& o, CompareSide& s, std::vector<InputPlan>& inputs, std::mt19937_64& rng,
             const CompareSide* reference) {
    kel.devices(s.engine);
    const auto t0 = Clock::now();
    kel.createByFiles(s.engine, s.id, o.device, s.model, s.weights);
    s.creation_ms = std::chrono::duration<double, std::milli>(Clock::now() - t0).count();
    s.created = true;
    if (inputs.empty())
        for (const auto& name : kel.inputs()) inputs.push_back(planInput(kel, o, name, rng));
    for (auto& in : inputs) kel.setData(in.name, in.bytes.data(), in.dims);
    s.output_names = kel.outputs();
    std::map<std::string, std::vector<std::uint8_t>> own;
    for (const auto& name : s.output_names) {
        if (kel.knownDims(name)) continue;
        std::vector<std::uint64_t> dims;
        if (const auto given = o.shapes.find(name); given != o.shapes.end()) dims = given->second;
        else if (reference && reference->outputs.contains(name)) dims = reference->outputs.at(name).first;
        else continue;
        const Precision p = kel.precision(name);
        const std::uint64_t element = p.name == "FP16" && s.engine == "WindowsML" ? 4 : std::max<std::uint64_t>(p.size, 1);
        auto& buffer = own[name];
        buffer.assign(elementCount(dims) * element, 0);
        kel.setData(name, buffer.data(), dims);
    }
    for (std::uint64_t w = 0; w < o.warmup; ++w) {
        kel.infer();
        kel.check(s.engine);
    }
    std::vector<double> times;
    const auto start = Clock::now();
    for (std::uint64_t i = 0; i < o.iterations; ++i) {
        const auto r0 = Clock::now();
        kel.infer();
        times.push_back(std::chrono::duration<double>(Clock::now() - r0).count());
        kel.check(s.engine);
    }
    const double wall = std::chrono::duration<double>(Clock::now() - start).count();
    s.latency = summarize(times);
    s.throughput = wall > 0 ? static_cast<double>(times.size()) / wall : 0;
    for (const auto& name : s.output_names) {
        const Precision p = kel.precision(name);
        s.precisions[name] = p.name;
        const auto dims = kel.knownDims(name);
        if (!dims) {
            s.notes[name] = "shape unknown (give --shape " + name + "=[...])";
            continue;
        }
        s.outputs[name] = {*dims, valuesOf(kel.data(name), p.name, elementCount(*dims), s.engine == "WindowsML")};
    }
}

Verdict judge(const std::string& name, const CompareSide (&sides)[2], double rtol, double atol) {
    Verdict v;
    v.name = name;
    for (int k = 0; k < 2; ++k) {
        const auto found = sides[k].outputs.find(name);
        if (found != sides[k].outputs.end()) {
            v.dims[k] = found->second.first;
        } else if (v.note.empty()) {
            const auto note = sides[k].notes.find(name);
            v.note = sides[k].engine + ": " + (note != sides[k].notes.end() ? note->second : "no such output");
        }
    }
    if (!v.note.empty()) return v;
    const auto& a = sides[0].outputs.at(name).second;
    const auto& b = sides[1].outputs.at(name).second;
    if (v.dims[0] != v.dims[1]) {
        v.note = "shapes differ";
        return v;
    }
    if (a.size() != b.size() || (a.empty() && elementCount(v.dims[0]) != 0)) {
        v.note = "precision " + sides[0].precisions.at(name) + " / " + sides[1].precisions.at(name) + " has no numbers to compare";
        return v;
    }
    v.agree = true;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (std::isnan(a[i]) && std::isnan(b[i])) continue;
        const double diff = std::fabs(a[i] - b[i]);
        if (!(diff <= atol + rtol * std::fabs(b[i]))) v.agree = false;  // NaN against a number too
        v.max_abs = std::max(v.max_abs, diff);
        if (b[i] != 0) v.max_rel = std::max(v.max_rel, diff / std::fabs(b[i]));
    }
    return v;
}

int runCompare(const Options& o) {
    Kel kel;
    const std::string self = kel.selfVersion();
    CompareSide sides[2];
    sides[0].engine = "OpenVINO";
    sides[0].id = "compare-openvino";
    sides[0].model = o.ir.empty() ? o.model : o.ir;
    sides[0].weights = o.ir.empty() ? "" : o.weights;
    sides[1].engine = "WindowsML";
    sides[1].id = "compare-windowsml";
    sides[1].model = o.model;
    std::mt19937_64 rng(o.seed);
    std::vector<InputPlan> inputs;
    for (auto& s : sides) {
        try {
            runSide(kel, o, s, inputs, rng, &s == &sides[1] ? &sides[0] : nullptr);
        } catch (const KelError& e) {
            s.error = e.what();
            kel.takeError();
        }
    }
    for (const auto& [layer, file] : o.input_files)
        if (!inputs.empty() && std::none_of(inputs.begin(), inputs.end(), [&](const InputPlan& p) { return p.name == layer; }))
            throw UsageError("-i " + layer + ": the model has no input named " + layer);

    std::vector<Verdict> verdicts;
    const bool both = sides[0].error.empty() && sides[1].error.empty();
    if (both) {
        std::vector<std::string> names = sides[0].output_names;
        for (const auto& name : sides[1].output_names)
            if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
        for (const auto& name : names) verdicts.push_back(judge(name, sides, o.rtol, o.atol));
    }
    const bool agree = both && std::all_of(verdicts.begin(), verdicts.end(), [](const Verdict& v) { return v.agree; });
    const int faster = sides[0].latency.p50 <= sides[1].latency.p50 ? 0 : 1;
    const double ratio = sides[faster].latency.p50 > 0 ? sides[1 - faster].latency.p50 / sides[faster].latency.p50 : 0;
    const int code = !both ? kKelFailure : agree ? kOk : kBelowExpectation;

    if (o.json) {
        std::string j = "{\"job\": \"compare\", \"kel_version\": " + jsonString(self) + ", \"device\": " +
                        jsonString(o.device) + ", \"rtol\": " + jsonNumber(o.rtol) + ", \"atol\": " + jsonNumber(o.atol) +
                        ", \"engines\": [";
        for (int k = 0; k < 2; ++k) {
            const auto& s = sides[k];
            j += std::string(k ? ", " : "") + "{\"engine\": " + jsonString(s.engine) + ", \"model\": " +
                 jsonString(s.model) + ", \"created\": " + (s.error.empty() ? "true" : "false");
            if (!s.error.empty()) j += ", \"error\": " + jsonString(s.error);
            else
                j += ", \"network_creation_ms\": " + fixed(s.creation_ms, 3) + ", \"latency_us\": {\"p50\": " +
                     fixed(s.latency.p50 * 1e6, 2) + ", \"mean\": " + fixed(s.latency.mean * 1e6, 2) +
                     "}, \"throughput_fps\": " + fixed(s.throughput, 2);
            j += "}";
        }
        j += "], \"outputs\": [";
        for (std::size_t k = 0; k < verdicts.size(); ++k) {
            const auto& v = verdicts[k];
            j += std::string(k ? ", " : "") + "{\"name\": " + jsonString(v.name) + ", \"shape\": " + jsonDims(v.dims[0]) +
                 ", \"max_abs_diff\": " + jsonNumber(v.max_abs) + ", \"max_rel_diff\": " + jsonNumber(v.max_rel) +
                 ", \"agree\": " + (v.agree ? "true" : "false");
            if (!v.note.empty()) j += ", \"note\": " + jsonString(v.note);
            j += "}";
        }
        j += "], \"agree\": " + std::string(agree ? "true" : "false");
        if (both) j += ", \"faster\": " + jsonString(sides[faster].engine) + ", \"latency_ratio\": " + fixed(ratio, 3);
        std::printf("%s, \"exit_code\": %d}\n", j.c_str(), code);
        return code;
    }

    std::printf("kel-run --compare: %s (OpenVINO: %s), device %s\n", o.model.c_str(), sides[0].model.c_str(), o.device.c_str());
    for (const auto& s : sides)
        if (!s.error.empty()) std::printf("%s refused the model:\n%s\n", s.engine.c_str(), s.error.c_str());
    if (both) {
        std::printf("\n%-20s %-16s %-12s %-12s %s\n", "Output", "Shape", "max |diff|", "max rel diff", "Verdict");
        for (const auto& v : verdicts) {
            const std::string verdict = !v.note.empty() ? "differ: " + v.note : v.agree ? "agree" : "differ";
            std::printf("%-20s %-16s %-12.3g %-12.3g %s\n", v.name.c_str(), dimsText(v.dims[0]).c_str(), v.max_abs,
                        v.max_rel, verdict.c_str());
        }
        std::printf("(agreement: |a - b| <= %g + %g * |b| for every element)\n", o.atol, o.rtol);
        std::printf("\n%-26s %12s %12s\n", "", "OpenVINO", "WindowsML");
        std::printf("%-26s %12.2f %12.2f\n", "Network creation (ms)", sides[0].creation_ms, sides[1].creation_ms);
        std::printf("%-26s %12.1f %12.1f\n", "Latency p50 (us)", sides[0].latency.p50 * 1e6, sides[1].latency.p50 * 1e6);
        std::printf("%-26s %12.1f %12.1f\n", "Latency mean (us)", sides[0].latency.mean * 1e6, sides[1].latency.mean * 1e6);
        std::printf("%-26s %12.0f %12.0f\n", "Throughput (inferences/s)", sides[0].throughput, sides[1].throughput);
        std::printf("Faster on this machine: %s (p50 latency %.2fx lower)\n", sides[faster].engine.c_str(), ratio);
    }
    std::printf("Result: %s\n", !both ? "one engine refused the model" : agree ? "AGREE" : "DIFFER");
    return code;
}

int listEngines() {
    Kel kel;
    std::printf("kel version: %s\n", kel.selfVersion().c_str());
    for (const auto& e : kel.engines()) {
        std::string devices;
        for (const auto& d : kel.devices(e)) devices += (devices.empty() ? "" : ", ") + d;
        std::printf("%s (runtime %s): %s\n", e.c_str(), kel.version(e).c_str(), devices.c_str());
    }
    return kOk;
}

int fail(bool json, int code, const std::string& kind, const std::string& text) {
    std::fprintf(stderr, "kel-run: %s: %s\n", kind.c_str(), text.c_str());
    if (code == kUsage) std::fprintf(stderr, "Try 'kel-run --help'.\n");
    if (json)
        std::printf("{\"error\": %s, \"kind\": %s, \"exit_code\": %d}\n", jsonString(text).c_str(),
                    jsonString(kind).c_str(), code);
    return code;
}

}  // namespace

int main(int argc, char** argv) {
    bool json = false;
    for (int i = 1; i < argc; ++i) json = json || std::strcmp(argv[i], "--json") == 0;
    try {
        const Options o = parseArguments(argc, argv);
        if (o.help) {
            std::fputs(kHelp, stdout);
            return kOk;
        }
        if (o.list) return listEngines();
        if (o.compare) return runCompare(o);
        if (o.model.empty() && o.plugin.empty()) return runDefault(o);
        return runModel(o);
    } catch (const UsageError& e) {
        return fail(json, kUsage, "usage error", e.what());
    } catch (const KelError& e) {
        return fail(json, kKelFailure, "kel error", e.what());
    } catch (const std::exception& e) {
        return fail(json, kKelFailure, "error", e.what());
    }
}
