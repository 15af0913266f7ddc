#include "support/cert_builder.h"

#include <stdexcept>

#include "asnt/writer.h"
#include "too/time.h"

namespace nal_test {
namespace {

constexpr char kSignatureOid[] = "1.2.643.2.2.3";
constexpr char kKeyOid[] = "1.2.643.2.2.19";
constexpr char kKeyParameters[] = "1.2.643.2.2.35.1";
constexpr char kHashParameters[] = "1.2.643.2.2.30.1";

IdentObj Der(void (*write)(asnt::Writer&, const IdentObj&), const IdentObj& value) {
    asnt::Writer writer;
    write(writer, value);
    return writer.Finish();
}

void WriteAlgorithm(asnt::Writer& writer) {
    writer.Sequence([&] { writer.Oid(kSignatureOid); });
}

void WriteExtension(asnt::Writer& writer, const std::string& oid, bool critical, IdentObj value) {
    writer.Sequence([&] {
        writer.Oid(oid);
        if (critical) writer.Boolean(true);
        writer.OctetString(std::move(value));
    });
}

IdentObj KeyIdValue(const IdentObj& id) {
    return Der([](asnt::Writer& writer, const IdentObj& value) { writer.OctetString(asnt::View(value)); }, id);
}

IdentObj AuthorityValue(const IdentObj& id) {
    return Der([](asnt::Writer& writer, const IdentObj& value) {
        writer.Sequence([&] { writer.Primitive(asnt::tag::ContextPrimitive(0), asnt::View(value)); });
    }, id);
}

IdentObj NumberValue(const IdentObj& number) {
    return Der([](asnt::Writer& writer, const IdentObj& value) { writer.IntegerOctets(value); }, number);
}

void WriteKey(asnt::Writer& writer) {
    writer.Sequence([&] {
        writer.Sequence([&] {
            writer.Oid(kKeyOid);
            writer.Sequence([&] {
                writer.Oid(kKeyParameters);
                writer.Oid(kHashParameters);
            });
        });
        asnt::Writer key;
        key.OctetString(Filled(0x5A, 64));
        IdentObj content(nullptr, 1);  // no unused bits
        const IdentObj octets = key.Finish();
        content.Append(octets.GetData(), octets.GetSize());
        writer.Primitive(asnt::tag::BitString, std::move(content));
    });
}

// SEQUENCE { signed part, algorithm, signature }.
IdentObj Envelope(asnt::Writer& signedPart) {
    const IdentObj inner = signedPart.Finish();
    const IdentObj signature = Filled(0x77, 64);
    asnt::Writer writer;
    writer.Sequence([&] {
        writer.Raw(asnt::View(inner));
        WriteAlgorithm(writer);
        writer.BitString(signature);
    });
    return writer.Finish();
}

void WriteExtensions(asnt::Writer& writer, std::uint32_t tag, const std::vector<BuiltExtension>& extensions) {
    if (extensions.empty()) return;
    writer.Context(tag, [&] {
        writer.Sequence([&] {
            for (const BuiltExtension& extension : extensions) {
                WriteExtension(writer, extension.oid, extension.critical, extension.value);
            }
        });
    });
}

}  // namespace

FILETIME Date(unsigned year, unsigned month, unsigned day) {
    SYSTEMTIME fields{};
    fields.wYear = static_cast<WORD>(year);
    fields.wMonth = static_cast<WORD>(month);
    fields.wDay = static_cast<WORD>(day);
    FILETIME time{};
    if (SystemTimeToFileTime(&fields, &time) == FALSE) throw std::invalid_argument("no such date");
    return time;
}

IdentObj NameDer(const std::string& commonName) {
    asnt::Writer writer;
    writer.Sequence([&] {
        writer.Set([&] {
            writer.Sequence([&] {
                writer.Oid("2.5.4.3");
                writer.Primitive(asnt::tag::Utf8String, asnt::View(commonName.data(), commonName.size()));
            });
        });
    });
    return writer.Finish();
}

IdentObj Filled(unsigned char value, unsigned size) {
    IdentObj bytes(nullptr, size);
    for (unsigned i = 0; i < size; ++i) bytes.GetData()[i] = value;
    return bytes;
}

IdentObj CertBuilder::Build() const {
    std::vector<BuiltExtension> all;
    if (subjectKeyId) all.push_back({"2.5.29.14", false, KeyIdValue(*subjectKeyId)});
    if (authorityKeyId) all.push_back({"2.5.29.35", false, AuthorityValue(*authorityKeyId)});
    all.insert(all.end(), extensions.begin(), extensions.end());

    asnt::Writer writer;
    writer.Sequence([&] {
        if (version >= 0) writer.Context(0, [&] { writer.Integer(version); });
        writer.IntegerOctets(serial);
        WriteAlgorithm(writer);
        writer.Raw(NameDer(issuer));
        writer.Sequence([&] {
            writer.Time(notBefore);
            writer.Time(notAfter);
        });
        writer.Raw(NameDer(subject));
        if (publicKeyInfo.IsEmpty()) {
            WriteKey(writer);
        } else {
            writer.Raw(asnt::View(publicKeyInfo));
        }
        WriteExtensions(writer, 3, all);
    });
    return Envelope(writer);
}

IdentObj CrlBuilder::Build() const {
    std::vector<BuiltExtension> all;
    if (authorityKeyId) all.push_back({"2.5.29.35", false, AuthorityValue(*authorityKeyId)});
    if (number) all.push_back({"2.5.29.20", false, NumberValue(*number)});
    all.insert(all.end(), extensions.begin(), extensions.end());

    asnt::Writer writer;
    writer.Sequence([&] {
        writer.Integer(1);
        WriteAlgorithm(writer);
        writer.Raw(NameDer(issuer));
        writer.Time(thisUpdate);
        if (nextUpdate) writer.Time(*nextUpdate);
        if (!entries.empty()) {
            writer.Sequence([&] {
                for (const BuiltCrlEntry& entry : entries) {
                    writer.Sequence([&] {
                        writer.IntegerOctets(entry.serial);
                        writer.Time(entry.revoked);
                    });
                }
            });
        }
        WriteExtensions(writer, 0, all);
    });
    return Envelope(writer);
}

}  // namespace nal_test
