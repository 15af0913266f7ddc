// Names: the input as DER, decoded in every form; and as text, encoded. What is encoded must come out of the decoder
// again, and encode to the same bytes once more.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <list>
#include <string>

#include "nal/name.h"
#include "nal/name_codec.h"
#include "too/status.h"

namespace {

using X500NameParser::CertNameInfoWrapper;
using X500NameParser::X500NameDecoder;
using X500NameParser::X500NameEncoder;

void Require(bool condition) {
    if (!condition) std::abort();
}

constexpr unsigned kAllUtf8 = CERT_NAME_STR_ENABLE_UTF8_UNICODE_FLAG | CERT_NAME_STR_DISABLE_UTF8_DIR_STR_FLAG;

// The options that two bits of a byte choose.
unsigned StringOptions(unsigned choice) {
    static constexpr unsigned kOptions[] = {0, CERT_NAME_STR_ENABLE_UTF8_UNICODE_FLAG,
                                            CERT_NAME_STR_DISABLE_UTF8_DIR_STR_FLAG, kAllUtf8};
    return kOptions[choice & 3];
}

unsigned Separator(unsigned choice) {
    static constexpr unsigned kSeparators[] = {0, CERT_NAME_STR_COMMA_FLAG, CERT_NAME_STR_SEMICOLON_FLAG,
                                               CERT_NAME_STR_CRLF_FLAG};
    return kSeparators[choice & 3];
}

bool Encode(const std::wstring& text, unsigned options, bool sort, IdentObj& der) {
    X500NameEncoder encoder;
    encoder.SetEncoderOptions(options);
    return encoder.Encode(text, der, sort);
}

std::wstring Print(const IdentObj& der, unsigned options) {
    std::wstring text;
    Require(X500NameDecoder().Decode(der, text, options));
    return text;
}

// What was encoded from text is printed and read to a name that is then the same for ever. The first printing may
// choose other string types, when the text gave a value's DER.
void CheckStable(const IdentObj& der, unsigned options, bool sort, unsigned separator) {
    IdentObj second;
    if (!Encode(Print(der, separator), options | separator, sort, second)) return;
    IdentObj third;
    Require(Encode(Print(second, separator), options | separator, sort, third));
    Require(second == third);
}

void FuzzText(const std::uint8_t* data, std::size_t size) {
    const unsigned choice = data[0];
    std::wstring text(size, L'\0');
    const std::size_t count =
        UTF8Conversion::utf8_to_wchar(reinterpret_cast<const char*>(data + 1), size - 1, text.data(),
                                      size * sizeof(wchar_t), UTF8Conversion::kLenient);
    text.resize(count);
    const bool sort = (choice & 0x10) != 0;
    const unsigned options = StringOptions(choice) | Separator(choice >> 2);
    IdentObj der;
    if (!Encode(text, options, sort, der)) return;

    const CNALX509Name name(der);
    Require(name == name);
    // Without values given as DER and the state, whose keyword is printed but not read, nothing changes at all.
    const std::wstring printed = Print(der, 0);
    if (text.find(L'#') == text.npos && printed.find(L"st=") == printed.npos) {
        IdentObj again;
        Require(Encode(printed, StringOptions(choice), sort, again));
        Require(again == der);
    }
    CheckStable(der, StringOptions(choice), sort, 0);
    CheckStable(der, StringOptions(choice), sort, CERT_NAME_STR_SEMICOLON_FLAG);
    CheckStable(der, StringOptions(choice), sort, CERT_NAME_STR_CRLF_FLAG);
}

void FuzzDer(const std::uint8_t* data, std::size_t size) {
    const CNALX509Name name(IdentObj(data, static_cast<unsigned>(size)));
    CertNameInfoWrapper info;
    std::wstring text;
    if (!X500NameDecoder().Decode(name, info)) return;
    Require(X500NameDecoder().Decode(name, text, 0));
    Require(name == name);

    std::list<CNALSimpleRDN> pairs;
    name.GetSimpleRDNList(pairs, false);
    std::string narrow;
    name.GetX500String(narrow, CERT_NAME_STR_CRLF_FLAG);

    // Records keep their types: the same name, up to the order within an RDN, and then the same bytes.
    std::list<std::list<CNALRDNAttr>> rdns;
    name.GetNameInfo(rdns);
    X500NameEncoder encoder;
    IdentObj first;
    IdentObj second;
    if (encoder.Encode(*static_cast<CERT_NAME_INFO*>(info), first)) {
        Require(first.GetSize() <= name.GetSize());
        CertNameInfoWrapper again;
        Require(X500NameDecoder().Decode(first, again));
        Require(encoder.Encode(*static_cast<CERT_NAME_INFO*>(again), second));
        Require(first == second);
        Require(encoder.Encode(rdns, second) && first == second);
    }
    IdentObj fromText;
    if (Encode(text, 0, false, fromText)) CheckStable(fromText, 0, false, 0);
    try {
        CNALX509Name fromPairs(pairs);
        Require(fromPairs == fromPairs);
    } catch (const XTOOStatus& status) {
        Require(status.GetCode() == TOO_E_NAME_DECODE);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    // A Name starts with the tag of a SEQUENCE; anything else is options and text.
    if (data[0] == 0x30) {
        FuzzDer(data, size);
    } else {
        FuzzText(data, size);
    }
    return 0;
}
