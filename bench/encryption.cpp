// Encrypted messages: what files cost beside the cipher, what recipients cost, and what memory grows.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <fstream>
#include <list>
#include <string>
#include <vector>

#include "nal/encrypt.h"
#include "nal/user.h"
#include "ork/handles.h"
#include "support/authority.h"
#include "support/temp_folder.h"

namespace {

constexpr std::size_t c_block = 4096;

/// The most memory that the process held since the last call, in KiB.
std::size_t PeakSinceLastCall() {
    std::ifstream status("/proc/self/status");
    std::size_t peak = 0;
    for (std::string word; status >> word;) {
        if (word == "VmHWM:") status >> peak;
    }
    std::ofstream("/proc/self/clear_refs") << "5";
    return peak;
}

/// One person with a key, and files of some size.
struct World {
    World() {
        const keycentre::KeyPair key = authority.NewKey();
        const IdentObj der = authority.root.Certify(keycentre::Name("CN=Recipient"), key.GetPublicKey(), keycentre::ExchangeProfile());
        key.Bind(der);
        cert = CNALCertContext(der);
        user.LogInUser(key.GetContainer().c_str(), nullptr, nullptr, false);
    }

    /// `count` certificates of that one key, each with a serial of its own.
    std::list<CNALCertContext> Recipients(std::size_t count) {
        const CNALCertPublicKeyInfo key(cert.GetContext()->pCertInfo->SubjectPublicKeyInfo);
        while (recipients.size() < count) {
            recipients.emplace_back(authority.root.Certify(keycentre::Name("CN=Recipient"), key, keycentre::ExchangeProfile()));
        }
        return {recipients.begin(), std::next(recipients.begin(), static_cast<std::ptrdiff_t>(count))};
    }

    /// A file of this size, and its message.
    void Prepare(std::size_t size, bool inPieces) {
        if (size == preparedSize && inPieces == preparedInPieces) return;
        const std::vector<char> bytes(1 << 20, 'x');
        std::ofstream file(source, std::ios::binary | std::ios::trunc);
        for (std::size_t left = size; left != 0;) {
            const std::size_t count = std::min(left, bytes.size());
            file.write(bytes.data(), static_cast<std::streamsize>(count));
            left -= count;
        }
        file.close();
        WhatToSignStruct what = InFile(source, inPieces);
        NALEncryptFile(what, {cert}, message.c_str(), nullptr);
        preparedSize = size;
        preparedInPieces = inPieces;
    }

    static WhatToSignStruct InFile(const std::string& path, bool inPieces = false) {
        WhatToSignStruct what;
        what.flags = c_NAL_CONTENT_IN_FILE | (inPieces ? c_NAL_CONTENT_IN_PIECES : 0);
        what.data = path.c_str();
        what.end = c_NAL_TO_END_OF_FILE;
        return what;
    }

