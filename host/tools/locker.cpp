#include "too/locker.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <pthread.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "host/tools/system_file.h"
#include "too/folder.h"
#include "too/path.h"
#include "too/status.h"

using namespace nalhost;

namespace {

constexpr std::size_t c_longestPlainName = 120;
constexpr std::size_t c_keptOfLongName = 60;

// What the threads of this process know of one lock. The flock is held while a writer or any reader is in.
class LockState {
public:
    explicit LockState(CTOOString file) : m_file(std::move(file)) {}

    // Each returns whether the thread is in as the writer.
    bool EnterAsReader() {
        std::unique_lock lock(m_mutex);
        const auto self = std::this_thread::get_id();
        if (m_writer == self) {
            ++m_writeDepth;
            return true;
        }
        const auto held = m_readers.find(self);
        if (held != m_readers.end()) {
            ++held->second;
            return false;
        }
        m_changed.wait(lock, [&] { return !m_changing && m_writeDepth == 0 && m_waitingWriters == 0; });
        if (m_readers.empty()) TakeFile(lock, LOCK_SH);
        m_readers[self] = 1;
        return false;
    }

    bool EnterAsWriter() {
        std::unique_lock lock(m_mutex);
        const auto self = std::this_thread::get_id();
        if (m_writer == self) {
            ++m_writeDepth;
            return true;
        }
        if (m_readers.count(self) != 0) throw XTOOFile(TOO_E_LOCK, m_file, "held for reading by the same thread:");
        ++m_waitingWriters;
        m_changed.wait(lock, [&] { return !m_changing && m_writeDepth == 0 && m_readers.empty(); });
        --m_waitingWriters;
        TakeFile(lock, LOCK_EX);
        m_writer = self;
        m_writeDepth = 1;
        return true;
    }

    void Leave(std::thread::id thread, bool asWriter) {
        std::lock_guard lock(m_mutex);
        if (asWriter) {
            if (--m_writeDepth != 0) return;
            m_writer = std::thread::id();
        } else {
            const auto held = m_readers.find(thread);
            if (--held->second != 0) return;
            m_readers.erase(held);
            if (!m_readers.empty()) return;
        }
        GiveUpFile();
        m_changed.notify_all();
    }

    // In a forked child: drops the descriptor without the flock, which is the parent's.
    void Abandon() {
        const int descriptor = m_descriptor.exchange(-1);
        if (descriptor >= 0) close(descriptor);
    }

private:
    // Waits for the flock without the mutex; m_changing keeps the other threads out meanwhile.
    void TakeFile(std::unique_lock<std::mutex>& lock, int operation) {
        m_changing = true;
        lock.unlock();
        try {
            // A lock file that was removed while we waited locks nothing any more: take the one that is there now.
            do {
                Abandon();
                m_descriptor = OpenFile(m_file, O_RDWR | O_CREAT | O_NOFOLLOW, 0600, "cannot open the lock").Release();
                LockDescriptor(m_descriptor, operation, m_file);
            } while (!IsFileAt(m_descriptor, m_file.c_str()));
        } catch (...) {
            Abandon();
            lock.lock();
            m_changing = false;
            m_changed.notify_all();
            throw;
        }
        lock.lock();
        m_changing = false;
        m_changed.notify_all();
    }

    void GiveUpFile() {
        // A forked child may still have the descriptor for a moment, so closing ours would not be enough.
        flock(m_descriptor, LOCK_UN);
        Abandon();
    }

    const CTOOString m_file;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::atomic<int> m_descriptor{-1};
    bool m_changing = false;
    std::thread::id m_writer;
    unsigned m_writeDepth = 0;
    unsigned m_waitingWriters = 0;
    std::map<std::thread::id, unsigned> m_readers;
};

// The locks that threads of this process hold or wait for, by lock file.
class LockRegistry {
public:
    // Never destroyed: objects with static lifetime may hold locks while the process ends.
    static LockRegistry& Instance() {
        static LockRegistry& registry = *std::make_unique<LockRegistry>().release();
        return registry;
    }

