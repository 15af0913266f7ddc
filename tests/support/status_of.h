// What an action throws, for tests.
#pragma once

#include <string>

#include "too/status.h"

namespace nal_test {

/// The code of the XTOOStatus that `action` throws, TOO_OK when it throws none.
template <class Action>
int StatusOf(Action&& action) {
    try {
        action();
    } catch (const XTOOStatus& status) {
        return status.GetCode();
    }
    return TOO_OK;
}

/// Its code and its text, with a blank between them; empty when it throws none.
template <class Action>
std::string FailureOf(Action&& action) {
    try {
        action();
    } catch (const XTOOStatus& status) {
        return std::to_string(status.GetCode()) + " " + status.GetText().c_str();
    }
    return "";
}

}  // namespace nal_test
