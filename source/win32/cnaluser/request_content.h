// What a request for a certificate says.
#pragma once

#include "nal/certificate.h"
#include "nal/pkcs10.h"
#include "too/time.h"

namespace nal {

/// When a key is to be used.
struct RequestPeriod {
    CTOOFileTime notBefore;
    CTOOFileTime notAfter;

    /// Fills in what is zero: the beginning is now, the end NAL_REQUEST_MONTHS after the beginning.
    /// @throws XTOOStatus(28, failureText) for an end that is not after the beginning, and for times beyond the calendar
    static RequestPeriod Complete(CTOOFileTime notBefore, CTOOFileTime notAfter, const char* failureText);
};

/// The identity of a new request: 16 bytes (nal/pkcs10.h).
/// @param network  four characters 0-9a-f; anything else counts as network 0
/// @throws XTOOStatus when the provider has no random numbers
IdentObj MakeRequestIdentity(const CTOOString& network, DWORD number);

/// The content of a request that is signed next.
///
/// @param from      subject, and the extensions that are carried over: alternative names, key usages, authority key identifier
/// @param key       the new key
/// @param identity  as MakeRequestIdentity made it
CNALPKCS10Data MakeRequestContent(const CNALCertInfo& from, const CNALCertPublicKeyInfo& key, const RequestPeriod& period,
                                  const IdentObj& identity);

}  // namespace nal
