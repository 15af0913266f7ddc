#include "certstorage/store_access.h"

#include <algorithm>
#include <cerrno>

#include "certstorage/cert_store.h"

namespace nal {

std::vector<StoreAccess::Reader>::iterator StoreAccess::FindReader() {
    return std::find_if(m_readers.begin(), m_readers.end(),
                        [](const Reader& reader) { return reader.thread == std::this_thread::get_id(); });
}

int StoreAccess::EnterSearch() {
    std::unique_lock lock(m_mutex);
    if (m_writer == std::this_thread::get_id()) {
        ++m_writerDepth;
        return 0;
    }
    if (const auto reader = FindReader(); reader != m_readers.end()) {
        ++reader->depth;
        return 0;
    }
    m_free.wait(lock, [&] { return m_writer == std::thread::id() && m_waitingWriters == 0; });
    if (m_readers.empty() && m_file != nullptr) {
        if (const int error = m_file->BeginSearch(m_tree)) return error;
    }
    m_readers.push_back({std::this_thread::get_id(), 1});
    return 0;
}

void StoreAccess::LeaveSearch() {
    const std::lock_guard lock(m_mutex);
    if (m_writer == std::this_thread::get_id()) {
        --m_writerDepth;
        return;
    }
    const auto reader = FindReader();
    if (reader == m_readers.end() || --reader->depth != 0) return;
    m_readers.erase(reader);
    if (!m_readers.empty()) return;
    if (m_file != nullptr) m_file->EndSearch();
    m_free.notify_all();
}

int StoreAccess::EnterChange() {
    std::unique_lock lock(m_mutex);
    if (m_writer == std::this_thread::get_id()) {
        ++m_writerDepth;
        return 0;
    }
    if (FindReader() != m_readers.end()) return EDEADLK;
    ++m_waitingWriters;
    m_free.wait(lock, [&] { return m_writer == std::thread::id() && m_readers.empty(); });
    --m_waitingWriters;
    if (m_file != nullptr) {
        if (const int error = m_file->BeginChange(m_tree)) {
            m_free.notify_all();
            return error;
        }
    }
    m_writer = std::this_thread::get_id();
    m_writerDepth = 1;
    m_changeFailed = false;
    return 0;
}

int StoreAccess::LeaveChange(bool failed) {
    const std::lock_guard lock(m_mutex);
    m_changeFailed = m_changeFailed || failed;
    if (--m_writerDepth != 0) return 0;
    const int error = m_file != nullptr ? m_file->EndChange(m_tree, m_changeFailed) : 0;
    m_writer = {};
    m_free.notify_all();
    return error;
}

int StoreAccess::CloseFile(std::optional<FileState>& left) {
    const std::lock_guard lock(m_mutex);
    // While others are inside, they have the file in hand.
    const bool inUse = m_writer != std::thread::id() || !m_readers.empty();
    if (m_file == nullptr || inUse) return 0;
    return m_file->Close(m_tree, left);
}

StoreSearch::StoreSearch(CertStore& store)
    : m_body(store.Body()), m_error(m_body != nullptr ? m_body->Access().EnterSearch() : EBADF) {}

StoreSearch::~StoreSearch() {
    if (m_error == 0) m_body->Access().LeaveSearch();
}

StoreChange::StoreChange(CertStore& store)
    : m_body(store.Body()), m_error(m_body != nullptr ? m_body->Access().EnterChange() : EBADF) {
    if (m_error != 0) m_body.reset();
}

StoreChange::~StoreChange() {
    if (m_body != nullptr) m_body->Access().LeaveChange(true);
}

int StoreChange::Commit() {
    if (m_body == nullptr) return m_error;
    m_error = m_body->Access().LeaveChange(false);
    m_body.reset();
    return m_error;
}

}  // namespace nal
