// The open request storages of this process, and which contexts keep them open.
#pragma once

#include <list>
#include <memory>
#include <mutex>
#include <set>

#include "nal/request_context.h"
#include "requests/request_context_block.h"

/// Guarded by the mutex of nal::RequestStorages.
struct CNALReqContextStorage::Open {
    std::set<const NAL_REQ_CONTEXT*> contexts;
    unsigned openCount = 0;
    bool closeWithLastContext = false;
};

namespace nal {

/// All calls are thread-safe. None of them touches a file under the mutex.
class RequestStorages {
public:
    static RequestStorages& Instance();

    /// The storage of that file, opened once more.
    std::shared_ptr<CNALReqContextStorage> Open(const CTOOString& path);
    /// @return the storage; null for a pointer that is no open storage
    std::shared_ptr<CNALReqContextStorage> Find(const CNALReqContextStorage* storage);
    /// @return false for a pointer that is no open storage
    bool Close(const CNALReqContextStorage* storage);

    /// Hands a finished context out: from now on it keeps its storage open.
    const NAL_REQ_CONTEXT* Publish(std::unique_ptr<RequestContextBlock> block);
    /// Ends a context that nobody refers to any more.
    void Retire(const NAL_REQ_CONTEXT* context);
    /// The number of the entry that an open context of the storage stands for, 0 when it is no such context.
    std::uint64_t EntryOf(const CNALReqContextStorage* storage, const NAL_REQ_CONTEXT* context);
    /// Makes a context stand for itself, after its entry was deleted.
    void Release(const NAL_REQ_CONTEXT* context);

private:
    using List = std::list<std::shared_ptr<CNALReqContextStorage>>;

    List::iterator Locate(const CNALReqContextStorage* storage);
    std::shared_ptr<CNALReqContextStorage> Leave(const NAL_REQ_CONTEXT* context);

    std::mutex m_mutex;
    List m_storages;
};

}  // namespace nal
