// CRL contexts in stores through the exported functions.
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "certstorage/crl_context.h"
#include "certstorage/store_test.h"
#include "support/temp_folder.h"
#include "too/status.h"

namespace {

using namespace nal_test;

constexpr DWORD kUntouched = 0xABCD;
constexpr DWORD kBadArgument = 0x80070057;
constexpr DWORD kNotFound = 0x80092004;
constexpr DWORD kPresent = 0x80092005;

IdentObj Crl(unsigned char issuer, unsigned char number, unsigned year = 2021) {
    CrlBuilder builder;
    builder.authorityKeyId = Filled(issuer);
    builder.number = Filled(number, 16);
    builder.thisUpdate = Date(year);
    return builder.Build();
}

CrlPtr MakeCrl(const IdentObj& der) { return CrlPtr(CertCreateCRLContext(kEncoding, der.GetData(), der.GetSize())); }

BOOL AddCrl(const StorePtr& store, const IdentObj& der, DWORD disposition, PCCRL_CONTEXT* context = nullptr) {
    return CertAddEncodedCRLToStore(store.get(), kEncoding, der.GetData(), der.GetSize(), disposition, context);
}

std::string EncodingOf(PCCRL_CONTEXT context) { return Text({context->pbCrlEncoded, context->cbCrlEncoded}); }

std::vector<std::string> Crls(const StorePtr& store, PCCERT_CONTEXT issuer = nullptr) {
    std::vector<std::string> all;
    PCCRL_CONTEXT context = nullptr;
    while ((context = CertGetCRLFromStore(store.get(), issuer, context, nullptr)) != nullptr) {
        all.push_back(EncodingOf(context));
        if (all.size() > 100) break;
    }
    CertFreeCRLContext(context);
    return all;
}

// A CRL with property 4 in it.
void PutFirst(const StorePtr& store, const IdentObj& der) {
    PCCRL_CONTEXT context = nullptr;
    ASSERT_TRUE(AddCrl(store, der, 1, &context));
    const CrlPtr owner(context);
    const IdentObj value = Filled(4, 4);
    const CRYPT_DATA_BLOB blob = Blob(value);
    ASSERT_TRUE(CertSetCRLContextProperty(context, 4, 0, &blob));
}

TEST(CrlContext, DescribesTheCrl) {
    CrlBuilder builder;
    builder.number = IdentObj("\x00\x81\x02\x03\x04\x05\x06\x07\x08\x09\x0A\x0B\x0C\x0D\x0E\x0F\x10", 17);
    builder.entries = {{IdentObj("\x01\x02", 2), Date(2021)}, {IdentObj("\x00\xF0", 2), Date(2022)}};
    builder.extensions.push_back({"2.5.29.99", true, IdentObj("\x05\x00", 2)});
    const IdentObj der = builder.Build();
    const CrlPtr context = MakeCrl(der);
    EXPECT_EQ(kEncoding, context->dwCertEncodingType);
    EXPECT_EQ(TextOf(der), EncodingOf(context.get()));
    EXPECT_EQ(nullptr, context->hCertStore);
    const CRL_INFO& info = *context->pCrlInfo;
    EXPECT_EQ(1U, info.dwVersion);
    EXPECT_STREQ("1.2.643.2.2.3", info.SignatureAlgorithm.pszObjId);
    EXPECT_EQ(TextOf(NameDer("Issuer")), Text(nal::ViewOf(info.Issuer)));
    EXPECT_EQ(0, std::memcmp(&builder.thisUpdate, &info.ThisUpdate, sizeof(FILETIME)));
    EXPECT_EQ(0, std::memcmp(&*builder.nextUpdate, &info.NextUpdate, sizeof(FILETIME)));
    ASSERT_EQ(2U, info.cCRLEntry);
    EXPECT_EQ("\x02\x01", Text(nal::ViewOf(info.rgCRLEntry[0].SerialNumber)));
    EXPECT_EQ(std::string("\xF0\x00", 2), Text(nal::ViewOf(info.rgCRLEntry[1].SerialNumber)));
    EXPECT_EQ(0U, info.rgCRLEntry[0].cExtension);
    ASSERT_EQ(3U, info.cExtension);
    EXPECT_STREQ("2.5.29.99", info.rgExtension[2].pszObjId);
    EXPECT_TRUE(info.rgExtension[2].fCritical);

    // A number of 17 octets whose first is a zero sign octet has 16 bytes.
    const nal::CrlKey& key = nal::CrlContext::From(context.get())->Key();
    EXPECT_EQ(0x10, key.crlSerial.front());
    EXPECT_EQ(0x81, key.crlSerial.back());
}

TEST(CrlContext, BytesThatAreNoCrl) {
    CrlBuilder keyless;
    keyless.authorityKeyId.reset();
    IdentObj cut = Crl(1, 1);
    cut.SetSize(cut.GetSize() - 1);
    IdentObj trailing = Crl(1, 1);
    trailing.Append("", 1);
    const struct {
        const char* name;
        IdentObj der;
        DWORD lastError;
    } cases[] = {{"a byte", IdentObj("x", 1), kBadArgument},
                 {"cut", cut, kBadArgument},
                 {"something behind", trailing, kBadArgument},
                 {"a certificate", CertBuilder().Build(), kBadArgument},
                 {"without an authority key identifier", keyless.Build(), kUntouched}};
    const StorePtr store = OpenMemory();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_THROW(MakeCrl(c.der), XTOOStatus);
        SetLastError(kUntouched);
        EXPECT_FALSE(AddCrl(store, c.der, 4));
        EXPECT_EQ(c.lastError, GetLastError());
    }
    EXPECT_TRUE(Crls(store).empty());
    EXPECT_THROW(CertCreateCRLContext(kEncoding, nullptr, 3), std::invalid_argument);
}

