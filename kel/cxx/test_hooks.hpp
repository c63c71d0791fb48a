#pragma once
// Seams only tests turn, apart from the headers production code reads: a restart of the
// device-information thread with a gatherer of the test's, and an extra engine for the engine
// objects made while it is registered.
#include "kel/cxx/device_info.hpp"
#include "kel/cxx/engine_backend.hpp"

namespace kel {

namespace device_info {
// Forgets what was gathered and gathers again on a new thread with the given gatherer (the
// default one when empty).
void restartForTesting(Gatherer gatherer);
}  // namespace device_info

// One more engine for the engines constructed while this object lives. Register before
// creating engines, from one thread.
class ScopedEngineRegistration {
public:
    explicit ScopedEngineRegistration(EngineRegistration registration) : name_(registration.name) {
        engineRegistry().push_back(std::move(registration));
    }
    ~ScopedEngineRegistration() {
        std::erase_if(engineRegistry(), [this](const EngineRegistration& r) { return r.name == name_; });
    }
    ScopedEngineRegistration(const ScopedEngineRegistration&) = delete;
    ScopedEngineRegistration& operator=(const ScopedEngineRegistration&) = delete;

private:
    std::string name_;
};

}  // namespace kel
