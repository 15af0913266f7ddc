#include "certstorage/rollback_journal.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <utility>

#include "certstorage/block_sum.h"
#include "certstorage/change_step.h"
#include "certstorage/file_copy.h"
#include "certstorage/file_state.h"
#include "certstorage/invariant.h"

namespace nal {
namespace {

constexpr char kMagic[8] = {'N', 'A', 'L', 'J', 'R', 'N', 'L', '1'};

struct Trailer {
    char magic[8];
    std::uint64_t inode;
    std::uint64_t size;
    std::uint64_t sum;
};
static_assert(sizeof(Trailer) == 32, "the layout is the journal's");

// A test that stops the copying finds half of it done.
bool CopyStore(int from, int to, std::uint64_t size) {
    return CopyBytes(from, to, too_testing::NextStepIsBad() ? size / 2 : size);
}

std::optional<Trailer> ReadTrailer(int journal) {
    const auto state = FileState::OfDescriptor(journal);
    Trailer trailer{};
    if (!state || state->size < sizeof trailer) return std::nullopt;
    const std::uint64_t size = state->size - sizeof trailer;
    if (pread(journal, &trailer, sizeof trailer, static_cast<off_t>(size)) != static_cast<ssize_t>(sizeof trailer)) {
        return std::nullopt;
    }
    if (!IsWhole(trailer, kMagic) || trailer.size != size) return std::nullopt;
    return trailer;
}

}  // namespace

RollbackJournal::RollbackJournal(std::string storePath)
    : m_storePath(std::move(storePath)), m_path(m_storePath + ".journal") {}

bool RollbackJournal::Exists() const { return access(m_path.c_str(), F_OK) == 0; }

int RollbackJournal::Write(int store) const {
    const auto state = FileState::OfDescriptor(store);
    if (!state) return errno;
    const std::string fresh = m_path + ".new";
    unlink(fresh.c_str());  // of a process that died
    const UniqueFd journal = OpenFd(fresh, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
    if (!journal) return errno;
    Trailer trailer{};
    trailer.inode = state->inode;
    trailer.size = state->size;
    Seal(trailer, kMagic);

    const bool copied = CopyStore(store, journal.Get(), state->size);
    const int copyError = copied ? 0 : errno;
    int error = MakeStep(ChangeStep::WriteJournal, [&] {
        errno = copyError;
        return copied && WriteAt(journal.Get(), &trailer, sizeof trailer, static_cast<off_t>(state->size));
    });
    if (error == 0) error = MakeStep(ChangeStep::SyncJournal, [&] { return fsync(journal.Get()) == 0; });
    if (error == 0) {
        error = MakeStep(ChangeStep::NameJournal, [&] { return rename(fresh.c_str(), m_path.c_str()) == 0; });
    }
    if (error != 0) {
        unlink(fresh.c_str());
        return error;
    }
    error = MakeStep(ChangeStep::SyncFolderForJournal, [&] { return SyncFolderOf(m_path); });
    if (error != 0) unlink(m_path.c_str());  // nothing has changed yet
    return error;
}

int RollbackJournal::PutBack(Finding& finding) const {
    finding = Finding::None;
    const UniqueFd journal = OpenFd(m_path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
    if (!journal) return errno == ENOENT ? 0 : errno;
    const auto trailer = ReadTrailer(journal.Get());
    if (!trailer) {
        LogError(NAL_HERE(kStoreSource), "store file " + m_storePath + ": beside it lies " + m_path +
                                             ", which is no journal; move it away, then try \"nal store check\"");
        return EUCLEAN;
    }
    const UniqueFd store = OpenFd(m_storePath, O_RDWR | O_NONBLOCK | O_NOCTTY);
    if (!store && errno != ENOENT) return errno;
    const auto state = store ? FileState::OfDescriptor(store.Get()) : std::nullopt;
    if (!state || state->inode != trailer->inode) {
        const std::string stale = m_path + ".stale";
        LogError(NAL_HERE(kStoreSource), "store file " + m_storePath + ": its journal belongs to another file and is set aside as " + stale);
        return rename(m_path.c_str(), stale.c_str()) == 0 ? 0 : errno;
    }
    const bool copied = CopyStore(journal.Get(), store.Get(), trailer->size);
    const int copyError = copied ? 0 : errno;
    int error = MakeStep(ChangeStep::RestoreFile, [&] {
        errno = copyError;
        return copied && ftruncate(store.Get(), static_cast<off_t>(trailer->size)) == 0;
    });
    if (error == 0) error = MakeStep(ChangeStep::SyncRestored, [&] { return fsync(store.Get()) == 0; });
    if (error == 0) finding = Finding::Restored;
    return error;
}

// A rename first: unlike a removal it can be taken back when it cannot be made durable.
int RollbackJournal::Retire() const {
    const std::string done = m_path + ".done";
    int error = MakeStep(ChangeStep::RetireJournal, [&] { return rename(m_path.c_str(), done.c_str()) == 0; });
    if (error != 0) return error;
    error = MakeStep(ChangeStep::SyncFolderForRetired, [&] { return SyncFolderOf(m_path); });
    if (error != 0) {
        if (rename(done.c_str(), m_path.c_str()) == 0) return error;
        LogError(NAL_HERE(kStoreSource), "store file " + m_storePath + ": a change holds, but may be undone by a failure of power");
    }
    // Left behind, it means nothing and is replaced next time.
    MakeStep(ChangeStep::RemoveRetired, [&] { return unlink(done.c_str()) == 0; });
    return 0;
}

}  // namespace nal
