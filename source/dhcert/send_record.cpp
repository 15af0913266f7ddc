// A record, 96 bytes; integers and times in host byte order:
//
//   offset  size  field
//        0     4  own network type, four characters, "0000" for none
//        4     4  peer network identifier, four hexadecimal characters
//        8     8  peer host identifier, eight hexadecimal characters
//       16     8  time sent, FILETIME
//       24     8  time received, FILETIME
//       32     8  flags, signed
//       40     4  length of the key number, at most 32
//       44    32  key number, filled up with zeros
//       52     4    short number, inside the key number: its bytes 8 to 11
//       76    16  network file name, at most 15 characters and a zero
//       92     4  zero

#include "dhcert/send_record.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "nal/dh_certs.h"

namespace {

struct Field {
    unsigned offset;
    unsigned size;
};

constexpr Field c_ownType{0, 4};
constexpr Field c_network{4, 4};
constexpr Field c_host{8, 8};
constexpr Field c_networkAndHost{c_network.offset, c_network.size + c_host.size};
constexpr Field c_timeSent{16, 8};
constexpr Field c_timeReceived{24, 8};
constexpr Field c_flags{32, 8};
constexpr Field c_keyLength{40, 4};
constexpr Field c_keyNumber{44, CNALSendCertRecord::c_maxNumberKey};
constexpr Field c_shortNumber{52, 4};
constexpr Field c_netFileName{76, CNALSendCertRecord::c_maxNetFileName + 1};
constexpr Field c_zero{92, 4};
static_assert(c_zero.offset + c_zero.size == CNALSendCertRecord::c_size, "the fields fill the record");

template <class Value>
Value Get(const SENDCERT_RECORD& record, const Field& field) {
    Value value{};
    static_assert(sizeof value <= 8, "an integer or a time");
    std::memcpy(&value, record.m_bytes + field.offset, sizeof value);
    return value;
}

template <class Value>
void Set(SENDCERT_RECORD& record, const Field& field, const Value& value) {
    std::memcpy(record.m_bytes + field.offset, &value, sizeof value);
}

std::string_view GetText(const SENDCERT_RECORD& record, const Field& field, unsigned most) {
    const char* text = reinterpret_cast<const char*>(record.m_bytes) + field.offset;
    return {text, strnlen(text, most)};
}

std::string_view GetText(const SENDCERT_RECORD& record, const Field& field) {
    return GetText(record, field, field.size);
}

std::string_view Cut(const char* text, std::size_t most) {
    return text ? std::string_view(text, strnlen(text, most)) : std::string_view();
}

void SetText(SENDCERT_RECORD& record, const Field& field, std::string_view text) {
    unsigned char* to = record.m_bytes + field.offset;
    std::memset(to, 0, field.size);
    std::copy(text.begin(), text.end(), to);
}

// A-Z are a-z. Look-ups compare some hundred thousand fields, so no text is copied for it.
bool IsSame(std::string_view a, std::string_view b) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [=](char x, char y) { return lower(x) == lower(y); });
}

bool IsNullType(std::string_view type) {
    return type.empty() || type == "0000";
}

unsigned long FromHex(std::string_view digits) {
    return std::strtoul(std::string(digits).c_str(), nullptr, 16);
}

unsigned KeyLength(const SENDCERT_RECORD& record) {
    return std::min(Get<std::uint32_t>(record, c_keyLength), std::uint32_t{CNALSendCertRecord::c_maxNumberKey});
}

}  // namespace

CNALSendCertRecord::CNALSendCertRecord(const void* image) {
    std::memcpy(m_record.m_bytes, image, c_size);
}

CNALSendCertRecord::CNALSendCertRecord(const char* colTypeSlf, const char* colID, const FILETIME& sent, long flags,
                                       const IdentObj& keyNumber, const char* netFileName) {
    ColTypeSlf(colTypeSlf);
    ColID(colID);
    TimeSend(sent);
    if ((flags & c_NAL_DH_INCOMING) != 0) TimeReceive(CTOOFileTime::Now());
    NetFileName(netFileName);
    AddFlag(flags);
    NumberKey(keyNumber);
}

