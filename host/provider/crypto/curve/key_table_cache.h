// Tables of public keys that verify again and again: issuers', above all.
#pragma once

#include <array>
#include <memory>
#include <mutex>
#include <vector>

#include "host/provider/crypto/curve/curve_kernel.h"

namespace nalhost::crypto::curve {

/// Keeps the tables of the keys that were used last. Thread-safe.
///
/// A table is made when its key comes a second time: a key that comes once, as a signer's often does, costs no table,
/// and any number of such keys pushes no table out, since they pass through a list of their own.
class KeyTableCache {
public:
    static constexpr std::size_t kTables = 64;      ///< 4.5 KiB each
    static constexpr std::size_t kSightings = 256;  ///< keys seen once that are remembered

    KeyTableCache() = default;

    /// The cache that all verifications of the process share; made at the first call, and never destroyed.
    static KeyTableCache& OfProcess();

    /// The table of a point on the curve; null at its first sighting. @throws std::bad_alloc
    std::shared_ptr<const KeyTable> Find(const CurveKernel& kernel, const PlainPoint& point);

private:
    struct Key {
        const CurveKernel* kernel;
        PlainPoint point;

        bool operator==(const Key& other) const;
    };

    struct Entry {
        Key key;
        std::shared_ptr<const KeyTable> table;
        std::uint64_t lastUse;
    };

    Entry* FindEntry(const Key& key);
    bool TakeSighting(const Key& key);

    std::mutex m_mutex;
    std::uint64_t m_uses = 0;
    std::vector<Entry> m_entries;
    std::array<Key, kSightings> m_sightings{};  // a ring
    std::size_t m_nextSighting = 0;
};

}  // namespace nalhost::crypto::curve
