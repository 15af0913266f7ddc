// Tables of public keys that verify again and again: issuers', above all.
#pragma once

#include <array>
#include <memory>
#include <mutex>
#include <vector>

#include "host/provider/crypto/curve/curve_kernel.h"

namespace nalhost::crypto::curve {

/// Keeps the tables of the keys that verified last. Thread-safe.
///
/// Signatures that hold are all that it learns from. A table is made when the second one of its key does: a key that
/// comes once, as a signer's often does, costs no table, and any number of such keys pushes no table out, since they
/// pass through a list of their own. Whoever can have signatures of his own keys verified, two of each, can push tables
/// out: verifications then take the time that they take under a new key.
class KeyTableCache {
public:
    static constexpr std::size_t kTables = 64;      ///< 4.5 KiB each
    static constexpr std::size_t kSightings = 256;  ///< keys seen once that are remembered

    KeyTableCache() = default;

    /// The cache that all verifications of the process share; made at the first call, and never destroyed.
    static KeyTableCache& OfProcess();

    /// The table of a point on the curve, null when there is none.
    std::shared_ptr<const KeyTable> Find(const CurveKernel& kernel, const PlainPoint& point);

    /// Tells that a signature held under the key; at the second one its table is made. Without memory for the table the
    /// key does without.
    void AddSuccess(const CurveKernel& kernel, const PlainPoint& point) noexcept;

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
    bool NoteUse(const Key& key);
    bool TakeSighting(const Key& key);
    void Keep(const Key& key, std::shared_ptr<const KeyTable> table);

    std::mutex m_mutex;
    std::uint64_t m_uses = 0;
    std::vector<Entry> m_entries;
    std::array<Key, kSightings> m_sightings{};  // a ring
    std::size_t m_nextSighting = 0;
};

}  // namespace nalhost::crypto::curve