TEST(CrlContextDeathTest, AbortsForKeysOfAnotherSize) {
    CrlBuilder longIssuer;
    longIssuer.authorityKeyId = Filled(1, 21);
    CrlBuilder noNumber;
    noNumber.number.reset();
    CrlBuilder longNumber;
    longNumber.number = Filled(1, 17);
    const StorePtr store = OpenMemory();
    EXPECT_DEATH(MakeCrl(longIssuer.Build()), "sizeof\\(m_issuerID\\) == issuerKeyID.cbData");
    EXPECT_DEATH(MakeCrl(noNumber.Build()), "sizeof\\(m_crlSerial\\) == crlSerial.cbData");
    EXPECT_DEATH(MakeCrl(longNumber.Build()), "sizeof\\(m_crlSerial\\) == crlSerial.cbData");
    EXPECT_DEATH(AddCrl(store, longIssuer.Build(), 4), "issuerKeyID.cbData == CERTIDSIZE");
    EXPECT_DEATH(AddCrl(store, noNumber.Build(), 4), "crlSerial.cbData == CRLSERSIZE");
}

TEST(CrlStore, NullsFailCleanly) {
    const StorePtr store = OpenMemory();
    const CrlPtr loose = MakeCrl(Crl(1, 1));
    const IdentObj value = Filled(1);
    const CRYPT_DATA_BLOB blob = Blob(value);
    DWORD size = 0;
    EXPECT_FALSE(CertFreeCRLContext(nullptr));
    EXPECT_EQ(nullptr, CertDuplicateCRLContext(nullptr));
    EXPECT_FALSE(CertDeleteCRLFromStore(nullptr));
    EXPECT_FALSE(CertDeleteCRLFromStore(CertDuplicateCRLContext(loose.get()))) << "no store to delete from";
    EXPECT_FALSE(CertSetCRLContextProperty(nullptr, 3, 0, &blob));
    EXPECT_FALSE(CertSetCRLContextProperty(loose.get(), 3, 0, &blob)) << "no store";
    EXPECT_FALSE(CertGetCRLContextProperty(nullptr, 3, nullptr, &size));
    EXPECT_FALSE(CertGetCRLContextProperty(loose.get(), 3, nullptr, &size));
    SetLastError(0);
    EXPECT_EQ(0U, CertEnumCRLContextProperties(loose.get(), 0));
    EXPECT_EQ(230U, GetLastError());
    EXPECT_EQ(nullptr, CertGetCRLFromStore(nullptr, nullptr, CertDuplicateCRLContext(loose.get()), nullptr));
    EXPECT_EQ(kBadArgument, GetLastError());
    for (const bool noStore : {true, false}) {
        SetLastError(0);
        EXPECT_FALSE(CertAddCRLContextToStore(noStore ? nullptr : store.get(), noStore ? loose.get() : nullptr, 1, nullptr));
        EXPECT_EQ(kBadArgument, GetLastError());
        SetLastError(0);
        EXPECT_FALSE(CertAddEncodedCRLToStore(noStore ? nullptr : store.get(), kEncoding, noStore ? value.GetData() : nullptr, 20, 1,
                                              nullptr));
        EXPECT_EQ(kBadArgument, GetLastError());
    }
    EXPECT_EQ(EINVAL, nal::CrlContext::From(loose.get())->storeProperties(nullptr));
}

