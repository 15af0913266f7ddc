// GOST R 34.10-2001 by every kernel, libgcrypt (reference) among them: run beside scripts/bench-engine for OpenSSL's.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "host/provider/crypto/curve/curve_kernel.h"
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

// A key that is seen for the first time. The reference makes no difference.
void VerifyOnce(benchmark::State& state, const KeyParameters& set, Kernel kernel) {
    const KeyScheme& scheme = Gost2001Scheme(kernel);
    Digest digest{};
    digest[0] = 1;
    const Signer signer(scheme, set, digest);
    const auto number = [](const std::uint8_t* bytes) { return curve::LoadNumber(bytes); };
    for (auto _ : state) {
        const bool holds =
            kernel == Kernel::kReference
                ? scheme.Verify(set, signer.key, digest, signer.signature)
                : curve::FindCurveKernel(set, kernel)
                      ->Verify({number(signer.key.data()), number(signer.key.data() + 32)}, number(digest.data()),
                               number(signer.signature.data()), number(signer.signature.data() + 32), nullptr);
        if (!holds) state.SkipWithError("a good signature does not verify");
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
        for (const Signer& signer : signers) {
            if (!scheme.IsPublicKey(set, signer.key) ||
                !scheme.Verify(set, signer.key, Hash::Of(certificate), signer.signature)) {
                state.SkipWithError("a good signature does not verify");
            }
        }
    }
}

void VerifyAgain(benchmark::State& state, const KeyParameters& set, Kernel kernel) {
    const KeyScheme& scheme = Gost2001Scheme(kernel);
    const Signer signer(scheme, set, Digest{});
    for (auto _ : state) {
        if (!scheme.Verify(set, signer.key, Digest{}, signer.signature)) {
            state.SkipWithError("a good signature does not verify");
        }
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
