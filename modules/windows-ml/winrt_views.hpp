#pragma once
// A WinRT vector view's elements in one call, the way the seam hands tensor values on.
#include <winrt/Windows.Foundation.Collections.h>

#include <cstdint>
#include <memory>
#include <type_traits>
#include <vector>

namespace kel::windows_ml_platform {

template <class E>
std::vector<E> copyAll(const winrt::Windows::Foundation::Collections::IVectorView<E>& view) {
    const std::uint32_t n = view.Size();
    if constexpr (std::is_same_v<E, bool>) {
        // std::vector<bool> is not contiguous, so GetMany fills a plain array first.
        std::unique_ptr<bool[]> values(new bool[n]);
        if (n) view.GetMany(0, winrt::array_view<bool>(values.get(), values.get() + n));
        return std::vector<bool>(values.get(), values.get() + n);
    } else {
        std::vector<E> out(n);
        if (n) view.GetMany(0, out);
        return out;
    }
}

}  // namespace kel::windows_ml_platform
