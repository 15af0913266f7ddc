#include "too/last_error.h"

namespace {
thread_local DWORD t_lastError = 0;
}

void SetLastError(DWORD code) {
    t_lastError = code;
}

DWORD GetLastError() {
    return t_lastError;
}
