// How the provider's code fails inside, and how that becomes a last error at its border.
#pragma once

#include <exception>
#include <utility>

#include "too/last_error.h"
#include "too/testing.h"
#include "too/types.h"

namespace nalhost::provider {

// Carries an ORK_E_* code to the border of the API.
class ProviderError : public std::exception {
public:
    explicit ProviderError(DWORD code) : m_code(code) {}
    DWORD Code() const { return m_code; }
    const char* what() const noexcept override { return "provider error"; }

private:
    DWORD m_code;
};

[[noreturn]] inline void Fail(DWORD code) {
    throw ProviderError(code);
}

inline void Require(bool condition, DWORD code) {
    if (!condition) Fail(code);
}

// The last-error code of the exception that is being handled.
DWORD CodeOfCurrentException() noexcept;

// Every API call: runs `body`, and turns what it throws into FALSE and a last error. Tests may make it fail by name.
template <class Body>
BOOL Guard(const char* call, Body&& body) noexcept {
    try {
        if (too_testing::CallFails(call)) return FALSE;
        std::forward<Body>(body)();
        return TRUE;
    } catch (...) {
        SetLastError(CodeOfCurrentException());
        return FALSE;
    }
}

}  // namespace nalhost::provider
