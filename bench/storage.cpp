// Searches and changes of certificate storages as they grow. Names say what is measured:
//
//   IssuerSearch/N/F       the issuer of one certificate among N, without and with (F = 1) a file; no check asked for, index warm
//   IndexMaking/N          the same in a file, the first after a change
//   Revocation/E           the same among three with the revocation check, against a CRL of E entries
//   OneChange/N            one certificate added to a file of N, durable
//   Import/N               N certificates brought into an empty file as one list, durable
//   WrapperCopy            one copy of a CNALCertContext
#include <benchmark/benchmark.h>

#include <list>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>

#include "nal/storage.h"
#include "support/cert_builder.h"
#include "support/temp_folder.h"
#include "support/test_signer.h"

namespace {

using nal_test::CertBuilder;

IdentObj RandomId() {
    static std::mt19937 random(1);
    IdentObj id(nullptr, 20);
    for (unsigned i = 0; i < 20; ++i) id.GetData()[i] = static_cast<unsigned char>(random());
    return id;
}

CertBuilder Some(unsigned number) {
    CertBuilder builder;
    builder.subject = "Subject " + std::to_string(number);
    builder.subjectKeyId = RandomId();
    builder.extensions.push_back({"2.5.29.99", false, nal_test::Filled(0x55, 280)});
    return builder;
}

const std::list<CNALCertContext>& Certificates(unsigned count) {
    static std::map<unsigned, std::list<CNALCertContext>> made;
    std::list<CNALCertContext>& list = made[count];
    for (auto i = static_cast<unsigned>(list.size()); i < count; ++i) list.emplace_back(Some(i).Build());
    return list;
}

struct Place {
    explicit Place(bool hasFile) {
        CNALString name(hasFile ? folder.File("store").c_str() : "");
        if (!storage.OpenStorage(name, hasFile ? CERT_STORE_PROV_FILENAME_A : CERT_STORE_PROV_MEMORY, 0, 0, nullptr)) {
            throw std::runtime_error("no storage");
        }
    }
    nal_test::TempFolder folder;
    CNALCertStorage storage;
};

const nal_test::TestSigner& Root() {
    static const nal_test::TestSigner root;
    return root;
}

// Adds a root and gives a certificate that it issued.
CNALCertContext AddRootAndIssue(CNALCertStorage& storage) {
    CertBuilder ca;
    ca.issuer = ca.subject = "The root";
    ca.subjectKeyId = nal_test::Filled(9);
    storage.AddCertificate(CNALCertContext(Root().Issue(ca, Root())));
    CertBuilder leaf;
    leaf.issuer = "The root";
    leaf.subjectKeyId = nal_test::Filled(8);
    leaf.serial = nal_test::Filled(7, 4);
    return CNALCertContext(Root().Issue(leaf, Root()));
}

void Search(benchmark::State& state, CNALCertStorage& storage, const CNALCertContext& leaf, unsigned checks) {
    CNALCertContext issuer;
    unsigned flags = checks;
    storage.FindIssuerCertificate(leaf, issuer, &flags, nullptr);  // makes the index
    for (auto _ : state) {
        flags = checks;
        if (!storage.FindIssuerCertificate(leaf, issuer, &flags, nullptr)) state.SkipWithError("no issuer");
    }
}

// The first search after a change.
void IndexMaking(benchmark::State& state) {
    Place place(true);
    place.storage.AddCertificateList(Certificates(static_cast<unsigned>(state.range(0))));
    const CNALCertContext leaf = AddRootAndIssue(place.storage);
    for (auto _ : state) {
        state.PauseTiming();
        place.storage.AddCertificate(Certificates(1).front());
        state.ResumeTiming();
        CNALCertContext issuer;
        unsigned flags = 0;
        place.storage.FindIssuerCertificate(leaf, issuer, &flags, nullptr);
    }
}

void IssuerSearch(benchmark::State& state) {
    Place place(state.range(1) != 0);
    place.storage.AddCertificateList(Certificates(static_cast<unsigned>(state.range(0))));
    const CNALCertContext leaf = AddRootAndIssue(place.storage);
    Search(state, place.storage, leaf, 0);
}

void Revocation(benchmark::State& state) {
    Place place(false);
    const CNALCertContext leaf = AddRootAndIssue(place.storage);
    nal_test::CrlBuilder crl;
    crl.issuer = "The root";
    crl.authorityKeyId = nal_test::Filled(9);
    for (long i = 0; i < state.range(0); ++i) {
        const unsigned char serial[] = {1, static_cast<unsigned char>(i >> 16), static_cast<unsigned char>(i >> 8),
                                        static_cast<unsigned char>(i)};
        crl.entries.push_back({IdentObj(serial, sizeof serial)});
    }
    place.storage.AddEncodetCRL(Root().Sign(crl.Build()), 0x10001);
    Search(state, place.storage, leaf, CERT_STORE_REVOCATION_FLAG);
}

void OneChange(benchmark::State& state) {
    Place place(true);
    place.storage.AddCertificateList(Certificates(static_cast<unsigned>(state.range(0))));
    unsigned number = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const CNALCertContext one(Some(1000000 + number++).Build());
        state.ResumeTiming();
        if (!place.storage.AddCertificate(one)) state.SkipWithError("not added");
    }
}

void Import(benchmark::State& state) {
    const auto& list = Certificates(static_cast<unsigned>(state.range(0)));
    for (auto _ : state) {
        state.PauseTiming();
        auto place = std::make_unique<Place>(true);
        state.ResumeTiming();
        if (!place->storage.AddCertificateList(list)) state.SkipWithError("not added");
        state.PauseTiming();
        place.reset();
        state.ResumeTiming();
    }
}

void WrapperCopy(benchmark::State& state) {
    const CNALCertContext& original = Certificates(1).front();
    for (auto _ : state) benchmark::DoNotOptimize(CNALCertContext(original));
}

}  // namespace

BENCHMARK(IssuerSearch)->ArgsProduct({{100, 1000, 10000, 100000}, {0, 1}})->Unit(benchmark::kMicrosecond);
BENCHMARK(IndexMaking)->RangeMultiplier(10)->Range(100, 100000)->Unit(benchmark::kMicrosecond)->MinTime(0.1);
BENCHMARK(Revocation)->Arg(10)->Arg(100000)->Unit(benchmark::kMicrosecond);
BENCHMARK(OneChange)->Arg(10)->Arg(1000)->Arg(10000)->Iterations(20)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Import)->Arg(10000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(WrapperCopy);
