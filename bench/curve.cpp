// GOST R 34.10-2001 by every kernel, libgcrypt (reference) among them: run beside scripts/bench-engine for OpenSSL's.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <string>
#include <vector>

#include "host/provider/crypto/curve/key_table_cache.h"
#include "host/provider/crypto/key_scheme.h"
#include "host/provider/crypto/random.h"

namespace nalhost::crypto {
namespace {

struct Signer {
    Signer(const KeyScheme& scheme, const KeyParameters& set, const Digest& digest)
        : secret(scheme.GeneratePrivateKey(set)), key(set.publicKeySize) {
        scheme.DerivePublicKey(set, secret, key);
        signature = scheme.Sign(set, secret, digest);
    }

    SecureBytes secret;
    std::vector<std::uint8_t> key;
    Signature signature;
};

// On failure nothing more may be done in the loop.
bool Verify(const KeyScheme& scheme, const KeyParameters& set, const Signer& signer, const Digest& digest,
            benchmark::State& state) {
    const bool holds = scheme.Verify(set, signer.key, digest, signer.signature);
    if (!holds) state.SkipWithError("a good signature does not verify");
    return holds;
}

using Operation = void (*)(benchmark::State&, const KeyParameters&, Kernel);

void Sign(benchmark::State& state, const KeyParameters& set, Kernel kernel) {
    const KeyScheme& scheme = Gost2001Scheme(kernel);
    const Signer signer(scheme, set, Digest{});
    for (auto _ : state)
        benchmark::DoNotOptimize(scheme.Sign(set, signer.secret, Digest{}));
}

void Generate(benchmark::State& state, const KeyParameters& set, Kernel kernel) {
    const KeyScheme& scheme = Gost2001Scheme(kernel);
    std::vector<std::uint8_t> key(set.publicKeySize);
    for (auto _ : state)
        scheme.DerivePublicKey(set, scheme.GeneratePrivateKey(set), key);
}

void Agree(benchmark::State& state, const KeyParameters& set, Kernel kernel) {
    const KeyScheme& scheme = Gost2001Scheme(kernel);
    const Signer signer(scheme, set, Digest{});
    const std::uint8_t ukm[kUkmSize] = {1};
    for (auto _ : state)
        benchmark::DoNotOptimize(scheme.CommonSecret(set, signer.secret, signer.key, ukm));
}

// Keys of which none was seen lately. The reference makes no difference.
void VerifyOnce(benchmark::State& state, const KeyParameters& set, Kernel kernel) {
    const KeyScheme& scheme = Gost2001Scheme(kernel);
    std::vector<Signer> signers;
    const std::size_t count = kernel == Kernel::kReference ? 1 : curve::KeyTableCache::kSightings + 1;
    for (std::size_t i = 0; i < count; ++i)
        signers.emplace_back(scheme, set, Digest{});
    std::size_t next = 0;
    for (auto _ : state) {
        if (!Verify(scheme, set, signers[next], Digest{}, state)) break;
        next = (next + 1) % count;
    }
}

// Three certificates of 640 bytes, each by a key that is known: import of the key, hash and verification.
void VerifyChainOfThreeAgain(benchmark::State& state, const KeyParameters& set, Kernel kernel) {
    const KeyScheme& scheme = Gost2001Scheme(kernel);
    const std::vector<std::uint8_t> certificate(640, 0x5A);
    std::vector<Signer> signers;
    for (int i = 0; i < 3; ++i)
        signers.emplace_back(scheme, set, Hash::Of(certificate));
    for (auto _ : state) {
        const bool hold = std::all_of(signers.begin(), signers.end(), [&](const Signer& signer) {
            return scheme.IsPublicKey(set, signer.key) && Verify(scheme, set, signer, Hash::Of(certificate), state);
        });
        if (!hold) {
            state.SkipWithError("a good key or signature is refused");
            break;
        }
    }
}

void VerifyAgain(benchmark::State& state, const KeyParameters& set, Kernel kernel) {
    const KeyScheme& scheme = Gost2001Scheme(kernel);
    const Signer signer(scheme, set, Digest{});
    for (auto _ : state) {
        if (!Verify(scheme, set, signer, Digest{}, state)) break;
    }
}

// What the first use of a curve and the second sighting of a key cost.
void MakeKeyTable(benchmark::State& state, const KeyParameters& set, Kernel kernel) {
    if (kernel == Kernel::kReference) return state.SkipWithError("has no tables");
    const curve::CurveKernel& found = *curve::FindCurveKernel(set, kernel);
    curve::KeyTable table;
    for (auto _ : state)
        found.FillTable(found.Parameters().generator, table);
}

void MakeCurve(benchmark::State& state, const KeyParameters& set, Kernel kernel) {
    if (kernel == Kernel::kReference) return state.SkipWithError("has no tables");
    for (auto _ : state) {
        const auto parameters = curve::LoadCurveParameters(set.oid);
        const auto made = kernel == Kernel::kPortable ? curve::MakePortableCurveKernel(parameters)
                                                      : curve::MakeMulxCurveKernel(parameters);
        benchmark::DoNotOptimize(made->MultiplyGenerator({{1, 0, 0, 0}}));
    }
}

bool RegisterAll() {
    constexpr struct {
        const char* name;
        Operation operation;
    } operations[] = {{"Sign", Sign},
                      {"Generate", Generate},
                      {"Agree", Agree},
                      {"VerifyOnce", VerifyOnce},
                      {"VerifyAgain", VerifyAgain},
                      {"VerifyChainOfThreeAgain", VerifyChainOfThreeAgain},
                      {"MakeKeyTable", MakeKeyTable},
                      {"MakeCurve", MakeCurve}};
    constexpr struct {
        const char* name;
        const char* oid;
    } curves[] = {{"A", "1.2.643.2.2.35.1"}, {"B", "1.2.643.2.2.35.2"}, {"C", "1.2.643.2.2.35.3"}};
    for (const auto& operation : operations) {
        for (const auto& curve : curves) {
            for (const Kernel kernel : {Kernel::kReference, Kernel::kPortable, Kernel::kAvx2}) {
                if (kernel > ProcessorKernel()) continue;
                const std::string name = std::string(operation.name) + '/' + curve.name + '/' + KernelName(kernel);
                benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
                    StartCrypto();
                    operation.operation(state, *FindKeyParameters(curve.oid), kernel);
                })->Unit(benchmark::kMicrosecond);
            }
        }
    }
    return true;
}

const bool c_registered = RegisterAll();

}  // namespace
}  // namespace nalhost::crypto
