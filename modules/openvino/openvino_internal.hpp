#pragma once
// Seams of the OpenVINO back-end that tests reach; not part of any public interface.

namespace kel::openvino_testing {

// Replaces the processor's SSE4.2 test; nullptr restores the real one.
void setSse42Probe(bool (*probe)());

}  // namespace kel::openvino_testing
