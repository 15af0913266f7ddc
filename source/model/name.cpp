#include "nal/name.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "asnt/oid.h"
#include "model/name_attributes.h"
#include "model/name_key.h"
#include "model/name_charset.h"
#include "nal/name_codec.h"
#include "too/status.h"

using X500NameParser::CertNameInfoWrapper;
using X500NameParser::X500NameDecoder;
using X500NameParser::X500NameEncoder;

namespace {

constexpr unsigned kUtf8Options = CERT_NAME_STR_ENABLE_UTF8_UNICODE_FLAG | CERT_NAME_STR_DISABLE_UTF8_DIR_STR_FLAG;

// Encodes with the given options and throws `code` when that fails; the arguments are those of the encoder's function.
template <class Source, class... Sort>
IdentObj EncodeName(int code, unsigned options, const Source& source, Sort... sort) {
    X500NameEncoder encoder;
    encoder.SetEncoderOptions(options);
    IdentObj der;
    if (!encoder.Encode(source, der, sort...)) {
        throw XTOOStatus(code, CTOOString("CNALX509Name::SetBy: ") + encoder.GetFailure());
    }
    return der;
}

[[noreturn]] void ThrowUndecodable(const char* method) {
    throw XTOOStatus(TOO_E_NAME_DECODE, CTOOString("CNALX509Name::") + method + ": the name is damaged");
}

void DecodeName(const IdentObj& name, CertNameInfoWrapper& info, const char* method) {
    if (!X500NameDecoder().Decode(name, info)) ThrowUndecodable(method);
}

// An attribute's value for callers that cannot be told of a failure: "?" for a character that the locale lacks.
void ValueText(const CERT_RDN_ATTR& attr, CTOOString& out) {
    out.clear();
    CNALX509Name::GetRDNAttrValueString(attr, out);
    if (!out.empty() || !nal::IsWideText(attr.dwValueType)) return;
    std::wstring wide;
    std::string marked;
    CNALX509Name::GetRDNAttrValueString(attr, wide);
    if (nal::ToLocaleSet(wide, '?', std::string::npos, marked)) out = CTOOString(std::move(marked));
}

void ValueText(const CERT_RDN_ATTR& attr, std::wstring& out) {
    CNALX509Name::GetRDNAttrValueString(attr, out);
}

// Calls `visit` with the first attribute of each RDN that has one, until it returns false.
template <class Visit>
void ForEachFirst(const CERT_NAME_INFO& info, Visit&& visit) {
    for (DWORD i = 0; i < info.cRDN; ++i) {
        if (info.rgRDN[i].cRDNAttr != 0 && !visit(info.rgRDN[i].rgRDNAttr[0])) return;
    }
}

template <class Text>
bool FindValue(const IdentObj& name, const char* oid, Text& out) {
    out.clear();
    CertNameInfoWrapper info;
    DecodeName(name, info, "GetSimpleRDN");
    bool found = false;
    ForEachFirst(*static_cast<CERT_NAME_INFO*>(info), [&](const CERT_RDN_ATTR& attr) {
        if (oid == nullptr || std::strcmp(attr.pszObjId, oid) != 0) return true;
        ValueText(attr, out);
        found = true;
        return false;
    });
    return found;
}

template <class Pairs>
void CollectPairs(const IdentObj& name, Pairs& out, const char* method) {
    out.clear();
    if (name.IsEmpty()) return;
    CertNameInfoWrapper info;
    DecodeName(name, info, method);
    ForEachFirst(*static_cast<CERT_NAME_INFO*>(info), [&](const CERT_RDN_ATTR& attr) {
        CNALSimpleRDN& pair = out.emplace_back();
        pair.m_key = attr.pszObjId;
        ValueText(attr, pair.m_value);
        return true;
    });
}

// What two names are compared by: each RDN's first attribute as OID and text, or as OID and encoding when it has no
// text.
class ComparedName {
public:
    explicit ComparedName(const CNALX509Name& name) {
        if (name.IsEmpty()) return;
        nal::NameCursor cursor(name);
        while (cursor.NextRdn()) {
            for (bool first = true; cursor.NextAttr(); first = false)
                Add(cursor, first);
        }
        if (cursor.Failed()) ThrowUndecodable("operator==");
        std::sort(m_attrs.begin(), m_attrs.end(),
                  [this](const Attr& a, const Attr& b) { return Compare(a, *this, b) < 0; });
    }