    nal_test::Authority authority;
    nal_test::TempFolder folder;
    std::string source = folder.File("source");
    std::string message = folder.File("message");
    std::string out = folder.File("out");
    CNALCertContext cert;
    CNALUser user;
    std::list<CNALCertContext> recipients;
    std::size_t preparedSize = 0;
    bool preparedInPieces = false;
};

World& TheWorld() {
    static World world;
    return world;
}

/// The cipher alone, called as messages call it.
void Cipher(benchmark::State& state) {
    const auto size = static_cast<std::size_t>(state.range(0)) << 20;
    ork::ContextHandle provider;
    ork::KeyHandle key;
    ORKAcquireContext(provider.Receive(), nullptr, nullptr, ORK_PROVIDER_TYPE, ORK_OPEN_VERIFY);
    ORKGenKey(provider.Get(), ORK_ALG_GOST28147, 0, key.Receive());
    constexpr DWORD withMeshing = 1;
    ORKSetKeyParam(key.Get(), ORK_KEY_PARAM_MESHING, withMeshing);
    std::vector<unsigned char> block(c_block);
    for ([[maybe_unused]] auto _ : state) {
        for (std::size_t done = 0; done < size; done += c_block) {
            if (state.range(1) != 0) {
                ORKDecrypt(key.Get(), 0, FALSE, block.data(), c_block, static_cast<void*>(block.data()));
            } else {
                ORKEncrypt(key.Get(), 0, FALSE, block.data(), c_block, static_cast<void*>(block.data()));
            }
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(size) * state.iterations());
}
BENCHMARK(Cipher)->ArgNames({"MiB", "decrypts"})->Args({64, 0})->Args({64, 1})->Unit(benchmark::kMillisecond);

void EncryptFile(benchmark::State& state) {
    World& world = TheWorld();
    const bool inPieces = state.range(1) != 0;
    world.Prepare(static_cast<std::size_t>(state.range(0)) << 20, inPieces);
    PeakSinceLastCall();
    for ([[maybe_unused]] auto _ : state) {
        WhatToSignStruct what = World::InFile(world.source, inPieces);
        NALEncryptFile(what, {world.cert}, world.out.c_str(), nullptr);
    }
    state.counters["peak_KiB"] = static_cast<double>(PeakSinceLastCall());
    state.SetBytesProcessed((state.range(0) << 20) * state.iterations());
}
BENCHMARK(EncryptFile)->ArgNames({"MiB", "pieces"})->ArgsProduct({{1, 64, 512}, {0, 1}})->Unit(benchmark::kMillisecond);

void DecryptFile(benchmark::State& state) {
    World& world = TheWorld();
    world.Prepare(static_cast<std::size_t>(state.range(0)) << 20, state.range(1) != 0);
    PeakSinceLastCall();
    for ([[maybe_unused]] auto _ : state) {
        WhatToSignStruct what = World::InFile(world.message);
        NALDecryptFile(what, &world.user, nullptr, world.out.c_str(), nullptr);
    }
    state.counters["peak_KiB"] = static_cast<double>(PeakSinceLastCall());
    state.SetBytesProcessed((state.range(0) << 20) * state.iterations());
}
BENCHMARK(DecryptFile)->ArgNames({"MiB", "pieces"})->ArgsProduct({{1, 64, 512}, {0, 1}})->Unit(benchmark::kMillisecond);

void EncryptFor(benchmark::State& state) {
    World& world = TheWorld();
    const std::list<CNALCertContext> recipients = world.Recipients(static_cast<std::size_t>(state.range(0)));
    const std::vector<unsigned char> content(static_cast<std::size_t>(state.range(1)) << 10, 'x');
    WhatToSignStruct what;
    what.data = content.data();
    what.end = static_cast<DWORD>(content.size());
    IdentObj message;
    for ([[maybe_unused]] auto _ : state) NALEncryptMem(what, recipients, message, nullptr);
    state.counters["each"] = benchmark::Counter(static_cast<double>(state.range(0)) * static_cast<double>(state.iterations()),
                                                benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(EncryptFor)->ArgNames({"recipients", "KiB"})->ArgsProduct({{1, 10, 1000}, {1, 8192}})->Unit(benchmark::kMillisecond);

/// The last of many recipients opens a message.
void DecryptAmong(benchmark::State& state) {
    World& world = TheWorld();
    std::list<CNALCertContext> recipients = world.Recipients(static_cast<std::size_t>(state.range(0)));
    recipients.push_back(world.cert);
    const std::vector<unsigned char> content(1024, 'x');
    WhatToSignStruct what;
    what.data = content.data();
    what.end = static_cast<DWORD>(content.size());
    IdentObj message;
    NALEncryptMem(what, recipients, message, nullptr);
    IdentObj plain;
    for ([[maybe_unused]] auto _ : state) {
        WhatToSignStruct encrypted;
        encrypted.data = message.GetData();
        encrypted.end = message.GetSize();
        NALDecryptMem(encrypted, &world.user, nullptr, plain, nullptr);
    }
}
BENCHMARK(DecryptAmong)->ArgName("others")->Arg(0)->Arg(1000)->Unit(benchmark::kMillisecond);

}  // namespace
