// What an action throws, for tests.
#pragma once

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

}  // namespace nal_test
