#include "kel/cxx/engine_impl.hpp"

namespace kel {

void MLEngine::infer() {
    impl_->currentBackend().infer();
}

}  // namespace kel
