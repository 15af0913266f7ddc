// Chains of three (end certificate, authority, root) over warm storages of 10,000 certificates each. Names say what is measured:
//
//   Signatures        the three signature checks alone, as CNALCertContext::IsValidSignature makes them
//   Chain/P           NALVerifyCertificate with all checks; the authority lies in P: 0 the main storage, 1 a trust list, 2 an extra storage
//   ChainBeside/P     the same without the signature checks: what a chain costs beside them
//   ChainAmong/N      the same as Chain/2 with an extra storage of N certificates
//   LongChain/N       a chain of N authorities in an extra storage, without signature checks; N items
//   MaySign           NALCanSignByCert
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>

#include "nal/chain.h"
#include "nal/trust_storages.h"
#include "nal/verify.h"
#include "support/cert_builder.h"
#include "support/temp_folder.h"
#include "support/test_signer.h"
#include "support/trust_list_builder.h"
#include "too/time.h"

namespace {

using nal_test::CertBuilder;
using nal_test::TestSigner;

constexpr unsigned kEncoding = 0x10001;
constexpr unsigned kOthers = 10000;
enum Place { Main, TrustList, Extra };

IdentObj RandomId() {
    static std::mt19937 random(1);
    IdentObj id(nullptr, 20);
    for (unsigned i = 0; i < 20; ++i) id.GetData()[i] = static_cast<unsigned char>(random());
    return id;
}

// Certificates of about 640 bytes that have nothing to do with the chain.
std::list<CNALCertContext> Others(unsigned count) {
    std::list<CNALCertContext> list;
    for (unsigned i = 0; i < count; ++i) {
        CertBuilder builder;
        builder.subject = "Subject " + std::to_string(i);
        builder.subjectKeyId = RandomId();
        builder.extensions.push_back({"2.5.29.99", false, nal_test::Filled(0x55, 280)});
        list.emplace_back(builder.Build());
    }
    return list;
}

IdentObj ToDer(const CNALCertContext& cert) { return {cert.GetContext()->pbCertEncoded, cert.GetContext()->cbCertEncoded}; }

void OpenExtra(CNALCertStorage& storage) {
    CNALString name("extra");
    storage.OpenStorage(name, CERT_STORE_PROV_MEMORY, 0, 0, nullptr);
    storage.m_untrusted = 1;
}

// The process's trust storages, and everything that chains are built of.
class World {
public:
    static World& Get() {
        static World world;
        return world;
    }

    CNALCertContext root;
    CNALCertContext authorities[3];  // by place
    CNALCertContext ends[3];
    CNALCertStorage extra;

    // A place's authority with its CRL, among others.
    void Fill(CNALCertStorage& storage, Place place, unsigned others) const {
        if (!storage.AddCertificateList(Others(others)) || !storage.AddCertificate(authorities[place]) ||
            !storage.AddEncodetCRL(CrlOf(NameOf(place), 10 + place, m_key), kEncoding)) {
            throw std::runtime_error("no storage");
        }
    }

private:
    World() {
        setenv("NAL_HOME", m_folder.File("home").c_str(), 1);
        std::filesystem::create_directories(m_folder.File("home/trust"));
        std::filesystem::create_directories(m_folder.File("net/d_station"));
        m_VPN_TrustStorages.Reset();
        m_VPN_TrustStorages.m_transportFolder = m_folder.File("net");

        root = CNALCertContext(m_rootKey.Issue(Named("Root", "Root", 1, 1), m_rootKey));
        CNALString mainName(m_folder.File("home/trust/trusted.dat").c_str());
        CNALCertStorage main(mainName, CERT_STORE_PROV_FILENAME_A, 0, 0, nullptr);
        OpenExtra(extra);
        nal_test::TrustListBuilder list;

        for (const Place place : {Main, TrustList, Extra}) IssueAuthority(place);
        Fill(main, Main, kOthers);
        main.AddCertificate(root);
        main.AddEncodetCRL(CrlOf("Root", 1, m_rootKey), kEncoding);
        Fill(extra, Extra, kOthers);
        list.certificates.push_back(ToDer(authorities[TrustList]));
        for (const CNALCertContext& other : Others(kOthers)) list.certificates.push_back(ToDer(other));
        list.crls.push_back(CrlOf(NameOf(TrustList), 10 + TrustList, m_key));
        CertBuilder signer = Named("List signer", "Root", 50, 1);
        signer.extensions.push_back(nal_test::TrustListUsage());
        list.signer = m_rootKey.Issue(signer, m_key);
        list.signingTime = CTOOFileTime::Now();
        const IdentObj message = list.Build(m_key);
        nal_test::WriteFile(m_folder.File("net/d_station/0000_trl.p7s"), message.GetData(), message.GetSize());
    }

    static std::string NameOf(Place place) { return "Authority " + std::to_string(place); }

