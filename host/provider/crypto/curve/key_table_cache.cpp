#include "host/provider/crypto/curve/key_table_cache.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "host/provider/crypto/immortal.h"

namespace nalhost::crypto::curve {

// Public keys: the time may tell where they differ.
bool KeyTableCache::Key::operator==(const Key& other) const {
    return point.x.limb[0] == other.point.x.limb[0] && kernel == other.kernel &&
           std::memcmp(&point, &other.point, sizeof point) == 0;
}

KeyTableCache& KeyTableCache::OfProcess() {
    static Immortal<KeyTableCache> cache;
    return *cache;
}

std::shared_ptr<const KeyTable> KeyTableCache::Find(const CurveKernel& kernel, const PlainPoint& point) {
    const std::lock_guard lock(m_mutex);
    const Entry* entry = FindEntry({&kernel, point});
    return entry == nullptr ? nullptr : entry->table;
}

void KeyTableCache::AddSuccess(const CurveKernel& kernel, const PlainPoint& point) noexcept {
    const Key key = {&kernel, point};
    {
        const std::lock_guard lock(m_mutex);
        if (NoteUse(key) || !TakeSighting(key)) return;
    }
    try {
        // Made outside the lock: two threads may make the same table, and one of them is kept.
        const auto table = std::make_shared<KeyTable>();
        kernel.FillTable(point, *table);
        Keep(key, table);
    } catch (const std::bad_alloc&) {
        return;
    }
}

void KeyTableCache::Keep(const Key& key, std::shared_ptr<const KeyTable> table) {
    const std::lock_guard lock(m_mutex);
    if (NoteUse(key)) return;
    if (m_entries.size() == kTables) {
        const auto oldest = std::min_element(m_entries.begin(), m_entries.end(),
                                             [](const Entry& a, const Entry& b) { return a.lastUse < b.lastUse; });
        *oldest = {key, std::move(table), ++m_uses};
    } else {
        m_entries.push_back({key, std::move(table), ++m_uses});
    }
}

KeyTableCache::Entry* KeyTableCache::FindEntry(const Key& key) {
    const auto found =
        std::find_if(m_entries.begin(), m_entries.end(), [&key](const Entry& entry) { return entry.key == key; });
    return found == m_entries.end() ? nullptr : &*found;
}

// Whether the key has a table.
bool KeyTableCache::NoteUse(const Key& key) {
    Entry* entry = FindEntry(key);
    if (entry != nullptr) entry->lastUse = ++m_uses;
    return entry != nullptr;
}

// Whether the key was seen once before; if not, it is from now on.
bool KeyTableCache::TakeSighting(const Key& key) {
    const auto found = std::find(m_sightings.begin(), m_sightings.end(), key);
    if (found != m_sightings.end()) {
        *found = {};
        return true;
    }
    m_sightings[m_nextSighting] = key;
    m_nextSighting = (m_nextSighting + 1) % kSightings;
    return false;
}

}  // namespace nalhost::crypto::curve
