#include <iterator>
#include <string_view>

#include "nal/enveloped_data.h"
#include "too/status.h"

namespace {

constexpr std::string_view c_arc = "1.2.840.113549.1.7.";

unsigned FlagOfType(std::string_view type) {
    if (type.substr(0, c_arc.size()) != c_arc) return 0;
    static constexpr unsigned c_kinds[] = {c_NAL_FORMAT_DATA,           c_NAL_FORMAT_SIGNED,   c_NAL_FORMAT_ENVELOPED,
                                           c_NAL_FORMAT_SIGNED_ENVELOPED, c_NAL_FORMAT_DIGESTED, c_NAL_FORMAT_ENCRYPTED};
    const std::string_view last = type.substr(c_arc.size());
    const bool isKnown = last.size() == 1 && last[0] >= '1' && last[0] < '1' + static_cast<int>(std::size(c_kinds));
    return c_NAL_FORMAT_CMS | (isKnown ? c_kinds[last[0] - '1'] : c_NAL_FORMAT_OTHER);
}

}  // namespace

unsigned int NALGetFormatFlags(const unsigned char* data, unsigned int len, IdentObj* content) {
    if (content != nullptr) content->Clear();
    const asnt::View bytes(data, data != nullptr ? len : 0);
    asnt::Header outer;
    if (asnt::ParseHeader(bytes, asnt::Rules::Ber, outer) != asnt::HeaderState::Read || outer.tag != asnt::tag::Sequence) return 0;
    // The content itself need not be there, so only the type is read as an element.
    asnt::Reader inside(outer.indefinite ? bytes.Sub(outer.size) : bytes.Sub(outer.size, static_cast<std::size_t>(outer.contentSize)),
                        "", asnt::Rules::Ber);
    asnt::Element element;
    if (!inside.TryNext(asnt::tag::Oid, element)) return 0;
    unsigned flags = 0;
    try {
        flags = FlagOfType(asnt::Reader(element.whole).Oid().view());
    } catch (const XTOOStatus&) {
        return 0;
    }
    if (flags == 0) return 0;
    if (outer.indefinite) return flags | c_NAL_FORMAT_INDEFINITE;
    if (outer.size + outer.contentSize > bytes.size) return flags;
    flags |= c_NAL_FORMAT_WHOLE;
    if (content != nullptr && inside.TryNext(asnt::tag::Context(0), element)) *content = element.content.Copy();
    return flags;
}
