#include "model/name_charset.h"

#include <iconv.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "nal/name_codec.h"

namespace {

constexpr wchar_t kByteOrderMark = 0xFEFF;
constexpr wchar_t kLastUnicode = 0x10FFFF;

bool IsSurrogate(wchar_t c) {
    return c >= 0xD800 && c <= 0xDFFF;
}
bool IsUnicode(wchar_t c) {
    return c >= 0 && c <= kLastUnicode && !IsSurrogate(c);
}

// How many bytes a UTF-8 sequence has by its first byte; 0 for one that starts none. 0xF5 is refused although 0xF6 and
// 0xF7, of the same length, are taken.
unsigned SequenceLength(unsigned char lead) {
    if (lead < 0x80) return 1;
    if (lead < 0xC2 || lead == 0xF5 || lead >= 0xFE) return 0;
    if (lead < 0xE0) return 2;
    if (lead < 0xF0) return 3;
    if (lead < 0xF8) return 4;
    return lead < 0xFC ? 5 : 6;
}

unsigned SequenceLength(wchar_t c) {
    if (c < 0x80) return 1;
    if (c < 0x800) return 2;
    if (c < 0x10000) return 3;
    if (c < 0x200000) return 4;
    return c < 0x4000000 ? 5 : 6;
}

// One conversion descriptor.
class Iconv {
public:
    Iconv(const char* to, const char* from) : m_handle(Open(to, from)) {}
    ~Iconv() {
        if (IsOpen()) iconv_close(m_handle);
    }
    Iconv(const Iconv&) = delete;
    Iconv& operator=(const Iconv&) = delete;

    bool IsOpen() const { return IsOpen(m_handle); }

    // Converts once over the input. @return whether all of it was converted; `written` counts what was in any case
    bool Convert(const char* in, std::size_t inBytes, char* out, std::size_t outBytes, std::size_t& written) {
        char* input = const_cast<char*>(in);  // iconv's prototype; it does not write there
        char* output = out;
        std::size_t room = outBytes;
        const bool done = iconv(m_handle, &input, &inBytes, &output, &room) != static_cast<std::size_t>(-1);
        written = outBytes - room;
        return done;
    }

private:
    // iconv_open fails with (iconv_t)-1.
    static bool IsOpen(iconv_t handle) { return reinterpret_cast<std::intptr_t>(handle) != -1; }

    // The set that LANG names: what follows its last ".", or all of it.
    static const char* LangSet() {
        const char* lang = std::getenv("LANG");
        if (lang == nullptr || *lang == '\0') return "C";
        const char* dot = std::strrchr(lang, '.');
        return dot ? dot + 1 : lang;
    }

    static iconv_t Open(const char* to, const char* from) {
        const char* lang = to && from ? nullptr : LangSet();
        const iconv_t handle = iconv_open(to ? to : lang, from ? from : lang);
        if (IsOpen(handle) || lang == nullptr) return handle;
        return iconv_open(to ? to : "UTF-8", from ? from : "UTF-8");
    }

    iconv_t m_handle;
};

}  // namespace

unsigned long UTF8Conversion::iconv_convert(const char* fromCode, const char* toCode, const char* in,
                                            unsigned long inBytes, char* out, unsigned long outBytes) {
    Iconv conversion(toCode, fromCode);
    std::size_t written = 0;
    if (!conversion.IsOpen() || !conversion.Convert(in, inBytes, out, outBytes, written)) std::perror("iconv error");
    return written;
}

unsigned long UTF8Conversion::utf8_to_wchar(const char* in, unsigned long inBytes, wchar_t* out, unsigned long outBytes,
                                            int flags) {
    if (in == nullptr) return 0;
    const bool lenient = (flags & kLenient) != 0;
    const unsigned long room = outBytes / sizeof(wchar_t);
    unsigned long count = 0;
    for (unsigned long at = 0; at < inBytes;) {
        const auto lead = static_cast<unsigned char>(in[at]);
        const unsigned length = SequenceLength(lead);
        bool good = length != 0 && length <= inBytes - at;
        // The first byte has its length in its top bits, and one zero bit behind them.
        std::uint32_t value = length <= 1 ? lead : lead & (0x7Fu >> length);
        for (unsigned i = 1; good && i < length; ++i) {
            const auto next = static_cast<unsigned char>(in[at + i]);
            good = (next & 0xC0) == 0x80;
            value = value << 6 | (next & 0x3F);
        }
        if (!good) {
            if (!lenient) return 0;
            ++at;
            continue;
        }
        at += length;
        const auto c = static_cast<wchar_t>(value);
        if (IsSurrogate(c)) {
            if (!lenient) return 0;
            continue;
        }
        if (c == kByteOrderMark && (flags & kDropByteOrderMark)) continue;
        if (out) {
            if (count == room) return 0;
            out[count] = c;
        }
        ++count;
    }
    return count;
}

unsigned long UTF8Conversion::wchar_to_utf8(const wchar_t* in, unsigned long inBytes, char* out, unsigned long outBytes,
                                            int flags) {
    if (in == nullptr) return 0;
    static constexpr unsigned char kLead[] = {0, 0, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC};
    const unsigned long characters = inBytes / sizeof(wchar_t);
    unsigned long count = 0;
    for (unsigned long at = 0; at < characters; ++at) {
        const wchar_t c = in[at];
        if (c < 0 || IsSurrogate(c)) {
            if (!(flags & kLenient)) return 0;
            continue;
        }
        if (c == kByteOrderMark && (flags & kDropByteOrderMark)) continue;
        const unsigned length = SequenceLength(c);
        if (out) {
            if (outBytes - count < length) return 0;
            std::uint32_t value = c;  // not negative, see above. NOLINT(bugprone-signed-char-misuse)
            for (unsigned i = length - 1; i > 0; --i, value >>= 6) {
                out[count + i] = static_cast<char>(0x80 | (value & 0x3F));
            }
            out[count] = static_cast<char>(kLead[length] | value);
        }
        count += length;
    }
    return count;
}