CTOOString CNALSendCertRecord::ColTypeSlf() const {
    return {GetText(m_record, c_ownType)};
}

void CNALSendCertRecord::ColTypeSlf(const char* type) {
    SetText(m_record, c_ownType, Cut(type, c_ownType.size));
}

bool CNALSendCertRecord::IsSameCTSlf(const char* type) const {
    const std::string_view other = Cut(type, c_ownType.size);
    return IsSame(GetText(m_record, c_ownType), other) || (IsNullCol() && IsNullType(other));
}

bool CNALSendCertRecord::IsNullCol() const {
    return IsNullType(GetText(m_record, c_ownType));
}

CTOOString CNALSendCertRecord::ColID() const {
    return {GetText(m_record, c_network)};
}

void CNALSendCertRecord::ColID(const char* id) {
    SetText(m_record, c_network, Cut(id, c_network.size));
}

bool CNALSendCertRecord::IsSameColID(const char* id) const {
    return IsSame(GetText(m_record, c_network), Cut(id, c_network.size));
}

unsigned short CNALSendCertRecord::ColTypeW() const {
    return static_cast<unsigned short>(FromHex(GetText(m_record, c_network)));
}

void CNALSendCertRecord::ColTypeW(unsigned short type) {
    SetText(m_record, c_network, fmt::format("{:04X}", type));
}

CTOOString CNALSendCertRecord::ApID() const {
    return {GetText(m_record, c_host)};
}

void CNALSendCertRecord::ApID(const char* id) {
    SetText(m_record, c_host, Cut(id, c_host.size));
}

bool CNALSendCertRecord::IsSameApID(const char* id) const {
    return IsSame(GetText(m_record, c_host), Cut(id, c_host.size));
}

DWORD CNALSendCertRecord::DwApID() const {
    return static_cast<DWORD>(FromHex(GetText(m_record, c_host)));
}

void CNALSendCertRecord::DwApID(DWORD id) {
    SetText(m_record, c_host, fmt::format("{:08X}", id));
}

bool CNALSendCertRecord::SetID(const IdentObj& id) {
    const bool isHost = id.GetSize() == c_host.size;
    if (!isHost && id.GetSize() != c_networkAndHost.size) return false;
    const Field& field = isHost ? c_host : c_networkAndHost;
    std::memcpy(m_record.m_bytes + field.offset, id.GetData(), field.size);
    return true;
}

void CNALSendCertRecord::GetID(IdentObj& id) const {
    const Field& field = GetText(m_record, c_network).empty() ? c_host : c_networkAndHost;
    id.SetData(m_record.m_bytes + field.offset, field.size);
}

CTOOFileTime CNALSendCertRecord::TimeSend() const {
    return {Get<FILETIME>(m_record, c_timeSent)};
}

void CNALSendCertRecord::TimeSend(const FILETIME& time) {
    Set(m_record, c_timeSent, time);
}

CTOOFileTime CNALSendCertRecord::TimeReceive() const {
    return {Get<FILETIME>(m_record, c_timeReceived)};
}

void CNALSendCertRecord::TimeReceive(const FILETIME& time) {
    Set(m_record, c_timeReceived, time);
}

long CNALSendCertRecord::Flag() const {
    return Get<std::int64_t>(m_record, c_flags);
}

void CNALSendCertRecord::Flag(long flags) {
    Set(m_record, c_flags, std::int64_t{flags});
}

IdentObj CNALSendCertRecord::NumberKey() const {
    return {m_record.m_bytes + c_keyNumber.offset, KeyLength(m_record)};
}

void CNALSendCertRecord::NumberKey(const IdentObj& number) {
    const unsigned length = std::min(number.GetSize(), c_maxNumberKey);
    SetText(m_record, c_keyNumber, {reinterpret_cast<const char*>(number.GetData()), length});
    Set(m_record, c_keyLength, std::uint32_t{length});
}

