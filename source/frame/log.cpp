#include "frame/log.h"

#include "orklog/orklog.h"

namespace {

template <typename Value>
void Write(const nal::LogPlace& place, const char* label, const Value& value) {
    const OrkLogProps* props = OrkLog_GetProps_cl_module(0);
    if (!props || props->level <= 0) return;
    OkrLogHelper record(props, 1, ClUnilogFname(place.prettyFunction, place.shortFunction), place.sourcePath, place.line);
    record << label << value;
}

}  // namespace

void nal::LogError(const LogPlace& place, const CTOOString& text) { Write(place, "Error: ", text); }

void nal::LogErrorCode(const LogPlace& place, int status, const char* label) { Write(place, label, status); }
