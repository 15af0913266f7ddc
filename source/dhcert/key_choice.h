// The order in which keys count for a peer, from the records alone.
#pragma once

#include <vector>

#include "nal/dh_certs.h"

namespace nal {

// The records that decide about each key that counts, best first, as CNALDHCertManager describes.
// `records` is in the file's order.
std::vector<CNALSendCertRecord> RankKeys(const std::vector<CNALSendCertRecord>& records, bool incoming);

}  // namespace nal
