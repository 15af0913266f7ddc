#include "host/provider/failure.h"

#include <new>

#include "host/provider/crypto/error.h"
#include "ork/constants.h"
#include "too/status.h"

namespace nalhost::provider {

namespace {

DWORD CodeOf(crypto::Failure failure) {
    switch (failure) {
        case crypto::Failure::kBadAlgorithm:
            return ORK_E_BAD_ALGID;
        case crypto::Failure::kBadKey:
            return ORK_E_BAD_KEY;
        case crypto::Failure::kBadLength:
            return ORK_E_BAD_LENGTH;
        case crypto::Failure::kBadData:
            return ORK_E_BAD_DATA;
        case crypto::Failure::kBadState:
            return ORK_E_BAD_HASH_STATE;
        case crypto::Failure::kNoMemory:
            return ORK_E_NO_MEMORY;
        case crypto::Failure::kUnavailable:
        case crypto::Failure::kInternal:
            break;
    }
    return ORK_E_FAIL;
}

// Failures on a container's file and its lock, and of the ASN.1 toolkit.
DWORD CodeOfStatus(int status) {
    switch (status) {
        case TOO_E_NO_MEMORY:
            return ORK_E_NO_MEMORY;
        case TOO_E_ACCESS:
            return ORK_E_ACCESS_DENIED;
        case TOO_E_FILE_NOT_FOUND:
            return ORK_E_PATH_NOT_FOUND;
        case TOO_E_READ:
        case TOO_E_SEEK:
        case TOO_E_OPEN:
        case TOO_E_TOO_MANY_FILES:
            return ORK_E_READ_FAULT;
        case TOO_E_WRITE:
            return ORK_E_WRITE_FAULT;
        case TOO_E_DISK_FULL:
            return ORK_E_DISK_FULL;
        case TOO_E_FILE_EXISTS:
            return ORK_E_EXISTS;
        case TOO_E_TOO_LARGE:
            return ORK_E_DAMAGED;
        case TOO_E_NOT_A_FILE:
        case TOO_E_NOT_A_FOLDER:
        case TOO_E_BAD_ARGUMENT:
            return ORK_E_BAD_KEYSET_NAME;
        case TOO_E_LOCK:
            return ORK_E_LOCKED;
        case TOO_E_NOT_INITIALIZED:
            return ORK_E_BAD_KEYSET;
        case TOO_E_BAD_STRUCTURE:
        case TOO_E_ENCODE:
            return ORK_E_BAD_DATA;
        default:
            return ORK_E_FAIL;
    }
}

}  // namespace

DWORD CodeOfCurrentException() noexcept {
    try {
        throw;
    } catch (const ProviderError& error) {
        return error.Code();
    } catch (const crypto::CryptoError& error) {
        return CodeOf(error.Kind());
    } catch (const XTOOStatus& error) {
        return CodeOfStatus(error.GetCode());
    } catch (const std::bad_alloc&) {
        return ORK_E_NO_MEMORY;
    } catch (...) {
        return ORK_E_FAIL;
    }
}

}  // namespace nalhost::provider