    bool operator==(const ComparedName& other) const {
        return std::equal(m_attrs.begin(), m_attrs.end(), other.m_attrs.begin(), other.m_attrs.end(),
                          [&](const Attr& a, const Attr& b) { return Compare(a, other, b) == 0; });
    }

    /// The same for equal names and for no others.
    std::string Key() const {
        std::string key;
        for (const Attr& attr : m_attrs) {
            const std::wstring_view text = Text(attr);
            AppendPart(attr.oid, key);
            AppendPart(attr.encoding, key);
            AppendPart({text.data(), text.size() * sizeof(wchar_t)}, key);
        }
        return key;
    }

private:
    struct Attr {
        asnt::View oid;
        asnt::View encoding;  // of a value without text
        std::size_t textBegin;
        std::size_t textSize;
    };

    // Further attributes of an RDN are read, since they may be damaged, and left out.
    void Add(const nal::NameCursor& cursor, bool first) {
        std::string oid;
        const asnt::Element& value = cursor.Value();
        const unsigned type = nal::ValueTypeOf(value.tag);
        Attr attr{cursor.Oid(), value.whole, m_text.size(), 0};
        bool good = asnt::OidToText(cursor.Oid(), oid);
        if (nal::IsText(type)) {
            good = good && nal::AppendText(value, type, m_text);
            attr.encoding = {};
            attr.textSize = m_text.size() - attr.textBegin;
        }
        if (!good) ThrowUndecodable("operator==");
        if (first) m_attrs.push_back(attr);
    }

    std::wstring_view Text(const Attr& attr) const {
        return std::wstring_view(m_text).substr(attr.textBegin, attr.textSize);
    }

    static void AppendPart(asnt::View part, std::string& key) {
        key += std::to_string(part.size) + ':';
        key.append(reinterpret_cast<const char*>(part.data), part.size);
    }

    static int CompareBytes(asnt::View a, asnt::View b) {
        if (a.size != b.size) return a.size < b.size ? -1 : 1;
        return a.empty() ? 0 : std::memcmp(a.data, b.data, a.size);
    }

    int Compare(const Attr& a, const ComparedName& other, const Attr& b) const {
        if (const int order = CompareBytes(a.oid, b.oid)) return order;
        if (const int order = CompareBytes(a.encoding, b.encoding)) return order;
        return Text(a).compare(other.Text(b));
    }

    std::wstring m_text;
    std::vector<Attr> m_attrs;
};

const char* OrEmpty(const char* text) {
    return text ? text : "";
}

}  // namespace

void CNALRDNAttr::SetBy(const CERT_RDN_ATTR& attr) {
    m_oid = CTOOString(attr.pszObjId);
    m_valueType = attr.dwValueType;
    m_value.Clear();
    if (attr.Value.pbData) m_value.SetData(attr.Value.pbData, attr.Value.cbData);
}

void CNALRDNAttr::SetBy(const char* key, const char* value) {
    CNALX509Name::MakeRDNAttr(key, value, *this);
}

void CNALRDNAttr::GetValueString(CTOOString& out) const {
    CNALX509Name::GetRDNAttrValueString(*this, out);
}

bool CNALSimpleRDN::operator<(const CNALSimpleRDN& other) const {
    return X500NameParser::GetAttrPriority(m_key) < X500NameParser::GetAttrPriority(other.m_key);
}

bool CNALSimpleRDN::operator>(const CNALSimpleRDN& other) const {
    return other < *this;
}

CNALX509Name::~CNALX509Name() = default;

