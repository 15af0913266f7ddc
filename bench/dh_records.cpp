// Look-ups in a record file of DH certificates, and what one more record costs.
#include <benchmark/benchmark.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "nal/dh_certs.h"
#include "too/status.h"

namespace {

// A file of `count` records, half of them received, of a thousand hosts.
class RecordFile {
public:
    explicit RecordFile(long count)
        : m_path(std::filesystem::temp_directory_path() / ("nal-bench-" + std::to_string(count) + ".dat")) {
        std::filesystem::remove(m_path);
        IdentObj records;
        for (long i = 0; i < count; ++i) {
            const CNALSendCertRecord record = Make(i);
            records.Append(record.GetData(), CNALSendCertRecord::c_size);
        }
        CNALRecFileDHCert file(m_path.c_str());
        if (!file.ReplaceAll(records.GetData(), count)) throw XTOOStatus(file.GetReturnCode(), file.GetReturnText());
    }
    ~RecordFile() { std::filesystem::remove(m_path); }
    RecordFile(const RecordFile&) = delete;
    RecordFile& operator=(const RecordFile&) = delete;

    static CNALSendCertRecord Make(long index) {
        IdentObj key;
        key.SetSize(20);
        std::memcpy(key.GetData() + 8, &index, sizeof index);
        CNALSendCertRecord record("0000", "0001", CTOOFileTime(static_cast<std::uint64_t>(index)), index % 2, key,
                                  "file");
        record.DwApID(static_cast<DWORD>(index % 1000));
        return record;
    }
    const char* Path() const { return m_path.c_str(); }

private:
    std::filesystem::path m_path;
};

// Worst case: the key is that of the last record.
void IsReceivedKey(benchmark::State& state) {
    const RecordFile records(state.range(0));
    const CNALRecFileDHCert file(records.Path(), CNALRecFileDHCert::c_read, CNALSendCertRecord::c_size);
    const CNALSendCertRecord last = RecordFile::Make(state.range(0) - 1);
    const SNALDHPeer peer{"0000", last.ColID(), last.ApID()};
    for (auto _ : state) {
        if (!file.IsReceivedKey(peer, last.NumberKey())) state.SkipWithError("not found");
    }
}
BENCHMARK(IsReceivedKey)->Arg(1000)->Arg(100000)->Unit(benchmark::kMicrosecond);

void GetPeerRecords(benchmark::State& state) {
    const RecordFile records(state.range(0));
    const CNALRecFileDHCert file(records.Path(), CNALRecFileDHCert::c_read, CNALSendCertRecord::c_size);
    const SNALDHPeer peer{"0000", "0001", "00000001"};
    for (auto _ : state)
        benchmark::DoNotOptimize(file.GetPeerRecords(peer));
}
BENCHMARK(GetPeerRecords)->Arg(100000)->Unit(benchmark::kMicrosecond);

// Two records reach the disk for each: the file's own safety is most of the time.
void AddOnRecieve(benchmark::State& state) {
    const RecordFile records(state.range(0));
    CNALRecFileDHCert file(records.Path());
    CNALSendCertRecord record = RecordFile::Make(state.range(0) + 1);
    for (auto _ : state)
        benchmark::DoNotOptimize(file.AddOnRecieve(record));
}
BENCHMARK(AddOnRecieve)->Arg(1000)->Arg(100000)->Unit(benchmark::kMicrosecond);

void ReadList(benchmark::State& state) {
    const RecordFile records(state.range(0));
    CNALRecFileDHCert file(records.Path());
    for (auto _ : state)
        benchmark::DoNotOptimize(file.ReRead());
}
BENCHMARK(ReadList)->Arg(100000)->Unit(benchmark::kMillisecond);

}  // namespace
