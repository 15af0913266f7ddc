// What stands behind a request context: the record that the host sees, and in front of it what the host does not see.
#pragma once

#include <atomic>
#include <cstdint>

#include "nal/context.h"
#include "nal/request_context.h"
#include "requests/request_storage_file.h"
#include "too/ident_obj.h"

namespace nal {

/// The hidden part: the count of references, and the owners of what the record's pointers name.
struct RequestContextHeader {
    std::atomic<unsigned> references{1};
    std::uint64_t entry = 0;  // number of the entry that the context stands for; 0 for none
    IdentObj identity;
    IdentObj request;
    IdentObj container;
    CNALCertContext certificate;
    CNALCertContext issuer;
    CNALCRLContext crl;
};

struct RequestContextBlock : RequestContextHeader, NAL_REQ_CONTEXT {
    explicit RequestContextBlock(const NAL_REQ_CONTEXT& from);
    /// A picture of an entry. @throws XTOOStatus when a certificate or CRL of it does not decode
    RequestContextBlock(const RequestEntry& from, CNALReqContextStorage* storage);

    /// The block of a context that this library made.
    static RequestContextBlock* Of(const NAL_REQ_CONTEXT* context) {
        return static_cast<RequestContextBlock*>(const_cast<NAL_REQ_CONTEXT*>(context));
    }

private:
    void PointIntoHeader();
};

}  // namespace nal
