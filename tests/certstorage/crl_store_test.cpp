// CRL contexts in stores through the exported functions.
#include <cerrno>
#include <cstring>
#include <functional>
#include <stdexcept>

#include "certstorage/crl_context.h"
#include "certstorage/store_test.h"
#include "support/temp_folder.h"
#include "too/status.h"

namespace {

using namespace nal_test;

IdentObj Crl(int issuer, int number, unsigned year = 2021) {
    CrlBuilder builder;
    builder.authorityKeyId = Filled(static_cast<unsigned char>(issuer));
    builder.number = Filled(static_cast<unsigned char>(number), 16);
    builder.thisUpdate = Date(year);
    return builder.Build();
}

std::vector<std::string> Crls(const StorePtr& store, PCCERT_CONTEXT issuer = nullptr) {
    std::vector<std::string> all;
    PCCRL_CONTEXT context = nullptr;
    while (all.size() < 100 && (context = CertGetCRLFromStore(store.get(), issuer, context, nullptr)) != nullptr) {
        all.push_back(EncodingOf(context));
    }
    if (all.size() == 100) CertFreeCRLContext(context);  // the walk does not advance
    return all;
}

// A CRL with property 4 in it.
void PutFirst(const StorePtr& store, const IdentObj& der) { ASSERT_TRUE(SetProperty(AddedCrl(store, der), 4, Filled(4, 4))); }

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
    const std::pair<IdentObj, DWORD> cases[] = {{IdentObj("x", 1), kBadArgument},
                                                {cut, kBadArgument},
                                                {trailing, kBadArgument},
                                                {CertBuilder().Build(), kBadArgument},
                                                {keyless.Build(), kUntouched}};
    const StorePtr store = OpenMemory();
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        EXPECT_THROW(MakeCrl(c.first), XTOOStatus);
        EXPECT_EQ(c.second, ErrorOf([&] { return AddCrl(store, c.first, 4); }));
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
    const IdentObj der = Crl(1, 1);
    const CrlPtr own = MakeCrl(der);  // it has no store
    PCCRL_CONTEXT loose = own.get();
    const IdentObj value = Filled(1);
    const CRYPT_DATA_BLOB blob = Blob(value);
    DWORD size = 0;
    const std::pair<DWORD, std::function<bool()>> cases[] = {
        {kUntouched, [&] { return CertFreeCRLContext(nullptr) != FALSE; }},
        {kUntouched, [&] { return CertDuplicateCRLContext(nullptr) != nullptr; }},
        {kUntouched, [&] { return CertDeleteCRLFromStore(nullptr) != FALSE; }},
        {kUntouched, [&] { return CertDeleteCRLFromStore(CertDuplicateCRLContext(loose)) != FALSE; }},
        {kUntouched, [&] { return CertSetCRLContextProperty(nullptr, 3, 0, &blob) != FALSE; }},
        {kUntouched, [&] { return CertSetCRLContextProperty(loose, 3, 0, &blob) != FALSE; }},
        {kUntouched, [&] { return CertGetCRLContextProperty(nullptr, 3, nullptr, &size) != FALSE; }},
        {kUntouched, [&] { return CertGetCRLContextProperty(loose, 3, nullptr, &size) != FALSE; }},
        {kNotSupported, [&] { return CertEnumCRLContextProperties(loose, 0) != 0; }},
        {kBadArgument, [&] { return CertGetCRLFromStore(nullptr, nullptr, CertDuplicateCRLContext(loose), nullptr) != nullptr; }},
        {kBadArgument, [&] { return CertAddCRLContextToStore(nullptr, loose, 1, nullptr) != FALSE; }},
        {kBadArgument, [&] { return CertAddCRLContextToStore(store.get(), nullptr, 1, nullptr) != FALSE; }},
        {kBadArgument, [&] { return AddCrl(nullptr, der, 1) != FALSE; }},
        {kBadArgument, [&] { return CertAddEncodedCRLToStore(store.get(), kEncoding, nullptr, 20, 1, nullptr) != FALSE; }},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(&one - cases);
        EXPECT_EQ(one.first, ErrorOf(one.second));
    }
    EXPECT_EQ(EINVAL, nal::CrlContext::From(loose)->storeProperties(nullptr));
}

// What an addition leaves: F the first CRL, N the new one; 3 and 4 the properties.
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
        const std::string age = c.first;
        const IdentObj first = Crl(5, 5, age == "older" ? 2019 : age == "same" ? 2021 : 2023);
        CrlBuilder builder;
        builder.authorityKeyId = Filled(5);
        builder.number = Filled(5, 16);
        builder.entries = {{IdentObj("\x01", 1), Date(2020)}};
        const IdentObj added = builder.Build();
        if (!age.empty()) PutFirst(store, first);
        SetLastError(kUntouched);
        PCCRL_CONTEXT context = nullptr;
        EXPECT_EQ(c.error == 0, add(store, added, c.disposition, &context) != FALSE);
        EXPECT_EQ(c.error == 0 ? kUntouched : c.error, GetLastError());
        const CrlPtr given(context);
        EXPECT_EQ(c.error == 0, given != nullptr);
        EXPECT_TRUE(!given || (given->hCertStore == store.get() && EncodingOf(context) == TextOf(added)));
        EXPECT_EQ(c.left, Left(store, first, added));
    }
}

