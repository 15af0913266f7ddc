/// The status codes of the host interfaces and of the library, their texts, and the exceptions that carry them.
///
/// A status is an int: 0 is success. A Windows-style code that has no status of its own travels as it is, so codes of
/// the 0x8009 and 0x800B families appear as negative statuses.
#pragma once

#include <exception>

#include "too/export.h"
#include "too/string.h"
#include "too/types.h"

constexpr int TOO_OK = 0;
constexpr int TOO_E_NO_MEMORY = 1;             ///< there is not enough memory
constexpr int TOO_E_OPEN = 2;                  ///< a file cannot be opened for a reason that has no code of its own
constexpr int TOO_E_ACCESS = 3;                ///< the system refuses access
constexpr int TOO_E_FILE_NOT_FOUND = 4;        ///< there is no such file or folder
constexpr int TOO_E_READ = 5;                  ///< a file cannot be read, or what it holds is damaged
constexpr int TOO_E_WRITE = 6;                 ///< a file cannot be written
constexpr int TOO_E_SEEK = 7;                  ///< a position in a file cannot be reached
constexpr int TOO_E_FILE_EXISTS = 8;           ///< a file or folder of that name is there already
constexpr int TOO_E_DISK_FULL = 9;             ///< the disk or the quota is full
constexpr int TOO_E_NOT_A_FILE = 10;           ///< the name is that of a folder or of something else that is no file
constexpr int TOO_E_NOT_A_FOLDER = 11;         ///< a part of the path is not a folder
constexpr int TOO_E_TOO_LARGE = 12;            ///< something is larger than the operation allows
constexpr int TOO_E_LOCK = 13;                 ///< an inter-process lock cannot be taken
constexpr int TOO_E_CANCELLED = 14;            ///< the caller's progress handler stopped the operation
constexpr int TOO_E_TOO_MANY_FILES = 15;       ///< the process or the system has too many files open
constexpr int TOO_E_NAME_ENCODE = 22;          ///< a name cannot be encoded
constexpr int TOO_E_BAD_ARGUMENT = 28;         ///< an argument is not valid
constexpr int TOO_E_KEY_NOT_FOUND = 32;        ///< there is no such key
constexpr int TOO_E_BAD_HASH = 33;             ///< a hash is damaged or not in the state that the call needs
constexpr int TOO_E_BAD_KEY = 34;              ///< a key is damaged or does not suit the call
constexpr int TOO_E_BAD_LENGTH = 35;           ///< data have a wrong length
constexpr int TOO_E_ENCODE = 36;               ///< a structure cannot be encoded
constexpr int TOO_E_RANGE = 37;                ///< an index lies beyond the end
constexpr int TOO_E_INTERNAL = 41;             ///< something that should not happen did
constexpr int TOO_E_NOT_INITIALIZED = 42;      ///< the object lacks what the call needs
constexpr int TOO_E_BAD_HANDLE = 43;           ///< a handle is stale or was never given out
constexpr int TOO_E_MORE_DATA = 44;            ///< the room given is too small for the answer
constexpr int TOO_E_BAD_SIGNATURE = 58;        ///< a signature does not verify
constexpr int TOO_E_UNKNOWN_ALGORITHM = 73;    ///< an algorithm or its parameters are not known here
constexpr int TOO_E_WRONG_PASSWORD = 86;       ///< a password or PIN is wrong
constexpr int TOO_E_ALREADY_SIGNED = 99;       ///< that signer has signed already
constexpr int TOO_E_CERT_REFUSED = 106;        ///< a certificate was refused
constexpr int TOO_E_NO_PROVIDER = 120;         ///< no provider of that type or name is registered
constexpr int TOO_E_NO_CONTAINER = 121;        ///< there is no such key container, or it is damaged
constexpr int TOO_E_CONTAINER_EXISTS = 122;    ///< a key container of that name is there already
constexpr int TOO_E_NOT_VERIFIED = 131;           ///< signatures cannot be checked, or contents that must be equal differ
constexpr int TOO_E_NAME_DECODE = 134;         ///< a name cannot be decoded
constexpr int TOO_E_NO_SIGNERS = 140;             ///< a signed message has no signers
constexpr int TOO_E_SAME_CONTAINER = 143;      ///< source and target are one key container
constexpr int TOO_E_REQUEST_STATE = 156;       ///< a request is not in the state that the call needs
constexpr int TOO_E_NOT_FOUND = 194;           ///< what was sought is not there
constexpr int TOO_E_TRANSFER = 195;            ///< keys cannot be transferred
constexpr int TOO_E_ALREADY_PRESENT = 196;     ///< what was to be added is there already
constexpr int TOO_E_NOT_SIGNED_MESSAGE = 205;  ///< the data are not a signed message
constexpr int TOO_E_BAD_STRUCTURE = 206;       ///< an encoded structure is damaged
constexpr int TOO_E_REVOKED = 222;             ///< a certificate was revoked
constexpr int TOO_E_EXPIRED = 223;             ///< a certificate or key is out of its validity period
constexpr int TOO_E_UNTRUSTED = 224;           ///< no chain leads from a certificate to a trusted root
constexpr int TOO_E_UNSUPPORTED = 230;         ///< the operation is not supported

