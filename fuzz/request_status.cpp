// Request-status records and list files: what is read is written as the same bytes, what is refused is code 5.
#include <cstdint>
#include <cstdlib>
#include <list>

#include "requests/request_list.h"
#include "too/status.h"

namespace {

void Require(bool condition) {
    if (!condition) std::abort();
}

unsigned CheckRecord(const CNALCertRequestStatus& record, const unsigned char* encoded) {
    const unsigned size = record.GetObjectSize();
    IdentObj written;
    written.SetSize(size);
    Require(record.WriteData(written.GetData(), size) == size);
    Require(written == IdentObj(encoded, size));
    Require(size == 0 || record.WriteData(written.GetData(), size - 1) == 0);
    Require(record == record && !(record < record));
    return size;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const IdentObj input(data, static_cast<unsigned>(size));
    CNALCertRequestStatus record;
    const unsigned consumed = record.ReadData(input.GetData(), input.GetSize());
    Require(consumed == 0 || CheckRecord(record, input.GetData()) == consumed);
    try {
        unsigned at = 0;
        for (const auto& each : nal::ReadRequestList(input, "list"))
            at += CheckRecord(each, input.GetData() + at);
        Require(at == size);
    } catch (const XTOOStatus& status) {
        Require(status.GetCode() == TOO_E_READ);
    }
    return 0;
}
