#include "nal/signed_envelope.h"

#include <utility>

#include "frame/failure.h"
#include "model/encoding.h"
#include "model/signature_fields.h"
#include "too/status.h"

namespace {

constexpr char c_readContext[] = "CNALSignedData::ReadData";
constexpr char c_writeContext[] = "CNALSignedData::WriteData";

CNALSignedData Decode(asnt::Reader fields) {
    CNALSignedData read;
    read.m_data = fields.Next().whole.Copy();
    nal::ReadSignatureFields(fields, read.m_algorithm, read.m_signature);
    return read;
}

}  // namespace

unsigned CNALSignedData::ReadData(const unsigned char* data, unsigned size, int* err) {
    nal::Outcome outcome;
    unsigned consumed = 0;
    try {
        asnt::Reader reader({data, data != nullptr ? size : 0}, c_readContext);
        *this = Decode(reader.Enter(asnt::tag::Sequence));
        consumed = size - static_cast<unsigned>(reader.Rest().size);
    } catch (const XTOOStatus& status) {
        outcome.Fail(status);
    }
    outcome.Finish(err);
    return consumed;
}

IdentObj CNALSignedData::WriteData(int* err) const {
    nal::Outcome outcome;
    IdentObj der;
    if (m_data.IsEmpty() || m_algorithm.m_algorithm.IsEmpty() || m_signature.m_data.IsEmpty()) {
        outcome.Fail(TOO_E_NOT_INITIALIZED, c_writeContext);
    } else {
        try {
            der = nal::Encoded([&](asnt::Writer& writer) {
                writer.Sequence([&] {
                    writer.Raw(m_data);
                    nal::WriteSignatureFields(writer, m_algorithm, m_signature);
                });
            });
        } catch (const XTOOStatus& status) {
            outcome.Fail(status.GetCode(), c_writeContext);
        }
    }
    outcome.Finish(err);
    return der;
}
