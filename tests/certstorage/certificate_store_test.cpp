// Stores and certificate contexts through the exported functions: a table of cases for each table of rules.
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <thread>

#include "certstorage/cert_context.h"
#include "certstorage/store_test.h"
#include "support/temp_folder.h"
#include "too/status.h"

namespace {

using namespace nal_test;

IdentObj Cert(unsigned char id, unsigned year = 2020, const std::string& subject = "Subject") {
    CertBuilder builder;
    builder.subjectKeyId = Filled(id);
    builder.serial = Filled(id, 1);
    builder.notBefore = Date(year);
    builder.subject = subject;
    return builder.Build();
}

// The encodings of what a search gives, one after another.
std::vector<std::string> FindAll(const StorePtr& store, DWORD type, const void* parameter) {
    std::vector<std::string> found;
    PCCERT_CONTEXT context = nullptr;
    while ((context = CertFindCertificateInStore(store.get(), kEncoding, 0, type, parameter, context)) != nullptr) {
        EXPECT_EQ(0U, GetLastError());
        found.push_back(EncodingOf(context));
    }
    return found;
}

// The system stores' file is found once per process, so its folder lives as long.
void UseHomeOfTheTests() {
    static const TempFolder home;
    setenv("NAL_HOME", home.Path().c_str(), 1);
}

TEST(CertStore, OpensByProviderNumber) {
    const TempFolder folder;
    const std::string path = folder.File("store.dat");
    UseHomeOfTheTests();
    const struct {
        std::uintptr_t provider;
        const void* parameter;
        bool opens;
    } cases[] = {
        {0, nullptr, false}, {1, nullptr, false},      {2, nullptr, true},      {3, path.c_str(), true}, {4, L"MY", true},
        {9, "Root", true},   {5, path.c_str(), false}, {6, path.c_str(), true}, {7, path.c_str(), true}, {8, path.c_str(), true},
        {10, L"CA", true},   {11, L"MY", false},       {12, nullptr, true},     {13, nullptr, true},     {14, path.c_str(), false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.provider);
        SetLastError(kUntouched);
        const StorePtr store(CertOpenStore(reinterpret_cast<LPCSTR>(c.provider), kEncoding, 0, 0, c.parameter));
        EXPECT_EQ(c.opens, store != nullptr);
        EXPECT_TRUE(c.opens || GetLastError() == kUntouched);
    }
    for (const char* name : {"Root", "CA", ""}) EXPECT_EQ(nullptr, CertOpenSystemStore(0, name));
}

TEST(CertStore, SystemStoresAreOneFileAndFileProvidersAnother) {
    const TempFolder folder;
    UseHomeOfTheTests();
    const StorePtr mine(CertOpenStore(CERT_STORE_PROV_SYSTEM_A, kEncoding, 0, 0, "MY"));
    const StorePtr root(CertOpenStore(CERT_STORE_PROV_SYSTEM_REGISTRY_W, kEncoding, 0, 0, L"Root"));
    ASSERT_TRUE(mine && root);
    const std::size_t before = Certificates(root).size();
    ASSERT_TRUE(AddEncoded(mine, Cert(0x33), 4));
    EXPECT_EQ(before + 1, Certificates(root).size());
    EXPECT_TRUE(Certificates(OpenFile(folder.File("other"))).empty());
}

TEST(CertStore, FailsToOpenWithTheReason) {
    const TempFolder folder;
    const std::string text = "this is no store, and it stays as it is\n";
    WriteFile(folder.File("text"), text);
    WriteFile(folder.File("empty"), std::string());
    const std::pair<std::string, DWORD> cases[] = {
        {"", EINVAL},           {folder.File("no/such/folder/store"), ENOENT}, {folder.File("text"), EUCLEAN}, {folder.Path(), EISDIR},
        {"/dev/null", EUCLEAN}, {folder.File("text") + "/below", ENOTDIR},     {folder.File("empty"), EUCLEAN},
    };
    for (const auto& [path, error] : cases) EXPECT_EQ(error, ErrorOf([&] { return OpenFile(path); })) << path;
    EXPECT_EQ(nullptr, CertOpenStore(CERT_STORE_PROV_FILE, kEncoding, 0, 0, nullptr));
    EXPECT_EQ(nal_test::Bytes(text.begin(), text.end()), ReadFile(folder.File("text")));
    EXPECT_TRUE(ReadFile(folder.File("empty")).empty());
}

TEST(CertStore, NullHandlesFailCleanly) {
    const IdentObj der = Cert(1);
    const CertPtr own = MakeCert(der);
    PCCERT_CONTEXT context = own.get();
    const StorePtr store = OpenMemory();
    DWORD size = 0;
    const std::pair<DWORD, std::function<bool()>> cases[] = {
        {kUntouched, [&] { return CertCloseStore(nullptr, 0) != FALSE; }},
        {kUntouched, [&] { return CertDuplicateStore(nullptr) != nullptr; }},
        {kUntouched, [&] { return CertFreeCertificateContext(nullptr) != FALSE; }},
        {kUntouched, [&] { return CertDuplicateCertificateContext(nullptr) != nullptr; }},
        {kUntouched, [&] { return CertDeleteCertificateFromStore(nullptr) != FALSE; }},
        {kUntouched, [&] { return CertGetCertificateContextProperty(nullptr, 3, nullptr, &size) != FALSE; }},
        {kUntouched, [&] { return CertGetCertificateContextProperty(context, 3, nullptr, nullptr) != FALSE; }},
        {kUntouched, [&] { return CertSetCertificateContextProperty(nullptr, 3, 0, &size) != FALSE; }},
        {kUntouched, [&] { return CertSetCertificateContextProperty(context, 3, 0, nullptr) != FALSE; }},
        {kUntouched, [&] { return CertAddCertificateContextToStore(store.get(), nullptr, 1, nullptr) != FALSE; }},
        {kBadArgument, [&] { return AddEncoded(nullptr, der, 1) != FALSE; }},
        {kBadArgument, [&] { return CertAddEncodedCertificateToStore(store.get(), kEncoding, nullptr, 5, 4, nullptr) != FALSE; }},
        {kBadArgument, [&] { return CertAddCertificateContextToStore(nullptr, context, 1, nullptr) != FALSE; }},
        {kBadArgument, [&] { return CertEnumCertificatesInStore(nullptr, nullptr) != nullptr; }},
        {kNotSupported, [&] { return CertGetIssuerCertificateFromStore(nullptr, nullptr, nullptr, nullptr) != nullptr; }},
        {kNotSupported, [&] { return CertVerifySubjectCertificateContext(context, context, nullptr) != FALSE; }},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(&one - cases);
        EXPECT_EQ(one.first, ErrorOf(one.second));
    }
}

TEST(CertStore, ClosesAtTheLastReference) {
    const TempFolder folder;
    HCERTSTORE store = CertOpenStore(CERT_STORE_PROV_FILE, kEncoding, 0, 0, folder.File("s").c_str());
    EXPECT_EQ(store, CertDuplicateStore(store));
    EXPECT_TRUE(CertCloseStore(store, 0));
    const IdentObj der = Cert(1);
    PCCERT_CONTEXT late = nullptr;
    EXPECT_TRUE(CertAddEncodedCertificateToStore(store, kEncoding, der.GetData(), der.GetSize(), 1, &late));
    EXPECT_TRUE(CertCloseStore(store, 0));

    // A context that outlives its store may be read; operations on its store fail.
    const CertPtr context(late);
    EXPECT_EQ(TextOf(der), EncodingOf(context.get()));
    DWORD size = 0;
    const DWORD spec = AT_SIGNATURE;
    EXPECT_FALSE(CertGetCertificateContextProperty(context.get(), 3, nullptr, &size));
    EXPECT_FALSE(CertSetCertificateContextProperty(context.get(), 6, 0, &spec));
    EXPECT_EQ(DWORD{EBADF}, ErrorOf([&] { return CertDeleteCertificateFromStore(CertDuplicateCertificateContext(context.get())); }));
    EXPECT_EQ(1U, Certificates(OpenFile(folder.File("s"))).size());
}

TEST(CertContext, DescribesTheCertificate) {
    CertBuilder builder;
    builder.serial = IdentObj("\x00\xA1\x02\x03", 4);
    builder.extensions.push_back({"2.5.29.15", true, IdentObj("\x03\x02\x05\xA0", 4)});
    const IdentObj der = builder.Build();
    const CertPtr context = MakeCert(der);
    EXPECT_EQ(kEncoding, context->dwCertEncodingType);
    EXPECT_EQ(TextOf(der), EncodingOf(context.get()));
    EXPECT_NE(der.GetData(), context->pbCertEncoded);
    const CERT_INFO& info = *context->pCertInfo;
    EXPECT_EQ(2U, info.dwVersion);
    EXPECT_EQ(std::string("\x03\x02\xA1\x00", 4), Text(nal::ViewOf(info.SerialNumber)));
    EXPECT_STREQ("1.2.643.2.2.3", info.SignatureAlgorithm.pszObjId);
    EXPECT_EQ(0U, info.SignatureAlgorithm.Parameters.cbData);
    EXPECT_EQ(TextOf(NameDer("Issuer")), Text(nal::ViewOf(info.Issuer)));
    EXPECT_EQ(TextOf(NameDer("Subject")), Text(nal::ViewOf(info.Subject)));
    EXPECT_EQ(0, std::memcmp(&builder.notBefore, &info.NotBefore, sizeof(FILETIME)));
    EXPECT_EQ(0, std::memcmp(&builder.notAfter, &info.NotAfter, sizeof(FILETIME)));
    EXPECT_STREQ("1.2.643.2.2.19", info.SubjectPublicKeyInfo.Algorithm.pszObjId);
    EXPECT_EQ(66U, info.SubjectPublicKeyInfo.PublicKey.cbData);
    ASSERT_EQ(2U, info.cExtension);
    EXPECT_STREQ("2.5.29.14", info.rgExtension[0].pszObjId);
    EXPECT_FALSE(info.rgExtension[0].fCritical);
    EXPECT_STREQ("2.5.29.15", info.rgExtension[1].pszObjId);
    EXPECT_TRUE(info.rgExtension[1].fCritical);
    EXPECT_EQ(4U, info.rgExtension[1].Value.cbData);
    // Free-standing: a store of its own that holds the certificate.
    EXPECT_EQ(std::vector<std::string>{TextOf(der)}, Certificates(StorePtr(CertDuplicateStore(context->hCertStore))));
}

TEST(CertContext, KeyIdentifiersOfEveryLength) {
    const struct {
        const char* name;
        std::optional<IdentObj> id;
        bool described;
        bool addable;
    } cases[] = {{"20 bytes", Filled(7), true, true},
                 {"longer", Filled(7, 40), false, true},
                 {"shorter", Filled(7, 8), false, true},
                 {"none", IdentObj(), false, true},
                 {"no extension", std::nullopt, false, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        CertBuilder builder;
        builder.subjectKeyId = c.id;
        builder.authorityKeyId = Filled(9);
        const CertPtr context = MakeCert(builder.Build());
        EXPECT_EQ(c.described ? 2U : 0U, context->pCertInfo->dwVersion);
        EXPECT_EQ(c.described ? 7 : 0, nal::CertContext::From(context.get())->Key().front());
        const StorePtr store = OpenMemory();
        SetLastError(kUntouched);
        EXPECT_EQ(c.addable, AddEncoded(store, builder.Build(), 1) != FALSE);
        EXPECT_TRUE(c.addable || GetLastError() == kBadArgument);
        // One that is longer is keyed by its first 20 bytes.
        EXPECT_EQ(c.id && c.id->GetSize() >= 20, AddEncoded(store, Cert(7), 1) == FALSE);
    }
}

TEST(CertContext, BytesThatAreNoCertificate) {
    CertBuilder plain;
    plain.version = -1;
    plain.subjectKeyId.reset();
    IdentObj cut = Cert(1);
    cut.SetSize(cut.GetSize() - 1);
    IdentObj trailing = Cert(1);
    trailing.Append("", 1);
    const StorePtr store = OpenMemory();
    for (const IdentObj& der : {IdentObj("x", 1), plain.Build(), cut, trailing, NameDer("x")}) {
        SCOPED_TRACE(der.GetSize());
        EXPECT_THROW(MakeCert(der), XTOOStatus);
        EXPECT_EQ(kBadArgument, ErrorOf([&] { return AddEncoded(store, der, 4); }));
    }
    EXPECT_TRUE(Certificates(store).empty());
    EXPECT_THROW(CertCreateCertificateContext(kEncoding, nullptr, 5), std::invalid_argument);
    EXPECT_THROW(CertCreateCertificateContext(kEncoding, cut.GetData(), 0), std::invalid_argument);
}

// What an addition leaves: F the certificate that was first, N the new one, p its property.
std::string Left(const StorePtr& store, const IdentObj& first, const IdentObj& added) {
    std::string left;
    PCCERT_CONTEXT context = nullptr;
    while ((context = CertEnumCertificatesInStore(store.get(), context)) != nullptr) {
        left += EncodingOf(context) == TextOf(first) ? "F" : EncodingOf(context) == TextOf(added) ? "N" : "?";
        DWORD size = 0;
        if (CertGetCertificateContextProperty(context, 3, nullptr, &size)) left += "p";
    }
    return left;
}

void PutFirst(const StorePtr& store, const IdentObj& first) { ASSERT_TRUE(SetProperty(Added(store, first), 3, Filled(1))); }

// `add` adds the new certificate by the disposition and judges the context that it was given.
void CheckDispositions(const std::vector<AddCase>& cases, BOOL (*add)(const StorePtr& store, const IdentObj& der, const AddCase& c)) {
    for (const AddCase& c : cases) {
        SCOPED_TRACE(std::to_string(c.disposition) + " " + c.first);
        const StorePtr store = OpenMemory();
        const std::string age = c.first;
        const IdentObj first = Cert(5, age == "older" ? 2019 : age == "same" ? 2020 : 2021, "First");
        const IdentObj added = Cert(5, 2020);
        if (!age.empty()) PutFirst(store, first);
        SetLastError(kUntouched);
        EXPECT_EQ(c.error == 0, add(store, added, c) != FALSE);
        EXPECT_EQ(c.error == 0 ? kUntouched : c.error, GetLastError());
        EXPECT_EQ(c.left, Left(store, first, added));
    }
}

TEST(CertStore, AddsEncodedByDisposition) {
    const std::vector<AddCase> cases = {
        {0, "", 0, ""},                   {0, "older", 0, "Fp"},            {1, "", 0, "N"},        {1, "older", kPresent, "Fp"},
        {2, "", kNotSupported, ""},       {2, "older", kNotSupported, "Fp"}, {3, "", 0, "N"},       {3, "newer", 0, "N"},
        {4, "", 0, "N"},                  {4, "newer", 0, "Np"},            {5, "", 0, "N"},        {5, "newer", 0, "Np"},
        {6, "", 0, ""},                   {6, "older", 0, "Fp"},            {7, "older", 0, "Fp"},  {0xFFFFFFFF, "older", 0, "Fp"},
    };
    CheckDispositions(cases, [](const StorePtr& store, const IdentObj& der, const AddCase& c) {
        PCCERT_CONTEXT context = nullptr;
        const BOOL result = AddEncoded(store, der, c.disposition, &context);
        const CertPtr given(context);
        EXPECT_EQ(c.error == 0, given != nullptr);
        EXPECT_TRUE(!given || (given->hCertStore == store.get() && EncodingOf(context) == TextOf(der)));
        return result;
    });
}

TEST(CertStore, AddsContextsByDisposition) {
    const std::vector<AddCase> cases = {
        {0, "", kUntouched, ""},        {0, "older", kUntouched, "Fp"}, {1, "", 0, "N"},             {1, "older", kPresent, "Fp"},
        {2, "", 0, "N"},                {2, "newer", 0, "N"},  // of another store: properties go
        {3, "", 0, "N"},                {3, "newer", 0, "N"},           {4, "", 0, "N"},             {4, "newer", 0, "Np"},
        {5, "", 0, "N"},                {5, "newer", 0, "Np"},          {6, "", 0, "N"},             {6, "older", 0, "N"},
        {6, "same", kPresent, "Fp"},    {6, "newer", kPresent, "Fp"},   {7, "", 0, "N"},             {7, "older", 0, "Np"},
        {7, "same", kPresent, "Fp"},    {7, "newer", kPresent, "Fp"},   {8, "", kUntouched, ""},     {8, "older", kUntouched, "Fp"},
    };
    CheckDispositions(cases, [](const StorePtr& store, const IdentObj& der, const AddCase& c) {
        const CertPtr own = MakeCert(der);
        PCCERT_CONTEXT context = nullptr;
        SetLastError(kUntouched);
        const BOOL result = CertAddCertificateContextToStore(store.get(), own.get(), c.disposition, &context);
        // The caller's own context comes back, but for a certificate that is present.
        const CertPtr given(context);
        EXPECT_EQ(c.error == kPresent ? nullptr : own.get(), given.get());
        return result;
    });
}

TEST(CertStore, AddsAContextOfTheSameStore) {
    const StorePtr store = OpenMemory();
    PutFirst(store, Cert(5));
    const CertPtr own(CertEnumCertificatesInStore(store.get(), nullptr));
    // No transfer within one store, so the properties stay where only a transfer would take them.
    EXPECT_TRUE(CertAddCertificateContextToStore(store.get(), own.get(), 2, nullptr));
    EXPECT_EQ("Np", Left(store, IdentObj(), Cert(5)));
    EXPECT_EQ(kPresent, ErrorOf([&] { return CertAddCertificateContextToStore(store.get(), own.get(), 7, nullptr); }));
}

TEST(CertStore, TransfersOnlyThePropertyWithIdZero) {
    const StorePtr source = OpenMemory();
    const StorePtr target = OpenMemory();
    PutFirst(source, Cert(5));
    PutFirst(target, Cert(5));
    auto& from = *nal::CertStore::FromHandle(source.get());
    auto& to = *nal::CertStore::FromHandle(target.get());
    const nal::KeyIdentifier key = nal::ToKeyIdentifier(Filled(5));
    ASSERT_EQ(0, from.storeProp(key, 0, AsView("zero")));
    ASSERT_EQ(0, from.storeProp(key, 6, AsView("six")));
    ASSERT_EQ(0, to.transferProperties(from, key));
    DWORD size = 0;
    EXPECT_EQ(0, to.getPropSize(key, 0, &size));
    EXPECT_EQ(4U, size);
    EXPECT_EQ(1, to.getPropSize(key, 3, &size)) << "the target's own are gone";
    EXPECT_EQ(1, to.getPropSize(key, 6, &size));
    EXPECT_EQ(0, from.getPropSize(key, 6, &size));
}

TEST(CertStore, DeletesTheCertificateWithItsProperties) {
    const StorePtr store = OpenMemory();
    for (const unsigned char id : {4, 5, 6}) PutFirst(store, Cert(id));
    const CertPtr middle = MakeCert(Cert(5));
    PCCERT_CONTEXT found = CertFindCertificateInStore(store.get(), kEncoding, 0, CERT_FIND_EXISTING, middle.get(), nullptr);
    ASSERT_NE(nullptr, found);
    EXPECT_TRUE(CertDeleteCertificateFromStore(found));
    EXPECT_EQ((std::vector<std::string>{TextOf(Cert(4)), TextOf(Cert(6))}), Certificates(store));
    EXPECT_TRUE(AddEncoded(store, Cert(5), 1));
    EXPECT_EQ("?pN?p", Left(store, IdentObj(), Cert(5)));
    // One that is gone already: the walk over its records succeeds.
    EXPECT_TRUE(CertDeleteCertificateFromStore(CertDuplicateCertificateContext(middle.get())));
}

TEST(CertStore, EnumeratesInKeyOrderAndConsumesThePreviousContext) {
    const StorePtr store = OpenMemory();
    EXPECT_EQ(kNotFound, ErrorOf([&] { return CertEnumCertificatesInStore(store.get(), nullptr); }));
    std::vector<std::string> expected;
    for (unsigned char id : {9, 3, 200, 5}) ASSERT_TRUE(AddEncoded(store, Cert(id), 1));
    for (unsigned char id : {3, 5, 9, 200}) expected.push_back(TextOf(Cert(id)));
    EXPECT_EQ(expected, Certificates(store));

    PCCERT_CONTEXT first = CertEnumCertificatesInStore(store.get(), nullptr);
    ASSERT_NE(nullptr, first);
    EXPECT_EQ(0U, GetLastError());
    EXPECT_EQ(store.get(), first->hCertStore);
    // The position is the store's: a find moves the enumeration.
    PCCERT_CONTEXT previous = CertDuplicateCertificateContext(first);
    const CertPtr other(CertFindCertificateInStore(store.get(), kEncoding, 0, CERT_FIND_ANY, nullptr, previous));
    EXPECT_EQ(TextOf(Cert(5)), EncodingOf(other.get()));
    first = CertEnumCertificatesInStore(store.get(), first);
    EXPECT_EQ(TextOf(Cert(9)), EncodingOf(first));
    // Of another store: an error, and consumed all the same.
    EXPECT_EQ(kBadArgument, ErrorOf([&] { return CertEnumCertificatesInStore(OpenMemory().get(), first); }));

    // A deletion walks to the end of the tree and leaves the position there, so the enumeration ends: kept so.
    first = CertEnumCertificatesInStore(store.get(), nullptr);
    EXPECT_TRUE(CertDeleteCertificateFromStore(CertDuplicateCertificateContext(first)));
    EXPECT_EQ(nullptr, CertEnumCertificatesInStore(store.get(), first));
    EXPECT_EQ(3U, Certificates(store).size());
}

TEST(CertStore, FindsByType) {
    const StorePtr store = OpenMemory();
    std::vector<IdentObj> certs;
    const char* const rows[][3] = {{"A", "Root", "\x01\x02"}, {"B", "Root", "\x02\x01"}, {"A", "Sub", "\x01\x02"}, {"AA", "Sub", "\x05"}};
    for (const auto& [subject, issuer, serial] : rows) {
        CertBuilder builder;
        builder.subjectKeyId = Filled(static_cast<unsigned char>(certs.size() + 1));
        builder.subject = subject;
        builder.issuer = issuer;
        builder.serial = FromText(serial);
        certs.push_back(builder.Build());
        ASSERT_TRUE(AddEncoded(store, certs.back(), 1));
    }
    const IdentObj names[] = {NameDer("A"), NameDer("Root"), NameDer("Nobody"), IdentObj()};
    const CRYPTOAPI_BLOB a = Blob(names[0]), root = Blob(names[1]), nobody = Blob(names[2]), empty = Blob(names[3]);
    const CertPtr third = MakeCert(certs[2]);
    const CertPtr stranger = MakeCert(Cert(77));
    CERT_INFO otherSerial = *third->pCertInfo;
    otherSerial.SerialNumber.cbData = 1;
    CERT_INFO otherIssuer = *third->pCertInfo;
    otherIssuer.Issuer = root;
    const struct {
        DWORD type;
        const void* parameter;
        std::vector<int> found;
        DWORD lastError = kNotFound;
    } cases[] = {
        {0, nullptr, {0, 1, 2, 3}},
        {0x20007, &a, {0, 2}},
        {0x20007, &nobody, {}},
        {0x20007, &empty, {}},
        {0x20007, nullptr, {}, kBadArgument},
        {0x20004, &root, {0, 1}},
        {0xB0000, third->pCertInfo, {2}},
        {0xB0000, &otherSerial, {}},
        {0xB0000, &otherIssuer, {0}},
        {0xD0000, stranger.get(), {}},
        {0xD0000, nullptr, {}, kBadArgument},
        {0x60000, &a, {}, kNotSupported},
        {1, &a, {}, kNotSupported},
        {0x70000, nullptr, {}, kNotSupported},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        std::vector<std::string> expected;
        for (int index : c.found) expected.push_back(TextOf(certs[index]));
        EXPECT_EQ(expected, FindAll(store, c.type, c.parameter));
        EXPECT_EQ(c.lastError, GetLastError());
    }
    // By key identifier it is a look-up, not a walk: the same one again.
    PCCERT_CONTEXT again = nullptr;
    for (int i = 0; i < 3; ++i) {
        again = CertFindCertificateInStore(store.get(), kEncoding, 0, CERT_FIND_EXISTING, third.get(), again);
        ASSERT_NE(nullptr, again);
        EXPECT_EQ(TextOf(certs[2]), EncodingOf(again));
    }
    CertFreeCertificateContext(again);
}

TEST(CertStore, HandlesOfOneFileShareRecordsAndNotPositions) {
    const TempFolder folder;
    const StorePtr a = OpenFile(folder.File("s"));
    for (const unsigned char id : {1, 2}) ASSERT_TRUE(AddEncoded(a, Cert(id), 1));
    std::filesystem::create_hard_link(folder.File("s"), folder.File("link"));
    const StorePtr b = OpenFile(folder.File("link"));
    ASSERT_TRUE(b);
    ASSERT_TRUE(AddEncoded(b, Cert(3), 1));
    EXPECT_FALSE(AddEncoded(a, Cert(3), 1));
    PCCERT_CONTEXT inA = CertEnumCertificatesInStore(a.get(), nullptr);
    EXPECT_EQ(3U, Certificates(b).size());
    const CertPtr second(CertEnumCertificatesInStore(a.get(), inA));
    ASSERT_NE(nullptr, second);
    EXPECT_EQ(TextOf(Cert(2)), EncodingOf(second.get()));
}

TEST(CertStore, SkipsRecordsThatAreNoCertificates) {
    const StorePtr store = OpenMemory();
    auto& raw = *nal::CertStore::FromHandle(store.get());
    ASSERT_TRUE(AddEncoded(store, Cert(5), 1));
    CertBuilder noKeyId;
    noKeyId.subjectKeyId.reset();
    noKeyId.authorityKeyId = Filled(1);
    const IdentObj stranger = noKeyId.Build();
    IdentObj damaged = Cert(9);
    damaged.GetData()[damaged.GetSize() - 67] ^= 0xFF;  // the tag of the signature: names are found, the rest does not decode
    ASSERT_EQ(0, raw.storeCert(Identifier(1), AsView("no certificate")));
    ASSERT_EQ(0, raw.storeCert(Identifier(2), {}));
    ASSERT_EQ(0, raw.storeCert(Identifier(3), stranger));
    ASSERT_EQ(0, raw.storeCert(Identifier(9), damaged));
    EXPECT_EQ((std::vector<std::string>{TextOf(stranger), TextOf(Cert(5))}), Certificates(store));
    const IdentObj name = NameDer("Subject");
    const CRYPTOAPI_BLOB subject = Blob(name);
    EXPECT_EQ(2U, FindAll(store, CERT_FIND_SUBJECT_NAME, &subject).size());
    EXPECT_EQ(kNotFound, GetLastError());
}

TEST(CertFindExtension, TakesTheFirstPrefix) {
    char longOid[] = "2.5.29.14";
    char shortOid[] = "2.5.29.1";
    char otherOid[] = "2.5.29.15";
    CERT_EXTENSION entries[] = {{otherOid, FALSE, {}}, {shortOid, FALSE, {}}, {longOid, FALSE, {}}};
    EXPECT_EQ(&entries[1], CertFindExtension("2.5.29.14", 3, entries));
    EXPECT_EQ(&entries[0], CertFindExtension("2.5.29.15", 3, entries));
    EXPECT_EQ(nullptr, CertFindExtension("2.5.29", 3, entries));
    EXPECT_EQ(nullptr, CertFindExtension("2.5.29.14", 0, nullptr));
}

TEST(CertVerifyValidityNesting, IsStrict) {
    const struct {
        unsigned from, to;
        bool nested;
    } cases[] = {{2021, 2024, true},  {2020, 2025, false}, {2020, 2024, false},
                 {2021, 2025, false}, {2019, 2024, false}, {2021, 2026, false}};
    for (const auto& c : cases) {
        CERT_INFO subject{};
        subject.NotBefore = Date(c.from);
        subject.NotAfter = Date(c.to);
        CERT_INFO issuer{};
        issuer.NotBefore = Date(2020);
        issuer.NotAfter = Date(2025);
        EXPECT_EQ(c.nested, CertVerifyValidityNesting(&subject, &issuer) != FALSE) << c.from << ' ' << c.to;
    }
}

TEST(CertContext, ReferencesChangeFromManyThreads) {
    const StorePtr store = OpenMemory();
    ASSERT_TRUE(AddEncoded(store, Cert(1), 1));
    const CertPtr context(CertEnumCertificatesInStore(store.get(), nullptr));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 2000; ++i) {
                const CertPtr reference(CertDuplicateCertificateContext(context.get()));
                const StorePtr handle(CertDuplicateStore(store.get()));
                const CertPtr own = MakeCert(Cert(2));
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(TextOf(Cert(1)), EncodingOf(context.get()));
}

}  // namespace
