// The cryptographic primitives. scripts/bench-provider runs this beside OpenSSL's GOST engine.
#include <benchmark/benchmark.h>
#include <nettle/gosthash94.h>

#include <string>
#include <vector>

#include "host/provider/crypto/cipher.h"
#include "host/provider/crypto/key.h"
#include "host/provider/crypto/key_wrap.h"
#include "host/provider/crypto/protection.h"
#include "host/provider/crypto/random.h"

namespace nalhost::crypto {
namespace {

const CipherParameters& SetA() {
    return *FindCipherParameters("1.2.643.2.2.31.1");
}

void SetThroughput(benchmark::State& state) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

void HashMessage(benchmark::State& state, Kernel kernel) {
    if (kernel > ProcessorKernel()) return state.SkipWithError("the processor has no such kernel");
    const std::vector<std::uint8_t> message(static_cast<std::size_t>(state.range(0)), 0x5A);
    for (auto _ : state) {
        Hash hash(DefaultHashParameters(), kernel);
        hash.Update(message);
        benchmark::DoNotOptimize(hash.Finish());
    }
    SetThroughput(state);
}
BENCHMARK_CAPTURE(HashMessage, reference, Kernel::kReference)->Arg(64)->Arg(8192)->Arg(1 << 20);
BENCHMARK_CAPTURE(HashMessage, portable, Kernel::kPortable)->Arg(64)->Arg(8192)->Arg(1 << 20);
BENCHMARK_CAPTURE(HashMessage, avx512, Kernel::kAvx512)->Arg(64)->Arg(8192)->Arg(1 << 20);

void HashMessageByNettle(benchmark::State& state) {
    const std::vector<std::uint8_t> message(static_cast<std::size_t>(state.range(0)), 0x5A);
    for (auto _ : state) {
        Digest digest;
        gosthash94cp_ctx context;
        gosthash94cp_init(&context);
        gosthash94cp_update(&context, message.size(), message.data());
        gosthash94cp_digest(&context, digest.size(), digest.data());
        benchmark::DoNotOptimize(digest);
    }
    SetThroughput(state);
}
BENCHMARK(HashMessageByNettle)->Arg(64)->Arg(8192)->Arg(1 << 20);

void Cfb(benchmark::State& state, Direction direction, KeyMeshing meshing) {
    std::vector<std::uint8_t> data(static_cast<std::size_t>(state.range(0)), 0x5A);
    const SecureBytes key = RandomSecret(kCipherKeySize);
    const SecureBytes iv = RandomSecret(kCipherBlockSize);
    for (auto _ : state)
        CfbCipher(direction, SetA(), meshing, key, iv).Process(data, data);
    SetThroughput(state);
}
BENCHMARK_CAPTURE(Cfb, encrypt, Direction::kEncrypt, KeyMeshing::kOfParameterSet)->Arg(64)->Arg(8192)->Arg(1 << 20);
BENCHMARK_CAPTURE(Cfb, decrypt, Direction::kDecrypt, KeyMeshing::kOfParameterSet)->Arg(64)->Arg(8192)->Arg(1 << 20);
BENCHMARK_CAPTURE(Cfb, encrypt_unmeshed, Direction::kEncrypt, KeyMeshing::kNone)->Arg(8192);

void MacMessage(benchmark::State& state) {
    const std::vector<std::uint8_t> message(static_cast<std::size_t>(state.range(0)), 0x5A);
    const SecureBytes key = RandomSecret(kCipherKeySize);
    const std::vector<std::uint8_t> iv(kCipherBlockSize);
    for (auto _ : state) {
        MacCode code(SetA(), key, iv);
        code.Update(message);
        benchmark::DoNotOptimize(code.Finish());
    }
    SetThroughput(state);
}
BENCHMARK(MacMessage)->Arg(64)->Arg(8192);

// One of each algorithm's sets, and the three signature curves, whose primes differ in kind.
struct Pair {
    explicit Pair(const char* oid)
        : key(PrivateKey::Generate(*FindKeyParameters(oid))), publicKey(key.DerivePublicKey()) {}

