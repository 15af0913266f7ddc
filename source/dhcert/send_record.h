// What the files of this folder ask of a record beyond its public accessors. All of it is safe on arbitrary bytes.
#pragma once

#include "nal/dh_certs.h"

namespace nal {

// Whether the record has this key number, of which the first 32 bytes count. Does not copy.
bool IsSameKey(const CNALSendCertRecord& record, const IdentObj& keyNumber);

// Whether two records have the same own type, peer network and peer host.
bool IsSamePeer(const CNALSendCertRecord& a, const CNALSendCertRecord& b);

// The record with every field in its bounds and zeros where nothing belongs.
SENDCERT_RECORD CorrectRecord(const SENDCERT_RECORD& record);

}  // namespace nal
