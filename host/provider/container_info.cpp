#include "ork/container_info.h"

#include "asnt/writer.h"
#include "ork/constants.h"
#include "too/status.h"

namespace {

constexpr DWORD c_version = 1;

CTOOString Text(asnt::Reader& reader) {
    const asnt::View content = reader.Next(asnt::tag::Utf8String).content;
    return {reinterpret_cast<const char*>(content.data), content.size};
}

asnt::View ViewOf(const CTOOString& text) {
    return {text.data(), text.size()};
}

}  // namespace

unsigned ASNContainerInfo::ReadData(const void* data, unsigned size) {
    if (data == nullptr || size == 0) return 0;
    asnt::Reader top({data, size}, "ASNContainerInfo::ReadData");
    const asnt::Element record = top.Next(asnt::tag::Sequence);
    asnt::Reader fields = top.Inside(record);
    ASNContainerInfo read;
    if (fields.Unsigned() != c_version) fields.Fail();
    read.m_container = Text(fields);
    asnt::Reader key = fields.Enter(asnt::tag::Sequence);
    fields.ExpectEnd();
    read.m_key.m_name = Text(key);
    read.m_key.m_keyType = key.Unsigned();
    read.m_key.m_algId = key.Unsigned();
    read.m_key.m_created = key.Time();
    read.m_key.m_publicKeyInfo = key.Next(asnt::tag::Sequence).whole.Copy();
    key.ExpectEnd();
    *this = std::move(read);
    return static_cast<unsigned>(record.whole.size);
}

IdentObj ASNContainerInfo::WriteData() const {
    asnt::Writer writer;
    writer.Sequence([&] {
        writer.Integer(c_version);
        writer.Primitive(asnt::tag::Utf8String, ViewOf(m_container));
        writer.Sequence([&] {
            writer.Primitive(asnt::tag::Utf8String, ViewOf(m_key.m_name));
            writer.Unsigned(m_key.m_keyType);
            writer.Unsigned(m_key.m_algId);
            writer.GeneralizedTime(m_key.m_created);
            writer.Raw(asnt::View(m_key.m_publicKeyInfo));
        });
    });
    return writer.Finish();
}
