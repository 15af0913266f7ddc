#include "keycentre/service/transport_folder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <utility>

#include "cli/terminal.h"
#include "keycentre/service/descriptor.h"
#include "keycentre/service/judge.h"
#include "nal/crl.h"
#include "nal/fingerprint.h"
#include "nal/storage.h"
#include "too/file.h"
#include "too/folder.h"
#include "too/last_error.h"
#include "too/path.h"
#include "too/status.h"
#include "too/testing.h"

namespace keycentre {
namespace {

constexpr DWORD kExisting = 0x10000;
constexpr DWORD kCreate = 0x12000;

struct Kind {
    Delivery delivery;
    const char* folder;
    const char* suffix;
    const char* answers;
};
constexpr Kind kKinds[] = {{Delivery::Own, "o_users", "_ownu.req", "own_input.cer"}, {Delivery::External, "e_users", "_extu.req", "ext_input.cer"}};

const Kind& FactsOf(Delivery delivery) { return delivery == Delivery::External ? kKinds[1] : kKinds[0]; }

[[noreturn]] void FailStore(const std::string& path) {
    const DWORD lastError = GetLastError();
    const int status = WinErr2ToolsErr(lastError);
    const char* action = lastError == EUCLEAN ? "the store of answers is damaged (\"nal store salvage\" brings back what can be read)"
                                              : "cannot add to the store of answers";
    throw XTOOFile(status != TOO_OK ? status : TOO_E_WRITE, path, action);
}

/// Puts the issuer's present CRL into the store and takes its older ones out.
void RenewCrl(CNALCertStorage& answers, const IdentObj& crl, const IdentObj& issuerKeyId, const std::string& path) {
    const CNALCRLContext present(crl);
    bool isThere = false;
    std::list<CNALCRLContext> old;
    for (CNALCRLContext found = answers.FindCRLInStore(0, nullptr, {}); found.IsInitialized(); found = answers.FindCRLInStore(0, nullptr, found)) {
        CNAL_CRL_List decoded;
        decoded.ReadData(found.GetContext()->pbCrlEncoded, found.GetContext()->cbCrlEncoded);
        if (found == present) {
            isThere = true;
        } else if (NALCheckCRLKey(decoded.m_info).m_issuerID == issuerKeyId) {
            old.push_back(found);
        }
    }
    if (!isThere && !answers.AddCRLContext(present, CERT_STORE_ADD_ALWAYS)) FailStore(path);
    for (CNALCRLContext& gone : old)
        answers.DeleteCRL(gone);
}

}  // namespace

TransportFolder::TransportFolder(const std::string& path) {
    std::error_code error;
    m_path = std::filesystem::absolute(toolsunix::FilenameConvertor(path).str(), error).lexically_normal().string();
    while (m_path.size() > 1 && m_path.back() == '/')
        m_path.pop_back();
    if (!CTOOFolder::Exists(GetStation())) throw XTOOFile(TOO_E_FILE_NOT_FOUND, GetStation(), "there is no transport folder here");
}

std::optional<TransportFolder> TransportFolder::Of(const std::string& requestPath, Delivery& kind, std::string& file) {
    std::error_code error;
    const std::filesystem::path path = std::filesystem::absolute(requestPath, error).lexically_normal();
    const std::filesystem::path users = path.parent_path();
    const std::filesystem::path station = users.parent_path();
    for (const Kind& facts : kKinds) {
        if (users.filename() != facts.folder || station.filename() != "d_station" || !IsRequest(path.filename().string(), facts.delivery)) continue;
        kind = facts.delivery;
        file = path.filename().string();
        return TransportFolder(station.parent_path().string());
    }
    return std::nullopt;
}

std::string TransportFolder::GetRequests(Delivery kind) const { return GetStation() + "/" + FactsOf(kind).folder; }

std::string TransportFolder::GetAnswers(Delivery kind) const { return GetStation() + "/" + AnswersName(kind); }

std::string TransportFolder::AnswersName(Delivery kind) { return std::string("tmp/") + FactsOf(kind).answers; }

bool TransportFolder::IsRequest(const std::string& name, Delivery kind) {
    return name.size() > std::string_view(FactsOf(kind).suffix).size() && name.front() != '.' && name.ends_with(FactsOf(kind).suffix);
}

void TransportFolder::Deliver(Centre& centre, const std::vector<CertificateRecord>& records) const {
    const std::list<AuthorityRecord> authorities = centre.GetRecords().GetAuthorities();
    const auto isIssuing = [&](const AuthorityRecord& authority) { return authority.role == centre.GetIssuingRole(); };
    const auto issuer = std::find_if(authorities.begin(), authorities.end(), isIssuing);
    for (const Kind& facts : kKinds) {
        std::list<CNALCertContext> certificates;
        for (const CertificateRecord& record : records) {
            if (record.delivery == facts.delivery) certificates.emplace_back(record.certificate);
        }
        if (certificates.empty()) continue;
        try {
            DeliverKind(*issuer, facts.delivery, std::move(certificates));
        } catch (const XTOOFile&) {
            throw;
        } catch (const XTOOStatus& status) {
            throw XTOOFile(status.GetCode(), GetAnswers(facts.delivery), "cannot add to the store of answers: " + status.GetText());
        }
    }
}

void TransportFolder::DeliverKind(const AuthorityRecord& authority, Delivery kind, std::list<CNALCertContext> certificates) const {
    const std::string path = GetAnswers(kind);
    CTOOFolder::MakeFolder(GetStation() + "/tmp");
    CNALString name{CTOOString(path)};
    CNALCertStorage answers;
    if (!answers.OpenStorage(name, CERT_STORE_PROV_FILENAME_A, CTOOFile::Exists(path) ? kExisting : kCreate, 0, nullptr)) FailStore(path);
    // The issuer and its CRL first: an answer never lies there without them.
    const CNALCertContext issuer(authority.certificate);
    if (!authority.crl.IsEmpty()) RenewCrl(answers, authority.crl, issuer.GetSubjectKeyId(), path);
    certificates.push_front(issuer);
    if (!answers.AddCertificateList(certificates)) FailStore(path);
}

void TransportFolder::Move(Delivery kind, const std::string& file, const char* folder) const {
    const std::string from = GetRequests(kind) + "/" + file;
    const std::string into = GetRequests(kind) + "/" + folder;
    CTOOFolder::MakeFolder(into);
    int failure = too_testing::NextStepFails();
    if (failure == 0 && ::rename(from.c_str(), (into + "/" + file).c_str()) != 0) failure = errno;
    if (failure != 0) throw XTOOFile(TOOStatusFromErrno(failure, TOO_E_WRITE), from, "cannot move the request", failure);
}

void TransportFolder::MoveAnswered(const CertificateRecord& record) const {
    const std::string path = GetRequests(record.delivery) + "/" + record.file;
    if (!CTOOFile::Exists(path)) return;
    if (NALGetFingerprint(ReadRequest(path)) == record.request) Move(record.delivery, record.file, "answered");
}

void TransportFolder::Refuse(Delivery kind, const std::string& file, const std::string& reason) const {
    const std::string folder = GetRequests(kind) + "/refused";
    CTOOFolder::MakeFolder(folder);
    const std::string text = cli::Printable(file) + ": " + cli::Printable(reason) + "\n";
    // The reason first: a request that was moved has one.
    CTOOWholeFile::Store(folder + "/" + file + ".reason", text.data(), text.size());
    Move(kind, file, "refused");
}

IdentObj ReadRequest(const std::string& path) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file.IsOpen()) {
        if (errno == ELOOP) throw XTOOFile(TOO_E_NOT_A_FILE, path, "the request is a link");
        throw XTOOFile(TOOStatusFromErrno(errno, TOO_E_OPEN), path, "cannot open the request", errno);
    }
    struct stat facts {};
    if (::fstat(file.Get(), &facts) != 0) throw XTOOFile(TOO_E_READ, path, "cannot read the request", errno);
    if (!S_ISREG(facts.st_mode)) throw XTOOFile(TOO_E_NOT_A_FILE, path, "the request is not a file");
    if (facts.st_size > static_cast<off_t>(Judge::kMostBytes)) throw XTOOFile(TOO_E_TOO_LARGE, path, "the file is too large for a request");
    IdentObj bytes(nullptr, static_cast<unsigned>(facts.st_size));
    unsigned done = 0;
    while (done < bytes.GetSize()) {
        const ssize_t count = ::read(file.Get(), bytes.GetData() + done, bytes.GetSize() - done);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw XTOOFile(TOO_E_READ, path, "cannot read the request", errno);
        if (count == 0) break;
        done += static_cast<unsigned>(count);
    }
    bytes.SetSize(done);
    return bytes;
}

}  // namespace keycentre
