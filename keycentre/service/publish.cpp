#include "keycentre/service/publish.h"

#include <cstdio>

#include "keycentre/issuing/times.h"
#include "keycentre/lists.h"
#include "too/file.h"
#include "too/status.h"

namespace keycentre {
namespace {

constexpr char kNumber[] = "trust_list_number";
constexpr std::size_t kMostBytes = 64U << 20;  // what readers of lists take

void Store(Published& published, const std::string& path, const IdentObj& bytes) {
    CTOOWholeFile::Store(path, bytes.GetData(), bytes.GetSize());
    published.files.push_back(path);
}

/// The number is on the disk before a list bears it, so no two lists have one.
std::uint64_t NextNumber(Records& records) {
    Transaction transaction(records.GetConnection());
    const std::int64_t number = records.GetSetting(kNumber).value_or(0) + 1;
    records.PutSetting(kNumber, number);
    transaction.Commit();
    return static_cast<std::uint64_t>(number);
}

bool IsAuthority(const Centre& centre, const CertificateRecord& record) {
    for (const AuthorityRecord& authority : centre.GetAuthorities()) {
        if (authority.certificate == record.certificate) return true;
    }
    return false;
}

std::list<IdentObj> UsersCertificates(Centre& centre) {
    std::list<IdentObj> certificates;
    std::size_t bytes = 0;
    const CTOOFileTime now = Now();
    centre.GetRecords().ForEach(true, [&](const CertificateRecord& record) {
        const bool isOut = record.state == State::Issued || record.state == State::Answered;
        if (!isOut || record.revoked || now > CTOOFileTime(record.notAfter) || IsAuthority(centre, record)) return;
        bytes += record.certificate.GetSize();
        if (bytes > kMostBytes) throw XTOOStatus(TOO_E_TOO_LARGE, "the users' list would be larger than hosts read (64 MiB)");
        certificates.push_back(record.certificate);
    });
    return certificates;
}

}  // namespace

std::string NetworkId(std::uint16_t network) {
    char text[8];
    std::snprintf(text, sizeof text, "%04x", network);
    return text;
}

Published Publish(Centre& centre, const TransportFolder& folder) {
    const FolderLock lock = centre.Lock();
    centre.MakeDueCrls();
    Published published;
    const std::string base = folder.GetStation() + "/" + NetworkId(centre.GetNetwork());

    const std::list<IdentObj> users = UsersCertificates(centre);
    TrustList list;
    IdentObj rootCrl;
    for (const AuthorityRecord& authority : centre.GetRecords().GetAuthorities()) {
        if (authority.role != Role::Lists) list.certificates.push_back(authority.certificate);
        if (!authority.crl.IsEmpty()) list.crls.push_back(authority.crl);
        if (authority.role == Role::Root) rootCrl = authority.crl;
    }
    list.number = published.number = NextNumber(centre.GetRecords());
    Store(published, base + "_trl.p7s", SignTrustList(list, centre.GetIssuer(Role::Lists)));
    Store(published, base + "_usr.p7b", EncodeUsersList(users, {}));
    Store(published, base + "_root.crl", rootCrl);
    published.users = users.size();
    centre.GetLog().Add("published", {{"folder", folder.GetPath()}, {"number", std::to_string(published.number)}, {"users", std::to_string(users.size())}});
    return published;
}

}  // namespace keycentre
