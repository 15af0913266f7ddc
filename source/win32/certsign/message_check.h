// Checking all signers of one message over one content.
#pragma once

#include <list>
#include <string>

#include "nal/signature_check.h"
#include "nal/signed_data.h"
#include "nal/storage.h"
#include "too/status.h"

namespace nal {

/// The texts of what is thrown, by what failed. Literals.
struct CheckTexts {
    const char* region;     ///< the content's region is none
    const char* hashData;   ///< the provider does not hash
    const char* hashValue;  ///< the provider gives no value
    const char* check;      ///< anything else; the reason follows it
};

/// Runs `action`, and puts `context` before the text of what it throws.
template <class Action>
void NameContext(const char* context, Action&& action) {
    try {
        action();
    } catch (const XTOOFile&) {
        throw;
    } catch (const XTOOStatus& status) {
        throw XTOOStatus(status.GetCode(), CTOOString((std::string(context) + ": " + status.GetText().c_str()).c_str()));
    }
}

struct MessageCheck {
    const WhatToSignStruct* content = nullptr;  ///< null: what the message carries
    const CNALCertStorage* storage = nullptr;
    CheckTexts texts;

    /// Reads the content once, then checks every signer.
    /// @param message  its signer infos are moved into the records
    /// @return a record per signer info, in their order
    /// @throws XTOOStatus when the check cannot be carried out: as FileContent with the region's text; the provider's status; what
    ///         searches of the storage throw. XTOOFile
    std::list<CNALWholeSignatureCheck> Run(CNALSignData& message) const;
};

}  // namespace nal
