// A static object that no exit and no unload destroys.
#pragma once

#include <cstddef>
#include <new>
#include <utility>

namespace Harrowlib201 {

// A host's threads may still be in the plug-in while the process ends, so what they use must not go away. The object's
// own memory is part of the library; what it allocates must be given back by ordinary use, or it counts as a leak when
// the library is unloaded.
template <class T>
class NeverDestroyed {
public:
    template <class... Arguments>
    explicit NeverDestroyed(Arguments&&... i_arguments) {
        new (m_aStorage) T(std::forward<Arguments>(i_arguments)...);
    }
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;

    T& operator*() noexcept { return *std::launder(reinterpret_cast<T*>(m_aStorage)); }
    T* operator->() noexcept { return &**this; }

private:
    alignas(T) std::byte m_aStorage[sizeof(T)];
};

}  // namespace Harrowlib201
