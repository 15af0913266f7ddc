#include "model/crl_entries.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <mutex>
#include <random>
#include <utility>

#include "too/status.h"

namespace nal {
namespace {

std::uint64_t ProcessKey() {
    static const std::uint64_t key = [] {
        std::random_device random;
        return std::uint64_t{random()} << 32 | random();
    }();
    return key;
}

std::uint64_t FoldedProduct(std::uint64_t a, std::uint64_t b) {
    __extension__ using Wide = unsigned __int128;
    const Wide product = Wide{a} * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

// Eight bytes a step, each multiplied under the key: a few nanoseconds for a serial.
std::uint32_t TagOf(asnt::View serial) {
    constexpr std::uint64_t c_multiplier = 0x9E3779B97F4A7C15u;
    const std::uint64_t key = ProcessKey();
    std::uint64_t state = key ^ serial.size;
    for (std::size_t offset = 0; offset < serial.size; offset += 8) {
        std::uint64_t word = 0;
        std::memcpy(&word, serial.data + offset, std::min<std::size_t>(8, serial.size - offset));
        state = FoldedProduct(state ^ word, key | 1) + c_multiplier;
    }
    return static_cast<std::uint32_t>(FoldedProduct(state, c_multiplier));
}

// Reads the fields of an entry in the order in which they stand, and looks at all of its extensions that CNALCertExtension looks
// at, so that giving the entry out later does not fail.
CNAL_CRL_EntryView Decode(const asnt::Element& entry, const char* context) {
    asnt::Reader fields = asnt::Reader(entry.whole, context).Enter(asnt::tag::Sequence);
    CNAL_CRL_EntryView view;
    // As in certificates, octets that DER would leave out are kept: what bears such a number can be revoked.
    view.m_serialOctets = fields.Next(asnt::tag::Integer).content;
    if (view.m_serialOctets.empty()) fields.Fail();
    view.m_revocationDate = fields.Time();
    view.m_extensions = fields.Rest();
    asnt::Reader extensions;
    if (fields.OptionalEnter(asnt::tag::Sequence, extensions)) {
        while (!extensions.AtEnd()) {
            asnt::Reader extension = extensions.Enter(asnt::tag::Sequence);
            extension.Oid();
            asnt::Element critical;
            if (extension.TryPeek(critical) && critical.Is(asnt::tag::Boolean)) extension.Boolean();
            extension.Octets();
            extension.ExpectEnd();
        }
    }
    fields.ExpectEnd();
    return view;
}

// The smallest entry: its header, an INTEGER of one octet, a UTCTime.
constexpr std::size_t c_minEntrySize = 2 + 3 + 15;

}  // namespace

struct CrlEntries::Index {
    std::once_flag once;
    bool built = false;
    std::vector<std::uint32_t> cells;
};

CrlEntries::CrlEntries() : m_index(std::make_unique<Index>()) {}
CrlEntries::~CrlEntries() = default;

CrlEntries::CrlEntries(std::shared_ptr<const IdentObj> encoded, asnt::View content, const char* context)
    : m_encoded(std::move(encoded)), m_bytes(content), m_index(std::make_unique<Index>()) {
    asnt::Reader entries(content, context);
    asnt::Element entry;
    // The entries of a list are much of a size, so the first one tells how many slots to expect.
    if (entries.TryPeek(entry)) m_slots.reserve(content.size / std::max(entry.whole.size, c_minEntrySize) + 1);
    while (!entries.AtEnd()) {
        const asnt::Element next = entries.Next(asnt::tag::Sequence);
        Append(next, static_cast<std::size_t>(next.whole.data - content.data), context);
    }
    m_slots.shrink_to_fit();
}

CrlEntries::CrlEntries(const CrlEntries& other)
    : m_own(other.m_bytes.begin(), other.m_bytes.end()),
      m_bytes(m_own.data(), m_own.size()),
      m_slots(other.m_slots),
      m_index(std::make_unique<Index>()) {}

void CrlEntries::Append(const asnt::Element& entry, std::size_t offset, const char* context) {
    const CNAL_CRL_EntryView view = Decode(entry, context);
    m_slots.push_back({view.m_revocationDate, static_cast<std::uint32_t>(offset), TagOf(view.m_serialOctets)});
}

void CrlEntries::Add(asnt::View entry, const char* context) {
    if (m_own.size() + entry.size > std::numeric_limits<std::uint32_t>::max()) throw XTOOStatus(TOO_E_RANGE, context);
    // Looked at first: bytes that are refused are not among the others.
    Append(asnt::Reader(entry, context).Next(asnt::tag::Sequence), m_own.size(), context);
    m_own.insert(m_own.end(), entry.begin(), entry.end());
    m_bytes = asnt::View(m_own.data(), m_own.size());
    if (m_index->built) m_index = std::make_unique<Index>();
}

CNAL_CRL_EntryView CrlEntries::Get(std::size_t index) const {
    const Slot& slot = m_slots[index];
    asnt::Reader fields = asnt::Reader(m_bytes.Sub(slot.offset)).Enter(asnt::tag::Sequence);
    CNAL_CRL_EntryView view;
    view.m_serialOctets = fields.Next().content;
    view.m_revocationDate = slot.revocationDate;
    fields.Skip();
    view.m_extensions = fields.Rest();
    return view;
}

asnt::View CrlEntries::SerialAt(std::size_t index) const {
    return asnt::Reader(m_bytes.Sub(m_slots[index].offset)).Enter(asnt::tag::Sequence).Next().content;
}

void CrlEntries::BuildIndex(std::vector<std::uint32_t>& cells) const {
    std::size_t size = 2;
    while (size < 2 * m_slots.size()) size *= 2;
    cells.assign(size, 0);
    const std::size_t mask = size - 1;
    for (std::size_t i = 0; i < m_slots.size(); ++i) {
        std::size_t cell = m_slots[i].tag & mask;
        // The first entry of a serial keeps its place: later ones with the same serial are left out.
        for (; cells[cell] != 0; cell = (cell + 1) & mask) {
            const std::size_t there = cells[cell] - 1;
            if (m_slots[there].tag == m_slots[i].tag && SerialAt(there) == SerialAt(i)) break;
        }
        if (cells[cell] == 0) cells[cell] = static_cast<std::uint32_t>(i + 1);
    }
}

std::size_t CrlEntries::Find(asnt::View octets) const {
    if (m_slots.empty()) return npos;
    std::call_once(m_index->once, [this] {
        BuildIndex(m_index->cells);
        m_index->built = true;
    });
    const std::vector<std::uint32_t>& cells = m_index->cells;
    const std::size_t mask = cells.size() - 1;
    const std::uint32_t tag = TagOf(octets);
    for (std::size_t cell = tag & mask; cells[cell] != 0; cell = (cell + 1) & mask) {
        const std::size_t index = cells[cell] - 1;
        if (m_slots[index].tag == tag && SerialAt(index) == octets) return index;
    }
    return npos;
}

}  // namespace nal
