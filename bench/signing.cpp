// Signing and verifying beside what they are made of: the hash of the same bytes, and a copy of them that is made durable.
//
// NAL_BENCH_MIB is the content's size in MiB, 64 by default. `peak_growth_MiB` is how much the process's peak memory grew.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "keycentre/issuer.h"
#include "nal/sign.h"
#include "nal/signature_check.h"
#include "nal/user.h"
#include "ork/csp.h"
#include "ork/handles.h"
#include "too/file.h"

namespace {

constexpr std::size_t kMiB = std::size_t{1} << 20;
constexpr std::size_t kChunk = 0x10000;

double PeakMiB() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmHWM:", 0) == 0) return std::stod(line.substr(6)) / 1024;
    }
    return 0;
}

std::size_t ContentMiB() {
    const char* size = std::getenv("NAL_BENCH_MIB");  // NOLINT(concurrency-mt-unsafe)
    return size != nullptr ? std::strtoull(size, nullptr, 10) : 64;
}

constexpr unsigned kSigners = 10;

/// A folder with the content and a user who signs it; and what ten others signed.
class Setting {
public:
    static const Setting& Get() {
        static const Setting setting;
        return setting;
    }

    std::string content;
    std::string small;
    std::string output;
    CNALUser user;
    CNALCertContext cert;
    std::vector<keycentre::KeyPair> signers;
    std::vector<CNALCertContext> signerCerts;

    /// The content signed by the first so many signers; detached.
    CNALSignData SignedBy(unsigned count) const {
        SNALCryptInfo info;
        info.hashAlgId = ORK_ALG_GOSTR3411;
        static const IdentObj hash = NALHashFile(content.c_str(), 0, 0xFFFFFFFF, 0, info);
        CNALSignData message;
        for (unsigned i = 0; i < count; ++i) {
            info.hProv = signers[i].GetProvider();
            info.hKey = signers[i].GetKey();
            CNALMessageSignerInfo signer;
            NALFillMsgSignerInfo(signerCerts[i], info, hash, signer, 0, nullptr);
            message.signerInfos.push_back(signer.WriteData(nullptr));
            message.certificates.emplace_back(signerCerts[i].GetContext()->pbCertEncoded, signerCerts[i].GetContext()->cbCertEncoded);
            message.digestAlgorithms = {signer.digestAlgorithm};
        }
        return message;
    }

private:
    Setting() : m_folder(std::filesystem::temp_directory_path() / ("nal-bench-" + std::to_string(getpid()))) {
        std::filesystem::create_directory(m_folder);
        content = m_folder / "content";
        small = m_folder / "small";
        output = m_folder / "output";
        std::vector<unsigned char> chunk(kMiB);
        for (std::size_t j = 0; j < kMiB; ++j) chunk[j] = static_cast<unsigned char>(j * 31 + j / 251);
        CTOOFile file(content, "wb");
        for (std::size_t i = 0; i < ContentMiB(); ++i) file.Write(chunk.data(), chunk.size());
        CTOOFile(small, "wb").Write(chunk.data(), 1024);

        using keycentre::KeyPair;
        const std::string container = m_folder / "user";
        const keycentre::Issuer root = keycentre::Issuer::SelfSigned(KeyPair::Create((m_folder / "root").string(), ""),
                                                                     keycentre::Name("CN=Root"), keycentre::RootProfile());
        const KeyPair key = KeyPair::Create(container, "");
        cert.CreateContext(root.Certify(keycentre::Name("CN=User"), key.GetPublicKey(), keycentre::SignatureProfile()));
        user.LogInUser(container.c_str(), nullptr, nullptr, false);
        for (unsigned i = 0; i < kSigners; ++i) {
            signers.push_back(KeyPair::Create(container + std::to_string(i), ""));
            const auto name = keycentre::Name("CN=Signer " + std::to_string(i));
            signerCerts.emplace_back(root.Certify(name, signers.back().GetPublicKey(), keycentre::SignatureProfile()));
        }
    }
    ~Setting() { std::filesystem::remove_all(m_folder); }

    std::filesystem::path m_folder;
};

template <class Action>
void Run(benchmark::State& state, Action&& action) {
    Setting::Get();
    std::ofstream("/proc/self/clear_refs") << "5";
    const double before = PeakMiB();
    for (auto _ : state) action();
    state.counters["peak_growth_MiB"] = PeakMiB() - before;
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * ContentMiB() * kMiB));
}

