// A certification request from outside, and an attribute list of a signed message: each decodes or is refused with 206, and is
// written back as it was read.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "nal/pkcs10.h"
#include "too/status.h"

namespace {

void Expect(bool holds) {
    if (!holds) std::abort();
}

/// Runs `step`. @return false when it refuses its input
template <class Step>
bool Accepts(Step&& step) {
    try {
        step();
        return true;
    } catch (const XTOOStatus& status) {
        Expect(status.GetCode() == TOO_E_BAD_STRUCTURE);
        return false;
    }
}

void CheckRequest(const std::uint8_t* data, unsigned size) {
    CNALPKCS10Request request;
    unsigned consumed = 0;
    if (!Accepts([&] { consumed = request.ReadData(data, size); }) || consumed == 0) return;
    CNALPKCS10Data content = request.GetData();
    Accepts([&] { content.GetExtensions(); });
    CNALSecondSignature second;
    bool taken = false;
    if (Accepts([&] { taken = content.TakeSecondSignature(second); }) && taken) {
        Expect(content.m_attributes.Find(c_NAL_OID_SECOND_SIGNATURE) == nullptr);
    }
    // Writing refuses an empty key or signature, which reading does not look into.
    try {
        const IdentObj whole = request.WriteData();
        Expect(asnt::View(whole) == asnt::View(data, consumed));
        const IdentObj written = content.WriteData();
        CNALPKCS10Data again;
        Expect(again.ReadData(written.GetData(), written.GetSize()) == written.GetSize());
        Expect(again.m_attributes == content.m_attributes);
    } catch (const XTOOStatus& status) {
        Expect(status.GetCode() == TOO_E_NOT_INITIALIZED || status.GetCode() == TOO_E_ENCODE);
    }
}

void CheckAttributes(const std::uint8_t* data, unsigned size) {
    CNALAttributesList list;
    unsigned consumed = 0;
    if (!Accepts([&] { consumed = list.ReadData(data, size); }) || consumed == 0) return;
    Expect(asnt::View(list.WriteData()) == asnt::View(data, consumed));
    for (const CNALAttributesSet& attribute : list) {
        Expect(attribute.HasOID(attribute.GetOID().c_str()));
        Expect(attribute.GetValues().size() == attribute.GetValueCount());
    }
    const IdentObj sorted = list.WriteSorted();
    Expect(list.ReadData(sorted.GetData(), sorted.GetSize()) == consumed && list.IsSorted());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CheckRequest(data, static_cast<unsigned>(size));
    CheckAttributes(data, static_cast<unsigned>(size));
    return 0;
}
