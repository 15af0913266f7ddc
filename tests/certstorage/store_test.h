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
inline constexpr DWORD kUntouched = 0xABCD;  // a last error that nothing sets
inline constexpr DWORD kBadArgument = 0x80070057;
inline constexpr DWORD kNotFound = 0x80092004;
inline constexpr DWORD kPresent = 0x80092005;
inline constexpr DWORD kNotSupported = 230;

/// The last error of a call that must fail, kUntouched when it sets none.
template <class Call>
DWORD ErrorOf(Call&& call) {
    SetLastError(kUntouched);
    EXPECT_FALSE(static_cast<bool>(call()));
    return GetLastError();
}

inline StorePtr OpenMemory() { return StorePtr(CertOpenStore(CERT_STORE_PROV_MEMORY, kEncoding, 0, 0, nullptr)); }
inline StorePtr OpenFile(const std::string& path) {
    return StorePtr(CertOpenStore(CERT_STORE_PROV_FILENAME_A, kEncoding, 0, 0, path.c_str()));
}

inline BOOL AddEncoded(const StorePtr& store, const IdentObj& der, DWORD disposition, PCCERT_CONTEXT* context = nullptr) {
    return CertAddEncodedCertificateToStore(store.get(), kEncoding, der.GetData(), der.GetSize(), disposition, context);
}
inline BOOL AddCrl(const StorePtr& store, const IdentObj& der, DWORD disposition, PCCRL_CONTEXT* context = nullptr) {
    return CertAddEncodedCRLToStore(store.get(), kEncoding, der.GetData(), der.GetSize(), disposition, context);
}
/// A certificate that is new to the store, in its context there.
inline CertPtr Added(const StorePtr& store, const IdentObj& der = CertBuilder().Build()) {
    PCCERT_CONTEXT context = nullptr;
    EXPECT_TRUE(AddEncoded(store, der, 1, &context));
    return CertPtr(context);
}
inline CrlPtr AddedCrl(const StorePtr& store, const IdentObj& der = CrlBuilder().Build()) {
    PCCRL_CONTEXT context = nullptr;
    EXPECT_TRUE(AddCrl(store, der, 1, &context));
    return CrlPtr(context);
}

inline CertPtr MakeCert(const IdentObj& der) { return CertPtr(CertCreateCertificateContext(kEncoding, der.GetData(), der.GetSize())); }
inline CrlPtr MakeCrl(const IdentObj& der) { return CrlPtr(CertCreateCRLContext(kEncoding, der.GetData(), der.GetSize())); }

inline std::string EncodingOf(PCCERT_CONTEXT context) { return Text({context->pbCertEncoded, context->cbCertEncoded}); }
inline std::string EncodingOf(PCCRL_CONTEXT context) { return Text({context->pbCrlEncoded, context->cbCrlEncoded}); }
inline std::string TextOf(const IdentObj& bytes) { return Text(bytes); }
inline CRYPTOAPI_BLOB Blob(const IdentObj& bytes) { return {bytes.GetSize(), const_cast<BYTE*>(bytes.GetData())}; }
inline BOOL SetProperty(const CertPtr& context, DWORD id, const IdentObj& value) {
    const CRYPT_DATA_BLOB blob = Blob(value);
    return CertSetCertificateContextProperty(context.get(), id, 0, &blob);
}
inline BOOL SetProperty(const CrlPtr& context, DWORD id, const IdentObj& value) {
    const CRYPT_DATA_BLOB blob = Blob(value);
    return CertSetCRLContextProperty(context.get(), id, 0, &blob);
}

/// The encodings of all certificates of the store, in its order.
inline std::vector<std::string> Certificates(const StorePtr& store) {
    std::vector<std::string> all;
    PCCERT_CONTEXT context = nullptr;
    while ((context = CertEnumCertificatesInStore(store.get(), context)) != nullptr) all.push_back(EncodingOf(context));
    return all;
}

/// A store with so many certificates, each with a key spec, and a CRL; closed again.
inline void FillStore(const std::string& path, unsigned certificates) {
    const StorePtr store = OpenFile(path);
    CertBuilder builder;
    for (unsigned i = 1; i <= certificates; ++i) {
        builder.subjectKeyId = Filled(static_cast<unsigned char>(i));
        builder.subject = "Subject " + std::to_string(i);
        const DWORD spec = AT_SIGNATURE;
        EXPECT_TRUE(CertSetCertificateContextProperty(Added(store, builder.Build()).get(), CERT_KEY_SPEC_PROP_ID, 0, &spec));
    }
    AddedCrl(store);
}

/// One row of the rules of an addition.
struct AddCase {
    DWORD disposition;
    const char* first;  // "": nothing there; "older", "same", "newer" than the new one: what is there, with a property
    DWORD error;        // 0: it succeeds and sets none; kUntouched: it fails and sets none
    const char* left;   // F what was first, N the new one, each followed by its properties
};

}  // namespace nal_test
