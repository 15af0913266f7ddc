// The ASN.1 reader on bytes from outside. It must stay inside them (sanitizers see to that), and what it accepts as DER
// must be the only encoding of what it read: writing that again gives the same bytes.

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "asnt/asnt.h"
#include "too/status.h"

namespace {

using asnt::Element;
using asnt::Reader;
using asnt::Rules;
using asnt::View;
using asnt::Writer;

void Require(bool holds) {
    if (!holds) std::abort();
}

// Decodes the content as every type that it may have.
void DecodeContent(const Element& element, Rules rules) {
    std::string text;
    std::string content;
    if (asnt::OidToText(element.content, text)) {
        Require(asnt::OidFromText(text, content) && View(content.data(), content.size()) == element.content);
    }
    FILETIME time;
    for (const asnt::Tag type : {asnt::tag::UtcTime, asnt::tag::GeneralizedTime}) {
        // A time without a fraction has one form.
        if (asnt::DecodeTime(type, element.content, time) && element.content.size <= 15) {
            Require(asnt::EncodeTime(type, time, content) && View(content.data(), content.size()) == element.content);
        }
    }
    std::int64_t number;
    if (asnt::DecodeInteger(element.content, number)) {
        Writer writer;
        writer.Integer(number);
        Require(View(writer.Finish()).Sub(2) == element.content);
    }
    asnt::BitString bits;
    if (asnt::DecodeBitString(element.content, bits)) {
        Writer writer;
        writer.BitString(bits.bytes, bits.unusedBits);
        const IdentObj der = writer.Finish();
        Require(View(der).Sub(der.GetSize() - element.content.size) == element.content);
    }
    IdentObj octets;
    if (asnt::JoinOctets(element, rules, octets)) Require(octets.GetSize() <= element.content.size);
}

// Writes again whatever `reader` steps over. @return false when it meets damage
bool Copy(Reader reader, Writer& writer) {
    Element element;
    while (reader.TryNext(element)) {
        DecodeContent(element, reader.GetRules());
        Reader inside;
        if (!element.tag.IsConstructed()) {
            writer.Primitive(element.tag, element.content);
        } else if (reader.TryInside(element, inside)) {
            writer.Begin(element.tag);
            if (!Copy(inside, writer)) return false;
            writer.End();
        } else {
            return false;
        }
    }
    return reader.AtEnd();
}

void CheckTree(const CASNTUnit& unit) {
    try {
        unit.GetRecord();
    } catch (const XTOOStatus& status) {
        Require(status.GetCode() == TOO_E_BAD_STRUCTURE);
    }
    for (unsigned i = 0; i < unit.GetItemCount(); ++i)
        CheckTree(unit.GetItem(i));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // A copy of the exact size, so that reading one byte too far is seen.
    const std::unique_ptr<unsigned char[]> exact(new unsigned char[size]);
    if (size != 0) std::memcpy(exact.get(), data, size);
    const View input(exact.get(), size);

    for (const Rules rules : {Rules::Der, Rules::Ber}) {
        Writer writer;
        const bool read = Copy(Reader(input, "fuzz", rules), writer);
        Element first;
        const bool isOne = Reader(input, "", rules).TryNext(first) && first.whole.size == size;
        Require(asnt::IsWellFormed(input, rules) == (isOne && read));
        if (read && rules == Rules::Der) Require(View(writer.Finish()) == input);
    }

    const auto length = static_cast<unsigned>(size);
    for (const Rules rules : {Rules::Der, Rules::Ber}) {
        CASNTUnit unit(rules);
        if (unit.ReadData(input.data, length) != 0) CheckTree(unit);
    }
    CASNTIdData identifier;
    if (const unsigned used = identifier.ReadData(input.data, length)) {
        Require(View(identifier.WriteData()) == input.Sub(0, used));
    }
    CASNAlgAddInfo parameters;
    if (const unsigned used = parameters.ReadData(input.data, length)) {
        Require(View(parameters.WriteData()) == input.Sub(0, used));
    }
    return 0;
}