struct AddCase {
    DWORD disposition;
    const char* first;  // "": nothing there; "older", "same", "newer": what is there, with property 4
    bool succeeds;
    DWORD lastError;
    const char* left;  // F the first CRL, N the new one; 3 and 4 the properties
};

unsigned YearOf(const std::string& first) { return first == "older" ? 2019 : first == "same" ? 2021 : 2023; }

std::string Left(const StorePtr& store, const IdentObj& first, const IdentObj& added) {
    std::string left;
    PCCRL_CONTEXT context = nullptr;
    while ((context = CertGetCRLFromStore(store.get(), nullptr, context, nullptr)) != nullptr) {
        left += EncodingOf(context) == TextOf(added) ? "N" : EncodingOf(context) == TextOf(first) ? "F" : "?";
        for (DWORD id : {3U, 4U}) {
            DWORD size = 0;
            if (CertGetCRLContextProperty(context, id, nullptr, &size)) left += std::to_string(id);
        }
    }
    return left;
}

// `add` adds the new CRL, whose own context (where there is one) was built with property 3.
void CheckDispositions(const std::vector<AddCase>& cases,
                       BOOL (*add)(const StorePtr& store, const IdentObj& der, DWORD disposition, PCCRL_CONTEXT* context)) {
    for (const AddCase& c : cases) {
        SCOPED_TRACE(std::to_string(c.disposition) + " " + c.first);
        const StorePtr store = OpenMemory();
        const IdentObj first = Crl(5, 5, YearOf(c.first));
        CrlBuilder builder;
        builder.authorityKeyId = Filled(5);
        builder.number = Filled(5, 16);
        builder.entries = {{IdentObj("\x01", 1), Date(2020)}};
        const IdentObj added = builder.Build();
        if (*c.first != '\0') PutFirst(store, first);
        SetLastError(kUntouched);
        PCCRL_CONTEXT context = nullptr;
        EXPECT_EQ(c.succeeds, add(store, added, c.disposition, &context) != FALSE);
        EXPECT_EQ(c.lastError, GetLastError());
        ASSERT_EQ(c.succeeds, context != nullptr);
        if (c.succeeds) {
            EXPECT_EQ(store.get(), context->hCertStore);
            EXPECT_EQ(TextOf(added), EncodingOf(context));
        }
        CertFreeCRLContext(context);
        EXPECT_EQ(c.left, Left(store, first, added));
    }
}

TEST(CrlStore, AddsEncodedByDisposition) {
    CheckDispositions(
        {
            {0, "", false, 230, ""},          {0, "older", false, 230, "F4"},
            {1, "", true, kUntouched, "N"},   {1, "older", false, kPresent, "F4"},
            {2, "", false, 230, ""},          {2, "older", false, 230, "F4"},
            {3, "", true, kUntouched, "N"},   {3, "newer", true, kUntouched, "N"},
            {4, "", true, kUntouched, "N"},   {4, "newer", true, kUntouched, "N4"},
            {5, "", true, kUntouched, "N"},   {5, "newer", true, kUntouched, "N4"},
            {6, "", true, kUntouched, "N"},   {6, "older", false, kPresent, "F4"},
            {6, "newer", false, kPresent, "F4"},
            {7, "", true, kUntouched, "N"},   {7, "newer", true, kUntouched, "N4"},
            {8, "", false, 230, ""},          {8, "older", false, 230, "F4"},
        },
        AddCrl);
}

