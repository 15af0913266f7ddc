// Certificates beside the keys of a container: binding and listing them.
#include <utility>

#include "frame/failure.h"
#include "frame/log.h"
#include "nal/user.h"
#include "ork/csp.h"
#include "storage/cert_reader.h"
#include "win32/cnaluser/container_change.h"
#include "win32/cnaluser/container_entries.h"

namespace {

constexpr char c_putContext[] = "CNALUser::PutCertificate";
constexpr char c_listContext[] = "CNALUser::GetCertificateList";
constexpr char c_findContext[] = "CNALUser::FindCertificate";

constexpr char c_putFunction[] = "BOOL CNALUser::PutCertificate(const CNALCertContext&, int*, CTOOString*)";

}  // namespace

// Both forms of PutCertificate come here; the record about an entry that does not open names the one that was called.
void CNALUser::Bind(const CNALCertContext& cert, const char* function, const char* failureText) {
    constexpr int line = 877;
    const IdentObj publicKey = nal::PublicKeyOf(*cert.GetContext()).m_publicKey.m_data;
    const auto lock = m_provider.Lock();
    const nal::ContainerChange change(m_provider);
    const unsigned long provider = m_provider.GetProviderHandle();
    nal::EntryWalk walk(provider, failureText);
    int refused = TOO_OK;
    while (walk.Next()) {
        const nal::KeyHandle key = walk.OpenKey();
        if (!key) {
            refused = nal::LastErrorStatus();
            nal::LogError({function, "PutCertificate", "source/win32/cnaluser", line},
                          walk.Name() + " Code: " + std::to_string(refused));
            continue;
        }
        if (nal::PublicBitsOf(provider, key.Get(), failureText) != publicKey) continue;
        const CERT_CONTEXT& context = *cert.GetContext();
        nal::RequireDone(
            ORKSetKeyParam(key.Get(), ORK_KEY_PARAM_CERTIFICATE, IdentObj(context.pbCertEncoded, context.cbCertEncoded)), failureText);
        return;
    }
    // With a wrong password no key opens: what the caller has to know is in the text.
    const CTOOString detail = refused == TOO_OK ? CTOOString() : CTOOString(" (") + TOOGetStatusText(refused) + ")";
    throw XTOOStatus(TOO_E_KEY_NOT_FOUND, failureText + detail);
}

BOOL CNALUser::PutCertificate(const CNALCertContext& cert, int* err, CTOOString* msg) {
    return nal::Report(err, msg, [&] {
        if (!cert.IsInitialized()) throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_putContext);
        if (m_provider.GetProviderHandle() == 0) throw XTOOStatus(TOO_E_NOT_INITIALIZED, c_putContext);
        Bind(cert, c_putFunction, c_putContext);
    });
}

bool CNALUser::FindCertificate(CNALCertContext& out) const {
    if (m_provider.GetProviderHandle() == 0) return false;
    const auto lock = m_provider.Lock();
    nal::EntryWalk walk(m_provider.GetProviderHandle(), c_findContext);
    try {
        while (walk.Next()) {
            CNALUserKeyInfo key = walk.Read(m_pin);
            if (!key.m_certificate.IsInitialized()) continue;
            out = std::move(key.m_certificate);
            return true;
        }
    } catch (const XTOOStatus& status) {
        nal::LogError(NAL_HERE("source/win32/cnaluser"), status.what());
    }
    return false;
}

BOOL CNALUser::GetCertificateList(std::list<CNALCertContext>& out, int* err, CTOOString* msg) const {
    out.clear();
    return nal::Report(err, msg, [&] {
        if (m_provider.GetProviderHandle() == 0) throw XTOOStatus(TOO_E_NOT_INITIALIZED, c_listContext);
        for (CNALUserKeyInfo& key : nal::ReadEntries(m_provider, m_pin, c_listContext)) {
            if (key.m_certificate.IsInitialized()) out.push_back(std::move(key.m_certificate));
        }
    });
}