CNALX509Name& CNALX509Name::operator=(const IdentObj& der) {
    IdentObj::operator=(der);
    return *this;
}

CNALX509Name& CNALX509Name::operator=(const CERT_NAME_INFO& info) {
    SetBy(info, true);
    return *this;
}

CNALX509Name& CNALX509Name::operator=(const std::list<std::list<CNALRDNAttr>>& rdns) {
    SetBy(rdns, true);
    return *this;
}

CNALX509Name& CNALX509Name::operator=(const std::list<CNALSimpleRDN>& pairs) {
    SetBy(pairs, true, true);
    return *this;
}

void CNALX509Name::SetBy(const CERT_NAME_INFO& info, bool utf8) {
    IdentObj::operator=(EncodeName(TOO_E_NAME_ENCODE, utf8 ? kUtf8Options : 0, info));
}

void CNALX509Name::SetBy(const std::list<std::list<CNALRDNAttr>>& rdns, bool utf8) {
    IdentObj::operator=(EncodeName(TOO_E_NAME_ENCODE, utf8 ? kUtf8Options : 0, rdns));
}

void CNALX509Name::SetBy(const std::wstring& text, unsigned flags, bool b) {
    // A caller that asks for UTF-8 gets only the bit that turns UTF-8 directory strings off, which alone does nothing.
    // Names written so exist; passing the other bits on would change their encoding.
    const unsigned options =
        flags & CERT_NAME_STR_ENABLE_UTF8_UNICODE_FLAG ? flags & CERT_NAME_STR_DISABLE_UTF8_DIR_STR_FLAG : flags;
    IdentObj::operator=(EncodeName(TOO_E_NAME_ENCODE, options, text, b));
}

void CNALX509Name::SetBy(const std::list<CNALSimpleRDN>& pairs, bool utf8, bool b) {
    IdentObj::operator=(EncodeName(TOO_E_NAME_DECODE, utf8 ? kUtf8Options : 0, pairs, b));
}

void CNALX509Name::SetBy(const char* /*text*/, unsigned /*flags*/, bool /*b*/) {}

void CNALX509Name::GetX500String(std::wstring& out, unsigned flags) const {
    out.clear();
    if (IsEmpty()) return;
    if (!X500NameDecoder().Decode(*this, out, flags)) ThrowUndecodable("GetX500String");
}

void CNALX509Name::GetX500String(std::string& out, unsigned flags) const {
    out.clear();
    std::wstring text;
    GetX500String(text, flags);
    if (!nal::ToLangSet(text, out)) {
        throw XTOOStatus(TOO_E_NAME_DECODE,
                         "CNALX509Name::GetX500String: a character has no place in the character set of LANG");
    }
    out.resize(std::min(out.size(), out.find('\0')));
}

void CNALX509Name::GetX500String(CTOOString& /*out*/, unsigned /*flags*/) const {}

void CNALX509Name::GetNameInfo(std::list<std::list<CNALRDNAttr>>& out) const {
    CertNameInfoWrapper wrapper;
    DecodeName(*this, wrapper, "GetNameInfo");
    const CERT_NAME_INFO& info = *static_cast<CERT_NAME_INFO*>(wrapper);
    out.clear();
    for (DWORD i = 0; i < info.cRDN; ++i) {
        const CERT_RDN& rdn = info.rgRDN[i];
        std::list<CNALRDNAttr>& attrs = out.emplace_back();
        for (DWORD j = 0; j < rdn.cRDNAttr; ++j)
            attrs.emplace_back(rdn.rgRDNAttr[j]);
    }
}

bool CNALX509Name::GetSimpleRDN(const char* oid, CTOOString& out) const {
    return FindValue(*this, oid, out);
}

bool CNALX509Name::GetSimpleRDN(const char* oid, std::wstring& out) const {
    return FindValue(*this, oid, out);
}

void CNALX509Name::GetSimpleRDNList(std::list<CNALSimpleRDN>& out, bool /*flag*/) const {
    CollectPairs(*this, out, "GetSimpleRDNList");
}

