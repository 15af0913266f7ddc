#include "trust/network_identifier.h"

#include "nal/trust_storages.h"

namespace nal {
namespace {

CTOOString TextOf(const CTOOCryptBitBlob& uniqueId) {
    std::string text;
    for (unsigned i = 0; i < uniqueId.m_data.GetSize(); ++i) {
        const char c = static_cast<char>(uniqueId.m_data.GetData()[i]);
        text += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return text;
}

/// The first four stored bytes as a number of eight digits.
CTOOString TextOf(const IdentObj& serial) {
    constexpr unsigned size = 16;
    constexpr unsigned numberSize = 4;
    const bool fits = serial.GetSize() == size || (serial.GetSize() == size + 1 && serial.GetData()[size] == 0);
    if (!fits) return {};
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (unsigned i = numberSize; i-- > 0;) {
        text += digits[serial.GetData()[i] >> 4];
        text += digits[serial.GetData()[i] & 15];
    }
    return text;
}

/// The text that tells a certificate's network, and more behind that; empty when there is none.
CTOOString IdentifyingTextOf(const CNALCertInfo& info) {
    if (info.m_issuerUniqueId.m_data.GetSize() != 0) return TextOf(info.m_issuerUniqueId);
    if (info.m_subjectUniqueId.m_data.GetSize() != 0) return TextOf(info.m_subjectUniqueId);
    return TextOf(info.m_serialNumber);
}

}  // namespace

bool IsNetworkIdentifier(std::string_view text) {
    return text.size() == c_networkIdLength && text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

CTOOString NetworkIdentifierOf(const CNALCertInfo& info) {
    const CTOOString text = IdentifyingTextOf(info);
    const std::string_view id = text.view().substr(0, c_networkIdLength);
    return IsNetworkIdentifier(id) ? CTOOString(id) : CTOOString();
}

}  // namespace nal

CTOOString NALGetNetworkIdentifier(const CNALCertContext& cert) {
    return cert.IsInitialized() ? nal::NetworkIdentifierOf(CNALCertInfo(*cert.GetContext())) : CTOOString();
}

CTOOString NALGetUsersListName(const CNALCertContext& cert) {
    // Identifiers of up to seven characters are those of a network alone, whose users are in the common list.
    constexpr std::size_t networkAlone = 7;
    const CTOOString text = cert.IsInitialized() ? nal::IdentifyingTextOf(CNALCertInfo(*cert.GetContext())) : CTOOString();
    const std::string_view id = text.view().substr(0, nal::c_networkIdLength);
    const bool isOwn = text.length() > networkAlone && nal::IsNetworkIdentifier(id);
    return std::string(isOwn ? id : nal::c_commonLists) + "_usr.p7b";
}
