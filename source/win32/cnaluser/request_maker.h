// Making a key and the request for its certificate, in an order in which neither stays without the other.
#pragma once

#include <functional>

#include "nal/user.h"
#include "win32/cnaluser/request_content.h"

namespace nal {

/// Who answers for a request beside the new key; none when `hKey` is 0.
struct RequestSigner {
    unsigned long hProv = 0;
    unsigned long hKey = 0;
    CNALCertContext cert;
};

/// The request to be made.
struct RequestPlan {
    unsigned type = NAL_REQ_TYPE_OWN;
    std::function<void()> makeKeys;  ///< makes the pair in the user's container; the lock of the container is held
    CNALCertInfo from;               ///< subject and extensions
    RequestPeriod period;
    CTOOString network;              ///< four characters 0-9a-f, or empty
    RequestSigner signer;
};

/// Makes the key in the user's container, and its request in the transport folder:
///
///   1  folders, storage of the year, number and name of the request's file: nothing that has to be undone
///   2  the note beside the container (half_made_request.h)
///   3  the key
///   4  the request, in memory; its file under a temporary name
///   5  its entry in the storage
///   6  its file gets its name
///   7  the note goes
///
/// A failure from 3 on undoes 6, 5 and 3, in this order; what cannot be undone then, as after a crash, the note remembers.
/// The caller holds the lock of the user's provider.
/// @return the new request @throws XTOOStatus
CNALCertReqContext MakeRequest(CNALUser& user, const RequestPlan& plan);

}  // namespace nal