TEST(CrlStore, AddsContextsByDisposition) {
    CheckDispositions(
        {
            {0, "", false, 230, ""},          {0, "older", false, 230, "F4"},
            {1, "", true, kUntouched, "N"},   {1, "older", false, kPresent, "F4"},
            {2, "", false, 230, ""},          {2, "older", false, 230, "F4"},
            {3, "", true, kUntouched, "N3"},  {3, "newer", true, kUntouched, "N3"},
            {4, "", true, kUntouched, "N"},   {4, "newer", true, kUntouched, "N4"},
            {5, "", true, kUntouched, "N"},   {5, "newer", true, kUntouched, "N4"},
            {6, "", true, kUntouched, "N3"},  {6, "older", true, kUntouched, "N3"},
            {6, "same", false, kPresent, "F4"}, {6, "newer", false, kPresent, "F4"},
            {7, "", true, kUntouched, "N"},   {7, "newer", true, kUntouched, "N4"},
            {8, "", false, 230, ""},          {8, "older", false, 230, "F4"},
        },
        [](const StorePtr& store, const IdentObj& der, DWORD disposition, PCCRL_CONTEXT* context) {
            const StorePtr source = OpenMemory();
            PCCRL_CONTEXT added = nullptr;
            EXPECT_TRUE(AddCrl(source, der, 1, &added));
            const IdentObj value = Filled(3, 3);
            const CRYPT_DATA_BLOB blob = Blob(value);
            EXPECT_TRUE(CertSetCRLContextProperty(added, 3, 0, &blob));
            CertFreeCRLContext(added);  // built before the property was set, so it does not bring it
            const CrlPtr own(CertGetCRLFromStore(source.get(), nullptr, nullptr, nullptr));
            SetLastError(kUntouched);
            return CertAddCRLContextToStore(store.get(), own.get(), disposition, context);
        });
}

TEST(CrlStore, EnumeratesAllOrThoseOfAnIssuer) {
    const StorePtr store = OpenMemory();
    EXPECT_EQ(nullptr, CertGetCRLFromStore(store.get(), nullptr, nullptr, nullptr));
    EXPECT_EQ(kNotFound, GetLastError());
    CertBuilder ca;
    ca.subjectKeyId = Filled(2);
    ASSERT_TRUE(AddEncoded(store, ca.Build(), 1));
    EXPECT_TRUE(Crls(store).empty()) << "certificates only";
    EXPECT_EQ(kNotFound, GetLastError());

    PutFirst(store, Crl(2, 9));
    PutFirst(store, Crl(2, 3));
    PutFirst(store, Crl(1, 7));
    PutFirst(store, Crl(3, 7));
    EXPECT_EQ((std::vector<std::string>{TextOf(Crl(1, 7)), TextOf(Crl(2, 3)), TextOf(Crl(2, 9)), TextOf(Crl(3, 7))}), Crls(store));
    const CertPtr issuer = MakeCert(ca.Build());
    EXPECT_EQ((std::vector<std::string>{TextOf(Crl(2, 3)), TextOf(Crl(2, 9))}), Crls(store, issuer.get()));
    EXPECT_EQ(1U, Certificates(store).size()) << "CRLs are no certificates";

    DWORD flags = 7;
    const CrlPtr first(CertGetCRLFromStore(store.get(), nullptr, nullptr, &flags));
    EXPECT_EQ(0U, flags);
    EXPECT_EQ(0U, GetLastError());
    // The previous context may be of anywhere: only the store's position counts.
    const CrlPtr second(CertGetCRLFromStore(store.get(), nullptr, MakeCrl(Crl(99, 99)).release(), nullptr));
    EXPECT_EQ(TextOf(Crl(2, 3)), EncodingOf(second.get()));
}

TEST(CrlStore, SkipsRecordsThatAreNoCrlsOrBelongElsewhere) {
    const StorePtr store = OpenMemory();
    auto& raw = *nal::CertStore::FromHandle(store.get());
    CrlBuilder noNumber;
    noNumber.number.reset();
    CrlBuilder longIssuer;
    longIssuer.authorityKeyId = Filled(1, 30);
    const auto put = [&](unsigned char id, std::uint32_t kind, const asnt::View& value) {
        nal::KeyIdentifier issuer;
        nal::CrlSerial serial;
        issuer.fill(id);
        serial.fill(id);
        return raw.storeCrl({issuer, serial, kind}, value, nal::PutMode::Overwrite);
    };
    const IdentObj good = Crl(5, 5);
    ASSERT_EQ(0, put(1, nal::kKindCrl, AsView("no CRL")));
    ASSERT_EQ(0, put(2, nal::kKindCrl, Crl(3, 3)));
    ASSERT_EQ(0, put(3, nal::kKindCrl, noNumber.Build()));
    ASSERT_EQ(0, put(4, nal::kKindCrl, longIssuer.Build()));
    ASSERT_EQ(0, put(5, nal::kKindCrl, good));
    ASSERT_EQ(0, put(5, nal::kKindCrl | 1, good));  // another program's kind with the CRL bit
    ASSERT_EQ(0, put(6, nal::kKindCert, good));
    EXPECT_EQ((std::vector<std::string>{TextOf(good), TextOf(good)}), Crls(store));
}