void BareHash(benchmark::State& state) {
    ork::ContextHandle provider;
    ORKAcquireContext(provider.Receive(), nullptr, nullptr, ORK_PROVIDER_TYPE, ORK_OPEN_VERIFY);
    std::vector<unsigned char> chunk(kChunk);
    for (std::size_t j = 0; j < kChunk; ++j) chunk[j] = static_cast<unsigned char>(j * 31 + j / 251);
    Run(state, [&] {
        ork::HashHandle hash;
        ORKCreateHash(provider.Get(), ORK_ALG_GOSTR3411, 0, hash.Receive(), 0);
        for (std::size_t i = 0; i < ContentMiB() * kMiB / kChunk; ++i) ORKHashData(hash.Get(), chunk.data(), kChunk, 0);
        IdentObj value;
        ORKGetHashParam(hash.Get(), ORK_HASH_PARAM_VALUE, value);
    });
}
BENCHMARK(BareHash)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void HashFile(benchmark::State& state) {
    SNALCryptInfo info;
    info.hashAlgId = ORK_ALG_GOSTR3411;
    Run(state, [&] { NALHashFile(Setting::Get().content.c_str(), 0, 0xFFFFFFFF, 0, info); });
}
BENCHMARK(HashFile)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void SignDetachedOf(benchmark::State& state, const std::string& path) {
    WhatToSignStruct what;
    what.flags = c_NAL_CONTENT_IN_FILE;
    what.data = path.c_str();
    what.end = c_NAL_TO_END_OF_FILE;
    Run(state, [&] {
        IdentObj message;
        NALSignData(Setting::Get().user, Setting::Get().cert, what, &message, nullptr, nullptr);
    });
}
void SignDetached(benchmark::State& state) {
    SignDetachedOf(state, Setting::Get().content);
}
BENCHMARK(SignDetached)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void SignAttached(benchmark::State& state) {
    const Setting& setting = Setting::Get();
    Run(state, [&] {
        NALSignFile(setting.user, setting.cert, setting.content.c_str(), setting.output.c_str(), nullptr, 0, nullptr, nullptr);
    });
}
BENCHMARK(SignAttached)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

// What attached signing does beside hashing: the copy, and the wait for the disk.
void DurableCopy(benchmark::State& state) {
    const Setting& setting = Setting::Get();
    std::vector<unsigned char> chunk(4 * kChunk);
    Run(state, [&] {
        const CTOOFile source(setting.content, "rb");
        CTOOWholeFile target(setting.output);
        for (std::size_t count = 0; (count = source.Read(chunk.data(), chunk.size())) != 0;) target.Write(chunk.data(), count);
        target.Commit();
    });
}
BENCHMARK(DurableCopy)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void SignSmallDetached(benchmark::State& state) {
    SignDetachedOf(state, Setting::Get().small);
    state.SetBytesProcessed(0);
}
BENCHMARK(SignSmallDetached)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void RequireValid(benchmark::State& state, const std::list<CNALWholeSignatureCheck>& records) {
    for (const CNALWholeSignatureCheck& record : records) {
        if (!record.IsValid()) state.SkipWithError("a signature is not valid");
    }
    if (records.size() != static_cast<std::size_t>(state.range(0))) state.SkipWithError("a signature is missing");
}

void VerifyDetached(benchmark::State& state) {
    const Setting& setting = Setting::Get();
    const IdentObj message = setting.SignedBy(static_cast<unsigned>(state.range(0))).WriteObject(nullptr);
    Run(state, [&] {
        std::list<CNALWholeSignatureCheck> records;
        NALVerifySignatureOnFile(records, setting.content.c_str(), &message, nullptr, nullptr);
        RequireValid(state, records);
    });
}
BENCHMARK(VerifyDetached)->Arg(1)->Arg(kSigners)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void VerifyAttached(benchmark::State& state) {
    const Setting& setting = Setting::Get();
    CNALSignData message = setting.SignedBy(static_cast<unsigned>(state.range(0)));
    WhatToSignStruct what;
    what.flags = c_NAL_CONTENT_IN_FILE;
    what.data = setting.content.c_str();
    what.end = c_NAL_TO_END_OF_FILE;
    message.AttachData(what, nullptr);
    CTOOFile file(setting.output, "wb");
    message.WriteObject(file, 0);
    file.Close();
    Run(state, [&] {
        std::list<CNALWholeSignatureCheck> records;
        NALVerifySignatureOnFile(records, setting.output.c_str(), nullptr, nullptr, nullptr);
        RequireValid(state, records);
    });
}
BENCHMARK(VerifyAttached)->Arg(1)->Arg(kSigners)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

}  // namespace
