// A container's entries as the provider enumerates them.
#pragma once

#include "model/provider_handles.h"
#include "nal/user.h"

namespace nal {

/// Walks the entries of a context's container. Each becomes the context's current entry, so the caller holds the context's lock.
class EntryWalk {
public:
    /// @param failureText  of the exceptions
    EntryWalk(unsigned long hProv, const char* failureText) : m_provider(hProv), m_failureText(failureText) {}

    /// Goes to the next entry. @return false behind the last one @throws XTOOStatus(the provider's status)
    bool Next();
    /// The current entry's name.
    const CTOOString& Name() const { return m_name; }
    /// Opens its key. @return nothing, with the last error, when that fails
    KeyHandle OpenKey() const;
    /// Its record. The certificate carries its key provider info, with `pin` in it unless that is empty; one that does not decode is
    /// logged and left out.
    /// @throws XTOOStatus(the provider's status)
    CNALUserKeyInfo Read(const CTOOString& pin) const;

private:
    unsigned long m_provider;
    const char* m_failureText;
    CTOOString m_name;
    bool m_isStarted = false;
};

/// All entries of a context's container. @throws XTOOStatus(the provider's status, failureText)
std::list<CNALUserKeyInfo> ReadEntries(const CNALProvider& provider, const CTOOString& pin, const char* failureText);

/// Makes the entry with this public key current. @return false when there is none @throws XTOOStatus(the provider's status, failureText)
bool GoToKey(const CNALProvider& provider, const IdentObj& publicKeyInfo, const char* failureText);

/// Deletes the current entry. @throws XTOOStatus(the provider's status, failureText)
void DeleteCurrentEntry(const CNALProvider& provider, const char* failureText);

/// The bits of a key's public part, as certificates hold them. @throws XTOOStatus(the provider's status, failureText)
IdentObj PublicBitsOf(unsigned long hProv, unsigned long hKey, const char* failureText);

/// The container's unique full name. @return an empty text when there is no container, or the provider gives them no such names
/// @throws XTOOStatus(the provider's status)
CTOOString UniqueNameOf(const CNALProvider& provider);

}  // namespace nal
