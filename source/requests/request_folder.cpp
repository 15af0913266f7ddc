// The files of requests in a transport folder.
#include "frame/failure.h"
#include "nal/request_context.h"
#include "requests/request_folder.h"
#include "too/folder.h"
#include "too/path.h"
#include "trust/transport_folder.h"

namespace nal {

std::list<CTOOString> ListRequestStorages(const CTOOString& transportFolder, RequestKind kind) {
    const bool external = kind == RequestKind::External;
    const CTOOString folder = storedev::MakeFullPath(StationFolder(transportFolder), external ? "e_users" : "o_users");
    std::list<CTOOString> files;
    const CTOOFindFile found(folder, external ? "*_extu.log" : "*_ownu.log");
    for (const CTOOString& name : found.GetNames())  // sorted
        files.push_back(storedev::MakeFullPath(folder, name));
    return files;
}

}  // namespace nal

std::list<CTOOString> NALGetReqStatusFile(const CTOOString& folder, bool allKinds, bool onlyExternal, int* err) {
    nal::Outcome outcome;
    std::list<CTOOString> files;
    try {
        if (allKinds || onlyExternal) files = nal::ListRequestStorages(folder, nal::RequestKind::External);
        if (allKinds || !onlyExternal) files.splice(files.end(), nal::ListRequestStorages(folder, nal::RequestKind::Own));
    } catch (const XTOOStatus& status) {
        files.clear();
        outcome.Fail(status);
    }
    outcome.Finish(err);
    return files;
}
