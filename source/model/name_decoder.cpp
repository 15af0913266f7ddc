#include <algorithm>
#include <cstdio>
#include <iterator>

#include "asnt/oid.h"
#include "model/name_attributes.h"
#include "model/name_charset.h"
#include "nal/name_codec.h"
#include "ork/oid_info.h"

namespace X500NameParser {

const wchar_t X500NameDecoder::AuxSymbols[11] = {L'#', L';', L',', L'+', L'"', L'\\', L'=', L'<', L'>', L'\n', L'\r'};

// What a decoded record points to. While it is collected, positions stand for the pointers, since the arrays move as
// they grow; Finish sets the pointers.
struct CertNameInfoWrapper::Storage {
    struct Place {
        std::size_t oid;
        std::size_t value;
    };

    std::vector<CERT_RDN> m_rdns;
    std::vector<CERT_RDN_ATTR> m_attrs;
    std::vector<Place> m_places;
    // OIDs and byte values, wide values; a zero behind each.
    std::string m_bytes;
    std::wstring m_wide;

    void Finish(CERT_NAME_INFO& info) {
        for (std::size_t i = 0; i < m_attrs.size(); ++i) {
            CERT_RDN_ATTR& attr = m_attrs[i];
            attr.pszObjId = m_bytes.data() + m_places[i].oid;
            attr.Value.pbData = nal::IsWideText(attr.dwValueType)
                                    ? reinterpret_cast<BYTE*>(m_wide.data() + m_places[i].value)
                                    : reinterpret_cast<BYTE*>(m_bytes.data() + m_places[i].value);
        }
        CERT_RDN_ATTR* attr = m_attrs.data();
        for (CERT_RDN& rdn : m_rdns) {
            rdn.rgRDNAttr = attr;
            attr += rdn.cRDNAttr;
        }
        info.cRDN = static_cast<DWORD>(m_rdns.size());
        info.rgRDN = m_rdns.data();
    }
};

CertNameInfoWrapper::CertNameInfoWrapper() = default;
CertNameInfoWrapper::~CertNameInfoWrapper() {
    Clean();
}

void CertNameInfoWrapper::Clean() {
    m_storage.reset();
    m_info = {};
}

bool X500NameDecoder::Decode(const IdentObj& der, std::wstring& text, unsigned options) const {
    options |= m_options;
    const wchar_t* separator = L",";
    if (options & CERT_NAME_STR_CRLF_FLAG) {
        separator = L"\r\n";
    } else if (options & CERT_NAME_STR_SEMICOLON_FLAG) {
        separator = L";";
    }

    text.clear();
    nal::NameCursor name(der);
    while (name.NextRdn()) {
        std::wstring rdn;
        if (!DecodeElem(name, rdn)) return false;
        if (rdn.empty()) continue;
        if (!text.empty()) text += separator;
        text += rdn;
    }
    return !name.Failed();
}

bool X500NameDecoder::Decode(const IdentObj& der, CertNameInfoWrapper& out) const {
    out.Clean();
    auto storage = std::make_unique<CertNameInfoWrapper::Storage>();
    nal::NameCursor name(der);
    while (name.NextRdn()) {
        if (!DecodeElem(name, *storage)) return false;
    }
    if (name.Failed()) return false;
    storage->Finish(out.m_info);
    out.m_storage = std::move(storage);
    return true;
}

// One RDN as key=value, joined by "+" when there are several.
bool X500NameDecoder::DecodeElem(nal::NameCursor& rdn, std::wstring& text) {
    while (rdn.NextAttr()) {
        std::string oid;
        std::wstring value;
        if (!DecodeAttrOid(rdn.Oid(), oid)) return false;
        const unsigned type = nal::ValueTypeOf(rdn.Value().tag);
        if (nal::IsText(type)) {
            if (!DecodeAttrData(rdn.Value(), type, value)) return false;
            EscapeAttrAuxSym(value);
        } else {
            BlobToString(rdn.Value().whole.Copy(), value);
        }
        if (!text.empty()) text += L'+';
        text += GetX500KeyFromOid(oid);
        text += L'=';
        text += value;
    }
    return !rdn.Failed();
}

bool X500NameDecoder::DecodeElem(nal::NameCursor& rdn, CertNameInfoWrapper::Storage& storage) {
    CERT_RDN record{};
    while (rdn.NextAttr()) {
        std::string oid;
        if (!DecodeAttrOid(rdn.Oid(), oid)) return false;
        const asnt::Element& element = rdn.Value();
        const unsigned type = nal::ValueTypeOf(element.tag);
        CERT_RDN_ATTR attr{};
        attr.dwValueType = type;
        CertNameInfoWrapper::Storage::Place place{storage.m_bytes.size(), 0};
        storage.m_bytes.append(oid).push_back('\0');
        if (nal::IsWideText(type)) {
            place.value = storage.m_wide.size();
            if (!DecodeAttrData(element, type, storage.m_wide)) return false;
            attr.Value.cbData = static_cast<DWORD>((storage.m_wide.size() - place.value) * sizeof(wchar_t));
            storage.m_wide.push_back(L'\0');
        } else {
            if (nal::IsByteText(type) && element.tag.IsConstructed()) return RefuseAttrData(type);
            const asnt::View bytes = type == CERT_RDN_ENCODED_BLOB ? element.whole : element.content;
            place.value = storage.m_bytes.size();
            attr.Value.cbData = static_cast<DWORD>(bytes.size);
            storage.m_bytes.append(bytes.begin(), bytes.end()).push_back('\0');
        }
        storage.m_attrs.push_back(attr);
        storage.m_places.push_back(place);
        ++record.cRDNAttr;
    }
    storage.m_rdns.push_back(record);
    return !rdn.Failed();
}

bool X500NameDecoder::DecodeAttrOid(const asnt::View& oid, std::string& text) {
    return asnt::OidToText(oid, text);
}

bool X500NameDecoder::DecodeAttrData(const asnt::Element& value, unsigned valueType, std::wstring& text) {
    return nal::AppendText(value, valueType, text) || RefuseAttrData(valueType);
}

bool X500NameDecoder::RefuseAttrData(unsigned valueType) {
    std::fputs(nal::IsByteText(valueType) ? "X500NameDecoder::DecodeAttrData IA5 failed\n"
                                          : "X500NameDecoder::DecodeAttrData UTF failed\n",
               stderr);
    return false;
}

std::wstring X500NameDecoder::GetX500KeyFromOid(const CTOOString& oid) {
    const CRYPT_OID_INFO* info = orkcspex::FindOIDInfo(ORK_OID_KEY_OID, oid.c_str(), ORK_OID_GROUP_NAME_ATTRIBUTE);
    if (info && info->pwszName) return info->pwszName;
    const char* keyword = nal::FindKeywordOf(oid.view());
    return nal::WidenAscii(keyword ? keyword : oid.view());
}

void X500NameDecoder::QuoteAttr(std::wstring& value) {
    std::wstring quoted;
    quoted.reserve(value.size() + 2);
    quoted += L'"';
    for (const wchar_t c : value) {
        if (c == L'"') quoted += c;
        quoted += c;
    }
    quoted += L'"';
    value = std::move(quoted);
}

void X500NameDecoder::EscapeAttrAuxSym(std::wstring& value) {
    const auto isSpecial = [](wchar_t c) {
        return c == L'\'' || std::find(std::begin(AuxSymbols), std::end(AuxSymbols), c) != std::end(AuxSymbols);
    };
    if (value.empty() || nal::IsSpace(value.front()) || nal::IsSpace(value.back()) ||
        std::any_of(value.begin(), value.end(), isSpecial)) {
        QuoteAttr(value);
    }
}

void X500NameDecoder::BlobToString(const IdentObj& blob, std::wstring& text) {
    text.reserve(text.size() + 1 + std::size_t{2} * blob.GetSize());
    text += L'#';
    for (unsigned i = 0; i < blob.GetSize(); ++i)
        text += ToHex(blob.GetData()[i]);
}

std::wstring X500NameDecoder::ToHex(unsigned char byte) {
    static constexpr wchar_t kDigits[] = L"0123456789ABCDEF";
    return {kDigits[byte >> 4], kDigits[byte & 15]};
}

}  // namespace X500NameParser