    PrivateKey key;
    PublicKey publicKey;
};

void GenerateKey(benchmark::State& state, const char* oid) {
    const KeyParameters& set = *FindKeyParameters(oid);
    for (auto _ : state)
        benchmark::DoNotOptimize(PrivateKey::Generate(set).DerivePublicKey());
}

void Sign(benchmark::State& state, const char* oid) {
    const Pair pair(oid);
    const Digest digest = Hash::Of({});
    for (auto _ : state)
        benchmark::DoNotOptimize(pair.key.Sign(digest));
}

void Verify(benchmark::State& state, const char* oid) {
    const Pair pair(oid);
    const Digest digest = Hash::Of({});
    const Signature signature = pair.key.Sign(digest);
    for (auto _ : state) {
        if (!pair.publicKey.Verify(digest, signature)) state.SkipWithError("a good signature does not verify");
    }
}

void Agree(benchmark::State& state, const char* oid) {
    const Pair ours(oid);
    const Pair theirs(oid);
    const SecureBytes ukm = RandomSecret(kUkmSize);
    for (auto _ : state)
        benchmark::DoNotOptimize(ours.key.Agree(theirs.publicKey, ukm));
}

void ImportPublicKey(benchmark::State& state, const char* oid) {
    const Pair pair(oid);
    for (auto _ : state)
        benchmark::DoNotOptimize(PublicKey::Import(pair.publicKey.Parameters(), pair.publicKey.Bytes()));
}

// What one recipient of an encrypted message costs: an ephemeral key, an agreement and a wrapped session key.
void Transport(benchmark::State& state, const char* oid) {
    const Pair recipient(oid);
    const SecureBytes session = RandomSecret(kCipherKeySize);
    for (auto _ : state) {
        const Pair ephemeral(oid);
        const SecureBytes ukm = RandomSecret(kUkmSize);
        const SecureBytes kek = ephemeral.key.Agree(recipient.publicKey, ukm);
        benchmark::DoNotOptimize(WrapKey(KeyWrap::kCryptoPro, SetA(), kek, ukm, session));
    }
}

void OpenTransport(benchmark::State& state, const char* oid) {
    const Pair recipient(oid);
    const Pair ephemeral(oid);
    const SecureBytes ukm = RandomSecret(kUkmSize);
    const WrappedKey wrapped = WrapKey(KeyWrap::kCryptoPro, SetA(), ephemeral.key.Agree(recipient.publicKey, ukm), ukm,
                                       RandomSecret(kCipherKeySize));
    for (auto _ : state) {
        const SecureBytes kek =
            recipient.key.Agree(PublicKey::Import(*FindKeyParameters(oid), ephemeral.publicKey.Bytes()), ukm);
        benchmark::DoNotOptimize(UnwrapKey(KeyWrap::kCryptoPro, SetA(), kek, ukm, wrapped));
    }
}

#define NAL_BENCH_KEY(function)                              \
    BENCHMARK_CAPTURE(function, 2001_A, "1.2.643.2.2.35.1"); \
    BENCHMARK_CAPTURE(function, 2001_B, "1.2.643.2.2.35.2"); \
    BENCHMARK_CAPTURE(function, 2001_C, "1.2.643.2.2.35.3"); \
    BENCHMARK_CAPTURE(function, 94_A, "1.2.643.2.2.32.2")

NAL_BENCH_KEY(Sign);
NAL_BENCH_KEY(Verify);
NAL_BENCH_KEY(Agree);
NAL_BENCH_KEY(Transport);
NAL_BENCH_KEY(OpenTransport);
NAL_BENCH_KEY(GenerateKey);
NAL_BENCH_KEY(ImportPublicKey);

void Wrap(benchmark::State& state) {
    const SecureBytes kek = RandomSecret(kCipherKeySize);
    const SecureBytes ukm = RandomSecret(kCipherBlockSize);
    const SecureBytes key = RandomSecret(kCipherKeySize);
    for (auto _ : state)
        benchmark::DoNotOptimize(WrapKey(KeyWrap::kCryptoPro, SetA(), kek, ukm, key));
}
BENCHMARK(Wrap);

void Unwrap(benchmark::State& state) {
    const SecureBytes kek = RandomSecret(kCipherKeySize);
    const SecureBytes ukm = RandomSecret(kCipherBlockSize);
    const WrappedKey wrapped = WrapKey(KeyWrap::kCryptoPro, SetA(), kek, ukm, RandomSecret(kCipherKeySize));
    for (auto _ : state)
        benchmark::DoNotOptimize(UnwrapKey(KeyWrap::kCryptoPro, SetA(), kek, ukm, wrapped));
}
BENCHMARK(Unwrap);

void DeriveFromPassword(benchmark::State& state) {
    const SecureBytes salt = RandomSecret(16);
    const SecureBytes password = RandomSecret(12);
    for (auto _ : state)
        benchmark::DoNotOptimize(DeriveProtectionKey(password, salt, ScryptCost()));
}
BENCHMARK(DeriveFromPassword)->Unit(benchmark::kMillisecond);

void SealAndUnseal(benchmark::State& state) {
    const SecureBytes key = RandomSecret(kProtectionKeySize);
    const SecureBytes plain = RandomSecret(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(Unseal(key, {}, Seal(key, {}, plain)));
    SetThroughput(state);
}
BENCHMARK(SealAndUnseal)->Arg(1024);

}  // namespace
}  // namespace nalhost::crypto
