#include "support/hierarchy.h"

#include <cstdlib>
#include <filesystem>
#include <iomanip>
#include <ostream>
#include <stdexcept>

#include "certstorage/cert_store.h"
#include "certstorage/store_access.h"
#include "nal/settings.h"
#include "nal/trust_storages.h"
#include "support/certificate_parts.h"
#include "support/trust_list_builder.h"
#include "too/testing.h"
#include "too/time.h"

namespace nal_test {
namespace {

constexpr unsigned kEncoding = 0x10001;
constexpr char kListRoot[] = "List Root";
constexpr char kListSigner[] = "List Signer";

void Require(bool done, const char* what) {
    if (!done) throw std::runtime_error(what);
}

// Stored bytes 2 and 3, which lie in front of the last two, name network 12ab.
IdentObj SerialOfNetwork(unsigned char id) {
    IdentObj serial = Filled(1, 16);
    serial.GetData()[1] = id;
    serial.GetData()[12] = 0x12;
    serial.GetData()[13] = 0xAB;
    return serial;
}

void Add(CNALCertStorage& storage, const IdentObj& cert) { Require(storage.AddEncodetCertificate(cert, kEncoding) != FALSE, "certificate"); }

IdentObj ToDer(const CNALCertContext& cert) { return {cert.GetContext()->pbCertEncoded, cert.GetContext()->cbCertEncoded}; }

std::string CommonNameOf(const CNALCertContext& cert) {
    const CRYPTOAPI_BLOB& name = cert.GetContext()->pCertInfo->Subject;
    // SEQUENCE { SET { SEQUENCE { 2.5.4.3, UTF8String } } } with lengths below 128
    return {reinterpret_cast<const char*>(name.pbData) + 13, name.cbData - 13};
}

}  // namespace

FILETIME At(unsigned year, unsigned month, unsigned day, unsigned hour, unsigned minute, unsigned second) {
    CTOOFileTime time(Date(year, month, day));
    return CTOOFileTime(time.GetTicks() + ((hour * 60ULL + minute) * 60 + second) * CTOOFileTime::c_ticksPerSecond);
}

const TestSigner& KeyNamed(const std::string& name) {
    static std::map<std::string, std::unique_ptr<TestSigner>> keys;
    std::unique_ptr<TestSigner>& key = keys[name];
    if (key == nullptr) key = std::make_unique<TestSigner>();
    return *key;
}

BuiltExtension BasicConstraints(bool isCA, int pathLength) {
    return {"2.5.29.19", true, Der([&](asnt::Writer& writer) {
                writer.Sequence([&] {
                    if (isCA) writer.Boolean(true);
                    if (pathLength >= 0) writer.Integer(pathLength);
                });
            })};
}

BuiltExtension OldBasicConstraints(const IdentObj& subjectType, int pathLength) {
    return {"2.5.29.10", true, Der([&](asnt::Writer& writer) {
                writer.Sequence([&] {
                    writer.BitString(subjectType);
                    if (pathLength >= 0) writer.Integer(pathLength);
                });
            })};
}

Hierarchy::Hierarchy() {
    std::filesystem::create_directories(m_folder.File("home/trust"));
    std::filesystem::create_directories(m_folder.File("net/d_station"));
    setenv("NAL_HOME", m_folder.File("home").c_str(), 1);
    m_VPN_TrustStorages.Reset();
    m_VPN_TrustStorages.m_transportFolder = m_folder.File("net");
    gApplicationFlag = 0;
    too_testing::SetClock(At(2026, 3, 1, 12));
    AddCA("Root", "Root");
    AddCA("CA", "Root");
    AddCA("Sub", "CA");
    AddEnd("End", "Sub");
}

Hierarchy::~Hierarchy() {
    m_VPN_TrustStorages.Reset();
    gApplicationFlag = 0;
    too_testing::ResetClock();
}

PlannedCert& Hierarchy::AddEnd(const std::string& subject, const std::string& issuer, Place place) {
    const unsigned char id = m_nextId++;
    PlannedCert& cert = certs[subject];
    cert.builder.subject = subject;
    cert.builder.issuer = issuer;
    cert.builder.serial = SerialOfNetwork(id);
    cert.builder.subjectKeyId = Filled(id);
    cert.builder.authorityKeyId = certs[issuer].builder.subjectKeyId;
    cert.builder.extensions.clear();
    cert.key = subject;
    cert.signer = issuer;
    cert.place = place;
    return cert;
}

PlannedCert& Hierarchy::AddCA(const std::string& subject, const std::string& issuer, Place place) {
    PlannedCert& cert = AddEnd(subject, issuer, place);
    cert.builder.extensions = {BasicConstraints(true)};
    PlannedCrl& crl = crls[subject];
    crl.builder.issuer = subject;
    crl.builder.authorityKeyId = cert.builder.subjectKeyId;
    crl.builder.thisUpdate = Date(2026);
    crl.builder.nextUpdate = Date(2027);
    crl.signer = subject;
    crl.place = place;
    return cert;
}

void Hierarchy::Remove(const std::string& subject) {
    certs.erase(subject);
    crls.erase(subject);
}

void Hierarchy::Revoke(const std::string& subject) {
    const CertBuilder& cert = certs.at(subject).builder;
    crls.at(cert.issuer).builder.entries.push_back({cert.serial});
}

CNALCertContext Hierarchy::Issue(const std::string& subject) const {
    // No two signatures are the same, so one that is stored is not made again.
    if (const auto stored = m_stored.find(subject); stored != m_stored.end()) return CNALCertContext(stored->second);
    const PlannedCert& cert = certs.at(subject);
    return CNALCertContext(KeyNamed(cert.signer).Issue(cert.builder, KeyNamed(cert.key)));
}

IdentObj Hierarchy::IssueCrl(const std::string& issuer) const {
    const PlannedCrl& crl = crls.at(issuer);
    return KeyNamed(crl.signer).Sign(crl.builder.Build());
}

IdentObj Hierarchy::SignedList(const std::vector<IdentObj>& listCerts, const std::vector<IdentObj>& listCrls) const {
    TrustListBuilder list;
    list.certificates = listCerts;
    list.crls = listCrls;
    list.signer = ToDer(Issue(kListSigner));
    return list.Build(KeyNamed(kListSigner));
}

void Hierarchy::Deliver(const std::string& name, const IdentObj& message) const {
    WriteFile(m_folder.File("net/d_station/" + name), message.GetData(), message.GetSize());
}

void Hierarchy::Store() {
    AddCA(kListRoot, kListRoot);
    AddEnd(kListSigner, kListRoot).builder.extensions = {TrustListUsage()};

    std::map<Place, std::vector<IdentObj>> placedCerts;
    std::map<Place, std::vector<IdentObj>> placedCrls;
    for (const auto& [subject, cert] : certs) {
        m_stored[subject] = ToDer(Issue(subject));
        placedCerts[cert.place].push_back(m_stored[subject]);
    }
    for (const auto& [issuer, crl] : crls) placedCrls[crl.place].push_back(IssueCrl(issuer));
    Remove(kListRoot);
    certs.erase(kListSigner);

    CNALString mainName(m_folder.File("home/trust/trusted.dat").c_str());
    CNALString extraName("extra");
    CNALCertStorage main(mainName, CERT_STORE_PROV_FILENAME_A, 0, 0, nullptr);
    Require(m_extra.OpenStorage(extraName, CERT_STORE_PROV_MEMORY, 0, 0, nullptr) != FALSE, "storage");
    m_extra.m_untrusted = extraUntrusted;
    for (const auto& [place, storage] : {std::pair{Place::Main, &main}, std::pair{Place::Extra, &m_extra}}) {
        // One transaction for all, since each is made durable.
        nal::StoreChange whole(*nal::CertStore::FromHandle(storage->GetStore()));
        for (const IdentObj& cert : placedCerts[place]) Add(*storage, cert);
        for (const IdentObj& crl : placedCrls[place]) Require(storage->AddEncodetCRL(crl, kEncoding) != FALSE, "CRL");
        Require(whole.Commit() == 0, "commit");
    }
    if (placedCerts.contains(Place::TrustList)) {
        Deliver("0000_trl.p7s", SignedList(placedCerts[Place::TrustList], placedCrls[Place::TrustList]));
    }
    if (placedCerts.contains(Place::UnsignedList)) {
        Deliver("12ab.trl", UnsignedList(placedCerts[Place::UnsignedList], placedCrls[Place::UnsignedList]));
    }
}

Verdict VerdictOf(const CNALCertificateChain& chain) {
    Verdict verdict;
    for (const CNALChainElement& element : chain.m_elements) verdict.elements.push_back(element.m_trustErrors);
    verdict.chain = chain.GetErrors();
    return verdict;
}

std::ostream& operator<<(std::ostream& out, const Verdict& verdict) {
    out << std::hex;
    for (const DWORD bits : verdict.elements) out << bits << ' ';
    return out << "= " << verdict.chain << std::dec;
}

std::string PathOf(const CNALCertificateChain& chain) {
    std::string path;
    for (const CNALChainElement& element : chain.m_elements) path += (path.empty() ? "" : " ") + CommonNameOf(element.m_cert);
    return path;
}

}  // namespace nal_test
