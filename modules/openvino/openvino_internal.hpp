#pragma once
// Seams of the OpenVINO back-end that tests reach; not part of any public interface.

#include <string>

namespace kel {
class openvino;
}

namespace kel::openvino_testing {

// Replaces the processor's SSE4.2 test; nullptr restores the real one.
void setSse42Probe(bool (*probe)());

// Stores a bare network record (no model, default core) under the identifier, so that the
// property steps can be run for devices this machine does not have.
void addNetworkRecord(openvino& backend, const std::string& networkIdentifier,
                      const std::string& device);

// "CACHE_DIR" as the network's own core reports it.
std::string networkCacheDir(openvino& backend, const std::string& networkIdentifier);

// The back-end's own notion of the current network.
std::string currentNetwork(openvino& backend);

}  // namespace kel::openvino_testing
