// The intake of the key centre's answers.
#include <list>
#include <utility>

#include "frame/failure.h"
#include "nal/certificate.h"
#include "nal/request_context.h"
#include "nal/storage.h"
#include "requests/request_folder.h"
#include "requests/request_lookup.h"
#include "storage/cert_reader.h"
#include "too/file.h"
#include "too/path.h"
#include "trust/transport_folder.h"

namespace {

/// One file of answers against the request storages of its kind.
class Intake {
public:
    Intake(CTOOString path, std::list<CNALAnswerReport>& reports) : m_path(std::move(path)), m_reports(reports) {}

    void Run(const std::list<CTOOString>& storages) {
        if (!CTOOFile::Exists(m_path)) return;
        CNALString name(m_path);
        const CNALCertStorage answers(name, CERT_STORE_PROV_FILENAME_A, 0x10000, 0, nullptr);
        std::list<CNALCertContext> certs;
        if (!answers.IsOpened() || (!answers.FindCertList(certs, CERT_FIND_ANY, nullptr) && GetLastError() != NAL_STORE_E_NOT_FOUND)) {
            Report({}, nal::LastErrorStatus(), false, "the file cannot be read as a store of certificates");
            return;
        }
        for (const CNALCertContext& cert : certs) {
            if (!IsIssuer(cert, certs)) Take(cert, answers, storages);
        }
    }

private:
    void Report(const IdentObj& serial, int status, bool isNew, const char* text) {
        CNALAnswerReport report;
        report.m_file = m_path;
        report.m_serial = serial;
        report.m_status = status;
        report.m_isNew = isNew;
        if (status != TOO_OK) report.m_text = m_path + ": " + text;
        m_reports.push_back(report);
    }

    /// Whether a certificate is in the file for another's sake.
    static bool IsIssuer(const CNALCertContext& cert, const std::list<CNALCertContext>& certs) {
        // A CA's certificate stays when the last answer that it signed was taken out: nobody asks for one in this way.
        if (cert.GetCertificateType() != NAL_CERT_TYPE_END) return true;
        const asnt::View subject = nal::SubjectNameOf(*cert.GetContext());
        for (const CNALCertContext& other : certs) {
            if (nal::IssuerNameOf(*other.GetContext()) == subject && other.IsValidSignature(cert)) return true;
        }
        return false;
    }

    void Take(const CNALCertContext& cert, const CNALCertStorage& answers, const std::list<CTOOString>& storages) {
        const IdentObj serial = nal::SerialOf(*cert.GetContext());
        int status = TOO_E_NOT_FOUND;
        CTOOString text = "a certificate for a key that nobody asked for";
        for (const CTOOString& path : storages) {
            try {
                const nal::OpenRequestStorage storage(path);
                CNALCertReqContext request = nal::FindRequestFor(storage.Get(), nal::PublicKeyOf(*cert.GetContext()).WriteData());
                if (!request) continue;
                Bind(storage.Get(), request, cert, answers, serial);
                return;
            } catch (const XTOOStatus& failure) {
                // A storage that cannot be read does not hide the requests in the others.
                status = failure.GetCode();
                text = failure.what();
            }
        }
        Report(serial, status, false, text.c_str());
    }

    void Bind(CNALReqContextStorage& storage, CNALCertReqContext& request, const CNALCertContext& cert, const CNALCertStorage& answers,
              const IdentObj& serial) {
        const bool hasCertificate = request->dwStatus == NAL_REQ_STATUS_RECEIVED || request->dwStatus == NAL_REQ_STATUS_INSTALLED;
        if (hasCertificate && request->pCertificate != nullptr) {
            const bool isSame = CNALCertContext(request->pCertificate) == cert;
            Report(serial, isSame ? TOO_OK : TOO_E_REQUEST_STATE, false, "the request has another certificate already");
            return;
        }
        CNALCertContext issuer;
        CNALCRLContext crl;
        unsigned flags = CERT_STORE_SIGNATURE_FLAG;
        if (!answers.FindIssuerCertificate(cert, issuer, &flags, &crl) || (flags & CERT_STORE_SIGNATURE_FLAG) != 0) {
            Report(serial, TOO_E_BAD_SIGNATURE, false, "no certificate beside it signed the answer");
            return;
        }
        if (!crl.IsInitialized()) answers.GetCrlFromStorage(issuer, crl);
        // A reference of its own, which SetAnswer exchanges for one to the new context, or leaves as it is when it throws.
        struct Moving {
            const NAL_REQ_CONTEXT* context;
            ~Moving() { NALCloseReqContext(context); }
        } moving{NALDuplicateReqContext(request.Get())};
        storage.SetAnswer(&moving.context, cert, issuer, crl, NAL_REQ_STATUS_RECEIVED, FILETIME{0, 0});
        Report(serial, TOO_OK, true, "");
    }

    const CTOOString m_path;
    std::list<CNALAnswerReport>& m_reports;
};

}  // namespace

BOOL NALTakeAnswers(const CTOOString& transportFolder, std::list<CNALAnswerReport>* reports, int* err, CTOOString* msg) {
    nal::Outcome outcome;
    std::list<CNALAnswerReport> found;
    try {
        const CTOOString folder = storedev::MakeFullPath(nal::StationFolder(transportFolder), "tmp");
        Intake(storedev::MakeFullPath(folder, "ext_input.cer"), found)
            .Run(nal::ListRequestStorages(transportFolder, nal::RequestKind::External));
        Intake(storedev::MakeFullPath(folder, "own_input.cer"), found)
            .Run(nal::ListRequestStorages(transportFolder, nal::RequestKind::Own));
    } catch (const XTOOStatus& status) {
        outcome.Fail(status);
    }
    for (const CNALAnswerReport& report : found) {
        if (outcome.IsOk() && report.m_status != TOO_OK) outcome.Fail(report.m_status, report.m_text);
    }
    if (reports != nullptr) *reports = std::move(found);
    return outcome.Finish(err, msg);
}
