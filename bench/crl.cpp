// A CRL of a million entries: decoding it, the memory it takes, the first look-up (which builds the index) and later ones.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdint>
#include <list>
#include <random>
#include <vector>

#include "asnt/writer.h"
#include "nal/crl.h"

namespace {

constexpr std::size_t kEntries = 1000000;
constexpr unsigned kSerialSize = 16;
constexpr FILETIME kNow{0, 0x01DC5B00};  // in 2025

struct Sample {
    IdentObj der;
    std::vector<IdentObj> serials;  // of every 64th entry
    std::vector<IdentObj> others;   // on no entry
};

IdentObj RandomSerial(std::mt19937_64& random) {
    IdentObj serial(nullptr, kSerialSize);
    for (unsigned i = 0; i < kSerialSize; ++i) serial.GetData()[i] = static_cast<unsigned char>(random());
    serial.GetData()[kSerialSize - 1] = static_cast<unsigned char>(1 + random() % 0x7F);
    return serial;
}

const Sample& GetSample() {
    static const Sample sample = [] {
        Sample made;
        std::mt19937_64 random(1);
        CNAL_CRL_Info info;
        info.m_issuer = std::list<CNALSimpleRDN>{{"CN", "Root"}};
        info.m_signatureAlgorithm.m_algorithm = IdentObj("1.2.643.2.2.3", 13);
        info.m_thisUpdate = kNow;
        for (std::size_t i = 0; i < kEntries; ++i) {
            CNAL_CRL_Entry entry;
            entry.m_serialNumber = RandomSerial(random);
            entry.m_revocationDate = kNow;
            // Half of the entries say why.
            if (i % 2 == 0) entry.m_extensions.Add(CNALReasonCode(1).ToExtension(c_NAL_OID_REASON_CODE, false));
            info.AddEntry(entry);
            if (i % 64 != 0) continue;
            made.serials.push_back(entry.m_serialNumber);
            made.others.push_back(RandomSerial(random));
        }
        CNALSignedData envelope;
        envelope.m_data = info.WriteData();
        envelope.m_algorithm = info.m_signatureAlgorithm;
        envelope.m_signature = CTOOCryptBitBlob(IdentObj(nullptr, 64));
        made.der = envelope.WriteData(nullptr);
        return made;
    }();
    return sample;
}

double Allocated() {
    const struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
}

void DecodeCrl(benchmark::State& state) {
    const Sample& sample = GetSample();
    const double before = Allocated();
    double taken = 0;
    for (auto _ : state) {
        CNAL_CRL_List crl;
        benchmark::DoNotOptimize(crl.ReadData(sample.der.GetData(), sample.der.GetSize()));
        taken = Allocated() - before;
    }
    state.counters["entry_encoded_bytes"] = static_cast<double>(sample.der.GetSize()) / kEntries;
    state.counters["entry_memory_bytes"] = taken / kEntries;
}
BENCHMARK(DecodeCrl)->Unit(benchmark::kMillisecond);

void FirstLookup(benchmark::State& state) {
    const Sample& sample = GetSample();
    const double before = Allocated();
    double taken = 0;
    for (auto _ : state) {
        state.PauseTiming();
        CNAL_CRL_List crl;
        crl.ReadData(sample.der.GetData(), sample.der.GetSize());
        state.ResumeTiming();
        benchmark::DoNotOptimize(crl.m_info.FindEntry(sample.serials[0]));
        taken = Allocated() - before;
    }
    state.counters["entry_memory_bytes"] = taken / kEntries;
}
BENCHMARK(FirstLookup)->Unit(benchmark::kMillisecond);

void Lookup(benchmark::State& state, const std::vector<IdentObj> Sample::*serials) {
    const Sample& sample = GetSample();
    CNAL_CRL_List crl;
    crl.ReadData(sample.der.GetData(), sample.der.GetSize());
    const std::vector<IdentObj>& wanted = sample.*serials;
    benchmark::DoNotOptimize(crl.m_info.FindEntry(wanted[0]));
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(crl.m_info.FindEntry(wanted[i]));
        i = (i + 1) % wanted.size();
    }
}
BENCHMARK_CAPTURE(Lookup, revoked, &Sample::serials);
BENCHMARK_CAPTURE(Lookup, not_revoked, &Sample::others);

void WalkEntries(benchmark::State& state) {
    const Sample& sample = GetSample();
    CNAL_CRL_List crl;
    crl.ReadData(sample.der.GetData(), sample.der.GetSize());
    for (auto _ : state) {
        for (std::size_t i = 0; i < crl.m_info.GetEntryCount(); ++i) benchmark::DoNotOptimize(crl.m_info.ViewEntry(i));
    }
}
BENCHMARK(WalkEntries)->Unit(benchmark::kMillisecond);

}  // namespace
