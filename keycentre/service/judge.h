// What a key centre makes of a certification request.
//
// A request must be signed with the key that it asks for, and either
//   - be signed a second time with a key that this centre has certified, which vouches for it: for its own holder (the same name,
//     byte for byte, the same alternative names, and no extended key usage beside its own), or for anybody when the operator entitled
//     that certificate; or
//   - be released by the operator, who compared the key's fingerprint with what its holder sees: a first request.
// The rest is refused, with a reason for people.
#pragma once

#include <optional>
#include <string>

#include "keycentre/service/centre.h"

namespace keycentre {

enum class Verdict : unsigned char {
    Vouched,   ///< may be answered
    First,     ///< may be answered when the operator releases it
    Answered,  ///< this very request has its certificate already: `earlier`
    Refused,   ///< `reason` says why
};

struct Judgement {
    Verdict verdict = Verdict::Refused;
    std::string reason;
    std::optional<CertificateRecord> voucher;  ///< whose key made the second signature, when that holds
    std::optional<CertificateRecord> earlier;
    Order order;                               ///< request, names and fingerprints as far as they were read; with a profile unless Refused
};

/// Judges requests for one centre. For one thread at a time.
class Judge {
public:
    /// The largest request that is looked at, in bytes.
    static constexpr std::uint32_t kMostBytes = 64 * 1024;

    explicit Judge(Centre& centre);

    /// @param encoded  the request, DER
    /// @param asCa     the operator makes a subordinate CA of it: certificate signing may, and need not, be asked for
    /// @throws XTOOStatus as Records, or when the provider fails; never for what the request holds
    Judgement Look(const IdentObj& encoded, bool asCa = false);

private:
    void Read(const IdentObj& encoded, Judgement& judgement) const;
    void CheckKey(const Judgement& judgement) const;
    void CheckName(Judgement& judgement) const;
    void ReadIdentity(Judgement& judgement) const;
    void CheckPeriod(const Judgement& judgement) const;
    void FindVoucher(Judgement& judgement);
    void CheckVouching(const Judgement& judgement) const;

    Centre& m_centre;
    CNALProvider m_provider;
    std::list<std::pair<Role, CNALCertInfo>> m_authorities;
};

}  // namespace keycentre
