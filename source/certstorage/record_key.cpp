#include "certstorage/record_key.h"

#include <algorithm>

namespace nal {

int CompareKeys(asnt::View a, asnt::View b) {
    const RecordKey x = RecordKey::FromBytes(a);
    const RecordKey y = RecordKey::FromBytes(b);
    if (int order = std::memcmp(x.identifier.data(), y.identifier.data(), x.identifier.size())) return order;
    if (int order = std::memcmp(x.crlSerial.data(), y.crlSerial.data(), x.crlSerial.size())) return order;
    // Subtracted without sign, since the difference of two signed words may not fit one.
    if (x.kind != y.kind) return static_cast<std::int32_t>(x.kind - y.kind);

    const asnt::View restA = a.Sub(sizeof(RecordKey));
    const asnt::View restB = b.Sub(sizeof(RecordKey));
    const std::size_t common = std::min(restA.size, restB.size);
    if (common != 0) {
        if (int order = std::memcmp(restA.data, restB.data, common)) return order;
    }
    return restA.size == restB.size ? 0 : restA.size < restB.size ? -1 : 1;
}

std::size_t KeyPrefix(asnt::View a, asnt::View b) {
    const KeyIdentifier x = RecordKey::FromBytes(a).identifier;
    const KeyIdentifier y = RecordKey::FromBytes(b).identifier;
    // A foreign key that differs only beyond its first 40 bytes is needed whole.
    if (b.size > sizeof(RecordKey)) return b.size;
    return std::min<std::size_t>(b.size, x == y ? sizeof(RecordKey) : x.size());
}

}  // namespace nal
