/// Certificates that arrive from the key centre as templates, verified against the issuers that the host already trusts.
///
/// A template's chain is built as any other (nal/chain.h), with a further storage in which its issuer may be found:
///
/// - with NAL_APP_EXTENDED_STORAGES among the application flags, the first list of all networks that has an issuer for it while it is
///   within its validity: unsigned lists and users' lists, for the form without a check unsigned lists alone;
/// - else the users' list of its network (NALGetUsersListName).
///
/// Those lists are untrusted: a root in them ends a chain with CERT_TRUST_IS_UNTRUSTED_ROOT. One thing is forgiven: a template is not
/// refused for what its issuer's basic constraints say, so CERT_TRUST_INVALID_BASIC_CONSTRAINTS is taken out of the chain's status and of
/// the issuer's.
///
/// All functions return TRUE when a chain was built, whatever its status, and FALSE with last error 87 for an empty `cert`; they throw as
/// CNALChainEngine::GetCertificateChain, and may be called from any threads at once.
#pragma once

#include "nal/chain.h"
#include "nal/context.h"
#include "nal/export.h"
#include "too/types.h"

class CNALWholeSignatureCheck;

/// @param chain  receives the chain
NAL_EXPORT BOOL NALVerifyCertTemplate(const CNALCertContext& cert, CNALCertificateChain& chain);

/// The same as a result record.
/// @param check  receives in `signerCertificate` the issuer's DER (empty when none was found), in `status` the Windows-style code of the
///               chain's status (NALCertFlags2WinErr), 0 only when that is 0, and in `statusText` its text
/// @param chain  receives the chain; may be null
NAL_EXPORT BOOL NALVerifyCertTemplate(const CNALCertContext& cert, CNALWholeSignatureCheck& check, CNALCertificateChain* chain);

/// The same for a template that came in a signed message, together with the certificate that signed it.
///
/// @param signer  the certificate of the message's signer
/// @param check   in: the record of that signature, with its signed attributes, as the verification of the message gave it. Out: a
///                status that was not 0 stays; else, in this order, 0x80096002 when `signer` is another certificate than the record's,
///                0x80096005 when the signing time (attribute
///                "1.2.840.113549.1.9.5"; now, when there is none) lies outside the signer's validity, 0x800B0110 when the signer may not
///                have signed then (NALCanSignByCert), the code of the template's chain, 0. `statusText` goes with it
/// @param status  receives the error bits of the template's chain
/// The signer's own chain is not looked at: NALVerifyCertificate.
NAL_EXPORT BOOL NALVerifyCertTemplate(const CNALCertContext& cert, const CNALCertContext& signer, CNALWholeSignatureCheck& check,
                                      unsigned& status);
