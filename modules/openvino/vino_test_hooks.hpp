#pragma once
// Seams only tests turn: what the OpenVINO back-end otherwise takes from the machine.
#include <optional>
#include <string>

namespace kel::vino {

// The directory the runtime is looked for in, in place of kel's own (nullopt restores it).
void overrideLibraryDirectory(std::optional<std::wstring> directory);

// The hardware thread count INFERENCE_THREADS_NUMBER is bounded by, in place of the machine's
// (0: unknown; nullopt restores it).
void overrideHardwareThreads(std::optional<unsigned> count);

}  // namespace kel::vino
