// What the tests of the store share: keys, certificates, owning handles.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "certstorage/record_key.h"
#include "nal/wincrypt.h"
#include "support/cert_builder.h"

namespace nal_test {

/// An identifier that begins with `first` and is zero else.
inline nal::KeyIdentifier Identifier(unsigned char first, unsigned char last = 0) {
    nal::KeyIdentifier identifier{};
    identifier.front() = first;
    identifier.back() = last;
    return identifier;
}

inline nal::CrlSerial Serial(unsigned char first) {
    nal::CrlSerial serial{};
    serial.front() = first;
    return serial;
}

inline asnt::View AsView(const std::string& text) { return {text.data(), text.size()}; }
inline std::string Text(asnt::View bytes) { return {bytes.begin(), bytes.end()}; }

struct StoreCloser {
    void operator()(void* store) const { CertCloseStore(store, 0); }
};
using StorePtr = std::unique_ptr<void, StoreCloser>;

struct ContextFreer {
    void operator()(PCCERT_CONTEXT context) const { CertFreeCertificateContext(context); }
    void operator()(PCCRL_CONTEXT context) const { CertFreeCRLContext(context); }
};
using CertPtr = std::unique_ptr<const CERT_CONTEXT, ContextFreer>;
using CrlPtr = std::unique_ptr<const CRL_CONTEXT, ContextFreer>;

inline constexpr DWORD kEncoding = 0x10001;

inline StorePtr OpenMemory() { return StorePtr(CertOpenStore(CERT_STORE_PROV_MEMORY, kEncoding, 0, 0, nullptr)); }
inline StorePtr OpenFile(const std::string& path) {
    return StorePtr(CertOpenStore(CERT_STORE_PROV_FILENAME_A, kEncoding, 0, 0, path.c_str()));
}

inline BOOL AddEncoded(const StorePtr& store, const IdentObj& der, DWORD disposition, PCCERT_CONTEXT* context = nullptr) {
    return CertAddEncodedCertificateToStore(store.get(), kEncoding, der.GetData(), der.GetSize(), disposition, context);
}

inline CertPtr MakeCert(const IdentObj& der) {
    return CertPtr(CertCreateCertificateContext(kEncoding, der.GetData(), der.GetSize()));
}

inline std::string EncodingOf(PCCERT_CONTEXT context) { return Text({context->pbCertEncoded, context->cbCertEncoded}); }
inline std::string TextOf(const IdentObj& bytes) { return Text(bytes); }
inline CRYPTOAPI_BLOB Blob(const IdentObj& bytes) { return {bytes.GetSize(), const_cast<BYTE*>(bytes.GetData())}; }

/// The encodings of all certificates of the store, in its order.
inline std::vector<std::string> Certificates(const StorePtr& store) {
    std::vector<std::string> all;
    PCCERT_CONTEXT context = nullptr;
    while ((context = CertEnumCertificatesInStore(store.get(), context)) != nullptr) all.push_back(EncodingOf(context));
    return all;
}

}  // namespace nal_test
