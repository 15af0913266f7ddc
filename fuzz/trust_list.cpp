// Lists that the network delivers: as unsigned lists, from which a storage is made and searched, and as trust lists, of which none
// may be accepted here, since there is no root.
#include <cstdint>
#include <cstdlib>

#include "nal/signed_data.h"
#include "nal/storage.h"
#include "too/status.h"
#include "trust/list_file.h"
#include "trust/trust_list.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const IdentObj message(data, static_cast<unsigned>(size));
    try {
        CNALSignData list;
        list.ReadObject(message.GetData(), message.GetSize(), nullptr);
        const CNALCertStorage storage = nal::MakeStorage(list.certificates, list.crls, "list");
        std::list<CNALCertContext> found;
        storage.FindCertList(found, CERT_FIND_ANY, nullptr);
        for (const CNALCertContext& cert : found) {
            CNALCertContext issuer;
            unsigned flags = CERT_STORE_TIME_VALIDITY_FLAG | CERT_STORE_REVOCATION_FLAG;
            storage.FindIssuerCertificate(cert, issuer, &flags, nullptr);
        }
    } catch (const XTOOStatus&) {
    }
    try {
        CNALString name;
        const CNALCertStorage roots(name, CERT_STORE_PROV_MEMORY, 0, 0, nullptr);
        nal::CheckTrustList(message, roots, nal::TrustCheck::Kept);
        std::abort();
    } catch (const XTOOStatus&) {
    }
    return 0;
}
