#include "nal/certificate.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "model/cert_info_decoder.h"
#include "model/signature_fields.h"

namespace {

struct Encoding {
    asnt::View der;
    bool isSerialized = false;
};

// Finds the certificate at the start of `input`, bare or serialized (a 32-bit length and the bytes). The length of a serialized
// one must be that of the DER behind it, so no bare certificate is taken for one: its first four bytes, read as a length, reach
// far beyond it.
bool FindEncoding(asnt::View input, Encoding& found) {
    asnt::Element element;
    DWORD length = 0;
    if (input.size > sizeof(length)) {
        std::memcpy(&length, input.data, sizeof(length));
        asnt::Reader serialized(input.Sub(sizeof(length)));
        if (serialized.TryNext(asnt::tag::Sequence, element) && element.whole.size == length) {
            found = {element.whole, true};
            return true;
        }
    }
    if (!asnt::Reader(input).TryNext(asnt::tag::Sequence, element)) return false;
    found = {element.whole, false};
    return true;
}

}  // namespace

CNALX509Certificate::~CNALX509Certificate() = default;
CNALX509CheckSignResult::~CNALX509CheckSignResult() = default;

void CNALX509Certificate::Decode(IdentObj der) {
    nal::CertificateFields fields;
    if (!nal::StepOverCertificate(der, fields)) asnt::ThrowBadStructure("");
    CNALX509Certificate read;
    nal::ReadSignatureFields(asnt::Reader(fields.signatureFields), read.m_signatureAlgorithm, read.m_signature);
    nal::DecodeTbs(fields.tbs, read.m_info);
    read.m_signedPart = fields.signedPart.Copy();
    read.m_encodedCertificate = std::move(der);
    *this = std::move(read);
}

bool CNALX509Certificate::DecodeCert(const IdentObj& der) {
    Decode(der);
    return true;
}

unsigned CNALX509Certificate::ReadEncodetData(const void* data, unsigned size) {
    Encoding encoding;
    if (data == nullptr || !FindEncoding({data, size}, encoding)) return 0;
    Decode(encoding.der.Copy());
    m_info.m_encodedCertificate = m_encodedCertificate;
    m_isSerialized = encoding.isSerialized;
    return static_cast<unsigned>(encoding.der.end() - static_cast<const unsigned char*>(data));
}

unsigned CNALX509Certificate::ReadEncodetData(const CTOOFile& file, unsigned size) {
    const std::uint64_t start = file.Tell();
    const std::uint64_t length = file.Length();
    IdentObj input;
    input.SetSize(static_cast<unsigned>(std::min<std::uint64_t>(size, length > start ? length - start : 0)));
    input.SetSize(static_cast<unsigned>(file.Read(input.GetData(), input.GetSize())));
    const unsigned consumed = ReadEncodetData(input.GetData(), input.GetSize());
    file.Seek(static_cast<std::int64_t>(start + consumed));
    return consumed;
}

// An encoding that is there has at least one byte, so 0 says both "nothing to write" and "no room".
unsigned CNALX509Certificate::SizeToWrite(unsigned room) const {
    if (m_encodedCertificate.IsEmpty()) return 0;
    const unsigned size = m_isSerialized ? m_encodedCertificate.GetObjectSize() : m_encodedCertificate.GetSize();
    return size <= room ? size : 0;
}

unsigned CNALX509Certificate::WriteEncodetData(void* out, unsigned size) const {
    const unsigned count = SizeToWrite(size);
    if (count == 0 || out == nullptr) return 0;
    if (m_isSerialized) return m_encodedCertificate.WriteData(out, count);
    std::memcpy(out, m_encodedCertificate.GetData(), count);
    return count;
}

unsigned CNALX509Certificate::WriteEncodetData(CTOOFile& file, unsigned size) const {
    IdentObj out;
    out.SetSize(SizeToWrite(size));
    if (WriteEncodetData(out.GetData(), out.GetSize()) == 0) return 0;
    file.Write(out);
    return out.GetSize();
}

IdentObj CNALX509Certificate::GetEncodetCert() const {
    return {};
}
