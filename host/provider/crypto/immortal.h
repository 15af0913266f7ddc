// Objects of the process that threads of the host may still use when its globals are destroyed.
#pragma once

#include <cstddef>
#include <new>
#include <utility>

namespace nalhost::crypto {

/// Holds an object that is never destroyed. To be declared `static`; takes no memory from the heap.
template <typename T>
class Immortal {
public:
    template <typename... Arguments>
    explicit Immortal(Arguments&&... arguments) {
        new (m_storage) T(std::forward<Arguments>(arguments)...);
    }
    Immortal(const Immortal&) = delete;
    Immortal& operator=(const Immortal&) = delete;

    T& operator*() { return *std::launder(reinterpret_cast<T*>(m_storage)); }

private:
    alignas(T) std::byte m_storage[sizeof(T)];
};

}  // namespace nalhost::crypto
