#include "keycentre/service/folder_service.h"

#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <memory>
#include <utility>

#include "keycentre/issuing/times.h"
#include "too/file.h"
#include "too/folder.h"
#include "too/status.h"
#include "too/time.h"

namespace keycentre {
namespace {

constexpr Delivery kKinds[] = {Delivery::Own, Delivery::External};

/// How requests of both kinds are told apart in the records of waiting ones.
std::string Relative(Delivery kind, const std::string& file) { return (kind == Delivery::Own ? "o_users/" : "e_users/") + file; }

/// Whether a file has not changed for a while. One from the future has no age to wait for.
bool IsSettled(const struct stat& facts) {
    const std::int64_t age = CTOOFileTime(Now()).ToUnix() - static_cast<std::int64_t>(facts.st_mtime);
    return age >= FolderService::kSettlingSeconds || age <= -static_cast<std::int64_t>(FolderService::kSettlingSeconds);
}

struct CloseFolder {
    void operator()(DIR* folder) const { ::closedir(folder); }
};

}  // namespace

FolderService::FolderService(Centre& centre, TransportFolder folder, std::function<void(const FolderEvent&)> report, std::size_t group)
    : m_centre(centre), m_folder(std::move(folder)), m_report(std::move(report)), m_group(group), m_lock(m_folder.GetStation(), false), m_judge(centre) {}

void FolderService::Report(FolderEvent::Kind kind, const std::string& file, const std::string& text, const std::string& name) {
    m_report({kind, m_folder.GetStation() + "/" + file, text, name});
}

FolderTally FolderService::Run(const std::function<bool()>& stop) {
    m_tally = {};
    m_failing.clear();
    Recover();
    for (const Delivery kind : kKinds)
        Walk(kind, stop);
    ForgetVanished();
    return m_tally;
}

void FolderService::Recover() {
    std::int64_t last = 0;
    std::size_t count = 0;
    do {
        const FolderLock lock = m_centre.Lock();
        m_centre.MakeDueCrls();
        const std::vector<CertificateRecord> open = m_centre.GetRecords().FindUndelivered(m_folder.GetPath(), last, m_group);
        count = open.size();
        if (count == 0) return;
        last = open.back().id;
        HandOver(open);
        Flush();
    } while (count == m_group);
}

void FolderService::Walk(Delivery kind, const std::function<bool()>& stop) {
    const std::string path = m_folder.GetRequests(kind);
    const std::unique_ptr<DIR, CloseFolder> folder(::opendir(path.c_str()));
    if (folder == nullptr) {
        if (errno == ENOENT) return;
        throw XTOOFile(TOOStatusFromErrno(errno, TOO_E_READ), path, "cannot read the folder", errno);
    }
    std::unique_ptr<FolderLock> lock;
    std::size_t inGroup = 0;
    // What waits for a store that fails does not become more.
    while (!m_failing.contains(kind) && !stop()) {
        errno = 0;
        const dirent* entry = ::readdir(folder.get());
        if (entry == nullptr && errno != 0) throw XTOOFile(TOO_E_READ, path, "cannot read the folder", errno);
        if (entry == nullptr) break;
        if (!TransportFolder::IsRequest(entry->d_name, kind)) continue;
        // Held from the look at the records until what was found is in them.
        if (lock == nullptr) {
            lock = std::make_unique<FolderLock>(m_centre.Lock());
            m_centre.MakeDueCrls();
        }
        const std::string file = entry->d_name;
        try {
            Examine(kind, file);
        } catch (const XTOOFile& failure) {
            ++m_tally.failed;
            Report(FolderEvent::Failed, Relative(kind, file), failure.GetText().str());
        }
        if (++inGroup < m_group) continue;
        Flush();
        lock.reset();
        inGroup = 0;
    }
    if (lock != nullptr) Flush();
}

WaitingRecord FolderService::WaitingOf(Delivery kind, const std::string& file, const struct stat& facts) const {
    WaitingRecord record;
    record.folder = m_folder.GetPath();
    record.file = Relative(kind, file);
    record.inode = static_cast<std::int64_t>(facts.st_ino);
    record.size = facts.st_size;
    record.changed = facts.st_mtim.tv_sec * 1000000000LL + facts.st_mtim.tv_nsec;
    return record;
}

void FolderService::Examine(Delivery kind, const std::string& file) {
    const std::string path = m_folder.GetRequests(kind) + "/" + file;
    struct stat facts {};
    if (::lstat(path.c_str(), &facts) != 0) {
        if (errno == ENOENT) return;  // somebody took it back
        throw XTOOFile(TOOStatusFromErrno(errno, TOO_E_READ), path, "cannot look at the request", errno);
    }
    if (m_centre.GetRecords().IsWaiting(WaitingOf(kind, file, facts))) {
        ++m_tally.waiting;
        return;
    }
    IdentObj encoded;
    try {
        encoded = ReadRequest(path);
    } catch (const XTOOFile& failure) {
        // What cannot be a request is refused; what only cannot be read now is tried again in the next pass.
        if (failure.GetCode() != TOO_E_NOT_A_FILE && failure.GetCode() != TOO_E_TOO_LARGE) throw;
        Refuse(kind, file, failure.GetText().str());
        return;
    }
    Judgement judgement = m_judge.Look(encoded);
    // Two files for one key in one group: the records do not know of the first yet.
    if (judgement.verdict == Verdict::Vouched && m_keys.contains(judgement.order.key)) {
        Flush();
        judgement = m_judge.Look(encoded);
    }
    Decide(kind, file, facts, std::move(judgement));
}

void FolderService::Decide(Delivery kind, const std::string& file, const struct stat& facts, Judgement&& judgement) {
    switch (judgement.verdict) {
        case Verdict::Vouched:
            judgement.order.delivery = kind;
            judgement.order.folder = m_folder.GetPath();
            judgement.order.file = file;
            m_keys.insert(judgement.order.key);
            m_orders.push_back(std::move(judgement.order));
            break;
        case Verdict::First: Wait(kind, file, facts, judgement); break;
        case Verdict::Answered:
            // Its own answer could not be handed over, or it not be moved, in this pass: that was reported, and the next one tries again.
            if (IsOpen(*judgement.earlier, kind, file)) return;
            Repeat(judgement);
            Refuse(kind, file, judgement.reason, FolderEvent::Repeated);
            break;
        case Verdict::Refused:
            if (judgement.order.digest.empty() && !IsSettled(facts)) {
                ++m_tally.arriving;
                return;
            }
            Refuse(kind, file, judgement.reason, FolderEvent::Refused, judgement.order.name);
            break;
    }
}

bool FolderService::IsOpen(const CertificateRecord& record, Delivery kind, const std::string& file) const {
    return record.state == State::Issued && record.delivery == kind && record.folder == m_folder.GetPath() && record.file == file;
}

void FolderService::Repeat(const Judgement& judgement) {
    const CertificateRecord& record = *judgement.earlier;
    const bool isGood = !record.revoked && CTOOFileTime(record.notAfter) > Now() && record.folder == m_folder.GetPath();
    // The answer may have been lost on its way; a second copy of it tells nobody anything new.
    if (isGood && !record.certificate.IsEmpty()) m_folder.Deliver(m_centre, {record});
}

void FolderService::Wait(Delivery kind, const std::string& file, const struct stat& facts, const Judgement& judgement) {
    WaitingRecord record = WaitingOf(kind, file, facts);
    record.name = judgement.order.name;
    record.key = judgement.order.key;
    record.seen = Now();
    m_waiting.push_back(std::move(record));
    ++m_tally.waiting;
    m_centre.GetLog().Add("waiting", {{"file", m_waiting.back().file}, {"name", judgement.order.name}, {"key", judgement.order.key}}, true);
    Report(FolderEvent::Waiting, Relative(kind, file), judgement.order.key, judgement.order.name);
}

void FolderService::Refuse(Delivery kind, const std::string& file, const std::string& reason, FolderEvent::Kind as, const std::string& name) {
    m_folder.Refuse(kind, file, reason);
    ++(as == FolderEvent::Repeated ? m_tally.repeated : m_tally.refused);
    m_gone.push_back(Relative(kind, file));
    m_centre.GetLog().Add("refused", {{"file", m_gone.back()}, {"folder", m_folder.GetPath()}, {"name", name}, {"reason", reason}}, true);
    Report(as, Relative(kind, file), reason, name);
}

void FolderService::Flush() {
    if (!m_orders.empty()) {
        const std::vector<Order> orders = std::exchange(m_orders, {});
        m_keys.clear();
        HandOver(m_centre.Issue(orders));
    }
    if (!m_waiting.empty() || !m_gone.empty()) {
        Transaction transaction(m_centre.GetRecords().GetConnection());
        for (const WaitingRecord& record : std::exchange(m_waiting, {}))
            m_centre.GetRecords().PutWaiting(record);
        for (const std::string& file : std::exchange(m_gone, {}))
            m_centre.GetRecords().RemoveWaiting(m_folder.GetPath(), file);
        transaction.Commit();
    }
    m_centre.GetLog().Sync();
}

void FolderService::HandOver(const std::vector<CertificateRecord>& records) {
    std::vector<CertificateRecord> done;
    for (const CertificateRecord& record : Deliver(records)) {
        const std::string file = Relative(record.delivery, record.file);
        try {
            m_folder.MoveAnswered(record);
            done.push_back(record);
        } catch (const XTOOFile& failure) {
            // The holder has the certificate; the next pass finishes what is left.
            ++m_tally.failed;
            Report(FolderEvent::Failed, file, failure.GetText().str());
        }
    }
    m_centre.SetAnswered(done);
    for (const CertificateRecord& record : done) {
        ++m_tally.answered;
        m_gone.push_back(Relative(record.delivery, record.file));
        Report(FolderEvent::Answered, m_gone.back(), SerialText(record.serial), record.name);
    }
}

std::vector<CertificateRecord> FolderService::Deliver(const std::vector<CertificateRecord>& records) {
    std::vector<CertificateRecord> delivered;
    for (const Delivery kind : kKinds) {
        std::vector<CertificateRecord> ofKind;
        const auto isOfKind = [&](const CertificateRecord& record) { return record.delivery == kind; };
        std::copy_if(records.begin(), records.end(), std::back_inserter(ofKind), isOfKind);
        if (m_failing.contains(kind)) {
            m_tally.failed += static_cast<unsigned>(ofKind.size());
            continue;
        }
        try {
            m_folder.Deliver(m_centre, ofKind);
            delivered.insert(delivered.end(), ofKind.begin(), ofKind.end());
        } catch (const XTOOFile& failure) {
            // The certificates are on record; each pass tries again to hand them over.
            m_failing.insert(kind);
            m_tally.failed += static_cast<unsigned>(ofKind.size());
            const std::string text = failure.GetText().str() + "; not handed over: " + std::to_string(ofKind.size());
            Report(FolderEvent::Failed, TransportFolder::AnswersName(kind), text);
        }
    }
    return delivered;
}

void FolderService::ForgetVanished() {
    std::vector<std::string> vanished;
    m_centre.GetRecords().ForEachWaiting([&](const WaitingRecord& record) {
        if (vanished.size() < m_group && record.folder == m_folder.GetPath() && !CTOOFile::Exists(m_folder.GetStation() + "/" + record.file)) vanished.push_back(record.file);
    });
    if (vanished.empty()) return;
    const FolderLock lock = m_centre.Lock();
    m_gone = std::move(vanished);
    Flush();
}

}  // namespace keycentre
