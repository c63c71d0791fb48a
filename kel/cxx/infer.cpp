#include "kel/cxx/engine_impl.hpp"

namespace kel {

void MLEngine::infer() {
    impl_->onCurrentNetwork([](auto& backend) { backend.infer(); });
}

}  // namespace kel