void CNALX509Name::GetSimpleRDNVector(std::vector<CNALSimpleRDN>& out) const {
    CollectPairs(*this, out, "GetSimpleRDNVector");
}

bool CNALX509Name::SetSimpleRDN(const char* oid, const char* value) {
    CertNameInfoWrapper wrapper;
    if (oid == nullptr || IsEmpty() || !X500NameDecoder().Decode(*this, wrapper)) return false;
    CERT_NAME_INFO& info = *static_cast<CERT_NAME_INFO*>(wrapper);
    for (DWORD i = 0; i < info.cRDN; ++i) {
        if (info.rgRDN[i].cRDNAttr == 0) continue;
        CERT_RDN_ATTR& attr = info.rgRDN[i].rgRDNAttr[0];
        if (std::strcmp(attr.pszObjId, oid) != 0) continue;
        CNALRDNAttr made;
        MakeRDNAttr(oid, value, made);
        attr.dwValueType = made.m_valueType;
        attr.Value = {made.m_value.GetSize(), made.m_value.GetData()};
        SetBy(info, true);
        return true;
    }
    return false;
}

bool CNALX509Name::SetSimpleRDN(const CNALSimpleRDN& pair) {
    return SetSimpleRDN(pair.m_key.c_str(), pair.m_value.c_str());
}

bool CNALX509Name::operator==(const CNALX509Name& other) const {
    return ComparedName(*this) == ComparedName(other);
}

std::string nal::NameKey(const CNALX509Name& name) {
    return ComparedName(name).Key();
}

void CNALX509Name::MakeRDNAttr(const char* key, const char* value, CNALRDNAttr& out) {
    CTOOString text;
    FormatRDNAttr(key, value, text);
    // Narrow text is not parsed here, so the name stays empty and has no attribute to give.
    const CNALX509Name name(text.c_str(), CERT_OID_NAME_STR, true);
    std::list<std::list<CNALRDNAttr>> rdns;
    if (!name.IsEmpty()) name.GetNameInfo(rdns);
    if (rdns.empty() || rdns.front().empty()) {
        throw XTOOStatus(TOO_E_ENCODE, "CNALX509Name::MakeRDNAttr: a name is not made from narrow text");
    }
    out = rdns.front().front();
}

void CNALX509Name::MergeRDNAtributes(std::list<CNALSimpleRDN>& target, std::list<CNALSimpleRDN>& source,
                                     const char* key) {
    const auto hasKey = [key](const CNALSimpleRDN& pair) { return pair.m_key.CompareNoCase(key) == 0; };
    const auto from = std::find_if(source.begin(), source.end(), hasKey);
    const auto to = std::find_if(target.begin(), target.end(), hasKey);
    if (from != source.end() && to != target.end()) {
        to->m_value = from->m_value;
    } else if (from != source.end()) {
        target.push_front(*from);
    } else if (to != target.end()) {
        target.erase(to);
    }
}

void CNALX509Name::QuoteString(const char* in, CTOOString& out) {
    std::string quoted = "\"";
    for (const char c : std::string_view(OrEmpty(in))) {
        if (c == '"') quoted += c;
        quoted += c;
    }
    quoted += '"';
    out = CTOOString(std::move(quoted));
}

void CNALX509Name::QuoteString(CTOOString& text) {
    QuoteString(text.c_str(), text);
}

void CNALX509Name::UnquoteString(const char* in, CTOOString& out) {
    const std::string_view text = OrEmpty(in);
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '"') {
            plain += text[i];
        } else if (i + 1 < text.size() && text[i + 1] == '"') {
            plain += text[++i];
        }
    }
    out = CTOOString(std::move(plain));
}

void CNALX509Name::UnquoteString(CTOOString& text) {
    UnquoteString(text.c_str(), text);
}

void CNALX509Name::FormatRDNAttr(const char* key, const char* value, CTOOString& out) {
    CTOOString quoted;
    QuoteString(value, quoted);
    out = CTOOString(OrEmpty(key)) + "=" + quoted;
}
