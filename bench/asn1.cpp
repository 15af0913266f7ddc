// Stepping over a certificate-like structure, and writing structures of growing size.

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "asnt/view.h"
#include "asnt/writer.h"
#include "too/time.h"

namespace {

std::atomic<std::size_t> g_allocations{0};

}  // namespace

// Every allocation of the program is counted, so a benchmark can say that it makes none. Never inlined: the compiler
// would otherwise see `free` meet `new`. NOLINTBEGIN(cppcoreguidelines-no-malloc)
[[gnu::noinline]] void* operator new(std::size_t size) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* memory = std::malloc(size != 0 ? size : 1)) return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
// NOLINTEND(cppcoreguidelines-no-malloc)

namespace {

using asnt::Reader;
using asnt::View;
using asnt::Writer;
namespace tag = asnt::tag;

constexpr unsigned kCertificateSize = 1500;

// NOLINTBEGIN(clang-analyzer-deadcode.DeadStores): the loop variable of Google Benchmark

void WriteName(Writer& writer, const char* commonName) {
    writer.Sequence([&] {
        writer.Set([&] {
            writer.Sequence([&] {
                writer.Oid("2.5.4.3");
                writer.Primitive(tag::Utf8String, View(commonName, std::strlen(commonName)));
            });
        });
    });
}

// Certificate { tbs { version, serial, algorithm, issuer, validity, subject, key, extensions }, algorithm, signature }
IdentObj MakeCertificate(unsigned fillerSize) {
    const IdentObj filler(nullptr, fillerSize);
    const IdentObj signature(nullptr, 64);
    const CTOOFileTime notBefore = CTOOFileTime::FromUnix(1'700'000'000);
    const CTOOFileTime notAfter = CTOOFileTime::FromUnix(1'900'000'000);
    const auto algorithm = [](Writer& writer) { writer.Sequence([&] { writer.Oid("1.2.643.2.2.3"); }); };
    Writer writer;
    writer.Sequence([&] {
        writer.Sequence([&] {
            writer.Context(0, [&] { writer.Integer(2); });
            writer.Unsigned(0x0102030405060708);
            algorithm(writer);
            WriteName(writer, "Key centre of the network");
            writer.Sequence([&] {
                writer.Time(notBefore);
                writer.Time(notAfter);
            });
            WriteName(writer, "Host 0001 of the network");
            writer.Sequence([&] {
                algorithm(writer);
                writer.BitString(signature);
            });
            writer.Context(3, [&] { writer.Sequence([&] { writer.OctetString(filler); }); });
        });
        algorithm(writer);
        writer.BitString(signature);
    });
    return writer.Finish();
}

IdentObj CertificateOf(unsigned size) {
    const unsigned fixed = MakeCertificate(1000).GetSize() - 1000;
    return MakeCertificate(size - fixed);
}

// The fifth element of the to-be-signed part: its validity.
asnt::Element FindFifth(View certificate) {
    Reader tbs = Reader(certificate, "bench").Enter(tag::Sequence).Enter(tag::Sequence);
    asnt::Element element;
    tbs.Optional(tag::Context(0), element);
    tbs.Skip();
    tbs.Skip();
    tbs.Skip();
    return tbs.Next(tag::Sequence);
}

void StepToFifthElement(benchmark::State& state) {
    const IdentObj certificate = CertificateOf(kCertificateSize);
    for (auto _ : state)
        benchmark::DoNotOptimize(FindFifth(certificate));
    const std::size_t before = g_allocations;
    benchmark::DoNotOptimize(FindFifth(certificate));
    state.counters["allocations"] = static_cast<double>(g_allocations - before);
    state.counters["bytes"] = certificate.GetSize();
}
BENCHMARK(StepToFifthElement);

void CheckWholeStructure(benchmark::State& state) {
    const IdentObj certificate = CertificateOf(kCertificateSize);
    for (auto _ : state)
        benchmark::DoNotOptimize(asnt::IsWellFormed(certificate));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * certificate.GetSize());
}
BENCHMARK(CheckWholeStructure);

void WriteCertificate(benchmark::State& state) {
    const std::size_t before = g_allocations;
    for (auto _ : state)
        benchmark::DoNotOptimize(MakeCertificate(1200));
    state.counters["allocations"] =
        benchmark::Counter(static_cast<double>(g_allocations - before), benchmark::Counter::kAvgIterations);
}
BENCHMARK(WriteCertificate);

// One SEQUENCE OF small elements, like the entries of a CRL: time over output must stay level.
void WriteEntries(benchmark::State& state) {
    const IdentObj serial(nullptr, 16);
    std::int64_t bytes = 0;
    for (auto _ : state) {
        Writer writer;
        writer.Sequence([&] {
            for (std::int64_t i = 0; i < state.range(0); ++i) {
                writer.Sequence([&] {
                    writer.IntegerOctets(serial);
                    writer.Integer(i);
                });
            }
        });
        const IdentObj der = writer.Finish();
        bytes += der.GetSize();
        benchmark::DoNotOptimize(der.GetData());
    }
    state.SetBytesProcessed(bytes);
    state.SetComplexityN(state.range(0));
}
BENCHMARK(WriteEntries)->RangeMultiplier(8)->Range(64, 1 << 18)->Complexity(benchmark::oN);

// Elements inside one another: each level's size is added up once.
void WriteNested(benchmark::State& state) {
    const IdentObj payload(nullptr, 100'000);
    for (auto _ : state) {
        Writer writer;
        for (std::int64_t i = 0; i < state.range(0); ++i)
            writer.Begin(tag::Sequence);
        writer.OctetString(payload);
        for (std::int64_t i = 0; i < state.range(0); ++i)
            writer.End();
        benchmark::DoNotOptimize(writer.Finish());
    }
}
BENCHMARK(WriteNested)->Arg(1)->Arg(8)->Arg(64);

void WriteSortedSet(benchmark::State& state) {
    for (auto _ : state) {
        Writer writer;
        writer.Set(
            [&] {
                for (std::int64_t i = state.range(0); i != 0; --i)
                    writer.Integer(i);
            },
            asnt::Order::Sorted);
        benchmark::DoNotOptimize(writer.Finish());
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(WriteSortedSet)->RangeMultiplier(8)->Range(64, 1 << 15)->Complexity(benchmark::oNLogN);

// NOLINTEND(clang-analyzer-deadcode.DeadStores)

}  // namespace
