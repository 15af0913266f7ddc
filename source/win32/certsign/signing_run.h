// What every function that signs a message does around the signature itself.
#pragma once

#include <string>

#include "model/provider_handles.h"
#include "nal/sign.h"
#include "signer/content_hash.h"
#include "signer/signer_info_builder.h"

namespace nal {

/// The number of the hash to sign with: the one that is asked for, or the first that the certificate's key has.
/// @param hashOID  dotted; null for the certificate's
/// @throws XTOOStatus(73, context)
DWORD ChooseHash(const char* hashOID, const CNALCertContext& cert, const char* context);

/// Makes room for a signer: one who signed already is refused, or, with c_NAL_SIGN_AGAIN, its signature taken out.
/// @param alsoCertificate  a certificate that is in the message counts as a signature
/// @throws XTOOStatus: (99, context); (28, context) for a message of another content than plain data
void MakeRoom(CNALSignData& message, const CNALCertContext& cert, DWORD flags, bool alsoCertificate, const char* context);

/// Refuses to put a signature beside others that are about another content: one of two files was the wrong one, or was changed.
/// @throws XTOOStatus(28, context)
void RequireSameContent(const CNALSignData& message, const ContentHash& hash, const char* context);

/// Adds a signer info and what belongs to it: digest algorithm, certificate, and the version that RFC 5652 section 5.1 asks for.
void AddSigner(CNALSignData& message, CNALMessageSignerInfo& signer, const CNALCertContext& cert, DWORD flags);

/// A signer info of the size that the signature with these claims will have.
CNALMessageSignerInfo MakePlaceholder(const CNALCertContext& cert, DWORD hashAlgId, SignedClaims claims, DWORD flags,
                                      const char* context);

/// A file that is being signed: found out when somebody changes it.
class SignedSource {
public:
    /// @throws XTOOStatus: (4, path) when there is no such file; XTOOFile
    explicit SignedSource(const CTOOString& path);

    const CTOOFile& File() const { return m_file; }
    /// @throws XTOOFile(5) when the file was written to, cut, replaced or removed since
    void RequireUnchanged() const;

private:
    std::string Stamp() const;

    CTOOFile m_file;
    std::string m_stamp;
};

}  // namespace nal
