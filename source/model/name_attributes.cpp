#include "model/name_attributes.h"

#include "model/name_charset.h"
#include "nal/name_codec.h"

namespace nal {
namespace {

constexpr char kCommonName[] = "2.5.4.3";
constexpr char kSerialNumber[] = "2.5.4.5";
constexpr char kCountry[] = "2.5.4.6";
constexpr char kLocality[] = "2.5.4.7";
constexpr char kState[] = "2.5.4.8";
constexpr char kOrganization[] = "2.5.4.10";
constexpr char kUnit[] = "2.5.4.11";
constexpr char kTitle[] = "2.5.4.12";
constexpr char kPostalAddress[] = "2.5.4.16";
constexpr char kPseudonym[] = "2.5.4.65";
constexpr char kEmail[] = "1.2.840.113549.1.9.1";
constexpr char kUnstructuredName[] = "1.2.840.113549.1.9.2";
constexpr char kDepartment[] = "1.2.840.113556.1.2.141";

struct Keyword {
    const char* keyword;
    const char* oid;
};

// What is read. There is no keyword "ST", although the state is printed as "st".
constexpr Keyword kRead[] = {
    {"C", kCountry},
    {"E", kEmail},
    {"EMAIL", kEmail},
    {"L", kLocality},
    {"O", kOrganization},
    {"S", kState},
    {"T", kTitle},
    {"TITLE", kTitle},
    {"CN", kCommonName},
    {"OU", kUnit},
    {"PSEUDONYM", kPseudonym},
    {"DEPARTMENT", kDepartment},
    {"SERIALNUMBER", kSerialNumber},
    {"POSTALADDRESS", kPostalAddress},
};

// What is printed.
constexpr Keyword kPrinted[] = {
    {"cn", kCommonName},
    {"serialNumber", kSerialNumber},
    {"c", kCountry},
    {"l", kLocality},
    {"st", kState},
    {"o", kOrganization},
    {"ou", kUnit},
    {"t", kTitle},
    {"pseudonym", kPseudonym},
    {"e", kEmail},
    {"department", kDepartment},
    {"postalAddress", kPostalAddress},
};

struct Priority {
    const char* oid;
    int priority;
};

constexpr Priority kPriorities[] = {
    {kCommonName, 0},        {kPseudonym, 0},    {kTitle, 1},         {kUnit, 2},  {kOrganization, 3}, {kEmail, 4},
    {kDepartment, 5},        {kSerialNumber, 6}, {kPostalAddress, 7}, {kState, 8}, {kLocality, 9},     {kCountry, 10},
    {kUnstructuredName, 11},
};
constexpr int kNoPriority = 99;

// Universal tag numbers of the value types from CERT_RDN_OCTET_STRING on.
constexpr unsigned kFirstTagged = CERT_RDN_OCTET_STRING;
constexpr std::uint32_t kTagNumbers[] = {4, 18, 19, 20, 21, 22, 25, 26, 27, 28, 30, 12};

}  // namespace

const char* FindKeyword(std::string_view keyword) {
    for (const Keyword& row : kRead) {
        if (keyword == row.keyword) return row.oid;
    }
    return nullptr;
}

const char* FindKeywordOf(std::string_view oid) {
    for (const Keyword& row : kPrinted) {
        if (oid == row.oid) return row.keyword;
    }
    return nullptr;
}

int AttrPriority(std::string_view oid) {
    for (const Priority& row : kPriorities) {
        if (oid == row.oid) return row.priority;
    }
    return kNoPriority;
}

unsigned ValueTypeOf(asnt::Tag tag) {
    if (!tag.IsUniversal()) return CERT_RDN_ENCODED_BLOB;
    for (unsigned type = kFirstTagged; type <= CERT_RDN_UTF8_STRING; ++type) {
        if (kTagNumbers[type - kFirstTagged] == tag.number && (IsText(type) || !tag.IsConstructed())) return type;
    }
    return CERT_RDN_ENCODED_BLOB;
}

bool TagOf(unsigned valueType, asnt::Tag& tag) {
    if (valueType < kFirstTagged || valueType > CERT_RDN_UTF8_STRING) return false;
    tag = {0, kTagNumbers[valueType - kFirstTagged]};
    return true;
}

bool AppendText(const asnt::Element& value, unsigned valueType, std::wstring& out) {
    if (value.tag.IsConstructed()) return false;
    if (valueType == CERT_RDN_UTF8_STRING) return AppendUtf8(value.content, out);
    if (valueType == CERT_RDN_BMP_STRING) return AppendUtf16(value.content, out);
    out.append(value.content.begin(), value.content.end());
    return true;
}

NameCursor::NameCursor(asnt::View der) {
    asnt::Reader top(der);
    m_failed = !top.TryEnter(asnt::tag::Sequence, m_rdns) || !top.AtEnd();
}

bool NameCursor::NextRdn() {
    if (m_failed || m_rdns.AtEnd()) return false;
    m_failed = !m_rdns.TryEnter(asnt::tag::Set, m_rdn);
    return !m_failed;
}

bool NameCursor::NextAttr() {
    if (m_failed || m_rdn.AtEnd()) return false;
    asnt::Reader pair;
    asnt::Element oid;
    m_failed = !m_rdn.TryEnter(asnt::tag::Sequence, pair) || !pair.TryNext(asnt::tag::Oid, oid) ||
               !pair.TryNext(m_value) || !pair.AtEnd();
    m_oid = oid.content;
    return !m_failed;
}

}  // namespace nal

int X500NameParser::GetAttrPriority(const CTOOString& oid) {
    return nal::AttrPriority(oid.view());
}

int X500NameParser::GetAttrPriority(const std::wstring& oid) {
    std::string narrow;
    return nal::NarrowAscii(oid, narrow) ? nal::AttrPriority(narrow) : nal::kNoPriority;
}

void X500NameParser::TrimLeftRight(std::wstring& text) {
    std::size_t end = text.size();
    while (end > 0 && nal::IsSpace(text[end - 1]))
        --end;
    std::size_t begin = 0;
    while (begin < end && nal::IsSpace(text[begin]))
        ++begin;
    text = text.substr(begin, end - begin);
}
