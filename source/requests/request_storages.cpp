#include "requests/request_storages.h"

#include <algorithm>
#include <utility>

namespace nal {

RequestStorages& RequestStorages::Instance() {
    // Never destroyed: contexts of the host's static objects may end after ours would.
    static RequestStorages& instance = *std::make_unique<RequestStorages>().release();
    return instance;
}

RequestStorages::List::iterator RequestStorages::Locate(const CNALReqContextStorage* storage) {
    return std::find_if(m_storages.begin(), m_storages.end(), [&](const auto& open) { return open.get() == storage; });
}

std::shared_ptr<CNALReqContextStorage> RequestStorages::Open(const CTOOString& path) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    auto found = std::find_if(m_storages.begin(), m_storages.end(), [&](const auto& open) { return open->GetPath() == path; });
    if (found == m_storages.end()) {
        m_storages.push_back(std::shared_ptr<CNALReqContextStorage>(new CNALReqContextStorage(path)));
        found = std::prev(m_storages.end());
    }
    CNALReqContextStorage::Open& open = *(*found)->m_open;
    ++open.openCount;
    open.closeWithLastContext = false;
    return *found;
}

std::shared_ptr<CNALReqContextStorage> RequestStorages::Find(const CNALReqContextStorage* storage) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto found = Locate(storage);
    return found != m_storages.end() ? *found : nullptr;
}

bool RequestStorages::Close(const CNALReqContextStorage* storage) {
    std::shared_ptr<CNALReqContextStorage> last;  // ends outside the mutex
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto found = Locate(storage);
    if (found == m_storages.end()) return false;
    CNALReqContextStorage::Open& open = *(*found)->m_open;
    if (open.openCount > 0) --open.openCount;
    if (open.openCount > 0) return true;
    if (!open.contexts.empty()) {
        open.closeWithLastContext = true;
        return true;
    }
    last = std::move(*found);
    m_storages.erase(found);
    return true;
}

const NAL_REQ_CONTEXT* RequestStorages::Publish(std::unique_ptr<RequestContextBlock> block) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (const auto found = Locate(block->pStorage); found != m_storages.end()) (*found)->m_open->contexts.insert(block.get());
    return block.release();
}

std::shared_ptr<CNALReqContextStorage> RequestStorages::Leave(const NAL_REQ_CONTEXT* context) {
    const auto found = Locate(context->pStorage);
    if (found == m_storages.end()) return nullptr;
    CNALReqContextStorage::Open& open = *(*found)->m_open;
    if (open.contexts.erase(context) == 0 || !open.contexts.empty() || !open.closeWithLastContext) return nullptr;
    std::shared_ptr<CNALReqContextStorage> last = std::move(*found);
    m_storages.erase(found);
    return last;
}

void RequestStorages::Retire(const NAL_REQ_CONTEXT* context) {
    const std::unique_ptr<RequestContextBlock> block(RequestContextBlock::Of(context));
    std::shared_ptr<CNALReqContextStorage> last;
    const std::lock_guard<std::mutex> guard(m_mutex);
    last = Leave(context);
}

void RequestStorages::Release(const NAL_REQ_CONTEXT* context) {
    std::shared_ptr<CNALReqContextStorage> last;
    const std::lock_guard<std::mutex> guard(m_mutex);
    last = Leave(context);
    RequestContextBlock* block = RequestContextBlock::Of(context);
    block->pStorage = nullptr;
    block->entry = 0;
}

std::uint64_t RequestStorages::EntryOf(const CNALReqContextStorage* storage, const NAL_REQ_CONTEXT* context) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto found = Locate(storage);
    if (found == m_storages.end() || (*found)->m_open->contexts.count(context) == 0) return 0;
    return RequestContextBlock::Of(context)->entry;
}

}  // namespace nal
