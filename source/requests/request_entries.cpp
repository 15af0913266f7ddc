// Entries of a request storage to DER and back; request_storage_file.h has the grammar.
#include <algorithm>
#include <utility>

#include "asnt/writer.h"
#include "requests/request_storage_file.h"
#include "too/status.h"

namespace nal {
namespace {

constexpr char c_context[] = "RequestStorage";
constexpr std::uint64_t c_format = 1;

std::uint64_t ReadUnsigned(asnt::Reader& reader) {
    std::uint64_t value = 0;
    if (!asnt::DecodeUnsigned(reader.Integer(), value)) reader.Fail();
    return value;
}

/// [number] OCTET STRING; one that is there is not empty.
IdentObj ReadOptional(asnt::Reader& reader, std::uint32_t number) {
    asnt::Element element;
    if (!reader.Optional(asnt::tag::ContextPrimitive(number), element)) return {};
    if (element.content.empty()) reader.Fail();
    return element.content.Copy();
}

std::list<CNALHistoryItem> ReadHistory(asnt::Reader items) {
    std::list<CNALHistoryItem> history;
    do {
        asnt::Reader item = items.Enter(asnt::tag::Sequence);
        const DWORD status = item.Unsigned();
        history.push_back({status, CTOOFileTime(ReadUnsigned(item))});
        item.ExpectEnd();
    } while (!items.AtEnd());
    return history;
}

RequestEntry ReadEntry(asnt::Reader reader) {
    RequestEntry entry;
    entry.number = ReadUnsigned(reader);
    entry.identity = reader.Octets().Copy();
    entry.request = reader.Octets().Copy();
    entry.value = reader.Unsigned();
    entry.type = reader.Unsigned();
    asnt::Reader times = reader.Enter(asnt::tag::Sequence);
    for (std::uint64_t& time : entry.times)
        time = ReadUnsigned(times);
    times.ExpectEnd();
    entry.history = ReadHistory(reader.Enter(asnt::tag::Sequence));
    entry.container = reader.Octets().Copy();
    entry.certificate = ReadOptional(reader, 0);
    entry.issuer = ReadOptional(reader, 1);
    entry.crl = ReadOptional(reader, 2);
    reader.ExpectEnd();
    return entry;
}

void WriteOptional(asnt::Writer& writer, std::uint32_t number, const IdentObj& content) {
    if (!content.IsEmpty()) writer.Primitive(asnt::tag::ContextPrimitive(number), asnt::View(content));
}

void WriteEntry(asnt::Writer& writer, const RequestEntry& entry) {
    writer.Sequence([&] {
        writer.Unsigned(entry.number);
        writer.OctetString(asnt::View(entry.identity));
        writer.OctetString(asnt::View(entry.request));
        writer.Unsigned(entry.value);
        writer.Unsigned(entry.type);
        writer.Sequence([&] {
            for (const std::uint64_t time : entry.times)
                writer.Unsigned(time);
        });
        writer.Sequence([&] {
            for (const CNALHistoryItem& item : entry.history) {
                writer.Sequence([&] {
                    writer.Unsigned(item.m_status);
                    writer.Unsigned(item.m_time.GetTicks());
                });
            }
        });
        writer.OctetString(asnt::View(entry.container));
        WriteOptional(writer, 0, entry.certificate);
        WriteOptional(writer, 1, entry.issuer);
        WriteOptional(writer, 2, entry.crl);
    });
}

}  // namespace

unsigned TimeOfRequestStatus(DWORD status) {
    switch (status) {
        case NAL_REQ_STATUS_MADE:
            return NAL_REQ_TIME_MADE;
        case NAL_REQ_STATUS_SENT:
            return NAL_REQ_TIME_SENT;
        case NAL_REQ_STATUS_ACCEPTED:
        case NAL_REQ_STATUS_REFUSED:
            return NAL_REQ_TIME_DECIDED;
        case NAL_REQ_STATUS_RECEIVED:
            return NAL_REQ_TIME_RECEIVED;
        case NAL_REQ_STATUS_INSTALLED:
            return NAL_REQ_TIME_INSTALLED;
        default:
            return NAL_REQ_TIME_COUNT;
    }
}

void RequestEntry::Record(DWORD status, const CTOOFileTime& when) {
    history.push_back({status, when});
    if (const unsigned time = TimeOfRequestStatus(status); time < times.size()) times[time] = when.GetTicks();
}

const RequestEntry* RequestList::After(std::uint64_t number) const {
    const auto next = std::upper_bound(entries.begin(), entries.end(), number,
                                       [](std::uint64_t sought, const RequestEntry& entry) { return sought < entry.number; });
    return next != entries.end() ? &*next : nullptr;
}

const RequestEntry* RequestList::Find(std::uint64_t number) const {
    if (number == 0) return nullptr;
    const RequestEntry* entry = After(number - 1);
    return entry != nullptr && entry->number == number ? entry : nullptr;
}

const RequestEntry& RequestList::Get(std::uint64_t number, const CTOOString& path) const {
    const RequestEntry* entry = Find(number);
    if (entry == nullptr) throw XTOOStatus(TOO_E_NOT_FOUND, path + ": the request is not in this storage any more");
    return *entry;
}

RequestEntry& RequestList::Get(std::uint64_t number, const CTOOString& path) {
    return const_cast<RequestEntry&>(std::as_const(*this).Get(number, path));
}

RequestList DecodeRequestList(asnt::View file) {
    asnt::Reader top(file, c_context);
    asnt::Reader storage = top.Enter(asnt::tag::Sequence);
    top.ExpectEnd();
    if (ReadUnsigned(storage) != c_format) storage.Fail();
    RequestList list;
    list.lastNumber = ReadUnsigned(storage);
    asnt::Reader entries = storage.Enter(asnt::tag::Sequence);
    storage.ExpectEnd();
    std::uint64_t last = 0;
    while (!entries.AtEnd()) {
        list.entries.push_back(ReadEntry(entries.Enter(asnt::tag::Sequence)));
        const std::uint64_t number = list.entries.back().number;
        if (number <= last || number > list.lastNumber) entries.Fail();
        last = number;
    }
    return list;
}

IdentObj EncodeRequestList(const RequestList& list) {
    asnt::Writer writer;
    writer.Sequence([&] {
        writer.Unsigned(c_format);
        writer.Unsigned(list.lastNumber);
        writer.Sequence([&] {
            for (const RequestEntry& entry : list.entries)
                WriteEntry(writer, entry);
        });
    });
    return writer.Finish();
}

}  // namespace nal
