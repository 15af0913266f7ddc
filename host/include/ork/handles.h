/// Owning types for the provider's handles: whatever way a function is left, they are released.
#pragma once

#include <utility>

#include "ork/provider.h"

namespace ork {

/// One handle of the provider; 0 is none. Moves hand it over. For one thread at a time.
template <BOOL (*Close)(unsigned long)>
class Handle {
public:
    Handle() = default;
    /// Takes over a handle.
    explicit Handle(unsigned long handle) : m_handle(handle) {}
    Handle(Handle&& other) noexcept : m_handle(other.Release()) {}
    Handle& operator=(Handle&& other) noexcept {
        if (this != &other) Reset(other.Release());
        return *this;
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() { Reset(); }

    explicit operator bool() const { return m_handle != 0; }
    unsigned long Get() const { return m_handle; }
    /// Where a provider call puts a new handle; the old one is released first.
    unsigned long* Receive() {
        Reset();
        return &m_handle;
    }
    /// Gives the handle to the caller.
    unsigned long Release() { return std::exchange(m_handle, 0); }
    void Reset(unsigned long handle = 0) {
        if (m_handle != 0) Close(m_handle);
        m_handle = handle;
    }

private:
    unsigned long m_handle = 0;
};

inline BOOL CloseContext(unsigned long handle) { return ORKReleaseContext(handle, 0); }

using ContextHandle = Handle<CloseContext>;
using KeyHandle = Handle<ORKDestroyKey>;
using HashHandle = Handle<ORKDestroyHash>;

}  // namespace ork
