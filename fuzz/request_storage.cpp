// Request storages: the input is a file. What is read must be written as it was read, and must open and walk as a host would do it.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "nal/request_context.h"
#include "requests/request_storage_file.h"

namespace {

/// Most inputs are refused here, before a file is made.
bool RoundTrips(asnt::View input) {
    nal::RequestList list;
    try {
        list = nal::DecodeRequestList(input);
    } catch (const XTOOStatus&) {
        return false;
    }
    if (asnt::View(nal::EncodeRequestList(list)) != input) std::abort();
    return true;
}

void Walk(const char* path) {
    unsigned long handle = 0;
    if (!NALCertOpenReqStorage(path, nullptr, 0, &handle)) std::abort();
    const NAL_REQ_CONTEXT* context = nullptr;
    while ((context = NALFindReqContextInStorage(handle, 0, nullptr, context)) != nullptr) {
        CNALReqHistory history;
        if (!NALGetReqProperties(NAL_REQ_PROP_HISTORY, context, &history, nullptr)) std::abort();
        if (history.GetCurrentStatus().m_status != context->dwStatus) std::abort();
    }
    NALCertCloseReqStore(handle, 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 1U << 20 || !RoundTrips({data, size})) return 0;
    std::string path = "/dev/shm/nal-fuzz-requests-XXXXXX";
    const int descriptor = mkstemp(path.data());
    if (descriptor < 0 || write(descriptor, data, size) != static_cast<ssize_t>(size)) std::abort();
    close(descriptor);
    Walk(path.c_str());
    unlink(path.c_str());
    return 0;
}
