// The numbers that stand for the provider's objects outside.
//
//   bits   meaning
//   63-56  kind of object: 1 context, 2 key, 3 hash
//   55-0   a count of all handles ever given out, from 1; no number is used twice
//
// So a stale handle, one of another kind and an invented one are found out by a look-up that fails.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>

#include "host/provider/failure.h"
#include "ork/constants.h"

namespace nalhost::provider {

enum class HandleKind : std::uint64_t { kContext = 1, kKey = 2, kHash = 3 };

inline unsigned long NextHandle(HandleKind kind) {
    static std::atomic<std::uint64_t> count{0};
    return static_cast<std::uint64_t>(kind) << 56 | (count.fetch_add(1, std::memory_order_relaxed) + 1);
}

// Thread-safe. An object lives until its handle is removed and the last call on it has returned.
template <class Object, HandleKind kind>
class HandleTable {
public:
    unsigned long Add(std::shared_ptr<Object> object) {
        const unsigned long handle = NextHandle(kind);
        const std::unique_lock lock(m_mutex);
        m_objects.emplace(handle, std::move(object));
        return handle;
    }

    // @throws ProviderError ORK_E_INVALID_HANDLE
    std::shared_ptr<Object> Get(unsigned long handle) const {
        const std::shared_lock lock(m_mutex);
        const auto found = m_objects.find(handle);
        Require(found != m_objects.end(), ORK_E_INVALID_HANDLE);
        return found->second;
    }

    bool Contains(unsigned long handle) const {
        const std::shared_lock lock(m_mutex);
        return m_objects.count(handle) != 0;
    }

    // How many objects have a handle.
    std::size_t Size() const {
        const std::shared_lock lock(m_mutex);
        return m_objects.size();
    }

    // The object goes outside the lock: its destruction wipes memory. @throws as Get
    std::shared_ptr<Object> Remove(unsigned long handle) {
        const std::unique_lock lock(m_mutex);
        const auto found = m_objects.find(handle);
        Require(found != m_objects.end(), ORK_E_INVALID_HANDLE);
        std::shared_ptr<Object> object = std::move(found->second);
        m_objects.erase(found);
        return object;
    }

private:
    mutable std::shared_mutex m_mutex;
    std::unordered_map<unsigned long, std::shared_ptr<Object>> m_objects;
};

}  // namespace nalhost::provider
