// The store against the bare B-tree beneath it. Names say what is compared:
//
//   BareTree...    Berkeley DB through its 1.85 interface with the store's parameters, nothing else
//   Store...       the same through the Cert* functions
//   FreeStanding   CertCreateCertificateContext and its release
#include <benchmark/benchmark.h>

#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "certstorage/tree.h"
#include "nal/wincrypt.h"
#include "support/cert_builder.h"
#include "support/temp_folder.h"

namespace {

constexpr DWORD kEncoding = 0x10001;

// Certificates of about 640 bytes, each with a name and a random identifier of its own.
const std::vector<IdentObj>& Certificates(std::size_t count) {
    static std::vector<IdentObj> all;
    static std::mt19937 random(1);
    while (all.size() < count) {
        nal_test::CertBuilder builder;
        builder.subject = "Subject " + std::to_string(all.size());
        IdentObj id(nullptr, 20);
        for (unsigned i = 0; i < 20; ++i) id.GetData()[i] = static_cast<unsigned char>(random());
        builder.subjectKeyId = id;
        builder.authorityKeyId = nal_test::Filled(9);
        builder.extensions.push_back({"2.5.29.15", true, IdentObj("\x03\x02\x05\xA0", 4)});
        builder.extensions.push_back({"2.5.29.19", true, IdentObj("\x30\x00", 2)});
        builder.extensions.push_back({"2.5.29.99", false, nal_test::Filled(0x55, 280)});
        all.push_back(builder.Build());
    }
    return all;
}

nal::RecordKey KeyOf(PCCERT_CONTEXT context) {
    nal::RecordKey key;
    key.kind = nal::kKindCert;
    const CERT_EXTENSION* id = CertFindExtension("2.5.29.14", context->pCertInfo->cExtension, context->pCertInfo->rgExtension);
    std::copy_n(id->Value.pbData + 2, 20, key.identifier.begin());
    return key;
}

std::vector<nal::RecordKey> KeysOf(std::size_t count) {
    std::vector<nal::RecordKey> keys;
    for (std::size_t i = 0; i < count; ++i) {
        const IdentObj& der = Certificates(count)[i];
        PCCERT_CONTEXT context = CertCreateCertificateContext(kEncoding, der.GetData(), der.GetSize());
        keys.push_back(KeyOf(context));
        CertFreeCertificateContext(context);
    }
    return keys;
}

void PerItem(benchmark::State& state) { state.SetItemsProcessed(state.iterations() * state.range(0)); }

void BareTreePut(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    const auto keys = KeysOf(count);
    for (auto _ : state) {
        state.PauseTiming();
        auto folder = std::make_unique<nal_test::TempFolder>();
        auto tree = std::make_unique<nal::Tree>();
        if (tree->OpenFile(folder->File("store")) != 0) state.SkipWithError("open");
        state.ResumeTiming();
        for (std::size_t i = 0; i < count; ++i) tree->Put(keys[i], Certificates(count)[i], nal::PutMode::KeepExisting);
        state.PauseTiming();
        tree.reset();
        folder.reset();
        state.ResumeTiming();
    }
    PerItem(state);
}

void StoreAdd(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    const auto disposition = static_cast<DWORD>(state.range(1));
    for (auto _ : state) {
        state.PauseTiming();
        auto folder = std::make_unique<nal_test::TempFolder>();
        HCERTSTORE store = CertOpenStore(CERT_STORE_PROV_FILENAME_A, kEncoding, 0, 0, folder->File("store").c_str());
        state.ResumeTiming();
        for (std::size_t i = 0; i < count; ++i) {
            const IdentObj& der = Certificates(count)[i];
            CertAddEncodedCertificateToStore(store, kEncoding, der.GetData(), der.GetSize(), disposition, nullptr);
        }
        state.PauseTiming();
        CertCloseStore(store, 0);
        folder.reset();
        state.ResumeTiming();
    }
    PerItem(state);
}

// A store with `count` certificates, and a bare tree beside it with the same records.
struct Filled {
    explicit Filled(std::size_t count) {
        store = CertOpenStore(CERT_STORE_PROV_FILENAME_A, kEncoding, 0, 0, folder.File("store").c_str());
        const auto keys = KeysOf(count);
        if (store == nullptr || tree.OpenFile(folder.File("store") + "-bare") != 0) throw std::runtime_error("no store");
        for (std::size_t i = 0; i < count; ++i) {
            const IdentObj& der = Certificates(count)[i];
            CertAddEncodedCertificateToStore(store, kEncoding, der.GetData(), der.GetSize(), CERT_STORE_ADD_NEW, nullptr);
            tree.Put(keys[i], der, nal::PutMode::KeepExisting);
        }
    }
    ~Filled() { CertCloseStore(store, 0); }
    Filled(const Filled&) = delete;
    Filled& operator=(const Filled&) = delete;

    nal_test::TempFolder folder;
    HCERTSTORE store = nullptr;
    nal::Tree tree;
};

void BareTreeWalk(benchmark::State& state) {
    Filled filled(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        nal::Position position;
        nal::Record record;
        auto step = nal::Step::First;
        while (filled.tree.Move(position, step, record) == nal::kTreeOk) step = nal::Step::Next;
    }
    PerItem(state);
}

void StoreFindBySubject(benchmark::State& state) {
    Filled filled(static_cast<std::size_t>(state.range(0)));
    const IdentObj name = nal_test::NameDer("Nobody at all");
    const CERT_NAME_BLOB subject{name.GetSize(), const_cast<BYTE*>(name.GetData())};
    for (auto _ : state) {
        benchmark::DoNotOptimize(CertFindCertificateInStore(filled.store, kEncoding, 0, CERT_FIND_SUBJECT_NAME, &subject, nullptr));
    }
    PerItem(state);
}

void StoreEnumerate(benchmark::State& state) {
    Filled filled(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        PCCERT_CONTEXT context = nullptr;
        while ((context = CertEnumCertificatesInStore(filled.store, context)) != nullptr) continue;
    }
    PerItem(state);
}

void FreeStanding(benchmark::State& state) {
    const IdentObj der = Certificates(1)[0];
    for (auto _ : state) CertFreeCertificateContext(CertCreateCertificateContext(kEncoding, der.GetData(), der.GetSize()));
}

void CrlContextOfEntries(benchmark::State& state) {
    nal_test::CrlBuilder builder;
    for (long i = 0; i < state.range(0); ++i) {
        const unsigned char serial[] = {1, static_cast<unsigned char>(i >> 16), static_cast<unsigned char>(i >> 8),
                                        static_cast<unsigned char>(i)};
        builder.entries.push_back({IdentObj(serial, sizeof serial)});
    }
    const IdentObj der = builder.Build();
    for (auto _ : state) CertFreeCRLContext(CertCreateCRLContext(kEncoding, der.GetData(), der.GetSize()));
}

}  // namespace

BENCHMARK(FreeStanding);
BENCHMARK(BareTreePut)->Arg(1000)->Unit(benchmark::kMicrosecond);
BENCHMARK(StoreAdd)->ArgsProduct({{1000}, {CERT_STORE_ADD_NEW, CERT_STORE_ADD_REPLACE_EXISTING, 5}})->Unit(benchmark::kMicrosecond);
BENCHMARK(BareTreeWalk)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(StoreFindBySubject)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(StoreEnumerate)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(CrlContextOfEntries)->Arg(10)->Arg(1000)->Arg(100000)->Unit(benchmark::kMicrosecond);
