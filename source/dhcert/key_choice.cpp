#include "dhcert/key_choice.h"

#include <algorithm>
#include <string>
#include <unordered_map>

namespace nal {

namespace {

CTOOFileTime TimeOf(const CNALSendCertRecord& record) {
    return record.IsOutgoing() || record.TimeReceive().IsZero() ? record.TimeSend() : record.TimeReceive();
}

std::string KeyOf(const CNALSendCertRecord& record) {
    const IdentObj number = record.NumberKey();
    return {reinterpret_cast<const char*>(number.GetData()), number.GetSize()};
}

// Whether the record tells if its key can be used: one that waits for the peer's answer does not.
bool IsVerdict(const CNALSendCertRecord& record) {
    return record.IsIncoming() || record.IsWasKvit() || record.IsReject();
}

}  // namespace

std::vector<CNALSendCertRecord> RankKeys(const std::vector<CNALSendCertRecord>& records, bool incoming) {
    // The last verdict on each key, and where it stands.
    std::unordered_map<std::string, std::size_t> last;
    for (std::size_t i = 0; i < records.size(); ++i) {
        const CNALSendCertRecord& record = records[i];
        if (record.IsIncoming() != incoming || !IsVerdict(record) || record.NumberKey().IsEmpty()) continue;
        const auto [at, isNew] = last.emplace(KeyOf(record), i);
        if (!isNew && TimeOf(record) >= TimeOf(records[at->second])) at->second = i;
    }
    std::vector<std::size_t> order;
    for (const auto& [key, index] : last) {
        if (!records[index].IsReject()) order.push_back(index);
    }
    std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        if (records[a].IsActual() != records[b].IsActual()) return records[a].IsActual();
        const CTOOFileTime timeA = TimeOf(records[a]);
        const CTOOFileTime timeB = TimeOf(records[b]);
        return timeA == timeB ? a > b : timeA > timeB;
    });
    std::vector<CNALSendCertRecord> ranked;
    ranked.reserve(order.size());
    for (const std::size_t index : order)
        ranked.push_back(records[index]);
    return ranked;
}

}  // namespace nal
