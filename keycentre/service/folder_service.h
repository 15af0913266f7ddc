// One pass over the requests of a transport folder.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "keycentre/service/centre.h"
#include "keycentre/service/folder_lock.h"
#include "keycentre/service/judge.h"
#include "keycentre/service/transport_folder.h"

namespace keycentre {

/// What became of one request, or of a store of answers.
struct FolderEvent {
    enum Kind : unsigned char {
        Answered,
        Refused,
        Waiting,   ///< a first request, seen for the first time
        Repeated,  ///< refused: it has its certificate already, which was handed over again if it is still good
        Failed,    ///< stays where it is; of a store: the answers wait
    };
    Kind kind;
    std::string file;    ///< its path
    std::string text;    ///< serial number, reason, or fingerprint of the key
    std::string name;    ///< the subject, when it was read
};

struct FolderTally {
    unsigned answered = 0, refused = 0, waiting = 0, repeated = 0, failed = 0;
    unsigned arriving = 0;  ///< may still be being written
};

/// Answers requests that are vouched for, leaves first requests for the operator, refuses the rest. Requests are worked on in groups of
/// a fixed size, so memory does not grow with their number. While it lives no other service works on the folder.
class FolderService {
public:
    /// @param group  how many requests are worked on together
    /// @throws XTOOFile 13 when another service works on the folder
    FolderService(Centre& centre, TransportFolder folder, std::function<void(const FolderEvent&)> report, std::size_t group = kGroup);

    /// Finishes what a run that died had begun, then goes over the folder once.
    /// @param stop  asked between groups
    /// A store of answers that fails, by damage perhaps, is reported; its answers are handed over by a later pass, before which no more
    /// requests of its kind are worked on. The other kind goes on.
    /// @throws XTOOStatus when records or keys fail; what was done until then stays done
    FolderTally Run(const std::function<bool()>& stop);

    /// What does not decode is left alone until it has not changed for so long: it may be half-written.
    static constexpr unsigned kSettlingSeconds = 60;
    static constexpr std::size_t kGroup = 256;

private:
    void Recover();
    void Walk(Delivery kind, const std::function<bool()>& stop);
    void Examine(Delivery kind, const std::string& file);
    void Decide(Delivery kind, const std::string& file, const struct stat& facts, Judgement&& judgement);
    void Repeat(const Judgement& judgement);
    void Wait(Delivery kind, const std::string& file, const struct stat& facts, const Judgement& judgement);
    void Refuse(Delivery kind, const std::string& file, const std::string& reason, FolderEvent::Kind as = FolderEvent::Refused, const std::string& name = {});
    void Flush();
    void HandOver(const std::vector<CertificateRecord>& records);
    std::vector<CertificateRecord> Deliver(const std::vector<CertificateRecord>& records);
    bool IsOpen(const CertificateRecord& record, Delivery kind, const std::string& file) const;
    void ForgetVanished();
    void Report(FolderEvent::Kind kind, const std::string& file, const std::string& text, const std::string& name = {});
    WaitingRecord WaitingOf(Delivery kind, const std::string& file, const struct stat& facts) const;

    Centre& m_centre;
    TransportFolder m_folder;
    std::function<void(const FolderEvent&)> m_report;
    std::size_t m_group;
    FolderLock m_lock;
    Judge m_judge;
    FolderTally m_tally;

    std::vector<Order> m_orders;          // of the present group
    std::set<std::string> m_keys;         // theirs
    std::vector<WaitingRecord> m_waiting;
    std::vector<std::string> m_gone;      // files that wait no more
    std::set<Delivery> m_failing;         // kinds whose store of answers failed in this pass
};

}  // namespace keycentre
