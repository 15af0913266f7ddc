#include "keycentre/service/wishes.h"

#include <algorithm>
#include <array>
#include <set>

#include "keycentre/issuing/times.h"
#include "nal/sign.h"
#include "too/time.h"

namespace keycentre {
namespace {

constexpr unsigned kUserUsages = CNALKeyUsage::DigitalSignature | CNALKeyUsage::NonRepudiation | CNALKeyUsage::KeyEncipherment |
                                 CNALKeyUsage::DataEncipherment | CNALKeyUsage::KeyAgreement | CNALKeyUsage::EncipherOnly |
                                 CNALKeyUsage::DecipherOnly;
// They would let a user speak for the centre: trust lists, any usage, answers about revocation.
constexpr std::array kCentresUsages = {c_NAL_OID_TRUST_LIST_SIGNING, "2.5.29.37.0", "1.3.6.1.5.5.7.3.9"};
constexpr unsigned short kMostMonths = 15;
constexpr unsigned short kPrivateKeyMonths = 12;
constexpr std::uint64_t kMostAhead = 92 * CTOOFileTime::c_ticksPerDay;
constexpr std::size_t kMostExtensions = 32;
constexpr std::size_t kMostUsages = 64;

class Wishes {
public:
    Wishes(const CNALCertPublicKeyInfo& key, bool asCa) : m_key(key), m_asCa(asCa), m_profile(asCa ? CaProfile() : UserProfile(key)) {}

    void Take(const CNALCertExtension& wish) {
        const std::string oid = wish.m_oid.str();
        if (oid == c_NAL_OID_KEY_USAGE) {
            TakeUsage(wish);
        } else if (oid == c_NAL_OID_EXTENDED_KEY_USAGE) {
            TakeExtendedUsage(wish);
        } else if (oid == c_NAL_OID_PRIVATE_KEY_USAGE_PERIOD) {
            TakePeriod(wish);
        } else if (oid == c_NAL_OID_SUBJECT_KEY_ID) {
            if (Read<CNALSubjectKeyID>(wish).m_keyId != m_key.GetKeyID()) throw Refusal{"it names a key identifier that is not its key's"};
        } else if (oid == c_NAL_OID_BASIC_CONSTRAINTS) {
            RefuseCa(Read<CNALBasicConstraints>(wish).m_isCA);
        } else if (oid == c_NAL_OID_OLD_BASIC_CONSTRAINTS) {
            RefuseCa(Read<CNALOldBasicConstraints>(wish).IsCA());
        } else if (oid == c_NAL_OID_SUBJECT_ALT_NAME || oid == c_NAL_OID_ISSUER_ALT_NAME || oid == c_NAL_OID_OLD_SUBJECT_ALT_NAME ||
                   oid == c_NAL_OID_OLD_ISSUER_ALT_NAME) {
            Read<CNALAlternativeNames>(wish);
            m_profile.extensions.Add(wish);
        } else if (oid != c_NAL_OID_AUTHORITY_KEY_ID && oid != c_NAL_OID_OLD_AUTHORITY_KEY_ID) {
            throw Refusal{"it asks for the extension " + oid + ", which this key centre does not issue"};
        }
    }

    Profile Granted() { return std::move(m_profile); }

private:
    static Profile UserProfile(const CNALCertPublicKeyInfo& key) {
        const bool exchanges = key.m_algorithm.Is(c_NAL_OID_DH_GOST2001) || key.m_algorithm.Is(c_NAL_OID_DH_GOST94);
        return exchanges ? ExchangeProfile() : SignatureProfile();
    }

    template <class Value>
    static Value Read(const CNALCertExtension& wish) {
        Value value;
        if (!value.TryRead(wish)) throw Refusal{"the extension " + wish.m_oid.str() + " that it asks for is damaged"};
        return value;
    }

    void RefuseCa(bool isCa) const {
        if (isCa && !m_asCa) throw Refusal{"it asks for a CA's certificate; only the operator makes one (issue --ca)"};
    }

    void TakeUsage(const CNALCertExtension& wish) {
        const auto usage = Read<CNALKeyUsage>(wish);
        const unsigned flags = usage.GetFlags();
        if (m_asCa) return;
        if ((flags & ~kUserUsages) != 0) throw Refusal{"it asks for certificate or CRL signing, which are a CA's"};
        if (flags == 0) throw Refusal{"it asks for a key without any usage"};
        m_profile.keyUsage = flags;
    }

    void TakeExtendedUsage(const CNALCertExtension& wish) {
        const auto usage = Read<CNALExtendedKeyUsage>(wish);
        for (const char* centres : kCentresUsages) {
            if (usage.Contains(centres)) throw Refusal{std::string("it asks for the extended key usage ") + centres + ", which is the key centre's"};
        }
        if (usage.m_usages.size() > kMostUsages) throw Refusal{"it asks for too many extended key usages"};
        m_profile.extendedUsage = usage.m_usages;
    }

    void TakePeriod(const CNALCertExtension& wish) {
        const auto period = Read<CKeyUsagePeriod>(wish);
        const CTOOFileTime now = Now();
        CTOOFileTime from = now;
        if (period.m_hasNotBefore && CTOOFileTime(period.m_notBefore) > from) from = period.m_notBefore;
        if (from.GetTicks() > now.GetTicks() + kMostAhead) throw Refusal{"it asks for a key that begins more than three months from now"};
        if (m_asCa) return;
        CTOOFileTime until = AddMonths(from, kPrivateKeyMonths);
        if (period.m_hasNotAfter) {
            if (CTOOFileTime(period.m_notAfter) <= from) throw Refusal{"the period that it asks for ends before it begins, or has passed"};
            if (CTOOFileTime(period.m_notAfter) < until) until = period.m_notAfter;
        }
        m_profile.notBefore = from;
        m_profile.notAfter = AddMonths(until, kMostMonths - kPrivateKeyMonths);
        m_profile.privateKeyUsage = Period{from, until};
    }

    const CNALCertPublicKeyInfo& m_key;
    const bool m_asCa;
    Profile m_profile;
};

}  // namespace

Profile GrantWishes(const CNALCertExtensionList& wishes, const CNALCertPublicKeyInfo& key, bool asCa) {
    if (wishes.size() > kMostExtensions) throw Refusal{"it asks for too many extensions"};
    Wishes judged(key, asCa);
    std::set<CTOOString> seen;
    for (const CNALCertExtension& wish : wishes) {
        if (!seen.insert(wish.m_oid).second) throw Refusal{"it asks for the extension " + wish.m_oid.str() + " twice"};
        judged.Take(wish);
    }
    return judged.Granted();
}

}  // namespace keycentre
