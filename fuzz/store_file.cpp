// Store files from outside: the input is a file, opened, walked and changed as a program would. A file whose verification passes
// must do no harm. See tests/certstorage/damaged_file_test.cpp for the same with processes.
#include <cstdint>

#include "fuzz/input_file.h"
#include "nal/wincrypt.h"

// Berkeley DB's verification does not free its map of a page (4 bytes for each byte of the page) whose index it refuses. The tests
// look for leaks of our own.
extern "C" const char* __lsan_default_suppressions() { return "leak:libdb-5.3"; }

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 1U << 20) return 0;
    const nal_fuzz::InputFile file(data, size);
    HCERTSTORE store = CertOpenStore(CERT_STORE_PROV_FILENAME_A, 0x10001, 0, 0, file.Path().c_str());
    if (store == nullptr) return 0;

    PCCERT_CONTEXT certificate = nullptr;
    PCCERT_CONTEXT last = nullptr;
    while ((certificate = CertEnumCertificatesInStore(store, certificate)) != nullptr) {
        alignas(8) unsigned char info[512];
        DWORD infoSize = sizeof info;
        CertGetCertificateContextProperty(certificate, CERT_KEY_PROV_INFO_PROP_ID, info, &infoSize);
        CertFreeCertificateContext(last);
        last = CertDuplicateCertificateContext(certificate);
    }
    PCCRL_CONTEXT crl = nullptr;
    while ((crl = CertGetCRLFromStore(store, nullptr, crl, nullptr)) != nullptr) continue;

    if (last != nullptr) {
        CertAddEncodedCertificateToStore(store, 0x10001, last->pbCertEncoded, last->cbCertEncoded,
                                         CERT_STORE_ADD_REPLACE_EXISTING_INHERIT_PROPERTIES, nullptr);
        CertDeleteCertificateFromStore(last);
    }
    CertCloseStore(store, 0);
    return 0;
}
