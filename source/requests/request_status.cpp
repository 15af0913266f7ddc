// A request-status record; integers and times in host byte order, identifiers in the serialized form of IdentObj:
//
//   offset  size  field
//        0     4  request type
//        4     4  format
//        8   var  request identifier, subject name, user name
//        .    12  status, certificate number, flags
//        .    40  times: made, sent, answered, received, installed
//        .   var  certificate serial, issuer, subject key identifier; only in format 0x10002
//        .   var  comment

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>

#include "nal/request_files.h"
#include "too/status.h"

namespace {

constexpr unsigned c_mostSize = std::numeric_limits<unsigned>::max();

// Steps over the fields of a record in their order; Field is called with each.
template <class Record, class Field>
bool ForEachField(Record& record, Field field) {
    if (!(field(record.m_requestType) && field(record.m_format) && field(record.m_requestId) &&
          field(record.m_subjectName) && field(record.m_userName) && field(record.m_status) &&
          field(record.m_certificateNumber) && field(record.m_flags) && field(record.m_timeMade) &&
          field(record.m_timeSent) && field(record.m_timeAnswered) && field(record.m_timeReceived) &&
          field(record.m_timeInstalled))) {
        return false;
    }
    if (record.m_format == CNALCertRequestStatus::c_formatWithOptional &&
        !(field(record.m_certificateSerial) && field(record.m_certificateIssuer) && field(record.m_subjectKeyId))) {
        return false;
    }
    return field(record.m_comment);
}

// Reads fields from bytes.
class FieldReader {
public:
    FieldReader(const void* data, unsigned size) : m_at(static_cast<const unsigned char*>(data)), m_left(size) {}

    bool operator()(IdentObj& field) {
        const unsigned read = field.ReadData(m_at, m_left);
        Advance(read);
        return read != 0;
    }
    template <class Value>
    bool operator()(Value& field) {
        if (m_left < sizeof field) return false;
        std::memcpy(&field, m_at, sizeof field);
        Advance(sizeof field);
        return true;
    }
    unsigned Left() const { return m_left; }

private:
    void Advance(unsigned size) {
        m_at += size;
        m_left -= size;
    }

    const unsigned char* m_at;
    unsigned m_left;
};

// Writes fields to bytes, of which there are enough.
class FieldWriter {
public:
    FieldWriter(void* data, unsigned size) : m_at(static_cast<unsigned char*>(data)), m_left(size) {}

    bool operator()(const IdentObj& field) {
        const unsigned written = field.WriteData(m_at, m_left);
        Advance(written);
        return written != 0;
    }
    template <class Value>
    bool operator()(const Value& field) {
        if (m_left < sizeof field) return false;
        std::memcpy(m_at, &field, sizeof field);
        Advance(sizeof field);
        return true;
    }
    unsigned Left() const { return m_left; }

private:
    void Advance(unsigned size) {
        m_at += size;
        m_left -= size;
    }

    unsigned char* m_at;
    unsigned m_left;
};

// Whether each field of one record, save for the optional identifiers, is in a relation to the other's.
template <class Relation>
bool AllFields(const CNALCertRequestStatus& a, const CNALCertRequestStatus& b, Relation holds) {
    return holds(a.m_requestType, b.m_requestType) && holds(a.m_format, b.m_format) &&
           holds(a.m_requestId, b.m_requestId) && holds(a.m_subjectName, b.m_subjectName) &&
           holds(a.m_userName, b.m_userName) && holds(a.m_status, b.m_status) &&
           holds(a.m_certificateNumber, b.m_certificateNumber) && holds(a.m_flags, b.m_flags) &&
           holds(a.m_timeMade, b.m_timeMade) && holds(a.m_timeSent, b.m_timeSent) &&
           holds(a.m_timeAnswered, b.m_timeAnswered) && holds(a.m_timeReceived, b.m_timeReceived) &&
           holds(a.m_timeInstalled, b.m_timeInstalled) && holds(a.m_comment, b.m_comment);
}

}  // namespace

unsigned CNALCertRequestStatus::ReadData(const void* data, unsigned size) {
    if (!data) return 0;
    CNALCertRequestStatus read;
    FieldReader reader(data, size);
    if (!ForEachField(read, [&](auto& field) { return reader(field); })) return 0;
    *this = std::move(read);
    return size - reader.Left();
}

unsigned CNALCertRequestStatus::ReadData(const CTOOFile& file, unsigned size) {
    try {
        const std::uint64_t start = file.Tell();
        const std::uint64_t length = file.Length();
        if (start >= length) return 0;
        IdentObj bytes;
        bytes.SetSize(static_cast<unsigned>(std::min<std::uint64_t>(size, length - start)));
        const auto got = static_cast<unsigned>(file.Read(bytes.GetData(), bytes.GetSize()));
        const unsigned consumed = ReadData(bytes.GetData(), got);
        file.Seek(static_cast<std::int64_t>(start + consumed));
        return consumed;
    } catch (const XTOOStatus&) {
        return 0;
    }
}

unsigned CNALCertRequestStatus::WriteData(void* buf, unsigned size) const {
    const unsigned needed = GetObjectSize();
    if (!buf || size < needed || needed == c_mostSize) return 0;
    FieldWriter writer(buf, needed);
    if (!ForEachField(*this, [&](const auto& field) { return writer(field); }) || writer.Left() != 0) {
        std::memset(buf, 0, needed);
        return 0;
    }
    return needed;
}

unsigned CNALCertRequestStatus::WriteData(CTOOFile& file, unsigned size) const {
    IdentObj bytes;
    const unsigned needed = GetObjectSize();
    if (size < needed || needed == c_mostSize) return 0;
    bytes.SetSize(needed);
    if (WriteData(bytes.GetData(), needed) == 0) return 0;
    try {
        file.Write(bytes);
    } catch (const XTOOStatus&) {
        return 0;
    }
    return needed;
}

unsigned CNALCertRequestStatus::GetObjectSize() const {
    std::uint64_t size = c_fixedSize;
    const IdentObj* const always[] = {&m_requestId, &m_subjectName, &m_userName, &m_comment};
    const IdentObj* const optional[] = {&m_certificateSerial, &m_certificateIssuer, &m_subjectKeyId};
    for (const IdentObj* identifier : always)
        size += identifier->GetObjectSize();
    if (m_format == c_formatWithOptional) {
        for (const IdentObj* identifier : optional)
            size += identifier->GetObjectSize();
    }
    return static_cast<unsigned>(std::min<std::uint64_t>(size, c_mostSize));
}

bool CNALCertRequestStatus::operator==(const CNALCertRequestStatus& other) const {
    return AllFields(*this, other, [](const auto& a, const auto& b) { return a == b; });
}

bool CNALCertRequestStatus::operator<(const CNALCertRequestStatus& other) const {
    return AllFields(*this, other, [](const auto& a, const auto& b) { return a < b; });
}
