// A message with 256 MiB of content: writing it from a file beside copying that file, reading it, taking the content out again.
// `peak_growth_MiB` is how much the process's peak memory grew.
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "cms/file_content.h"
#include "nal/signed_data.h"
#include "too/file.h"

namespace {

constexpr std::size_t kMiB = std::size_t{1} << 20;
constexpr std::size_t kContentMiB = 256;

double PeakMiB() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmHWM:", 0) == 0) return std::stod(line.substr(6)) / 1024;
    }
    return 0;
}

void ResetPeak() {
    std::ofstream("/proc/self/clear_refs") << "5";
}

/// A folder with the content, a message and room for output.
class Files {
public:
    static const Files& Get() {
        static const Files files;
        return files;
    }

    std::string content;
    std::string message;
    std::string output;

private:
    Files() : m_folder(std::filesystem::temp_directory_path() / ("nal-bench-" + std::to_string(getpid()))) {
        std::filesystem::create_directory(m_folder);
        content = m_folder / "content";
        message = m_folder / "message";
        output = m_folder / "output";
        std::vector<unsigned char> chunk(kMiB);
        CTOOFile file(content, "wb");
        for (std::size_t i = 0; i < kContentMiB; ++i) {
            for (std::size_t j = 0; j < kMiB; j += 64) chunk[j] = static_cast<unsigned char>(i + j);
            file.Write(chunk.data(), chunk.size());
        }
        CTOOFile out(message, "wb");
        CNALSignData data = Attached();
        data.WriteObject(out, 0);
    }
    ~Files() { std::filesystem::remove_all(m_folder); }

    std::filesystem::path m_folder;

public:
    CNALSignData Attached() const {
        CNALSignData data;
        WhatToSignStruct what;
        what.flags = c_NAL_CONTENT_IN_FILE;
        what.data = content.c_str();
        what.end = c_NAL_TO_END_OF_FILE;
        data.AttachData(what, nullptr);
        return data;
    }
};

template <class Action>
void Run(benchmark::State& state, Action&& action) {
    Files::Get();
    ResetPeak();
    const double before = PeakMiB();
    for (auto _ : state) action();
    state.counters["peak_growth_MiB"] = PeakMiB() - before;
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kContentMiB * kMiB));
}

void WriteAttached(benchmark::State& state) {
    CNALSignData data = Files::Get().Attached();
    Run(state, [&] {
        CTOOFile out(Files::Get().output, "wb");
        data.WriteObject(out, 0);
    });
}
BENCHMARK(WriteAttached)->Unit(benchmark::kMillisecond)->UseRealTime();

// What a user would compare it with.
void PlainCopy(benchmark::State& state) {
    const std::string command = "cp --reflink=never " + Files::Get().content + " " + Files::Get().output;
    Run(state, [&] {
        if (std::system(command.c_str()) != 0) state.SkipWithError("cp failed");  // NOLINT(cert-env33-c)
    });
}
BENCHMARK(PlainCopy)->Unit(benchmark::kMillisecond)->UseRealTime();

void ReadMessageFile(benchmark::State& state) {
    Run(state, [] {
        CNALSignData data;
        benchmark::DoNotOptimize(data.ReadObject(CTOOFile(Files::Get().message, "rbc"), 0, nullptr));
    });
}
BENCHMARK(ReadMessageFile)->Unit(benchmark::kMicrosecond)->UseRealTime();

void DetachToFile(benchmark::State& state) {
    Run(state, [] {
        CNALSignData data;
        data.ReadObject(CTOOFile(Files::Get().message, "rbc"), 0, nullptr);
        WhatToSignStruct what;
        what.flags = c_NAL_CONTENT_IN_FILE;
        what.data = Files::Get().output.c_str();
        data.DetachData(what, nullptr);
    });
}
BENCHMARK(DetachToFile)->Unit(benchmark::kMillisecond)->UseRealTime();

void StepOverContent(benchmark::State& state) {
    CNALSignData data;
    data.ReadObject(CTOOFile(Files::Get().message, "rbc"), 0, nullptr);
    Run(state, [&] {
        nal::FileContent content(data.dataSource, "");
        content.ForEachChunk(64 * 1024, [](asnt::View chunk) { benchmark::DoNotOptimize(chunk.data); });
    });
}
BENCHMARK(StepOverContent)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
