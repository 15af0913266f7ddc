// The three ways in which exported functions report failure. Each exported function follows exactly one:
//
//   1  CryptoAPI-compatible functions return FALSE or null and set the thread's last error: Refuse(), RefuseNull().
//   2  Functions with trailing `int* err` and `CTOOString* msg` store a status and a text, or throw when err is null:
//      they keep an Outcome, and return Outcome::Finish().
//   3  Methods of the object model and of the storages throw XTOOStatus(code, text).
#pragma once

#include <utility>

#include "too/last_error.h"
#include "too/status.h"
#include "too/string.h"
#include "too/types.h"

namespace nal {

/// Convention 1: sets the last error. @return FALSE
inline BOOL Refuse(DWORD lastError) {
    SetLastError(lastError);
    return FALSE;
}

/// Convention 1, for functions that return a pointer or handle.
inline std::nullptr_t RefuseNull(DWORD lastError) {
    SetLastError(lastError);
    return nullptr;
}

/// @return the library status for the provider's or system's last error; `otherwise` when there is none, so that a
/// failure is never reported as success
inline int LastErrorStatus(int otherwise = TOO_E_INTERNAL) {
    const int status = WinErr2ToolsErr(GetLastError());
    return status != TOO_OK ? status : otherwise;
}

/// Throws the status of the provider's last error, with `context` as text.
[[noreturn]] inline void ThrowProvider(const char* context) {
    throw XTOOStatus(LastErrorStatus(), context);
}

/// Convention 2: the status of a running operation and the name of the step that failed.
class Outcome {
public:
    bool IsOk() const { return m_code == TOO_OK; }
    int Code() const { return m_code; }
    const CTOOString& Text() const { return m_text; }

    /// Records a failure that the library found itself. @return false
    bool Fail(int code, const CTOOString& text) {
        m_code = code;
        m_text = text;
        return false;
    }

    /// Records a failed call of the provider from the last error. @return false
    bool FailProvider(const CTOOString& text) { return Fail(LastErrorStatus(), text); }

    /// Records a caught exception. @return false
    bool Fail(const XTOOStatus& status) { return Fail(status.GetCode(), status.GetText()); }

    /// Hands the outcome to the caller.
    /// @param err  receives the status; when it is null, a status that is not 0 is thrown as XTOOStatus
    /// @param msg  receives the text, if neither pointer is null
    /// @return TRUE exactly when the status is 0
    BOOL Finish(int* err, CTOOString* msg = nullptr) const {
        if (!err && !IsOk()) throw XTOOStatus(m_code, m_text);
        if (err) *err = m_code;
        if (err && msg) *msg = m_text;
        return IsOk();
    }

private:
    int m_code = TOO_OK;
    CTOOString m_text;
};

/// Convention 2 around a body that fails by throwing XTOOStatus: runs it and hands its outcome over, as Outcome::Finish.
template <class Body>
BOOL Report(int* err, CTOOString* msg, Body&& body) {
    Outcome outcome;
    try {
        std::forward<Body>(body)();
    } catch (const XTOOStatus& status) {
        outcome.Fail(status);
    }
    return outcome.Finish(err, msg);
}
template <class Body>
BOOL Report(int* err, Body&& body) {
    return Report(err, nullptr, std::forward<Body>(body));
}

/// What a call of the provider returned, inside such a body. @throws XTOOStatus(LastErrorStatus(otherwise), text) for FALSE
inline void RequireDone(BOOL done, const CTOOString& text, int otherwise = TOO_E_INTERNAL) {
    if (!done) throw XTOOStatus(LastErrorStatus(otherwise), text);
}

}  // namespace nal
