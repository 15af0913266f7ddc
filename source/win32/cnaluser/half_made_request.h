// The note beside a container that a request is being made for a new key in it.
//
// A key, its entry in the request storage and its request file are three things on the disk that cannot appear at once. So before the
// key is made, the file `<container>.newkey` says what was there and what is to come; it goes when all three are made, or undone. A
// note found under the container's lock is that of a process that died, or could not undo what it had made.
#pragma once

#include <list>

#include "nal/context.h"
#include "too/ident_obj.h"
#include "too/string.h"

namespace nal {

///   HalfMadeRequest ::= SEQUENCE {
///       format   INTEGER (1),
///       storage  OCTET STRING,              -- path of the request storage
///       file     OCTET STRING,              -- path of the request file
///       keys     SEQUENCE OF OCTET STRING } -- SubjectPublicKeyInfo of each key that the container held before
struct HalfMadeRequest {
    CTOOString storage;
    CTOOString file;
    std::list<IdentObj> keys;

    /// Writes the note; when it returns, it is on the disk. @throws XTOOFile
    void Write(const CTOOString& container) const;
    /// Takes it away. @throws XTOOFile
    static void Remove(const CTOOString& container);
    static bool Exists(const CTOOString& container);
    /// @throws XTOOFile; XTOOStatus(206) for a damaged note
    static HalfMadeRequest Read(const CTOOString& container);
};

/// Makes the request file of a request that stands in the storage, unless it is there. @throws XTOOStatus
void WriteRequestFile(const CTOOString& path, const IdentObj& request);

/// Undoes a request: its file, its entry, and at last the key; a failure leaves the key with its request. The caller holds the
/// container's lock.
/// @param key  SubjectPublicKeyInfo, DER
/// @throws XTOOStatus; that the key cannot be removed is logged, too
void UndoRequest(const CNALProvider& provider, const HalfMadeRequest& note, const IdentObj& key);

/// Finishes or undoes what the container's note tells of, if there is one: a new key whose request stands in the storage gets its
/// request file, one that has neither request nor certificate is deleted. The caller holds the container's lock.
/// @throws XTOOStatus; the note then stays for the next time
void RepairHalfMadeRequest(const CNALProvider& provider, const CTOOString& container);

}  // namespace nal
