// Single attribute values as text: the CryptoAPI functions, and what CNALX509Name makes of them.
#include <algorithm>
#include <cstring>
#include <string_view>

#include "model/name_attributes.h"
#include "model/name_charset.h"
#include "nal/name.h"

namespace {

std::string_view Bytes(const CERT_RDN_VALUE_BLOB* value) {
    if (value == nullptr || value->pbData == nullptr) return {};
    return {reinterpret_cast<const char*>(value->pbData), value->cbData};
}

// Copied, for the bytes of a blob lie at any address.
std::wstring Wide(const CERT_RDN_VALUE_BLOB* value) {
    const std::string_view bytes = Bytes(value);
    std::wstring text(bytes.size() / sizeof(wchar_t), L'\0');
    if (!text.empty()) std::memcpy(text.data(), bytes.data(), text.size() * sizeof(wchar_t));
    return text;
}

}  // namespace

unsigned long CertRDNValueToStr(unsigned valueType, CERT_RDN_VALUE_BLOB* value, char* out, unsigned long outSize) {
    const bool writes = out != nullptr && outSize > 0;
    std::string converted;
    std::string_view text;
    if (nal::IsByteText(valueType)) {
        text = Bytes(value);
    } else if (nal::IsWideText(valueType)) {
        const std::size_t limit = writes ? outSize - 1 : std::string::npos;
        if (!nal::ToLocaleSet(Wide(value), '\0', limit, converted) || (writes && converted.empty())) {
            if (writes) *out = '\0';
            return 0;
        }
        text = converted;
    }
    if (!writes) return text.size() + 1;
    const std::size_t count = std::min<std::size_t>(text.size(), outSize - 1);
    if (count > 0) std::memcpy(out, text.data(), count);
    out[count] = '\0';
    return count + 1;
}

unsigned long CertRDNValueToStrW(unsigned valueType, CERT_RDN_VALUE_BLOB* value, wchar_t* out, unsigned long outSize) {
    std::wstring text;
    if (nal::IsByteText(valueType)) {
        for (const char c : Bytes(value))
            text.push_back(static_cast<unsigned char>(c));
    } else if (nal::IsWideText(valueType)) {
        text = Wide(value);
    }
    if (out == nullptr || outSize == 0) return text.size() + 1;
    if (nal::IsWideText(valueType)) std::fill_n(out, outSize, L'\0');
    const std::size_t count = std::min<std::size_t>(text.size(), outSize);
    std::copy_n(text.begin(), count, out);
    out[count] = L'\0';
    return count + 1;
}

namespace {

CERT_RDN_VALUE_BLOB* BlobOf(const CERT_RDN_ATTR& attr) {
    return const_cast<CERT_RDN_VALUE_BLOB*>(&attr.Value);  // CryptoAPI's prototypes; they do not write there
}

}  // namespace

void CNALX509Name::GetRDNAttrValueString(const CERT_RDN_ATTR& attr, CTOOString& out) {
    const unsigned long size = CertRDNValueToStr(attr.dwValueType, BlobOf(attr), nullptr, 0);
    if (size == 0) return;
    std::string text(size, '\0');
    const unsigned long written = CertRDNValueToStr(attr.dwValueType, BlobOf(attr), text.data(), size);
    if (written == 0) return;
    text.resize(written - 1);
    out = CTOOString(std::move(text));
}

void CNALX509Name::GetRDNAttrValueString(const CERT_RDN_ATTR& attr, std::wstring& out) {
    const unsigned long size = CertRDNValueToStrW(attr.dwValueType, BlobOf(attr), nullptr, 0);
    std::wstring text(size + 1, L'\0');
    const unsigned long written = CertRDNValueToStrW(attr.dwValueType, BlobOf(attr), text.data(), size);
    text.resize(written - 1);
    out = std::move(text);
}

void CNALX509Name::GetRDNAttrValueString(const CNALRDNAttr& attr, CTOOString& out) {
    CERT_RDN_ATTR record{};
    record.dwValueType = attr.m_valueType;
    record.Value.cbData = attr.m_value.GetSize();
    record.Value.pbData = const_cast<BYTE*>(attr.m_value.GetData());
    GetRDNAttrValueString(record, out);
}
