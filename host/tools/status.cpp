#include "too/status.h"

#include <fmt/format.h>

#include <cerrno>
#include <iterator>
#include <system_error>

namespace {

struct StatusText {
    int code;
    const char* text;
};

constexpr StatusText c_texts[] = {
    {TOO_OK, "success"},
    {TOO_E_NO_MEMORY, "not enough memory"},
    {TOO_E_OPEN, "the file cannot be opened"},
    {TOO_E_ACCESS, "access denied"},
    {TOO_E_FILE_NOT_FOUND, "no such file or folder"},
    {TOO_E_READ, "the file cannot be read or is damaged"},
    {TOO_E_WRITE, "the file cannot be written"},
    {TOO_E_SEEK, "the position in the file cannot be reached"},
    {TOO_E_FILE_EXISTS, "the file or folder exists already"},
    {TOO_E_DISK_FULL, "no space left on the disk"},
    {TOO_E_NOT_A_FILE, "not a regular file"},
    {TOO_E_NOT_A_FOLDER, "not a folder"},
    {TOO_E_TOO_LARGE, "too large"},
    {TOO_E_LOCK, "the lock cannot be taken"},
    {TOO_E_CANCELLED, "cancelled"},
    {TOO_E_TOO_MANY_FILES, "too many open files"},
    {TOO_E_NAME_ENCODE, "the name cannot be encoded"},
    {TOO_E_BAD_ARGUMENT, "bad argument"},
    {TOO_E_KEY_NOT_FOUND, "no such key"},
    {TOO_E_BAD_HASH, "bad hash, or hash not in the state needed"},
    {TOO_E_BAD_KEY, "bad key"},
    {TOO_E_BAD_LENGTH, "bad length"},
    {TOO_E_ENCODE, "the structure cannot be encoded"},
    {TOO_E_RANGE, "beyond the end"},
    {TOO_E_INTERNAL, "internal error"},
    {TOO_E_NOT_INITIALIZED, "not initialised"},
    {TOO_E_BAD_HANDLE, "invalid handle"},
    {TOO_E_MORE_DATA, "the buffer is too small"},
    {TOO_E_BAD_SIGNATURE, "the signature is not valid"},
    {TOO_E_UNKNOWN_ALGORITHM, "unknown algorithm or algorithm parameters"},
    {TOO_E_WRONG_PASSWORD, "wrong password or PIN"},
    {TOO_E_ALREADY_SIGNED, "already signed by this signer"},
    {TOO_E_CERT_REFUSED, "the certificate is refused"},
    {TOO_E_NO_PROVIDER, "no such cryptographic provider"},
    {TOO_E_NO_CONTAINER, "no such key container, or it is damaged"},
    {TOO_E_CONTAINER_EXISTS, "the key container exists already"},
    {TOO_E_NOT_VERIFIED, "the signatures cannot be checked, or the contents differ"},
    {TOO_E_NAME_DECODE, "the name cannot be decoded"},
    {TOO_E_NO_SIGNERS, "the message has no signers"},
    {TOO_E_SAME_CONTAINER, "source and target are the same key container"},
    {TOO_E_REQUEST_STATE, "the request is not in the state needed"},
    {TOO_E_NOT_FOUND, "not found"},
    {TOO_E_TRANSFER, "the keys cannot be transferred"},
    {TOO_E_ALREADY_PRESENT, "already present"},
    {TOO_E_NOT_SIGNED_MESSAGE, "not a signed message"},
    {TOO_E_BAD_STRUCTURE, "the encoded structure is damaged"},
    {TOO_E_REVOKED, "revoked"},
    {TOO_E_EXPIRED, "out of the validity period"},
    {TOO_E_UNTRUSTED, "no chain to a trusted root"},
    {TOO_E_UNSUPPORTED, "not supported"},
};

struct CodePair {
    DWORD from;
    int to;
};

constexpr CodePair c_errnos[] = {
    {ENOENT, TOO_E_FILE_NOT_FOUND},
    {ENOMEM, TOO_E_NO_MEMORY},
    {EACCES, TOO_E_ACCESS},
    {EPERM, TOO_E_ACCESS},
    {EROFS, TOO_E_ACCESS},
    {EEXIST, TOO_E_FILE_EXISTS},
    {ENOTEMPTY, TOO_E_FILE_EXISTS},
    {ENOTDIR, TOO_E_NOT_A_FOLDER},
    {EISDIR, TOO_E_NOT_A_FILE},
    {EINVAL, TOO_E_BAD_ARGUMENT},
    {ENAMETOOLONG, TOO_E_BAD_ARGUMENT},
    {EMFILE, TOO_E_TOO_MANY_FILES},
    {ENFILE, TOO_E_TOO_MANY_FILES},
    {EFBIG, TOO_E_TOO_LARGE},
    {EOVERFLOW, TOO_E_TOO_LARGE},
    {ENOSPC, TOO_E_DISK_FULL},
    {EDQUOT, TOO_E_DISK_FULL},
    {ELOOP, TOO_E_NOT_A_FILE},
    {ENXIO, TOO_E_NOT_A_FILE},
    {EUCLEAN, TOO_E_READ},  // a store file that is damaged
};

// Values of errno that say little by themselves, and whose numbers would read as statuses of another meaning.
constexpr CodePair c_vagueErrnos[] = {
    {EBADF, TOO_E_BAD_HANDLE},
    {EINTR, TOO_E_INTERNAL},
    {EAGAIN, TOO_E_LOCK},
    {EDEADLK, TOO_E_LOCK},
    {ENOLCK, TOO_E_LOCK},
    {EBUSY, TOO_E_LOCK},
    {ETXTBSY, TOO_E_LOCK},
};

// Small Win32 codes; looked up before the errno values.
constexpr CodePair c_win32[] = {
    {2, TOO_E_FILE_NOT_FOUND}, {3, TOO_E_FILE_NOT_FOUND}, {6, TOO_E_BAD_HANDLE},      {8, TOO_E_NO_MEMORY},
    {14, TOO_E_NO_MEMORY},     {80, TOO_E_FILE_EXISTS},   {86, TOO_E_WRONG_PASSWORD}, {87, TOO_E_BAD_ARGUMENT},
    {112, TOO_E_DISK_FULL},    {183, TOO_E_FILE_EXISTS},  {234, TOO_E_MORE_DATA},     {259, TOO_E_NOT_FOUND},
    {1223, TOO_E_CANCELLED},
};

// Win32 codes that are other things as errno; looked up only in the form 0x8007xxxx.
constexpr CodePair c_win32Only[] = {
    {5, TOO_E_ACCESS}, {13, TOO_E_BAD_STRUCTURE}, {29, TOO_E_WRITE},
    {30, TOO_E_READ},  {32, TOO_E_LOCK},          {50, TOO_E_UNSUPPORTED},
};

constexpr CodePair c_windows[] = {
    {0x80004001, TOO_E_UNSUPPORTED},        // not implemented
    {0x80090001, TOO_E_BAD_HANDLE},         // bad UID
    {0x80090002, TOO_E_BAD_HASH},           // bad hash
    {0x80090003, TOO_E_BAD_KEY},            // bad key
    {0x80090004, TOO_E_BAD_LENGTH},         // bad length
    {0x80090005, TOO_E_BAD_STRUCTURE},      // bad data
    {0x80090006, TOO_E_BAD_SIGNATURE},      // bad signature
    {0x80090007, TOO_E_UNSUPPORTED},        // bad version
    {0x80090008, TOO_E_UNKNOWN_ALGORITHM},  // bad algorithm
    {0x80090009, TOO_E_BAD_ARGUMENT},       // bad flags
    {0x8009000A, TOO_E_BAD_ARGUMENT},       // bad type
    {0x8009000B, TOO_E_BAD_KEY},            // bad key state
    {0x8009000C, TOO_E_BAD_HASH},           // bad hash state
    {0x8009000D, TOO_E_KEY_NOT_FOUND},      // no key
    {0x8009000E, TOO_E_NO_MEMORY},          // no memory
    {0x8009000F, TOO_E_CONTAINER_EXISTS},   // exists
    {0x80090010, TOO_E_ACCESS},             // no permission
    {0x80090011, TOO_E_NOT_FOUND},          // not found
    {0x80090013, TOO_E_NO_PROVIDER},        // bad provider
    {0x80090014, TOO_E_NO_PROVIDER},        // bad provider type
    {0x80090015, TOO_E_BAD_KEY},            // bad public key
    {0x80090016, TOO_E_NO_CONTAINER},       // bad keyset
    {0x80090017, TOO_E_NO_PROVIDER},        // provider type not defined
    {0x80090019, TOO_E_NO_PROVIDER},        // provider name not defined
    {0x8009001A, TOO_E_NO_CONTAINER},       // keyset entry bad
    {0x80090020, TOO_E_INTERNAL},           // internal failure
    {0x80090027, TOO_E_BAD_ARGUMENT},       // invalid parameter
    {0x80090028, TOO_E_MORE_DATA},          // buffer too small
    {0x80090029, TOO_E_UNSUPPORTED},        // not supported
    {0x80092002, TOO_E_BAD_STRUCTURE},      // bad encoding
    {0x80092004, TOO_E_NOT_FOUND},          // object not found
    {0x80092005, TOO_E_ALREADY_PRESENT},    // object exists
    {0x80092009, TOO_E_NOT_FOUND},          // no match
    {0x80092010, TOO_E_REVOKED},            // revoked
    {0x80093100, TOO_E_BAD_STRUCTURE},      // encoding errors
    {0x80093102, TOO_E_BAD_STRUCTURE},
    {0x80093103, TOO_E_BAD_STRUCTURE},
    {0x8009310B, TOO_E_BAD_STRUCTURE},
    {0x80096004, TOO_E_BAD_SIGNATURE},   // signature of a certificate
    {0x800B0101, TOO_E_EXPIRED},         // out of validity
    {0x800B0109, TOO_E_UNTRUSTED},       // untrusted root
    {0x800B010A, TOO_E_UNTRUSTED},       // chaining
    {0x800B010C, TOO_E_REVOKED},         // revoked
    {0x8010006B, TOO_E_WRONG_PASSWORD},  // wrong PIN
    {0x8010006E, TOO_E_CANCELLED},       // cancelled by the user
};

template <std::size_t count>
bool Find(const CodePair (&table)[count], DWORD code, int& found) {
    for (const CodePair& pair : table) {
        if (pair.from == code) {
            found = pair.to;
            return true;
        }
    }
    return false;
}

std::string Describe(int code, const CTOOString& text) {
    const std::string number =
        code >= 0 ? fmt::format("{}", code) : fmt::format("0x{:08X}", static_cast<unsigned>(code));
    const std::string own = fmt::format("status {}: {}", number, TOOGetStatusText(code));
    return text.empty() ? own : fmt::format("{} ({})", text.str(), own);
}

CTOOString DescribeFile(const CTOOString& file, const CTOOString& action, int systemError) {
    std::string text = fmt::format("{} \"{}\"", action.str(), file.str());
    if (systemError != 0) text += ": " + std::generic_category().message(systemError);
    return text;
}

}  // namespace

