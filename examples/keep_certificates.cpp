// Keeps certificates and CRLs in a store file, lists them, and tells which are revoked: keep_certificates STORE [FILE...]
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "nal/nal.h"

namespace {

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

std::string Text(const CERT_NAME_BLOB& name) {
    std::wstring text;
    CNALX509Name(IdentObj(name.pbData, name.cbData)).GetX500String(text, 0);
    return CNALString(text).ToBytes().str();
}

/// A certificate, or else a CRL. A store keeps a CRL by its issuer's key identifier and its number: NALCheckCRLKey refuses
/// with an error what has neither, before the store sees it.
void Add(HCERTSTORE store, const char* path) {
    std::ifstream file(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)), {});
    const auto* der = reinterpret_cast<const BYTE*>(bytes.data());
    const auto size = static_cast<DWORD>(bytes.size());

    if (CertAddEncodedCertificateToStore(store, kEncoding, der, size, CERT_STORE_ADD_NEW, nullptr)) {
        std::cout << path << ": certificate added\n";
        return;
    }
    if (GetLastError() == NAL_STORE_E_EXISTS) {
        std::cout << path << ": certificate was there already\n";
        return;
    }
    try {
        CNAL_CRL_List crl;
        crl.ReadData(der, size);
        NALCheckCRLKey(crl.m_info);
        const bool added = CertAddEncodedCRLToStore(store, kEncoding, der, size, CERT_STORE_ADD_ALWAYS, nullptr);
        std::cout << path << (added ? ": CRL added\n" : ": CRL not added\n");
    } catch (const XTOOStatus& status) {
        std::cout << path << ": neither a certificate nor a CRL that a store can keep: " << status.what() << "\n";
    }
}

/// Whether any CRL in the store that its issuer's key identifier leads to lists the certificate.
bool IsRevoked(HCERTSTORE store, PCCERT_CONTEXT certificate) {
    PCCERT_CONTEXT issuer =
        CertFindCertificateInStore(store, kEncoding, 0, CERT_FIND_SUBJECT_NAME, &certificate->pCertInfo->Issuer, nullptr);
    if (!issuer) return false;
    bool revoked = false;
    PCCRL_CONTEXT crl = nullptr;
    while (!revoked && (crl = CertGetCRLFromStore(store, issuer, crl, nullptr))) {
        PCRL_ENTRY entry = nullptr;
        revoked = CertFindCertificateInCRL(certificate, crl, 0, nullptr, &entry);
    }
    CertFreeCRLContext(crl);
    CertFreeCertificateContext(issuer);
    return revoked;
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc < 2) {
        std::cerr << "keep_certificates STORE [FILE...]: adds DER files to a store and lists it\n";
        return 2;
    }
    HCERTSTORE store = CertOpenStore(CERT_STORE_PROV_FILENAME_A, kEncoding, 0, 0, argv[1]);
    if (!store) {
        std::cerr << argv[1] << ": cannot be opened as a store (" << GetLastError() << ")\n";
        return 1;
    }
    for (int i = 2; i < argc; ++i) Add(store, argv[i]);

    // The listing has a store object of its own: IsRevoked walks the first one, and a walk's position belongs to its store.
    HCERTSTORE listed = CertOpenStore(CERT_STORE_PROV_FILENAME_A, kEncoding, 0, 0, argv[1]);
    for (PCCERT_CONTEXT certificate = nullptr; (certificate = CertEnumCertificatesInStore(listed, certificate));) {
        std::cout << "  " << Text(certificate->pCertInfo->Subject) << (IsRevoked(store, certificate) ? "  (revoked)" : "")
                  << "\n";
    }
    CertCloseStore(listed, 0);
    CertCloseStore(store, 0);
    return 0;
} catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
}
