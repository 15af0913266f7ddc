// A hierarchy of authorities for tests of chains: put together, changed by a test, issued with real signatures, and stored.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "nal/chain.h"
#include "support/cert_builder.h"
#include "support/test_signer.h"

namespace nal_test {

/// A point of time to the second.
FILETIME At(unsigned year, unsigned month, unsigned day, unsigned hour = 0, unsigned minute = 0, unsigned second = 0);

/// Keys by name, made once for all tests of a program.
const TestSigner& KeyNamed(const std::string& name);

/// Values of extensions.
BuiltExtension BasicConstraints(bool isCA, int pathLength = -1);
BuiltExtension OldBasicConstraints(const IdentObj& subjectType, int pathLength = -1);

/// Where a certificate and the CRL of its owner are kept.
enum class Place { Main, Extra, TrustList, UnsignedList, Nowhere };

struct PlannedCert {
    CertBuilder builder;
    std::string key;     // whose public key it holds; keys have the names of their first owners
    std::string signer;  // whose key signs it
    Place place = Place::Main;
};

struct PlannedCrl {
    CrlBuilder builder;
    std::string signer;
    Place place = Place::Main;
};

/// Root, CA, Sub and End, each the issuer of the next, with CRLs of the first three, all in the main storage and all in order.
/// Every test has a home folder of its own; the clock stands at noon of 1 March 2026.
class Hierarchy {
public:
    Hierarchy();
    ~Hierarchy();
    Hierarchy(const Hierarchy&) = delete;
    Hierarchy& operator=(const Hierarchy&) = delete;

    std::map<std::string, PlannedCert> certs;  // by subject
    std::map<std::string, PlannedCrl> crls;    // by issuer
    unsigned extraUntrusted = 1;

    /// Adds a certificate of `subject`, issued by `issuer`, that may issue in its turn, and a CRL of its owner.
    PlannedCert& AddCA(const std::string& subject, const std::string& issuer, Place place = Place::Main);
    PlannedCert& AddEnd(const std::string& subject, const std::string& issuer, Place place = Place::Nowhere);
    void Remove(const std::string& subject);
    /// Puts the certificate of `subject` on the CRL of its issuer.
    void Revoke(const std::string& subject);

    /// The certificate as it is planned now; once everything is stored, as it was stored.
    CNALCertContext Issue(const std::string& subject) const;
    /// Stores everything that has a place.
    void Store();
    CNALCertStorage& Extra() { return m_extra; }
    const std::string& Folder() const { return m_folder.Path(); }

private:
    IdentObj IssueCrl(const std::string& issuer) const;
    IdentObj SignedList(const std::vector<IdentObj>& certs, const std::vector<IdentObj>& crls) const;
    void Deliver(const std::string& name, const IdentObj& message) const;

    TempFolder m_folder;
    CNALCertStorage m_extra;
    std::map<std::string, IdentObj> m_stored;
    unsigned char m_nextId = 1;
};

/// The error bits of a chain's elements, and of the chain.
struct Verdict {
    std::vector<DWORD> elements;
    DWORD chain = 0;

    bool operator==(const Verdict&) const = default;
};
Verdict VerdictOf(const CNALCertificateChain& chain);
std::ostream& operator<<(std::ostream& out, const Verdict& verdict);

/// The subjects' names of a chain, joined by blanks.
std::string PathOf(const CNALCertificateChain& chain);

}  // namespace nal_test
