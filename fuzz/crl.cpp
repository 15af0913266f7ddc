// A CRL from outside: it decodes or is refused with 206, and what decodes holds together.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "nal/crl.h"
#include "too/status.h"

namespace {

void Expect(bool holds) {
    if (!holds) std::abort();
}

void Check(const CNAL_CRL_List& crl, const std::uint8_t* data, unsigned consumed) {
    Expect(asnt::View(crl.WriteData()) == asnt::View(data, consumed));
    const CNAL_CRL_Info& info = crl.m_info;
    const std::size_t count = info.GetEntryCount();
    for (std::size_t i = 0; i < std::min<std::size_t>(count, 1000); ++i) {
        const CNAL_CRL_Entry entry = info.GetEntry(i);
        const std::size_t found = info.FindEntry(entry.m_serialNumber);
        Expect(found <= i && info.GetEntry(found).m_serialNumber == entry.m_serialNumber);
    }
    try {
        const CNAL_CRL_Key key = NALCheckCRLKey(info);
        Expect(key.m_issuerID.GetSize() == 20 && key.m_crlSerial.GetSize() == 16);
    } catch (const XTOOStatus& status) {
        Expect(status.GetCode() == TOO_E_BAD_STRUCTURE || status.GetCode() == TOO_E_CERT_REFUSED);
    }
    if (info.m_thisUpdate.dwHighDateTime == 0) return;
    const IdentObj written = info.WriteData();
    CNAL_CRL_Info again;
    Expect(again.ReadData(written.GetData(), written.GetSize()) == written.GetSize());
    Expect(again.GetEntryCount() == count && again.m_extensions == info.m_extensions);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CNAL_CRL_List crl;
    unsigned consumed = 0;
    try {
        consumed = crl.ReadData(data, static_cast<unsigned>(size));
    } catch (const XTOOStatus& status) {
        Expect(status.GetCode() == TOO_E_BAD_STRUCTURE);
        return 0;
    }
    if (consumed != 0) Check(crl, data, consumed);
    return 0;
}
