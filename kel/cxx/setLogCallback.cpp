#include "kel/common/log.hpp"
#include "kel/cxx/engine_impl.hpp"

namespace kel {

void MLEngine::setLogCallback(LogCallback callback) {
    impl_->log_callback = std::move(callback);
    if (impl_->log_callback)
        impl_->log_callback(
            fmt::format("[{}] : KEL version is {}", locationText(std::source_location::current()),
                        version()));
    for (auto& [name, backend] : impl_->backends) backend->setLogCallback(impl_->log_callback);
}

}  // namespace kel
