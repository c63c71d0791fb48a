// Driver-version texts come from the host's properties and from sysfs: any bytes.
// Input: "<minimum>\n<local>", the first byte's low bit picks the comparison mode.
#include <string>
#include <string_view>

#include "modules/openvino/openvino_internal.hpp"
#include "tests/fuzz/fuzz.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const int mode = (data[0] & 1) ? 1 : 0;
    const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
    const auto newline = text.find('\n');
    const std::string minimum(text.substr(0, newline));
    const std::string local(newline == std::string_view::npos ? std::string_view() : text.substr(newline + 1));

    const auto numbers = kel::vino::parseVersionNumbers(text);
    std::size_t dots = 0;
    for (char c : text) dots += c == '.';
    // One number per dot-separated piece, however malformed the piece.
    KEL_FUZZ_CHECK(text.empty() ? numbers.empty() : numbers.size() == dots + 1 ||
                                                        (text.back() == '.' && numbers.size() == dots));

    const bool intel = kel::vino::isIntelDriverVersion(minimum);
    kel::vino::isIntelDriverVersion(local);
    const bool result = kel::vino::compareDriverVersion(minimum, local, mode);
    // A version is never older than itself; for Intel drivers only well-formed ones compare.
    if (!minimum.empty()) {
        KEL_FUZZ_CHECK(kel::vino::compareDriverVersion(minimum, minimum, 1));
        KEL_FUZZ_CHECK(kel::vino::compareDriverVersion(minimum, minimum, 0) == intel);
    }
    // Any two versions are ordered one way or the other.
    if (!minimum.empty() && !local.empty())
        KEL_FUZZ_CHECK(kel::vino::compareDriverVersion(minimum, local, 1) ||
                       kel::vino::compareDriverVersion(local, minimum, 1));
    (void)result;
    return 0;
}
