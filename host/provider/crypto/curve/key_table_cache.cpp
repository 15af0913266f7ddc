#include "host/provider/crypto/curve/key_table_cache.h"

#include <algorithm>

namespace nalhost::crypto::curve {

bool KeyTableCache::Key::operator==(const Key& other) const {
    return kernel == other.kernel && (IsEqualMask(point.x, other.point.x) & IsEqualMask(point.y, other.point.y)) != 0;
}

KeyTableCache& KeyTableCache::OfProcess() {
    // Outlives the threads and the globals of the host.
    static auto& cache = *std::make_unique<KeyTableCache>().release();
    return cache;
}

std::shared_ptr<const KeyTable> KeyTableCache::Find(const CurveKernel& kernel, const PlainPoint& point) {
    const Key key = {&kernel, point};
    {
        const std::lock_guard lock(m_mutex);
        if (Entry* entry = FindEntry(key)) {
            entry->lastUse = ++m_uses;
            return entry->table;
        }
        if (!TakeSighting(key)) {
            m_sightings[m_nextSighting] = key;
            m_nextSighting = (m_nextSighting + 1) % kSightings;
            return nullptr;
        }
    }
    // Made outside the lock: two threads may make the same table, and one of them is kept.
    const auto table = std::make_shared<KeyTable>();
    kernel.FillTable(point, *table);
    const std::lock_guard lock(m_mutex);
    if (FindEntry(key)) return table;
    if (m_entries.size() == kTables) {
        const auto oldest = std::min_element(m_entries.begin(), m_entries.end(),
                                             [](const Entry& a, const Entry& b) { return a.lastUse < b.lastUse; });
        *oldest = {key, table, ++m_uses};
    } else {
        m_entries.push_back({key, table, ++m_uses});
    }
    return table;
}

KeyTableCache::Entry* KeyTableCache::FindEntry(const Key& key) {
    const auto found =
        std::find_if(m_entries.begin(), m_entries.end(), [&key](const Entry& entry) { return entry.key == key; });
    return found == m_entries.end() ? nullptr : &*found;
}

bool KeyTableCache::TakeSighting(const Key& key) {
    const auto found = std::find(m_sightings.begin(), m_sightings.end(), key);
    if (found == m_sightings.end()) return false;
    *found = {};
    return true;
}

}  // namespace nalhost::crypto::curve
