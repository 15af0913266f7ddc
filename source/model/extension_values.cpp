// The extension values that hold no names. Each decoder fills a fresh object and moves it into place when all of it was read.
#include <algorithm>
#include <utility>

#include "asnt/time.h"
#include "model/bit_string.h"
#include "model/integer_order.h"
#include "nal/extensions.h"
#include "too/status.h"

namespace {

void WriteBits(asnt::Writer& writer, const CTOOCryptBitBlob& bits) {
    writer.BitString(bits.m_data, bits.m_unusedBits);
}

// A path length that no 32-bit number holds allows every path.
bool ReadPathLength(asnt::Reader& fields, DWORD& pathLength) {
    asnt::Element next;
    if (!fields.TryPeek(next) || !next.Is(asnt::tag::Integer)) return false;
    asnt::View content = fields.Integer();
    if ((content[0] & 0x80) != 0) fields.Fail();
    std::uint64_t value = 0;
    pathLength = asnt::DecodeUnsigned(content, value) && value <= 0xFFFFFFFFu ? static_cast<DWORD>(value) : 0xFFFFFFFFu;
    return true;
}

bool ReadTime(asnt::Reader& fields, unsigned number, FILETIME& time) {
    asnt::Element field;
    if (!fields.Optional(asnt::tag::ContextPrimitive(number), field)) return false;
    if (!asnt::DecodeTime(asnt::tag::GeneralizedTime, field.content, time)) fields.Fail();
    return true;
}

void WriteTime(asnt::Writer& writer, unsigned number, const FILETIME& time) {
    std::string content;
    if (!asnt::EncodeTime(asnt::tag::GeneralizedTime, time, content)) {
        throw XTOOStatus(TOO_E_ENCODE, "CKeyUsagePeriod");
    }
    writer.Primitive(asnt::tag::ContextPrimitive(number), IdentObj(content.data(), static_cast<unsigned>(content.size())));
}

}  // namespace

void CNALSubjectKeyID::Decode(asnt::Reader& reader) {
    m_keyId = reader.Octets().Copy();
}

void CNALSubjectKeyID::Encode(asnt::Writer& writer) const {
    writer.OctetString(m_keyId);
}

void CNALBasicConstraints::Decode(asnt::Reader& reader) {
    asnt::Reader fields = reader.Enter(asnt::tag::Sequence);
    CNALBasicConstraints read;
    asnt::Element next;
    if (fields.TryPeek(next) && next.Is(asnt::tag::Boolean)) read.m_isCA = fields.Boolean();
    read.m_hasPathLength = ReadPathLength(fields, read.m_pathLength);
    fields.ExpectEnd();
    *this = read;
}

void CNALBasicConstraints::Encode(asnt::Writer& writer) const {
    writer.Sequence([&] {
        if (m_isCA) writer.Boolean(true);
        if (m_hasPathLength) writer.Unsigned(m_pathLength);
    });
}

void CNALOldBasicConstraints::Decode(asnt::Reader& reader) {
    asnt::Reader fields = reader.Enter(asnt::tag::Sequence);
    CNALOldBasicConstraints read;
    read.m_subjectType = nal::ToBitBlob(fields.Bits());
    read.m_hasPathLength = ReadPathLength(fields, read.m_pathLength);
    asnt::Reader subtrees;
    if (fields.OptionalEnter(asnt::tag::Context(0), subtrees)) {
        while (!subtrees.AtEnd()) read.m_subtrees.push_back(subtrees.Next(asnt::tag::Sequence).whole.Copy());
    }
    fields.ExpectEnd();
    *this = std::move(read);
}

void CNALOldBasicConstraints::Encode(asnt::Writer& writer) const {
    writer.Sequence([&] {
        WriteBits(writer, m_subjectType);
        if (m_hasPathLength) writer.Unsigned(m_pathLength);
        if (m_subtrees.empty()) return;
        writer.Context(0, [&] {
            for (const auto& name : m_subtrees) writer.Raw(name);
        });
    });
}

CNALKeyUsage::CNALKeyUsage(unsigned flags) {
    const unsigned char octets[] = {static_cast<unsigned char>(flags), static_cast<unsigned char>(flags >> 8)};
    unsigned size = octets[1] != 0 ? 2 : octets[0] != 0 ? 1 : 0;
    m_bits.m_data.SetData(octets, size);
    if (size == 0) return;
    for (unsigned last = octets[size - 1]; (last & 1) == 0; last >>= 1) ++m_bits.m_unusedBits;
}

