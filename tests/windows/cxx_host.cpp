// The same road through kel.dll from a C++ host linked against kel.lib: std::string,
// std::vector and std::any cross the DLL boundary with MSVC's C++ ABI, and exceptions thrown in
// kel.dll or openvino.dll reach the host as std::exception.
#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "kel/cxx/MLEngine.hpp"

namespace {

int passed = 0, failed = 0;

void check(bool ok, const char* what) {
    std::printf("%s %s\n", ok ? "ok  " : "FAIL", what);
    (ok ? passed : failed)++;
}

std::string data(const std::string& name) { return std::string(KEL_TEST_DATA_DIR) + "\\" + name; }

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

bool inferStatic(kel::MLEngine& engine) {
    const std::string in = readFile(data("openvino\\static.in.data.raw"));
    const std::string expected = readFile(data("openvino\\static.out.prob.raw"));
    engine.setLayerData("data", std::any(static_cast<const void*>(in.data())), {1, 3, 4, 5});
    engine.infer();
    const auto* out = static_cast<const float*>(engine.getLayerData("prob"));
    const auto* want = reinterpret_cast<const float*>(expected.data());
    bool ok = engine.getLayerDims("prob") == std::vector<std::uint64_t>{1, 3, 4, 5} &&
              engine.getLayerPrecision("prob") == std::make_tuple(std::string("FP32"), std::uint64_t(4)) &&
              expected.size() == 60 * sizeof(float);
    for (int i = 0; ok && i < 60; ++i) ok = std::fabs(out[i] - want[i]) <= 1e-5f;
    return ok;
}

// The text of what `call` throws; "" when it returns.
std::string thrown(const std::function<void()>& call) {
    try {
        call();
    } catch (const std::exception& e) {
        return e.what();
    } catch (...) {
        return "(not a std::exception)";
    }
    return "";
}

}  // namespace

int main() {
    kel::MLEngine engine;
    check(!engine.version("OpenVINO").empty() && engine.getSupportedEngines().size() == 2, "versions and engines");
    const std::vector<std::string> files{data("openvino\\static.xml"), data("openvino\\static.bin")};
    engine.createNetwork("OpenVINO", "files", "CPU", files, {});
    check(engine.getInputLayerNames() == std::vector<std::string>{"data"} && inferStatic(engine),
          "OpenVINO network from IR files (std::string paths), inferred");
    const std::string xml = readFile(files[0]), weights = readFile(files[1]);
    engine.createNetwork("OpenVINO", "buffers", "CPU",
                         std::vector<kel::ModelBuffer>{{xml.data(), xml.size()}, {weights.data(), weights.size()}}, {});
    check(inferStatic(engine), "OpenVINO network from buffers, inferred");
    engine.registerModelAsInnerID("static_pm", "kel_pm_openvino_static.dll");
    engine.createNetwork("OpenVINO", "plugin", "CPU", std::string("static_pm"), {});
    check(inferStatic(engine), "OpenVINO network from a plugin model DLL, inferred");

    const std::string missing = thrown([&] {
        engine.createNetwork("OpenVINO", "missing", "CPU", std::vector<std::string>{data("no-such.xml")}, {});
    });
    check(missing.find("Could not open the file") != std::string::npos,
          "an exception thrown in openvino.dll caught by the host as std::exception");
    const std::vector<std::string> onnx{data("onnx\\static_two_io.onnx")};
    check(!thrown([&] { engine.createNetwork("WindowsML", "wml", "CPU", onnx, {}); }).empty(),
          "WindowsML network from a file: the platform's error");
    check(engine.getCreatedNetworkIdentifiers().size() == 3 && engine.getCurrentIdentifier() == "plugin" &&
              inferStatic(engine),
          "after the failures, the engine as it was");
    std::printf("%d passed, %d failed\n", passed, failed);
    return failed != 0;
}