TEST(CrlStore, AddsEncodedByDisposition) {
    const std::vector<AddCase> cases = {
        {0, "", kNotSupported, ""}, {0, "older", kNotSupported, "F4"}, {1, "", 0, "N"}, {1, "older", kPresent, "F4"},
        {2, "", kNotSupported, ""}, {2, "older", kNotSupported, "F4"}, {3, "", 0, "N"}, {3, "newer", 0, "N"},
        {4, "", 0, "N"},            {4, "newer", 0, "N4"},             {5, "", 0, "N"}, {5, "newer", 0, "N4"},
        {6, "", 0, "N"},            {6, "older", kPresent, "F4"},      {7, "", 0, "N"}, {6, "newer", kPresent, "F4"},
        {8, "", kNotSupported, ""}, {8, "older", kNotSupported, "F4"}, {7, "newer", 0, "N4"},
    };
    CheckDispositions(cases, AddCrl);
}

TEST(CrlStore, AddsContextsByDisposition) {
    const std::vector<AddCase> cases = {
        {0, "", kNotSupported, ""}, {0, "older", kNotSupported, "F4"}, {1, "", 0, "N"},            {1, "older", kPresent, "F4"},
        {2, "", kNotSupported, ""}, {2, "older", kNotSupported, "F4"}, {3, "", 0, "N3"},           {3, "newer", 0, "N3"},
        {4, "", 0, "N"},            {4, "newer", 0, "N4"},             {5, "", 0, "N"},            {5, "newer", 0, "N4"},
        {6, "", 0, "N3"},           {6, "older", 0, "N3"},             {6, "same", kPresent, "F4"}, {6, "newer", kPresent, "F4"},
        {7, "", 0, "N"},            {7, "newer", 0, "N4"},             {8, "", kNotSupported, ""}, {8, "older", kNotSupported, "F4"},
    };
    CheckDispositions(cases, [](const StorePtr& store, const IdentObj& der, DWORD disposition, PCCRL_CONTEXT* context) {
        const StorePtr source = OpenMemory();
        // Built before the property was set, the context of the addition would not bring it.
        EXPECT_TRUE(SetProperty(AddedCrl(source, der), 3, Filled(3, 3)));
        const CrlPtr own(CertGetCRLFromStore(source.get(), nullptr, nullptr, nullptr));
        SetLastError(kUntouched);
        return CertAddCRLContextToStore(store.get(), own.get(), disposition, context);
    });
}

TEST(CrlStore, EnumeratesAllOrThoseOfAnIssuer) {
    const StorePtr store = OpenMemory();
    CertBuilder ca;
    ca.subjectKeyId = Filled(2);
    ASSERT_TRUE(AddEncoded(store, ca.Build(), 1));
    EXPECT_TRUE(Crls(store).empty()) << "certificates only";
    EXPECT_EQ(kNotFound, GetLastError());

    for (const auto& [issuer, number] : {std::pair{2, 9}, {2, 3}, {1, 7}, {3, 7}}) PutFirst(store, Crl(issuer, number));
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
    CrlBuilder noNumber;
    noNumber.number.reset();
    CrlBuilder longIssuer;
    longIssuer.authorityKeyId = Filled(1, 30);
    const IdentObj good = Crl(5, 5);
    const struct {
        unsigned char id;
        std::uint32_t kind;
        IdentObj value;
    } records[] = {{1, nal::kKindCrl, FromText("no CRL")},     {2, nal::kKindCrl, Crl(3, 3)},
                   {3, nal::kKindCrl, noNumber.Build()}, {4, nal::kKindCrl, longIssuer.Build()},
                   {5, nal::kKindCrl, good},             {5, nal::kKindCrl | 1, good},  // another program's kind with the CRL bit
                   {6, nal::kKindCert, good}};
    for (const auto& record : records) {
        nal::RecordKey key{{}, {}, record.kind};
        key.identifier.fill(record.id);
        key.crlSerial.fill(record.id);
        ASSERT_EQ(0, nal::CertStore::FromHandle(store.get())->storeCrl(key, record.value, nal::PutMode::Overwrite));
    }
    EXPECT_EQ((std::vector<std::string>{TextOf(good), TextOf(good)}), Crls(store));
}

TEST(CrlStore, PropertiesByTheRules) {
    const StorePtr store = OpenMemory();
    PutFirst(store, Crl(1, 1));
    const CrlPtr context(CertGetCRLFromStore(store.get(), nullptr, nullptr, nullptr));
    const IdentObj value = Filled(8, 10);
    for (DWORD id = 0; id < 100; ++id) {
        const bool settable = id == 3 || id == 4 || id == 15;
        SetLastError(kUntouched);
        EXPECT_EQ(settable, SetProperty(context, id, value) != FALSE) << id;
        EXPECT_EQ(settable ? kUntouched : kNotSupported, GetLastError()) << id;
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
    Added(store);
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