/// Gives the English text of a status, for people.
///
/// @return a text in static storage, such as "the file is not found"; "unknown status" for a code that has none.
/// Thread-safe.
NAL_HOST_EXPORT const char* TOOGetStatusText(int code) noexcept;

/// Turns a last-error code into a status.
///
/// Takes the codes that the provider sets (0x8009xxxx, 0x8010xxxx, small Win32 codes), those of the store functions
/// and `errno` values left in the last-error slot. Where a small Win32 code and an errno are one number, the errno is
/// meant, save for 6 (invalid handle) and 8 (no memory); 0x8007xxxx says a Win32 code beyond doubt.
///
/// @return the status with the same meaning; `winErr` itself when there is none; TOO_OK for 0. Thread-safe.
NAL_HOST_EXPORT int WinErr2ToolsErr(DWORD winErr) noexcept;

/// Turns an errno of a file operation into a status.
///
/// @param error     the errno
/// @param otherwise the status for an errno that has none of its own, such as TOO_E_READ
/// Thread-safe.
NAL_HOST_EXPORT int TOOStatusFromErrno(int error, int otherwise) noexcept;

/// The exception of the host interfaces and of the library: a status code and a text that names what failed.
class NAL_HOST_EXPORT XTOOStatus : public std::exception {
public:
    explicit XTOOStatus(int code, const CTOOString& text = CTOOString());
    XTOOStatus(const XTOOStatus&) = default;
    XTOOStatus& operator=(const XTOOStatus&) = default;
    ~XTOOStatus() override;

    int GetCode() const noexcept { return m_code; }
    /// @return the text as it was given; where the library throws, it names the failing function
    const CTOOString& GetText() const noexcept { return m_text; }
    /// @return the text, the code and the code's own text in one line
    const char* what() const noexcept override { return m_what.c_str(); }

private:
    int m_code;
    CTOOString m_text;
    std::string m_what;
};

/// A failure on a file; its text names the file, what was tried and the system's reason.
class NAL_HOST_EXPORT XTOOFile : public XTOOStatus {
public:
    /// @param code       the status
    /// @param file       the path as the caller gave it
    /// @param action     what was tried, as in "cannot open"
    /// @param systemError the errno, 0 when the system had no part in it
    XTOOFile(int code, const CTOOString& file, const CTOOString& action, int systemError = 0);
    XTOOFile(const XTOOFile&) = default;
    XTOOFile& operator=(const XTOOFile&) = default;
    ~XTOOFile() override;

    const CTOOString& GetFileName() const noexcept { return m_file; }
    /// @return the errno, 0 when there was none
    int GetSystemError() const noexcept { return m_systemError; }

private:
    CTOOString m_file;
    int m_systemError;
};
