#include "requests/request_storage_file.h"

#include <sys/stat.h>

#include <utility>

#include "too/file.h"
#include "too/locker.h"
#include "too/status.h"

namespace nal {
namespace {

constexpr std::uint32_t c_maxFile = 64U << 20;

RequestList Decode(const IdentObj& file, const CTOOString& path) {
    try {
        // A file without a byte, as a system may leave behind, holds no requests.
        return file.IsEmpty() ? RequestList() : DecodeRequestList(file);
    } catch (const XTOOStatus& status) {
        throw XTOOStatus(status.GetCode(), path + ": the file is damaged or no request storage");
    }
}

}  // namespace

CTOOString RequestStorageFile::LockName() const {
    return "request storage " + m_path;
}

RequestStorageFile::Stamp RequestStorageFile::StampOf(const CTOOFile& file) {
    struct stat status {};
    if (fstat(file.GetDescriptor(), &status) != 0) throw XTOOFile(TOO_E_READ, file.GetName(), "cannot examine", errno);
    return {static_cast<std::uint64_t>(status.st_dev), static_cast<std::uint64_t>(status.st_ino),
            static_cast<std::uint64_t>(status.st_size),
            static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1000000000 + status.st_mtim.tv_nsec};
}

void RequestStorageFile::Create() {
    const auto lock = IPC::CreateWriteLockerDeprecated(LockName());
    if (!CTOOFile::Exists(m_path)) Store(RequestList());
}

std::shared_ptr<const RequestList> RequestStorageFile::Read(bool afresh) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return ReadLocked(afresh);
}

std::shared_ptr<const RequestList> RequestStorageFile::ReadLocked(bool afresh) {
    const CTOOFile file(m_path, "rb");
    const Stamp stamp = StampOf(file);
    if (!afresh && m_list != nullptr && stamp == m_stamp) return m_list;
    // The file is never written in place, so what this descriptor shows is one content, whatever its name stands for meanwhile.
    if (stamp.size > c_maxFile) throw XTOOFile(TOO_E_TOO_LARGE, m_path, "cannot read");
    IdentObj bytes;
    bytes.SetSize(static_cast<unsigned>(stamp.size));
    file.ReadExactly(bytes.GetData(), bytes.GetSize());
    m_list = std::make_shared<const RequestList>(Decode(bytes, m_path));
    m_stamp = stamp;
    return m_list;
}

void RequestStorageFile::Change(const std::function<void(RequestList&)>& change) {
    // The lock between processes first: whoever waits for it must not keep this process's readers waiting.
    const auto lock = IPC::CreateWriteLockerDeprecated(LockName());
    RequestList list = *Read(true);
    change(list);
    Store(list);
}

void RequestStorageFile::Store(const RequestList& list) {
    const IdentObj bytes = EncodeRequestList(list);
    if (bytes.GetSize() > c_maxFile) throw XTOOStatus(TOO_E_TOO_LARGE, m_path + ": the request storage is full");
    CTOOWholeFile::Store(m_path, bytes.GetData(), bytes.GetSize());
}

}  // namespace nal
