// The .npy format (NumPy's own array file): a small header naming dtype and shape, then the
// elements in C order. Only what kel-run exchanges with users is supported: little-endian
// numbers and booleans, C order.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kelrun {

struct NpyArray {
    std::string precision;              // kel's precision name: "FP32", "I64", "BOOL", ...
    std::vector<std::uint64_t> shape;   // empty for a scalar
    std::vector<std::uint8_t> bytes;    // the elements, C order, little-endian
};

// Element size of a precision name, 0 when .npy cannot carry it.
std::size_t npyElementSize(const std::string& precision);

// Reads a file; throws std::runtime_error naming the file and what is wrong with it.
NpyArray readNpy(const std::string& path);

// Writes `bytes` as an array of `precision` and `shape`; throws std::runtime_error.
void writeNpy(const std::string& path, const std::string& precision,
              const std::vector<std::uint64_t>& shape, const void* bytes, std::size_t size);

}  // namespace kelrun