TEST(CrlStore, PropertiesByTheRules) {
    const StorePtr store = OpenMemory();
    PutFirst(store, Crl(1, 1));
    const CrlPtr context(CertGetCRLFromStore(store.get(), nullptr, nullptr, nullptr));
    const IdentObj value = Filled(8, 10);
    const CRYPT_DATA_BLOB blob = Blob(value);
    for (DWORD id = 0; id < 100; ++id) {
        const bool settable = id == 3 || id == 4 || id == 15;
        SetLastError(kUntouched);
        EXPECT_EQ(settable, CertSetCRLContextProperty(context.get(), id, 0, &blob) != FALSE) << id;
        EXPECT_EQ(settable ? kUntouched : 230U, GetLastError()) << id;
    }
    unsigned char buffer[12] = {};
    DWORD size = 0;
    EXPECT_TRUE(CertGetCRLContextProperty(context.get(), 15, nullptr, &size));
    EXPECT_EQ(10U, size);
    size = 9;
    EXPECT_TRUE(CertGetCRLContextProperty(context.get(), 15, buffer, &size)) << "a short buffer only reports the size";
    EXPECT_EQ(10U, size);
    EXPECT_EQ(0, buffer[0]);
    size = sizeof buffer;
    EXPECT_TRUE(CertGetCRLContextProperty(context.get(), 15, buffer, &size));
    EXPECT_EQ(0, std::memcmp(buffer, value.GetData(), 10));
    EXPECT_FALSE(CertGetCRLContextProperty(context.get(), 11, buffer, &size));
}

TEST(CrlStore, DeletesTheCrlWithItsPropertiesOnly) {
    const StorePtr store = OpenMemory();
    PutFirst(store, Crl(1, 1));
    PutFirst(store, Crl(1, 2));
    CertBuilder ca;
    ASSERT_TRUE(AddEncoded(store, ca.Build(), 1));
    EXPECT_TRUE(CertDeleteCRLFromStore(CertGetCRLFromStore(store.get(), nullptr, nullptr, nullptr)));
    EXPECT_EQ(std::vector<std::string>{TextOf(Crl(1, 2))}, Crls(store));
    EXPECT_EQ(1U, Certificates(store).size());
    EXPECT_TRUE(AddCrl(store, Crl(1, 1), 1));
    EXPECT_EQ("N" "?4", Left(store, IdentObj(), Crl(1, 1)));
    // The certificate's cascade leaves its issuer's CRLs.
    EXPECT_TRUE(CertDeleteCertificateFromStore(CertEnumCertificatesInStore(store.get(), nullptr)));
    EXPECT_EQ(2U, Crls(store).size());
}

TEST(CertVerifyCRLTimeValidity, BothBoundsAreInclusive) {
    CRL_INFO info{};
    info.ThisUpdate = Date(2021);
    info.NextUpdate = Date(2022);
    CRL_INFO open{};
    open.ThisUpdate = Date(2021);
    const struct {
        FILETIME time;
        LONG result;
    } cases[] = {{Date(2020, 12, 31), -1}, {Date(2021), 0}, {Date(2021, 6), 0}, {Date(2022), 0}, {Date(2022, 1, 2), 1}};
    for (const auto& c : cases) EXPECT_EQ(c.result, CertVerifyCRLTimeValidity(&c.time, &info));
    EXPECT_EQ(1, CertVerifyCRLTimeValidity(&cases[0].time, &open)) << "a zero NextUpdate has no special meaning";
}

TEST(CertFindCertificateInCRL, ComparesWholeSerials) {
    CrlBuilder builder;
    builder.entries = {{IdentObj("\x01\x02", 2)}, {IdentObj("\x03", 1)}, {IdentObj("\x03", 1)}};
    const CrlPtr crl = MakeCrl(builder.Build());
    const struct {
        std::string serial;
        int entry;
    } cases[] = {{"\x01\x02", 0}, {"\x03", 1}, {"\x02", -1}, {"\x02\x01", -1}, {std::string("\x00\x03", 2), -1}};
    for (const auto& c : cases) {
        CertBuilder cert;
        cert.serial = IdentObj(c.serial.data(), static_cast<unsigned>(c.serial.size()));
        const CertPtr context = MakeCert(cert.Build());
        PCRL_ENTRY entry = crl->pCrlInfo->rgCRLEntry;
        EXPECT_EQ(c.entry >= 0, CertFindCertificateInCRL(context.get(), crl.get(), 0, nullptr, &entry) != FALSE);
        EXPECT_EQ(c.entry >= 0 ? &crl->pCrlInfo->rgCRLEntry[c.entry] : nullptr, entry);
    }
}

}  // namespace