    static CertBuilder Named(const std::string& subject, const std::string& issuer, unsigned id, unsigned issuerId) {
        CertBuilder builder;
        builder.subject = subject;
        builder.issuer = issuer;
        builder.subjectKeyId = nal_test::Filled(static_cast<unsigned char>(id));
        builder.authorityKeyId = nal_test::Filled(static_cast<unsigned char>(issuerId));
        builder.serial = nal_test::Filled(static_cast<unsigned char>(id), 16);
        builder.notAfter = nal_test::Date(2049);
        return builder;
    }

    static IdentObj CrlOf(const std::string& issuer, unsigned id, const TestSigner& key) {
        nal_test::CrlBuilder crl;
        crl.issuer = issuer;
        crl.authorityKeyId = nal_test::Filled(static_cast<unsigned char>(id));
        for (unsigned char i = 0; i < 100; ++i) crl.entries.push_back({nal_test::Filled(static_cast<unsigned char>(i + 1), 15)});
        return key.Sign(crl.Build());
    }

    void IssueAuthority(Place place) {
        authorities[place] = CNALCertContext(m_rootKey.Issue(Named(NameOf(place), "Root", 10 + place, 1), m_key));
        CertBuilder end = Named("End", NameOf(place), 20 + place, 10 + place);
        end.extensions.push_back({"2.5.29.15", true, CNALKeyUsage(CNALKeyUsage::DigitalSignature).WriteData()});
        ends[place] = CNALCertContext(m_key.Issue(end, m_key));
    }

    nal_test::TempFolder m_folder;
    TestSigner m_rootKey;
    TestSigner m_key;
};

void Verify(benchmark::State& state, const CNALCertContext& end, CNALCertStorage& extra, unsigned checks) {
    CNALCertificateChain warm;
    NALVerifyCertificate(end, warm, nullptr, &extra);
    for (auto _ : state) {
        CNALCertificateChain chain;
        unsigned flags = checks;
        if (!NALVerifyCertificate(end, chain, &flags, &extra) || chain.GetErrors() != 0 || chain.GetCount() != 3) {
            state.SkipWithError("a chain with faults");
        }
    }
    state.SetItemsProcessed(state.iterations());
}

constexpr unsigned kAllChecks = 7;
constexpr unsigned kAllButSignatures = 6;

void VerifyIn(benchmark::State& state, unsigned checks) {
    World& world = World::Get();
    Verify(state, world.ends[state.range(0)], world.extra, checks);
}

void Chain(benchmark::State& state) { VerifyIn(state, kAllChecks); }
void ChainBeside(benchmark::State& state) { VerifyIn(state, kAllButSignatures); }

void ChainAmong(benchmark::State& state) {
    const World& world = World::Get();
    CNALCertStorage storage;
    OpenExtra(storage);
    world.Fill(storage, Extra, static_cast<unsigned>(state.range(0)));
    Verify(state, world.ends[Extra], storage, kAllChecks);
}

void Signatures(benchmark::State& state) {
    World& world = World::Get();
    for (auto _ : state) {
        if (!world.ends[0].IsValidSignature(world.authorities[0]) || !world.authorities[0].IsValidSignature(world.root) ||
            !world.root.IsValidSignature(world.root)) {
            state.SkipWithError("a signature that does not hold");
        }
    }
    state.SetItemsProcessed(state.iterations());
}

std::string Numbered(unsigned n) { return std::string("N").append(std::to_string(n)); }

void LongChain(benchmark::State& state) {
    World::Get();
    const auto count = static_cast<unsigned>(state.range(0));
    CNALString name;
    CNALCertStorage storage(name, CERT_STORE_PROV_MEMORY, 0, 0, nullptr);
    std::list<CNALCertContext> certs;
    IdentObj above = RandomId();
    for (unsigned n = count; n-- > 0;) {
        CertBuilder builder;
        builder.subject = Numbered(n);
        builder.issuer = Numbered(n + 1);
        builder.authorityKeyId = above;
        builder.subjectKeyId = above = RandomId();
        certs.emplace_front(builder.Build());
    }
    storage.AddCertificateList(certs);
    for (auto _ : state) {
        CNALCertificateChain chain;
        unsigned flags = CERT_STORE_TIME_VALIDITY_FLAG;
        if (!NALVerifyCertificate(certs.front(), chain, &flags, &storage) || chain.GetCount() != count) state.SkipWithError("no chain");
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void MaySign(benchmark::State& state) {
    const CNALCertContext& end = World::Get().ends[0];
    for (auto _ : state) {
        if (!NALCanSignByCert(end, false, CTOOFileTime())) state.SkipWithError("refused");
    }
}

}  // namespace

BENCHMARK(ChainBeside)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);
BENCHMARK(Signatures)->Unit(benchmark::kMicrosecond)->ThreadRange(1, 8)->UseRealTime();
BENCHMARK(Chain)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(Chain)->Arg(0)->Unit(benchmark::kMicrosecond)->ThreadRange(2, 8)->UseRealTime();
BENCHMARK(ChainAmong)->RangeMultiplier(10)->Range(100, 100000)->Unit(benchmark::kMicrosecond);
BENCHMARK(LongChain)->Arg(10)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(MaySign)->Unit(benchmark::kMicrosecond);
