/// The base of objects that are shared by counting their users.
#pragma once

#include <atomic>

#include "too/export.h"

/// Counts the users of an object and deletes it when the last one goes.
///
/// An object starts with one user, its maker. It lives on the heap and is given up by Release, never by delete, so
/// the destructor is protected. Thread-safe: any thread may add or release a reference that it holds.
class NAL_HOST_EXPORT CTOOReference {  // NOLINT(cppcoreguidelines-virtual-class-destructor): Release deletes
public:
    /// Adds a user. @return the number of users now
    long AddRef() const noexcept { return m_users.fetch_add(1, std::memory_order_relaxed) + 1; }

    /// Takes one user away; the object is gone when none is left. @return the number of users left
    long Release() const noexcept;

    /// @return the number of users at this moment; 1 means that the caller is the only one
    long GetReferenceCount() const noexcept { return m_users.load(std::memory_order_acquire); }

protected:
    CTOOReference() = default;
    /// A copy is an object of its own, with one user.
    CTOOReference(const CTOOReference&) noexcept {}
    CTOOReference& operator=(const CTOOReference&) noexcept { return *this; }
    virtual ~CTOOReference();

private:
    mutable std::atomic<long> m_users{1};
};
