// An ONNX model from arbitrary bytes on the WindowsML engine.
#include "tests/fuzz/network.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kel::fuzz::createFromBuffers("WindowsML", "onnx/static_two_io.onnx", {{data, size}});
    return 0;
}