const char* TOOGetStatusText(int code) noexcept {
    for (const StatusText& entry : c_texts) {
        if (entry.code == code) return entry.text;
    }
    return "unknown status";
}

int WinErr2ToolsErr(DWORD winErr) noexcept {
    constexpr DWORD win32Facility = 0x80070000;
    int status = TOO_OK;
    if ((winErr & 0xFFFF0000) == win32Facility) {
        const DWORD win32 = winErr & 0xFFFF;
        if (Find(c_win32Only, win32, status) || Find(c_win32, win32, status)) return status;
        return static_cast<int>(winErr);
    }
    if (Find(c_windows, winErr, status) || Find(c_win32, winErr, status) || Find(c_errnos, winErr, status) ||
        Find(c_vagueErrnos, winErr, status)) {
        return status;
    }
    return static_cast<int>(winErr);
}

int TOOStatusFromErrno(int error, int otherwise) noexcept {
    int status = otherwise;
    Find(c_errnos, static_cast<DWORD>(error), status);
    return status;
}

XTOOStatus::XTOOStatus(int code, const CTOOString& text) : m_code(code), m_text(text), m_what(Describe(code, text)) {}

XTOOStatus::~XTOOStatus() = default;

XTOOFile::XTOOFile(int code, const CTOOString& file, const CTOOString& action, int systemError)
    : XTOOStatus(code, DescribeFile(file, action, systemError)), m_file(file), m_systemError(systemError) {}

XTOOFile::~XTOOFile() = default;