    LockRegistry() {
        pthread_atfork([] { Instance().m_mutex.lock(); }, [] { Instance().m_mutex.unlock(); },
                       [] { Instance().StartAnewInChild(); });
    }
    LockRegistry(const LockRegistry&) = delete;
    LockRegistry& operator=(const LockRegistry&) = delete;

    std::shared_ptr<LockState> Find(const CTOOString& file) {
        std::lock_guard lock(m_mutex);
        std::shared_ptr<LockState>& state = m_states[file];
        if (!state) state = std::make_shared<LockState>(file);
        return state;
    }

    // Gives a state back; the last one to do so removes it.
    void Forget(const CTOOString& file, std::shared_ptr<LockState>& state) {
        std::lock_guard lock(m_mutex);
        const auto found = m_states.find(file);
        const bool isOurs = found != m_states.end() && found->second == state;
        state.reset();
        if (isOurs && found->second.use_count() == 1) m_states.erase(found);
    }

private:
    void StartAnewInChild() {
        // The states may be in the middle of a change by threads that do not exist here, so they are put aside as
        // they are and never touched again.
        for (auto& [file, state] : m_states) {
            state->Abandon();
            m_abandoned.push_back(std::move(state));
        }
        m_states.clear();
        m_mutex.unlock();
    }

    std::mutex m_mutex;
    std::map<CTOOString, std::shared_ptr<LockState>> m_states;
    std::vector<std::shared_ptr<LockState>> m_abandoned;
};

// Letters, digits, '-' and '_' stand for themselves, every other byte becomes %XX; a long name keeps its end, which
// tells people most, and is told apart by a 128-bit FNV-1a hash. Two names with one hash would merely share a lock.
CTOOString LockFileName(const CTOOString& name) {
    std::string plain;
    unsigned __int128 hash = static_cast<unsigned __int128>(0x6c62272e07bb0142U) << 64 | 0x62b821756295c58dU;
    constexpr unsigned __int128 prime = static_cast<unsigned __int128>(0x0000000001000000U) << 64 | 0x13BU;
    for (const char c : name.view()) {
        const bool itself =
            (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
        if (itself) {
            plain += c;
        } else {
            plain += fmt::format("%{:02X}", static_cast<unsigned char>(c));
        }
        hash = (hash ^ static_cast<unsigned char>(c)) * prime;
    }
    if (plain.size() > c_longestPlainName) {
        plain = fmt::format("{:016x}{:016x}.{}", static_cast<std::uint64_t>(hash >> 64),
                            static_cast<std::uint64_t>(hash), plain.substr(plain.size() - c_keptOfLongName));
    }
    return plain + ".lock";
}

class HeldLock final : public IPC::CLocker {
public:
    HeldLock(const CTOOString& file, bool asWriter) : m_file(file), m_state(LockRegistry::Instance().Find(file)) {
        try {
            m_isWriter = asWriter ? m_state->EnterAsWriter() : m_state->EnterAsReader();
        } catch (...) {
            LockRegistry::Instance().Forget(m_file, m_state);
            throw;
        }
    }
    ~HeldLock() override {
        if (m_process != getpid()) return;
        m_state->Leave(m_thread, m_isWriter);
        LockRegistry::Instance().Forget(m_file, m_state);
    }

private:
    const CTOOString m_file;
    const std::thread::id m_thread = std::this_thread::get_id();
    const pid_t m_process = getpid();
    std::shared_ptr<LockState> m_state;
    bool m_isWriter = false;
};

std::unique_ptr<IPC::CLocker> TakeLock(const CTOOString& name, bool asWriter) {
    if (name.empty()) throw XTOOStatus(TOO_E_BAD_ARGUMENT, "lock without a name");
    const CTOOString folder = storedev::MakeFullPath(TOOGetHomePath(), "locks");
    CTOOFolder::MakeFolder(folder, 0700);
    return std::make_unique<HeldLock>(storedev::MakeFullPath(folder, LockFileName(name)), asWriter);
}

}  // namespace

namespace IPC {

CLocker::~CLocker() = default;

std::unique_ptr<CLocker> CreateReadLockerDeprecated(const CTOOString& name) {
    return TakeLock(name, false);
}

std::unique_ptr<CLocker> CreateWriteLockerDeprecated(const CTOOString& name) {
    return TakeLock(name, true);
}

}  // namespace IPC
