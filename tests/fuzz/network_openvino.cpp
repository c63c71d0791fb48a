// A model from arbitrary bytes on the OpenVINO engine. Input: the XML text (or ONNX bytes),
// then optionally the separator line below and the weights.
#include <string_view>

#include "tests/fuzz/network.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static constexpr std::string_view kSeparator = "\n<!--kel-weights-->\n";
    const std::string_view all(reinterpret_cast<const char*>(data), size);
    const auto at = all.find(kSeparator);
    const std::string_view xml = all.substr(0, at);
    std::vector<kel::ModelBuffer> buffers{{xml.data(), xml.size()}};
    if (at != std::string_view::npos) {
        const std::string_view weights = all.substr(at + kSeparator.size());
        buffers.emplace_back(weights.data(), weights.size());
    }
    kel::fuzz::createFromBuffers("OpenVINO", "openvino/static.xml", buffers);
    return 0;
}