namespace nal {

bool IsSpace(wchar_t c) {
    switch (c) {
        case 0x0020:
        case 0x0085:
        case 0x1680:
        case 0x2028:
        case 0x2029:
        case 0x205F:
        case 0x3000:
            return true;
        default:
            return (c >= 0x0009 && c <= 0x000D) || (c >= 0x2000 && c <= 0x200A && c != 0x2007);
    }
}

bool NarrowAscii(std::wstring_view text, std::string& out) {
    std::string narrow;
    narrow.reserve(text.size());
    for (const wchar_t c : text) {
        if (c < 0 || c >= 0x80) return false;
        narrow.push_back(static_cast<char>(c));
    }
    out = std::move(narrow);
    return true;
}

bool AppendUtf8(asnt::View bytes, std::wstring& out) {
    if (bytes.empty()) return true;
    const std::size_t start = out.size();
    out.resize(start + bytes.size);
    wchar_t* text = out.data() + start;
    const std::size_t count = UTF8Conversion::utf8_to_wchar(reinterpret_cast<const char*>(bytes.data), bytes.size, text,
                                                            bytes.size * sizeof(wchar_t), 0);
    out.resize(start + count);
    std::size_t shortest = 0;
    for (std::size_t i = start; i < out.size(); ++i) {
        if (out[i] > kLastUnicode) return false;
        shortest += SequenceLength(out[i]);
    }
    return shortest == bytes.size;
}

bool AppendUtf16(asnt::View bytes, std::wstring& out) {
    if (bytes.size % 2 != 0) return false;
    out.reserve(out.size() + bytes.size / 2);
    wchar_t high = 0;
    for (std::size_t i = 0; i < bytes.size; i += 2) {
        const wchar_t unit = bytes[i] << 8 | bytes[i + 1];
        const bool isLow = unit >= 0xDC00 && unit <= 0xDFFF;
        if (isLow != (high != 0)) return false;
        if (isLow) {
            out.push_back(0x10000 + ((high - 0xD800) << 10) + (unit - 0xDC00));
            high = 0;
        } else if (IsSurrogate(unit)) {
            high = unit;
        } else {
            out.push_back(unit);
        }
    }
    return high == 0;
}

bool ToUtf8(std::wstring_view text, std::string& out) {
    std::size_t size = 0;
    for (const wchar_t c : text) {
        if (!IsUnicode(c)) return false;
        size += SequenceLength(c);
    }
    out.resize(size);
    UTF8Conversion::wchar_to_utf8(text.data(), text.size() * sizeof(wchar_t), out.data(), size, 0);
    return true;
}

bool ToUtf16(std::wstring_view text, std::string& out) {
    std::string bytes;
    bytes.reserve(text.size() * 2);
    const auto put = [&bytes](wchar_t unit) {
        bytes.push_back(static_cast<char>(unit >> 8));
        bytes.push_back(static_cast<char>(unit & 0xFF));
    };
    for (const wchar_t c : text) {
        if (!IsUnicode(c)) return false;
        if (c < 0x10000) {
            put(c);
        } else {
            put(0xD800 + ((c - 0x10000) >> 10));
            put(0xDC00 + ((c - 0x10000) & 0x3FF));
        }
    }
    out = std::move(bytes);
    return true;
}

bool FromLangSet(std::string_view bytes, std::wstring& out) {
    Iconv conversion("WCHAR_T", nullptr);
    std::wstring text(bytes.size(), L'\0');
    std::size_t written = 0;
    if (!conversion.IsOpen() || !conversion.Convert(bytes.data(), bytes.size(), reinterpret_cast<char*>(text.data()),
                                                    text.size() * sizeof(wchar_t), written)) {
        return false;
    }
    text.resize(written / sizeof(wchar_t));
    out = std::move(text);
    return true;
}

bool ToLangSet(std::wstring_view text, std::string& out) {
    Iconv conversion(nullptr, "WCHAR_T");
    std::string bytes(text.size() * 4 + 4, '\0');
    std::size_t written = 0;
    if (!conversion.IsOpen() ||
        !conversion.Convert(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t), bytes.data(),
                            bytes.size(), written)) {
        return false;
    }
    bytes.resize(written);
    out = std::move(bytes);
    return true;
}

bool ToLocaleSet(std::wstring_view text, char mark, std::size_t limit, std::string& out) {
    std::string bytes;
    std::mbstate_t state{};
    for (const wchar_t c : text) {
        char buffer[MB_LEN_MAX];
        const std::mbstate_t before = state;
        std::size_t size = std::wcrtomb(buffer, c, &state);
        if (size == static_cast<std::size_t>(-1)) {
            if (mark == '\0') return false;
            state = before;
            buffer[0] = mark;
            size = 1;
        }
        if (size > limit - bytes.size()) break;
        bytes.append(buffer, size);
    }
    out = std::move(bytes);
    return true;
}

}  // namespace nal
