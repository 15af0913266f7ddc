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

constexpr DWORD kUntouched = 0xABCD;
constexpr DWORD kBadArgument = 0x80070057;
constexpr DWORD kNotFound = 0x80092004;
constexpr DWORD kPresent = 0x80092005;

IdentObj Cert(unsigned char id, unsigned year = 2020, const std::string& subject = "Subject") {
    CertBuilder builder;
    builder.subjectKeyId = Filled(id);
    builder.serial = Filled(id, 1);
    builder.notBefore = Date(year);
    builder.subject = subject;
    return builder.Build();
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
    struct Case {
        std::uintptr_t provider;
        const void* parameter;
        bool opens;
    };
    const Case cases[] = {
        {0, nullptr, false},          {1, nullptr, false},          {2, nullptr, true},           {3, path.c_str(), true},
        {4, L"MY", true},             {5, path.c_str(), false},     {6, path.c_str(), true},      {7, path.c_str(), true},
        {8, path.c_str(), true},      {9, "Root", true},            {10, L"CA", true},            {11, L"MY", false},
        {12, nullptr, true},          {13, nullptr, true},          {14, path.c_str(), false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.provider);
        SetLastError(kUntouched);
        const StorePtr store(CertOpenStore(reinterpret_cast<LPCSTR>(c.provider), kEncoding, 0, 0, c.parameter));
        EXPECT_EQ(c.opens, store != nullptr);
        if (!c.opens) {
            EXPECT_EQ(kUntouched, GetLastError());
        }
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
    struct Case {
        std::string path;
        DWORD error;
    };
    const Case cases[] = {
        {"", EINVAL},
        {folder.File("no/such/folder/store"), ENOENT},
        {folder.Path(), EISDIR},
        {"/dev/null", EUCLEAN},
        {folder.File("text"), EUCLEAN},
        {folder.File("empty"), EUCLEAN},
        {folder.File("text") + "/below", ENOTDIR},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(nullptr, OpenFile(c.path));
        EXPECT_EQ(c.error, GetLastError());
    }
    EXPECT_EQ(nullptr, CertOpenStore(CERT_STORE_PROV_FILE, kEncoding, 0, 0, nullptr));
    EXPECT_EQ(nal_test::Bytes(text.begin(), text.end()), ReadFile(folder.File("text")));
    EXPECT_TRUE(ReadFile(folder.File("empty")).empty());
}

TEST(CertStore, NullHandlesFailCleanly) {
    const IdentObj der = Cert(1);
    const CertPtr context = MakeCert(der);
    EXPECT_FALSE(CertCloseStore(nullptr, 0));
    EXPECT_EQ(nullptr, CertDuplicateStore(nullptr));
    EXPECT_FALSE(CertFreeCertificateContext(nullptr));
    EXPECT_EQ(nullptr, CertDuplicateCertificateContext(nullptr));
    EXPECT_FALSE(CertDeleteCertificateFromStore(nullptr));
    DWORD size = 0;
    EXPECT_FALSE(CertGetCertificateContextProperty(nullptr, 3, nullptr, &size));
    EXPECT_FALSE(CertGetCertificateContextProperty(context.get(), 3, nullptr, nullptr));
    EXPECT_FALSE(CertSetCertificateContextProperty(nullptr, 3, 0, &size));
    EXPECT_FALSE(CertSetCertificateContextProperty(context.get(), 3, 0, nullptr));
    EXPECT_FALSE(CertAddEncodedCertificateToStore(nullptr, kEncoding, der.GetData(), der.GetSize(), 1, nullptr));
    EXPECT_EQ(kBadArgument, GetLastError());
    EXPECT_FALSE(CertAddCertificateContextToStore(nullptr, context.get(), 1, nullptr));
    EXPECT_EQ(kBadArgument, GetLastError());
    EXPECT_EQ(nullptr, CertEnumCertificatesInStore(nullptr, nullptr));
    EXPECT_EQ(kBadArgument, GetLastError());
    SetLastError(kUntouched);
    EXPECT_FALSE(CertAddCertificateContextToStore(OpenMemory().get(), nullptr, 1, nullptr));
    EXPECT_EQ(kUntouched, GetLastError());
    EXPECT_EQ(nullptr, CertGetIssuerCertificateFromStore(nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(230U, GetLastError());
    SetLastError(0);
    EXPECT_FALSE(CertVerifySubjectCertificateContext(context.get(), context.get(), nullptr));
    EXPECT_EQ(230U, GetLastError());
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
    EXPECT_FALSE(CertDeleteCertificateFromStore(CertDuplicateCertificateContext(context.get())));
    EXPECT_EQ(static_cast<DWORD>(EBADF), GetLastError());
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
    EXPECT_NE(nullptr, context->hCertStore);
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
    const StorePtr store(CertDuplicateStore(context->hCertStore));
    EXPECT_EQ(std::vector<std::string>{TextOf(der)}, Certificates(store));
}

TEST(CertContext, KeyIdentifiersOfEveryLength) {
    struct Case {
        const char* name;
        std::optional<IdentObj> id;
        bool described;
        bool addable;
    };
    const Case cases[] = {
        {"20 bytes", Filled(7), true, true},
        {"longer", Filled(7, 21), false, true},
        {"shorter", Filled(7, 8), false, true},
        {"none", IdentObj(), false, true},
        {"no extension", std::nullopt, false, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        CertBuilder builder;
        builder.subjectKeyId = c.id;
        builder.authorityKeyId = Filled(9);
        const IdentObj der = builder.Build();
        const CertPtr context = MakeCert(der);
        EXPECT_EQ(c.described ? 2U : 0U, context->pCertInfo->dwVersion);
        EXPECT_EQ(c.described ? Identifier(7).front() : 0, nal::CertContext::From(context.get())->Key().front());
        const StorePtr store = OpenMemory();
        SetLastError(0);
        EXPECT_EQ(c.addable, AddEncoded(store, der, 1) != FALSE);
        if (!c.addable) {
            EXPECT_EQ(kBadArgument, GetLastError());
        }
    }
    // One that is longer is keyed by its first 20 bytes.
    const StorePtr store = OpenMemory();
    CertBuilder builder;
    builder.subjectKeyId = Filled(7, 40);
    ASSERT_TRUE(AddEncoded(store, builder.Build(), 1));
    EXPECT_FALSE(AddEncoded(store, Cert(7), 1));
    EXPECT_EQ(kPresent, GetLastError());
}

TEST(CertContext, BytesThatAreNoCertificate) {
    CertBuilder plain;
    plain.version = -1;
    plain.subjectKeyId.reset();
    IdentObj cut = Cert(1);
    cut.SetSize(cut.GetSize() - 1);
    IdentObj trailing = Cert(1);
    trailing.Append("", 1);
    IdentObj badExtension = Cert(1);
    const struct {
        const char* name;
        IdentObj der;
    } cases[] = {
        {"a byte", IdentObj("x", 1)}, {"version 1", plain.Build()}, {"cut", cut}, {"something behind", trailing}, {"a name", NameDer("x")},
    };
    const StorePtr store = OpenMemory();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_THROW(MakeCert(c.der), XTOOStatus);
        SetLastError(0);
        EXPECT_FALSE(AddEncoded(store, c.der, 4));
        EXPECT_EQ(kBadArgument, GetLastError());
    }
    EXPECT_TRUE(Certificates(store).empty());
    EXPECT_THROW(CertCreateCertificateContext(kEncoding, nullptr, 5), std::invalid_argument);
    EXPECT_THROW(CertCreateCertificateContext(kEncoding, cut.GetData(), 0), std::invalid_argument);
    SetLastError(0);
    EXPECT_FALSE(CertAddEncodedCertificateToStore(store.get(), kEncoding, nullptr, 5, 4, nullptr));
    EXPECT_EQ(kBadArgument, GetLastError());
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

struct AddCase {
    DWORD disposition;
    const char* first;   // "": nothing there; "older", "same", "newer": what is there, with a property
    bool succeeds;
    DWORD lastError;     // kUntouched: none is set
    const char* left;
};

void PutFirst(const StorePtr& store, const IdentObj& first) {
    PCCERT_CONTEXT context = nullptr;
    ASSERT_TRUE(AddEncoded(store, first, 1, &context));
    const CertPtr owner(context);
    const IdentObj value = Filled(1);
    const CRYPT_DATA_BLOB blob = Blob(value);
    ASSERT_TRUE(CertSetCertificateContextProperty(context, 3, 0, &blob));
}

unsigned YearOf(const std::string& first) { return first == "older" ? 2019 : first == "same" ? 2020 : 2021; }

TEST(CertStore, AddsEncodedByDisposition) {
    const AddCase cases[] = {
        {0, "", true, kUntouched, ""},          {0, "older", true, kUntouched, "Fp"},
        {1, "", true, kUntouched, "N"},         {1, "older", false, kPresent, "Fp"},
        {2, "", false, 230, ""},                {2, "older", false, 230, "Fp"},
        {3, "", true, kUntouched, "N"},         {3, "newer", true, kUntouched, "N"},
        {4, "", true, kUntouched, "N"},         {4, "newer", true, kUntouched, "Np"},
        {5, "", true, kUntouched, "N"},         {5, "newer", true, kUntouched, "Np"},
        {6, "", true, kUntouched, ""},          {6, "older", true, kUntouched, "Fp"},
        {7, "older", true, kUntouched, "Fp"},   {0xFFFFFFFF, "older", true, kUntouched, "Fp"},
    };
    for (const AddCase& c : cases) {
        SCOPED_TRACE(std::to_string(c.disposition) + " " + c.first);
        const StorePtr store = OpenMemory();
        const IdentObj first = Cert(5, YearOf(c.first), "First");
        const IdentObj added = Cert(5, 2020);
        if (*c.first != '\0') PutFirst(store, first);
        SetLastError(kUntouched);
        PCCERT_CONTEXT context = nullptr;
        EXPECT_EQ(c.succeeds, AddEncoded(store, added, c.disposition, &context) != FALSE);
        EXPECT_EQ(c.lastError, GetLastError());
        EXPECT_EQ(c.left, Left(store, first, added));
        ASSERT_EQ(c.succeeds, context != nullptr);
        if (c.succeeds) {
            EXPECT_EQ(store.get(), context->hCertStore);
            EXPECT_EQ(TextOf(added), EncodingOf(context));
        }
        CertFreeCertificateContext(context);
    }
}

TEST(CertStore, AddsContextsByDisposition) {
    const AddCase cases[] = {
        {0, "", false, kUntouched, ""},         {0, "older", false, kUntouched, "Fp"},
        {1, "", true, kUntouched, "N"},         {1, "older", false, kPresent, "Fp"},
        {2, "", true, kUntouched, "N"},         {2, "newer", true, kUntouched, "N"},   // of another store: properties go
        {3, "", true, kUntouched, "N"},         {3, "newer", true, kUntouched, "N"},
        {4, "", true, kUntouched, "N"},         {4, "newer", true, kUntouched, "Np"},
        {5, "", true, kUntouched, "N"},         {5, "newer", true, kUntouched, "Np"},
        {6, "", true, kUntouched, "N"},         {6, "older", true, kUntouched, "N"},
        {6, "same", false, kPresent, "Fp"},     {6, "newer", false, kPresent, "Fp"},
        {7, "", true, kUntouched, "N"},         {7, "older", true, kUntouched, "Np"},
        {7, "same", false, kPresent, "Fp"},     {7, "newer", false, kPresent, "Fp"},
        {8, "", false, kUntouched, ""},         {8, "older", false, kUntouched, "Fp"},
    };
    for (const AddCase& c : cases) {
        SCOPED_TRACE(std::to_string(c.disposition) + " " + c.first);
        const StorePtr store = OpenMemory();
        const IdentObj first = Cert(5, YearOf(c.first), "First");
        const IdentObj added = Cert(5, 2020);
        if (*c.first != '\0') PutFirst(store, first);
        const CertPtr context = MakeCert(added);
        SetLastError(kUntouched);
        PCCERT_CONTEXT given = nullptr;
        EXPECT_EQ(c.succeeds, CertAddCertificateContextToStore(store.get(), context.get(), c.disposition, &given) != FALSE);
        EXPECT_EQ(c.lastError, GetLastError());
        EXPECT_EQ(c.left, Left(store, first, added));
        // The caller's own context comes back, but for a certificate that is present.
        EXPECT_EQ(c.lastError == kPresent ? nullptr : context.get(), given);
        CertFreeCertificateContext(given);
    }
}

TEST(CertStore, AddsAContextOfTheSameStore) {
    const StorePtr store = OpenMemory();
    const IdentObj der = Cert(5);
    PutFirst(store, der);
    const CertPtr own(CertEnumCertificatesInStore(store.get(), nullptr));
    // No transfer within one store, so the properties stay where only a transfer would take them.
    EXPECT_TRUE(CertAddCertificateContextToStore(store.get(), own.get(), 2, nullptr));
    EXPECT_EQ("Np", Left(store, IdentObj(), der));
    EXPECT_FALSE(CertAddCertificateContextToStore(store.get(), own.get(), 7, nullptr));
    EXPECT_EQ(kPresent, GetLastError());
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
    PutFirst(store, Cert(4));
    PutFirst(store, Cert(5));
    PutFirst(store, Cert(6));
    const CertPtr middle = MakeCert(Cert(5));
    PCCERT_CONTEXT found = CertFindCertificateInStore(store.get(), kEncoding, 0, CERT_FIND_EXISTING, middle.get(), nullptr);
    ASSERT_NE(nullptr, found);
    EXPECT_TRUE(CertDeleteCertificateFromStore(found));
    EXPECT_EQ((std::vector<std::string>{TextOf(Cert(4)), TextOf(Cert(6))}), Certificates(store));
    EXPECT_TRUE(AddEncoded(store, Cert(5), 1));
    EXPECT_EQ("?p" "N" "?p", Left(store, IdentObj(), Cert(5)));
    // One that is gone already: the walk over its records succeeds.
    EXPECT_TRUE(CertDeleteCertificateFromStore(CertDuplicateCertificateContext(middle.get())));
}

TEST(CertStore, EnumeratesInKeyOrderAndConsumesThePreviousContext) {
    const StorePtr store = OpenMemory();
    EXPECT_EQ(nullptr, CertEnumCertificatesInStore(store.get(), nullptr));
    EXPECT_EQ(kNotFound, GetLastError());
    std::vector<std::string> expected;
    for (unsigned char id : {9, 3, 200, 5}) ASSERT_TRUE(AddEncoded(store, Cert(id), 1));
    for (unsigned char id : {3, 5, 9, 200}) expected.push_back(TextOf(Cert(id)));
    EXPECT_EQ(expected, Certificates(store));

    PCCERT_CONTEXT first = CertEnumCertificatesInStore(store.get(), nullptr);
    ASSERT_NE(nullptr, first);
    EXPECT_EQ(0U, GetLastError());
    EXPECT_EQ(store.get(), first->hCertStore);
    // The position is the store's: a find moves the enumeration.
    const CertPtr other(CertFindCertificateInStore(store.get(), kEncoding, 0, CERT_FIND_ANY, nullptr, CertDuplicateCertificateContext(first)));
    EXPECT_EQ(TextOf(Cert(5)), EncodingOf(other.get()));
    first = CertEnumCertificatesInStore(store.get(), first);
    EXPECT_EQ(TextOf(Cert(9)), EncodingOf(first));

    // Of another store: an error, and consumed all the same.
    const StorePtr elsewhere = OpenMemory();
    EXPECT_EQ(nullptr, CertEnumCertificatesInStore(elsewhere.get(), first));
    EXPECT_EQ(kBadArgument, GetLastError());
}

TEST(CertStore, EnumerationSurvivesDeletionsOnItsWay) {
    const StorePtr store = OpenMemory();
    for (unsigned char id = 1; id <= 20; ++id) PutFirst(store, Cert(id));
    int seen = 0;
    PCCERT_CONTEXT context = nullptr;
    while ((context = CertEnumCertificatesInStore(store.get(), context)) != nullptr) {
        // A deletion walks to the end of the tree and leaves the position there, so the enumeration ends: kept so.
        ++seen;
        if (seen == 7) CertDeleteCertificateFromStore(CertDuplicateCertificateContext(context));
    }
    EXPECT_EQ(7, seen);
    EXPECT_EQ(19U, Certificates(store).size());
}

TEST(CertStore, FindsByType) {
    const StorePtr store = OpenMemory();
    CertBuilder builder;
    std::vector<IdentObj> certs;
    const struct {
        unsigned char id;
        const char* subject;
        const char* issuer;
        const char* serial;
    } rows[] = {{1, "A", "Root", "\x01\x02"}, {2, "B", "Root", "\x02\x01"}, {3, "A", "Sub", "\x01\x02"}, {4, "AA", "Sub", "\x05"}};
    for (const auto& row : rows) {
        builder.subjectKeyId = Filled(row.id);
        builder.subject = row.subject;
        builder.issuer = row.issuer;
        builder.serial = IdentObj(row.serial, static_cast<unsigned>(std::strlen(row.serial)));
        certs.push_back(builder.Build());
        ASSERT_TRUE(AddEncoded(store, certs.back(), 1));
    }
    const IdentObj nameA = NameDer("A");
    const IdentObj nameRoot = NameDer("Root");
    const IdentObj nameNobody = NameDer("Nobody");
    const CRYPTOAPI_BLOB a = Blob(nameA);
    const CRYPTOAPI_BLOB root = Blob(nameRoot);
    const CRYPTOAPI_BLOB nobody = Blob(nameNobody);
    const CRYPTOAPI_BLOB empty{};
    const CertPtr third = MakeCert(certs[2]);
    const CertPtr stranger = MakeCert(Cert(77));
    CERT_INFO otherSerial = *third->pCertInfo;
    otherSerial.SerialNumber.cbData = 1;
    const struct {
        const char* name;
        DWORD type;
        const void* parameter;
        std::vector<int> found;
        DWORD lastError;
    } cases[] = {
        {"any", 0, nullptr, {0, 1, 2, 3}, kNotFound},
        {"subject", 0x20007, &a, {0, 2}, kNotFound},
        {"subject, nobody's", 0x20007, &nobody, {}, kNotFound},
        {"subject, empty", 0x20007, &empty, {}, kNotFound},
        {"subject, null", 0x20007, nullptr, {}, kBadArgument},
        {"issuer", 0x20004, &root, {0, 1}, kNotFound},
        {"subject certificate", 0xB0000, third->pCertInfo, {2}, kNotFound},
        {"subject certificate, part of the serial", 0xB0000, &otherSerial, {}, kNotFound},
        {"key identifier, stranger's", 0xD0000, stranger.get(), {}, kNotFound},
        {"key identifier, null", 0xD0000, nullptr, {}, kBadArgument},
        {"public key", 0x60000, &a, {}, 230},
        {"unknown", 1, &a, {}, 230},
        {"unknown, null", 0x70000, nullptr, {}, 230},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<std::string> expected;
        for (int index : c.found) expected.push_back(TextOf(certs[index]));
        std::vector<std::string> found;
        PCCERT_CONTEXT context = nullptr;
        while ((context = CertFindCertificateInStore(store.get(), kEncoding, 0, c.type, c.parameter, context)) != nullptr) {
            EXPECT_EQ(0U, GetLastError());
            found.push_back(EncodingOf(context));
        }
        EXPECT_EQ(c.lastError, GetLastError());
        EXPECT_EQ(expected, found);
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
    ASSERT_TRUE(AddEncoded(a, Cert(1), 1));
    ASSERT_TRUE(AddEncoded(a, Cert(2), 1));
    std::filesystem::create_hard_link(folder.File("s"), folder.File("link"));
    const StorePtr b = OpenFile(folder.File("link"));
    ASSERT_TRUE(b);
    ASSERT_TRUE(AddEncoded(b, Cert(3), 1));
    EXPECT_FALSE(AddEncoded(a, Cert(3), 1));
    PCCERT_CONTEXT inA = CertEnumCertificatesInStore(a.get(), nullptr);
    EXPECT_EQ(3U, Certificates(b).size());
    inA = CertEnumCertificatesInStore(a.get(), inA);
    ASSERT_NE(nullptr, inA);
    EXPECT_EQ(TextOf(Cert(2)), EncodingOf(inA));
    CertFreeCertificateContext(inA);
}

TEST(CertStore, SkipsRecordsThatAreNoCertificates) {
    const TempFolder folder;
    const StorePtr store = OpenFile(folder.File("s"));
    auto& raw = *nal::CertStore::FromHandle(store.get());
    ASSERT_TRUE(AddEncoded(store, Cert(5), 1));
    ASSERT_EQ(0, raw.storeCert(Identifier(1), AsView("no certificate")));
    ASSERT_EQ(0, raw.storeCert(Identifier(2), {}));
    CertBuilder noKeyId;
    noKeyId.subjectKeyId.reset();
    noKeyId.authorityKeyId = Filled(1);
    const IdentObj stranger = noKeyId.Build();
    ASSERT_EQ(0, raw.storeCert(Identifier(3), stranger));
    IdentObj damaged = Cert(9);
    damaged.GetData()[damaged.GetSize() - 67] ^= 0xFF;  // the tag of the signature: names are found, the rest does not decode
    ASSERT_EQ(0, raw.storeCert(Identifier(9), damaged));
    EXPECT_EQ((std::vector<std::string>{TextOf(stranger), TextOf(Cert(5))}), Certificates(store));
    const IdentObj name = NameDer("Subject");
    const CRYPTOAPI_BLOB subject = Blob(name);
    PCCERT_CONTEXT found = nullptr;
    int count = 0;
    while ((found = CertFindCertificateInStore(store.get(), kEncoding, 0, CERT_FIND_SUBJECT_NAME, &subject, found)) != nullptr) ++count;
    EXPECT_EQ(2, count);
    EXPECT_EQ(kNotFound, GetLastError());
}

TEST(CertFindExtension, TakesTheFirstPrefix) {
    char longOid[] = "2.5.29.14";
    char shortOid[] = "2.5.29.1";
    char otherOid[] = "2.5.29.15";
    CERT_EXTENSION entries[] = {{otherOid, FALSE, {}}, {shortOid, FALSE, {}}, {longOid, FALSE, {}}};
    EXPECT_EQ(&entries[1], CertFindExtension("2.5.29.14", 3, entries));
    EXPECT_EQ(&entries[0], CertFindExtension("2.5.29.15", 3, entries));
    EXPECT_EQ(&entries[1], CertFindExtension("2.5.29.19", 3, entries));
    EXPECT_EQ(nullptr, CertFindExtension("2.5.29", 3, entries));
    EXPECT_EQ(nullptr, CertFindExtension("2.5.29.14", 0, entries));
    EXPECT_EQ(nullptr, CertFindExtension("2.5.29.14", 0, nullptr));
}

TEST(CertVerifyValidityNesting, IsStrict) {
    const struct {
        unsigned subjectFrom, subjectTo, issuerFrom, issuerTo;
        bool nested;
    } cases[] = {
        {2021, 2024, 2020, 2025, true},  {2020, 2025, 2020, 2025, false}, {2020, 2024, 2020, 2025, false},
        {2021, 2025, 2020, 2025, false}, {2019, 2024, 2020, 2025, false}, {2021, 2026, 2020, 2025, false},
    };
    for (const auto& c : cases) {
        CERT_INFO subject{};
        CERT_INFO issuer{};
        subject.NotBefore = Date(c.subjectFrom);
        subject.NotAfter = Date(c.subjectTo);
        issuer.NotBefore = Date(c.issuerFrom);
        issuer.NotAfter = Date(c.issuerTo);
        EXPECT_EQ(c.nested, CertVerifyValidityNesting(&subject, &issuer) != FALSE) << c.subjectFrom << ' ' << c.subjectTo;
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
