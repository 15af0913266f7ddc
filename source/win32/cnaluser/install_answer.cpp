// Installing the certificate that came back for a request.
//
//   1  the certificate is verified
//   2  it is bound to its key
//   3  an external user's is kept in the storage of the year
//   4  it is taken out of the input storage
//   5  the request's status becomes 6
//
// Each step can be made again, so what a failure or a crash left between is put right by the next call: until the last step is made
// the status is 5.
#include <utility>

#include "frame/failure.h"
#include "nal/chain.h"
#include "nal/errors.h"
#include "nal/storage.h"
#include "nal/user.h"
#include "storage/cert_reader.h"
#include "too/file.h"
#include "too/folder.h"
#include "too/path.h"
#include "trust/transport_folder.h"

namespace {

constexpr char c_context[] = "PutCertificate ";
constexpr char c_function[] = "BOOL CNALUser::PutCertificate(const CERT_REQ_CONTEXT**, int*, CTOOString*)";

constexpr unsigned c_openFile = 0x10000;
constexpr unsigned c_makeFile = 0x12000;
constexpr unsigned c_externalInput = 128;  // kinds of the input storages
constexpr unsigned c_ownInput = 64;

[[noreturn]] void Fail(int status, const CTOOString& detail = CTOOString()) {
    throw XTOOStatus(status, c_context + detail);
}

/// The certificate that is to be installed. @throws XTOOStatus
CNALCertContext AnswerOf(const NAL_REQ_CONTEXT* request) {
    if (request == nullptr) Fail(TOO_E_BAD_ARGUMENT);
    if (request->dwStatus != NAL_REQ_STATUS_RECEIVED || request->pCertificate == nullptr) Fail(TOO_E_REQUEST_STATE);
    if (request->pStorage != nullptr) {
        // The context is a picture; another process may have gone on since.
        CNALReqHistory history;
        if (const int status = history.SetByContext(request); status != TOO_OK) Fail(status);
        if (history.GetCurrentStatus().m_status != NAL_REQ_STATUS_RECEIVED) Fail(TOO_E_REQUEST_STATE);
    }
    return CNALCertContext(request->pCertificate);
}

/// A certificate may be installed before it is valid, and while nobody knows whether it was revoked.
void Verify(const CNALCertContext& cert) {
    CERT_TRUST_STATUS trust{};
    if (!NALVerifyCertificate(cert, trust)) Fail(TOO_E_REQUEST_STATE);
    DWORD errors = trust.dwErrorStatus & ~static_cast<DWORD>(CERT_TRUST_REVOCATION_STATUS_UNKNOWN);
    if (CTOOFileTime::Now() < nal::ValidityOf(*cert.GetContext()).notBefore) errors &= ~static_cast<DWORD>(CERT_TRUST_IS_NOT_TIME_VALID);
    if (errors != 0) Fail(TOO_E_REQUEST_STATE, NALGetCertTotalBitMaskExplaination(errors));
}

CNALCertStorage OpenStore(const CTOOString& path, unsigned flags, unsigned kind) {
    CNALString name(path);
    CNALCertStorage storage(name, CERT_STORE_PROV_FILENAME_A, flags, kind, nullptr);
    if (!storage.IsOpened()) Fail(nal::LastErrorStatus(), path);
    return storage;
}

void KeepExternal(const CNALCertContext& cert, const CTOOString& station) {
    SYSTEMTIME now{};
    GetSystemTime(&now);
    const CTOOString folder = storedev::MakeFullPath(station, "e_users");
    CTOOFolder::MakeFolder(folder);
    const CTOOString path = storedev::MakeFullPath(folder, std::to_string(now.wYear) + "_extu.cer");
    CNALCertStorage storage = OpenStore(path, CTOOFile::Exists(path) ? c_openFile : c_makeFile, 0);
    if (!storage.AddCertificate(cert)) Fail(nal::LastErrorStatus(), path);
}

void TakeOutOfInput(const CNALCertContext& cert, const CTOOString& station, bool isExternal) {
    const CTOOString path =
        storedev::MakeFullPath(storedev::MakeFullPath(station, "tmp"), isExternal ? "ext_input.cer" : "own_input.cer");
    if (!CTOOFile::Exists(path)) return;
    CNALCertStorage storage = OpenStore(path, c_openFile, isExternal ? c_externalInput : c_ownInput);
    CNALCertContext found = CNALCertContext::Adopt(
        CertFindCertificateInStore(storage.GetStore(), 0x10001, 0, CERT_FIND_EXISTING, cert.GetContext(), nullptr));
    // It is found by its key identifier: another certificate for the key is not ours to delete.
    if (!found.IsInitialized() || found != cert) return;
    if (!storage.DeleteCertificate(found)) Fail(nal::LastErrorStatus(), path);
}

void SetInstalled(const NAL_REQ_CONTEXT** request) {
    if ((*request)->pStorage == nullptr) {  // a certificate that came without a request of ours
        NAL_REQ_CONTEXT installed = **request;
        installed.dwStatus = NAL_REQ_STATUS_INSTALLED;
        installed.rgTime[NAL_REQ_TIME_INSTALLED] = CTOOFileTime::Now().GetTicks();
        const CNALCertReqContext old(std::exchange(*request, NALCreateReqContext(installed)));
    } else if (!NALChangeContextStatus(request, NAL_REQ_STATUS_INSTALLED, FILETIME{0, 0}, nullptr)) {
        Fail(static_cast<int>(GetLastError()));  // a status already
    }
}

}  // namespace

BOOL CNALUser::PutCertificate(const NAL_REQ_CONTEXT** req, int* err, CTOOString* msg) {
    return nal::Report(err, msg, [&] {
        const CNALCertContext cert = AnswerOf(req != nullptr ? *req : nullptr);
        if (m_provider.GetProviderHandle() == 0) Fail(TOO_E_NOT_INITIALIZED);
        Verify(cert);
        Bind(cert, c_function, c_context);
        const bool isExternal = (*req)->dwRequestType == NAL_REQ_TYPE_EXTERNAL;
        const CTOOString station = nal::StationFolder(nal::CurrentTransportFolder());
        if (isExternal) KeepExternal(cert, station);
        TakeOutOfInput(cert, station, isExternal);
        SetInstalled(req);
    });
}
