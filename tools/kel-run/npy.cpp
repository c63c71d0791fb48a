#include "npy.hpp"

#include <cstring>
#include <fstream>
#include <stdexcept>

namespace kelrun {
namespace {

struct Dtype {
    const char* precision;
    const char* descr;  // without the byte-order mark
    std::size_t size;
};

// BF16 has no NumPy dtype; its raw 16-bit patterns travel as uint16.
constexpr Dtype kDtypes[] = {
    {"FP32", "f4", 4}, {"FP16", "f2", 2}, {"FP64", "f8", 8}, {"U8", "u1", 1},
    {"I8", "i1", 1},   {"U16", "u2", 2},  {"I16", "i2", 2},  {"U32", "u4", 4},
    {"I32", "i4", 4},  {"U64", "u8", 8},  {"I64", "i8", 8},  {"BOOL", "b1", 1},
    {"BF16", "u2", 2},
};

const Dtype* byPrecision(const std::string& precision) {
    for (const auto& d : kDtypes)
        if (precision == d.precision) return &d;
    return nullptr;
}

[[noreturn]] void fail(const std::string& path, const std::string& why) {
    throw std::runtime_error(path + ": " + why);
}

// The value text after 'key': in the header's dict, up to the matching end.
std::string field(const std::string& header, const std::string& key, const std::string& path) {
    const auto at = header.find("'" + key + "'");
    if (at == std::string::npos) fail(path, "the .npy header has no '" + key + "'");
    auto start = header.find(':', at);
    if (start == std::string::npos) fail(path, "malformed .npy header");
    ++start;
    while (start < header.size() && header[start] == ' ') ++start;
    if (start >= header.size()) fail(path, "malformed .npy header");
    if (header[start] == '(') {
        const auto end = header.find(')', start);
        if (end == std::string::npos) fail(path, "malformed .npy shape");
        return header.substr(start, end - start + 1);
    }
    if (header[start] == '\'') {
        const auto end = header.find('\'', start + 1);
        if (end == std::string::npos) fail(path, "malformed .npy header");
        return header.substr(start + 1, end - start - 1);
    }
    const auto end = header.find_first_of(",}", start);
    return header.substr(start, end - start);
}

}  // namespace

std::size_t npyElementSize(const std::string& precision) {
    const Dtype* d = byPrecision(precision);
    return d ? d->size : 0;
}

NpyArray readNpy(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) fail(path, "cannot open the file");
    char magic[8] = {};
    in.read(magic, 8);
    if (!in || std::memcmp(magic, "\x93NUMPY", 6) != 0) fail(path, "not a .npy file");
    const int major = static_cast<unsigned char>(magic[6]);
    std::uint32_t header_size = 0;
    unsigned char size_bytes[4] = {};
    const int width = major == 1 ? 2 : 4;
    in.read(reinterpret_cast<char*>(size_bytes), width);
    for (int i = width - 1; i >= 0; --i) header_size = header_size << 8 | size_bytes[i];
    if (!in || header_size > (1u << 20)) fail(path, "malformed .npy header");
    std::string header(header_size, '\0');
    in.read(header.data(), header_size);
    if (!in) fail(path, "truncated .npy header");

    if (field(header, "fortran_order", path).find("True") != std::string::npos)
        fail(path, "Fortran-ordered arrays are not supported; save it in C order");

    std::string descr = field(header, "descr", path);
    if (descr.size() < 2) fail(path, "unsupported dtype '" + descr + "'");
    const char order = descr[0];
    const std::string kind = descr.substr(1);
    NpyArray array;
    std::size_t element = 0;
    for (const auto& d : kDtypes)
        if (kind == d.descr && std::strcmp(d.precision, "BF16") != 0) {
            array.precision = d.precision;
            element = d.size;
            break;
        }
    if (element == 0) fail(path, "unsupported dtype '" + descr + "'");
    if (order == '>' && element > 1) fail(path, "big-endian arrays are not supported");

    const std::string shape = field(header, "shape", path);
    std::uint64_t count = 1;
    for (std::size_t i = 1; i < shape.size();) {
        if (shape[i] >= '0' && shape[i] <= '9') {
            std::size_t used = 0;
            const std::uint64_t dim = std::stoull(shape.substr(i), &used);
            array.shape.push_back(dim);
            count *= dim;
            i += used;
        } else {
            ++i;
        }
    }
    array.bytes.resize(count * element);
    in.read(reinterpret_cast<char*>(array.bytes.data()), static_cast<std::streamsize>(array.bytes.size()));
    if (static_cast<std::size_t>(in.gcount()) != array.bytes.size())
        fail(path, "holds fewer elements than its shape says");
    return array;
}

void writeNpy(const std::string& path, const std::string& precision,
              const std::vector<std::uint64_t>& shape, const void* bytes, std::size_t size) {
    const Dtype* d = byPrecision(precision);
    if (!d) fail(path, "precision " + precision + " cannot be written as .npy");
    // Python's tuple text: "()", "(5,)", "(2, 3)".
    std::string dims;
    for (std::size_t i = 0; i < shape.size(); ++i)
        dims += (i ? ", " : "") + std::to_string(shape[i]);
    if (shape.size() == 1) dims += ',';
    std::string header = std::string("{'descr': '") + (d->size == 1 ? '|' : '<') + d->descr +
                         "', 'fortran_order': False, 'shape': (" + dims + "), }";
    // Version 1.0: magic, version, 2-byte length, header padded to 64 bytes with a newline.
    const std::size_t unpadded = 10 + header.size() + 1;
    header.append((64 - unpadded % 64) % 64, ' ');
    header += '\n';
    std::ofstream out(path, std::ios::binary);
    if (!out) fail(path, "cannot create the file");
    const std::uint16_t length = static_cast<std::uint16_t>(header.size());
    const char prefix[10] = {'\x93', 'N', 'U', 'M', 'P', 'Y', 1, 0,
                             static_cast<char>(length & 0xff), static_cast<char>(length >> 8)};
    out.write(prefix, 10);
    out << header;
    out.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(size));
    if (!out) fail(path, "cannot write the file");
}

}  // namespace kelrun
