// The transport folder as the key centre works on it:
//
//   d_station/o_users/<name>_ownu.req   requests for the host's own users; e_users/<name>_extu.req for external users
//   .../answered/<name>                 requests that were answered
//   .../refused/<name>, <name>.reason   requests that were refused, and why
//   d_station/tmp/own_input.cer         the answers: a store with the new certificates, their issuer's and its CRL; ext_input.cer likewise
#pragma once

#include <string>
#include <vector>

#include "keycentre/service/centre.h"

namespace keycentre {

class TransportFolder {
public:
    /// @param path  with slashes or backslashes; made absolute. @throws XTOOFile 4 when it has no folder d_station
    explicit TransportFolder(const std::string& path);

    /// The folder that a request file lies in, when it is one of a transport folder.
    /// @param file  receives the file's bare name
    static std::optional<TransportFolder> Of(const std::string& requestPath, Delivery& kind, std::string& file);

    const std::string& GetPath() const { return m_path; }
    /// `d_station`.
    std::string GetStation() const { return m_path + "/d_station"; }
    /// Where requests of a kind lie.
    std::string GetRequests(Delivery kind) const;
    /// The store of answers of a kind.
    std::string GetAnswers(Delivery kind) const;
    /// The same below `d_station`.
    static std::string AnswersName(Delivery kind);
    /// Whether a file of that name is a request of this kind.
    static bool IsRequest(const std::string& name, Delivery kind);

    /// Hands certificates over: all of a kind in one transaction, with the issuer's certificate and CRL. What is there already stays.
    /// @throws XTOOFile that names the store; XTOOStatus as Records
    void Deliver(Centre& centre, const std::vector<CertificateRecord>& records) const;
    /// Moves an answered request out of the way, when it is still there and nobody put another into its place.
    void MoveAnswered(const CertificateRecord& record) const;
    /// Moves a request to `refused` and writes the reason beside it, made printable.
    void Refuse(Delivery kind, const std::string& file, const std::string& reason) const;

private:
    void DeliverKind(const AuthorityRecord& authority, Delivery kind, std::list<CNALCertContext> certificates) const;
    void Move(Delivery kind, const std::string& file, const char* folder) const;

    std::string m_path;
};

/// Reads a request file. @throws XTOOFile: 10 for what is no regular file (links are not followed), 12 above Judge::kMostBytes
IdentObj ReadRequest(const std::string& path);

}  // namespace keycentre
