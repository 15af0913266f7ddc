#include "frame/progress.h"

#include "nal/progress.h"
#include "too/status.h"

namespace {

struct Handler {
    NALProgressHandler function = nullptr;
    void* context = nullptr;
};

thread_local Handler t_handler;

}  // namespace

void NALSetProgressHandler(NALProgressHandler handler, void* context) { t_handler = {handler, context}; }

void nal::Progress::Advance(std::uint64_t bytes) {
    m_done += bytes;
    const Handler handler = t_handler;
    if (handler.function && !handler.function(m_done, m_inAll, handler.context)) {
        throw XTOOStatus(TOO_E_CANCELLED, "cancelled");
    }
}