DWORD CNALSendCertRecord::ShortNumber() const {
    return Get<DWORD>(m_record, c_shortNumber);
}

void CNALSendCertRecord::ShortNumber(DWORD number) {
    Set(m_record, c_shortNumber, number);
}

CTOOString CNALSendCertRecord::NetFileName() const {
    return {GetText(m_record, c_netFileName, c_maxNetFileName)};
}

void CNALSendCertRecord::NetFileName(const char* name) {
    SetText(m_record, c_netFileName, Cut(name, c_maxNetFileName));
}

bool CNALSendCertRecord::IsSameNetFileName(const char* name) const {
    // The whole of a longer name counts here: it is not the name of this file, even if it begins with it.
    return IsSame(GetText(m_record, c_netFileName, c_maxNetFileName), name ? name : "");
}

bool operator==(const CNALSendCertRecord& a, const CNALSendCertRecord& b) {
    return std::memcmp(a.GetData(), b.GetData(), CNALSendCertRecord::c_size) == 0;
}

bool operator<(const CNALSendCertRecord& a, const CNALSendCertRecord& b) {
    return std::memcmp(a.GetData(), b.GetData(), CNALSendCertRecord::c_size) < 0;
}

const CNALSendCertRecord* CDHCertSendList::Find(const char* netFileName) const {
    const auto found =
        std::find_if(begin(), end(), [=](const auto& record) { return record.IsSameNetFileName(netFileName); });
    return found == end() ? nullptr : &*found;
}

const CNALSendCertRecord* CDHCertSendList::Find(bool incoming, const char* netFileName,
                                                const IdentObj& keyNumber) const {
    const bool anyName = !netFileName || *netFileName == 0;
    const auto found = std::find_if(begin(), end(), [&](const auto& record) {
        return record.IsIncoming() == incoming && (anyName || record.IsSameNetFileName(netFileName)) &&
               (keyNumber.IsEmpty() || nal::IsSameKey(record, keyNumber));
    });
    return found == end() ? nullptr : &*found;
}

bool SNALDHPeer::Matches(const CNALSendCertRecord& record) const {
    return (m_ownType.empty() || record.IsSameCTSlf(m_ownType.c_str())) &&
           (m_colID.empty() || record.IsSameColID(m_colID.c_str())) &&
           (m_apID.empty() || record.IsSameApID(m_apID.c_str()));
}

namespace nal {

bool IsSameKey(const CNALSendCertRecord& record, const IdentObj& keyNumber) {
    const SENDCERT_RECORD& image = record.GetImage();
    const unsigned length = KeyLength(image);
    // A longer number was cut when it was stored.
    return length == std::min(keyNumber.GetSize(), CNALSendCertRecord::c_maxNumberKey) &&
           (length == 0 || std::memcmp(image.m_bytes + c_keyNumber.offset, keyNumber.GetData(), length) == 0);
}

bool IsSamePeer(const CNALSendCertRecord& a, const CNALSendCertRecord& b) {
    const auto same = [&](const Field& field) {
        return IsSame(GetText(a.GetImage(), field), GetText(b.GetImage(), field));
    };
    return same(c_network) && same(c_host) && (same(c_ownType) || (a.IsNullCol() && b.IsNullCol()));
}

SENDCERT_RECORD CorrectRecord(const SENDCERT_RECORD& record) {
    SENDCERT_RECORD correct = record;
    const unsigned length = KeyLength(record);
    Set(correct, c_keyLength, std::uint32_t{length});
    unsigned char* key = correct.m_bytes + c_keyNumber.offset;
    std::fill(key + length, key + c_keyNumber.size, 0);
    // A short number may be there without a key number.
    Set(correct, c_shortNumber, Get<std::uint32_t>(record, c_shortNumber));
    SetText(correct, c_netFileName, GetText(record, c_netFileName, CNALSendCertRecord::c_maxNetFileName));
    Set(correct, c_zero, std::uint32_t{0});
    return correct;
}

}  // namespace nal
