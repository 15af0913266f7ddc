// How many references an object has, under a lock of its own.
#pragma once

#include <cstdint>
#include <mutex>

namespace nal {

/// Starts at 1. Any thread may add and drop.
class ReferenceCount {
public:
    void Add() {
        const std::lock_guard lock(m_mutex);
        ++m_count;
    }
    /// @return true for the last reference: the caller destroys the object, after this lock is released
    bool Drop() {
        const std::lock_guard lock(m_mutex);
        return --m_count == 0;
    }

private:
    std::mutex m_mutex;  // a POSIX mutex with default attributes
    std::uint64_t m_count = 1;
};

}  // namespace nal
