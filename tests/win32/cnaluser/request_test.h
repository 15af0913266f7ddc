// A transport folder, a trusted root, and the key centre's part played by hand.
#pragma once

#include <filesystem>
#include <vector>

#include "nal/pkcs10.h"
#include "nal/settings.h"
#include "nal/storage.h"
#include "support/authority.h"
#include "win32/cnaluser/user_test.h"

namespace nal_test {

class RequestTest : public UserTest {
protected:
    RequestTest();
    ~RequestTest() override;

    std::string Station(const std::string& name) const { return File("transport/d_station/" + name); }
    /// What a user called Ivan is to get: a subject, key usages and an alternative name; the key is GOST R 34.10-2001, set B.
    static CNALCertInfo Ivan();

    /// Makes a container with a key and a certificate that the root issued.
    CNALCertContext Enrol(CNALUser& user, const std::string& container, keycentre::Profile profile = keycentre::SignatureProfile(),
                          const char* algorithm = c_NAL_OID_KEY_GOST2001, const char* set = "", const char* password = "");

    /// A request for Ivan that only the new key signs; and one for a new key in the place of the certificate's.
    CNALCertReqContext FirstRequest(CNALUser& user) const;
    CNALCertReqContext Renewal(CNALUser& user, const CNALCertContext& cert, const char* set = "", const char* algorithm = "") const;

    /// Trusts the root, whose revocations these CRLs tell; what was trusted before goes.
    void Trust(const std::vector<IdentObj>& crls) const;

    /// Answers a request into the input storage, as the key centre does.
    CNALCertContext Answer(const NAL_REQ_CONTEXT& request, keycentre::Profile profile = keycentre::SignatureProfile()) const;
    /// Takes answers in and gives the request's new context, of status 5.
    CNALCertReqContext Received(const NAL_REQ_CONTEXT& request) const;

    /// The contexts of all requests in the transport folder.
    static std::vector<CNALCertReqContext> Requests(const std::string& transport);
    std::vector<CNALCertReqContext> Requests() const { return Requests(File("transport")); }
    static CNALPKCS10Request Decoded(const NAL_REQ_CONTEXT& request);
    std::vector<std::string> FilesIn(const std::string& folder, const std::string& extension) const;

    /// Checks that the container has exactly `bound` keys with certificates, and that each other key has one request with its file,
    /// and each request its key; and that no note is left. @return the number of requests
    std::size_t ExpectWhole(const std::string& container, std::size_t bound) const;

    Authority authority;
};

}  // namespace nal_test