unsigned CNALKeyUsage::GetFlags() const {
    asnt::View bits = m_bits.m_data;
    return (bits.size > 0 ? bits[0] : 0u) | (bits.size > 1 ? bits[1] << 8 : 0u);
}

void CNALKeyUsage::Decode(asnt::Reader& reader) {
    m_bits = nal::ToBitBlob(reader.Bits());
}

void CNALKeyUsage::Encode(asnt::Writer& writer) const {
    WriteBits(writer, m_bits);
}

bool CNALExtendedKeyUsage::Contains(const CTOOString& oid) const {
    return std::find(m_usages.begin(), m_usages.end(), oid) != m_usages.end();
}

void CNALExtendedKeyUsage::Decode(asnt::Reader& reader) {
    asnt::Reader usages = reader.Enter(asnt::tag::Sequence);
    std::list<CTOOString> read;
    do {
        read.push_back(usages.Oid());
    } while (!usages.AtEnd());
    m_usages = std::move(read);
}

void CNALExtendedKeyUsage::Encode(asnt::Writer& writer) const {
    writer.Sequence([&] {
        for (const auto& usage : m_usages) writer.Oid(usage);
    });
}

void CKeyUsagePeriod::Decode(asnt::Reader& reader) {
    asnt::Reader fields = reader.Enter(asnt::tag::Sequence);
    CKeyUsagePeriod read;
    read.m_hasNotBefore = ReadTime(fields, 0, read.m_notBefore);
    read.m_hasNotAfter = ReadTime(fields, 1, read.m_notAfter);
    fields.ExpectEnd();
    *this = read;
}

void CKeyUsagePeriod::Encode(asnt::Writer& writer) const {
    writer.Sequence([&] {
        if (m_hasNotBefore) WriteTime(writer, 0, m_notBefore);
        if (m_hasNotAfter) WriteTime(writer, 1, m_notAfter);
    });
}

void CNALCRLNumber::Decode(asnt::Reader& reader) {
    asnt::Element number = reader.Next(asnt::tag::Integer);
    if (number.content.empty()) reader.Fail();
    m_number = nal::Reversed(number.content);
}

void CNALCRLNumber::Encode(asnt::Writer& writer) const {
    writer.IntegerReversed(m_number);
}

void CNALReasonCode::Decode(asnt::Reader& reader) {
    asnt::Element reason = reader.Next(asnt::tag::Enumerated);
    std::uint64_t value = 0;
    if (!asnt::DecodeUnsigned(reason.content, value) || value > 10 || value == 7) reader.Fail();
    m_reason = static_cast<unsigned>(value);
}

void CNALReasonCode::Encode(asnt::Writer& writer) const {
    writer.Enumerated(m_reason);
}

void CNALCertificatePolicies::Decode(asnt::Reader& reader) {
    asnt::Reader policies = reader.Enter(asnt::tag::Sequence);
    std::vector<CNALPolicyInformation> read;
    do {
        asnt::Reader fields = policies.Enter(asnt::tag::Sequence);
        CNALPolicyInformation& policy = read.emplace_back();
        policy.m_oid = fields.Oid();
        asnt::Reader qualifiers;
        if (fields.OptionalEnter(asnt::tag::Sequence, qualifiers)) {
            while (!qualifiers.AtEnd()) {
                asnt::Reader parts = qualifiers.Enter(asnt::tag::Sequence);
                CNALPolicyQualifier& qualifier = policy.m_qualifiers.emplace_back();
                qualifier.m_oid = parts.Oid();
                if (!parts.AtEnd()) qualifier.m_value = parts.Next().whole.Copy();
                parts.ExpectEnd();
            }
        }
        fields.ExpectEnd();
    } while (!policies.AtEnd());
    m_policies = std::move(read);
}

void CNALCertificatePolicies::Encode(asnt::Writer& writer) const {
    writer.Sequence([&] {
        for (const auto& policy : m_policies) {
            writer.Sequence([&] {
                writer.Oid(policy.m_oid);
                if (policy.m_qualifiers.empty()) return;
                writer.Sequence([&] {
                    for (const auto& qualifier : policy.m_qualifiers) {
                        writer.Sequence([&] {
                            writer.Oid(qualifier.m_oid);
                            writer.Raw(qualifier.m_value);
                        });
                    }
                });
            });
        }
    });
}
