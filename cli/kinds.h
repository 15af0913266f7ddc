// What a file holds, told by its content.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "cli/fault.h"

namespace cli {

enum class Kind {
    Unknown,
    Certificate,
    Crl,
    Request,
    SignedMessage,
    EncryptedMessage,
    OtherMessage,
    PublicKey,
    PrivateKey,
    Pkcs12,
    Store,
    Container,
    Text,
};

/// "a certificate", "a CRL", ...
const char* TextOf(Kind kind);

/// Told by the first bytes; 64 are enough, but for a long name.
Kind KindOf(std::string_view head);

/// One thing that a file held, DER.
struct Piece {
    Kind kind = Kind::Unknown;
    IdentObj der;
};

/// Everything in a file: the one DER structure, or each block of PEM.
std::vector<Piece> ReadPieces(const std::string& path);

/// Throws the fault for a file of the wrong kind.
[[noreturn]] void WrongKind(const std::string& name, Kind found, Kind wanted);

/// The certificates, or CRLs, in a file: those that stand there by themselves, and with `fromMessages` those of signed messages.
/// @throws Fault when something of another kind is there, or nothing
std::vector<IdentObj> ReadAll(const std::string& path, Kind wanted, bool fromMessages);
/// The same for each of several files: calls `take` with the path and the DER.
template <class Take>
void ForAll(const std::vector<std::string>& paths, Kind wanted, Take take) {
    for (const std::string& path : paths) {
        for (const IdentObj& der : ReadAll(path, wanted, true)) take(path, der);
    }
}
/// The one in a file. @throws Fault when there are more
IdentObj ReadOne(const std::string& path, Kind wanted);

/// Checks the kind of a message file, which may be of any size. @throws Fault
void RequireMessage(const std::string& path, const std::string& name, Kind wanted);

}  // namespace cli
