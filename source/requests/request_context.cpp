// Contexts: making, counting, reading. Everything that concerns files is in request_storage.cpp.
#include "nal/request_context.h"

#include <utility>

#include "frame/failure.h"
#include "requests/request_context_block.h"
#include "requests/request_storages.h"

namespace {

using nal::RequestContextBlock;
using nal::RequestStorages;

IdentObj CopyOf(const CRYPTOAPI_BLOB& blob) {
    return blob.pbData != nullptr ? IdentObj(blob.pbData, blob.cbData) : IdentObj();
}

CRYPTOAPI_BLOB BlobOf(IdentObj& bytes) {
    return {bytes.GetSize(), bytes.IsEmpty() ? nullptr : bytes.GetData()};
}

CNALCertContext CertificateOf(const IdentObj& encoded) {
    return encoded.IsEmpty() ? CNALCertContext() : CNALCertContext(encoded);
}

CNALCRLContext CrlOf(const IdentObj& encoded) {
    return encoded.IsEmpty() ? CNALCRLContext() : CNALCRLContext(encoded);
}

/// Convention of NALGetReqProperties.
BOOL Answer(int status, int* err) {
    if (err != nullptr) *err = status;
    return status == TOO_OK;
}

}  // namespace

namespace nal {

RequestContextBlock::RequestContextBlock(const NAL_REQ_CONTEXT& from) : NAL_REQ_CONTEXT(from) {
    identity = CopyOf(from.Identity);
    request = CopyOf(from.Request);
    container = CopyOf(from.Container);
    certificate = CNALCertContext(from.pCertificate);
    issuer = CNALCertContext(from.pIssuer);
    crl = CNALCRLContext(from.pCrl);
    PointIntoHeader();
}

RequestContextBlock::RequestContextBlock(const RequestEntry& from, CNALReqContextStorage* storage) : NAL_REQ_CONTEXT() {
    entry = from.number;
    identity = from.identity;
    request = from.request;
    container = from.container;
    certificate = CertificateOf(from.certificate);
    issuer = CertificateOf(from.issuer);
    crl = CrlOf(from.crl);
    dwValue = from.value;
    dwStatus = from.Status();
    dwRequestType = from.type;
    for (unsigned i = 0; i < NAL_REQ_TIME_COUNT; ++i)
        rgTime[i] = from.times[i];
    pStorage = storage;
    PointIntoHeader();
}

void RequestContextBlock::PointIntoHeader() {
    Identity = BlobOf(identity);
    Request = BlobOf(request);
    Container = BlobOf(container);
    pCertificate = certificate.GetContext();
    pIssuer = issuer.GetContext();
    pCrl = crl.GetContext();
}

}  // namespace nal

const NAL_REQ_CONTEXT* NALCreateReqContext(NAL_REQ_CONTEXT& from) {
    auto block = std::make_unique<RequestContextBlock>(from);
    block->entry = RequestStorages::Instance().EntryOf(from.pStorage, &from);
    return RequestStorages::Instance().Publish(std::move(block));
}

const NAL_REQ_CONTEXT* NALCreateReqContext(const CERT_CONTEXT* certificate, bool external) {
    if (certificate == nullptr) return nal::RefuseNull(NAL_STORE_E_INVALID_ARGUMENT);
    NAL_REQ_CONTEXT record{};
    record.dwStatus = NAL_REQ_STATUS_RECEIVED;
    record.dwRequestType = external ? NAL_REQ_TYPE_EXTERNAL : NAL_REQ_TYPE_OWN;
    record.rgTime[NAL_REQ_TIME_RECEIVED] = CTOOFileTime::Now().GetTicks();
    record.pCertificate = certificate;
    return NALCreateReqContext(record);
}

const NAL_REQ_CONTEXT* NALDuplicateReqContext(const NAL_REQ_CONTEXT* context) {
    if (context != nullptr) RequestContextBlock::Of(context)->references.fetch_add(1, std::memory_order_relaxed);
    return context;
}

BOOL NALCloseReqContext(const NAL_REQ_CONTEXT* context) {
    if (context == nullptr) return FALSE;
    if (RequestContextBlock::Of(context)->references.fetch_sub(1, std::memory_order_acq_rel) == 1)
        RequestStorages::Instance().Retire(context);
    return TRUE;
}

int CNALReqHistory::SetByContext(const NAL_REQ_CONTEXT* context) {
    if (context == nullptr) return TOO_E_BAD_ARGUMENT;
    try {
        const auto storage = RequestStorages::Instance().Find(context->pStorage);
        m_items = storage != nullptr ? storage->GetHistory(context) : std::list<CNALHistoryItem>();
    } catch (const XTOOStatus& status) {
        return status.GetCode();
    }
    return TOO_OK;
}

BOOL NALGetReqProperties(unsigned id, const NAL_REQ_CONTEXT* context, void* out, int* err) {
    if (context == nullptr || out == nullptr) return Answer(TOO_E_BAD_ARGUMENT, err);
    const RequestContextBlock& block = *RequestContextBlock::Of(context);
    switch (id) {
        case NAL_REQ_PROP_IDENTITY:
            *static_cast<IdentObj*>(out) = block.identity;
            return Answer(TOO_OK, err);
        case NAL_REQ_PROP_REQUEST:
            *static_cast<IdentObj*>(out) = block.request;
            return Answer(TOO_OK, err);
        case NAL_REQ_PROP_VALUE:
            *static_cast<DWORD*>(out) = block.dwValue;
            return Answer(TOO_OK, err);
        case NAL_REQ_PROP_HISTORY:
            return Answer(static_cast<CNALReqHistory*>(out)->SetByContext(context), err);
        case NAL_REQ_PROP_STATUS:
            *static_cast<DWORD*>(out) = block.dwStatus;
            return Answer(TOO_OK, err);
        case NAL_REQ_PROP_CERTIFICATE:
            // Not symmetric with 7 and 8 on purpose: a request has no certificate for most of its life.
            if (block.certificate.IsInitialized()) *static_cast<CNALCertContext*>(out) = block.certificate;
            return Answer(TOO_OK, err);
        case NAL_REQ_PROP_ISSUER:
            if (!block.issuer.IsInitialized()) return Answer(TOO_E_NOT_FOUND, err);
            *static_cast<CNALCertContext*>(out) = block.issuer;
            return Answer(TOO_OK, err);
        case NAL_REQ_PROP_CRL:
            if (!block.crl.IsInitialized()) return Answer(TOO_E_NOT_FOUND, err);
            *static_cast<CNALCRLContext*>(out) = block.crl;
            return Answer(TOO_OK, err);
        default:
            return Answer(TOO_E_BAD_ARGUMENT, err);
    }
}

BOOL NALSetReqProperties(unsigned /*id*/, const NAL_REQ_CONTEXT* /*context*/, const void* /*value*/, int* /*err*/) {
    return TRUE;
}
