// The entries of a CRL, where they lie in its encoding, and the index by serial number.
//
//   slot, one for each entry, in order            index, a hash table of entry numbers + 1, 0 = free
//   offset  size  field                           A power of two of 32-bit cells, at most half of them used. The cell of a
//        0     8  revocation date                 serial is the low bits of its tag, or the next free one behind it.
//        8     4  offset of the entry's DER
//       12     4  tag: keyed hash of the serial
//
// The hash is keyed with random bytes of the process, so that whoever makes a CRL cannot choose serials that meet in one cell.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "asnt/view.h"
#include "nal/crl.h"
#include "too/ident_obj.h"

namespace nal {

/// Thread-safe as long as nobody calls Add.
class CrlEntries {
public:
    static constexpr std::size_t npos = CNAL_CRL_Info::npos;

    /// No entries.
    CrlEntries();
    ~CrlEntries();
    /// Checks every entry.
    /// @param encoded  the bytes in which `content` lies
    /// @param content  the content of revokedCertificates
    /// @param context  of what is thrown for a damaged entry
    CrlEntries(std::shared_ptr<const IdentObj> encoded, asnt::View content, const char* context);
    /// A copy with bytes of its own, and no index yet.
    CrlEntries(const CrlEntries& other);
    CrlEntries& operator=(const CrlEntries&) = delete;

    std::size_t Count() const { return m_slots.size(); }
    /// Whether Add may be called.
    bool OwnsBytes() const { return m_encoded == nullptr; }
    /// The entries' DER, one after another.
    asnt::View Bytes() const { return m_bytes; }
    CNAL_CRL_EntryView Get(std::size_t index) const;
    /// @param octets  the serial's content octets, most significant byte first
    /// @return the first entry with this serial, or npos
    std::size_t Find(asnt::View octets) const;
    /// Adds an encoded entry to entries whose bytes are its own.
    void Add(asnt::View entry, const char* context);

private:
    struct Slot {
        FILETIME revocationDate;
        std::uint32_t offset;
        std::uint32_t tag;
    };
    struct Index;

    /// Checks an entry and notes it as the one that lies at `offset`.
    void Append(const asnt::Element& entry, std::size_t offset, const char* context);
    asnt::View SerialAt(std::size_t index) const;
    void BuildIndex(std::vector<std::uint32_t>& cells) const;

    std::shared_ptr<const IdentObj> m_encoded;
    std::vector<unsigned char> m_own;
    asnt::View m_bytes;  // lies in *m_encoded or in m_own
    std::vector<Slot> m_slots;
    std::unique_ptr<Index> m_index;
};

}  // namespace nal
