#include <list>

#include "dhcert/key_choice.h"
#include "nal/dh_certs.h"
#include "nal/name.h"
#include "nal/storage.h"
#include "too/locker.h"

namespace {

// An issuer name of this one attribute asks a storage for the certificate with a subject key identifier.
constexpr const char* c_keyIdentifierAttribute = "1.3.6.1.4.1.311.10.7.1";

std::list<CNALCertContext> FindByKeyIdentifier(const CNALCertStorage& storage, const IdentObj& keyNumber) {
    CNALX509Name name(
        std::list<std::list<CNALRDNAttr>>{{CNALRDNAttr(c_keyIdentifierAttribute, CERT_RDN_OCTET_STRING, keyNumber)}});
    CERT_INFO wanted{};
    wanted.Issuer = {name.GetSize(), name.GetData()};
    std::list<CNALCertContext> found;
    storage.FindCertList(found, CERT_FIND_SUBJECT_CERT, &wanted);
    return found;
}

// A key that can be used now.
struct UsableKey {
    CNALSendCertRecord record;
    CNALCertContext certificate;
};

bool FindUsableKey(const std::vector<CNALSendCertRecord>& records, bool incoming, const CNALCertStorage& storage,
                   UsableKey& key) {
    for (const auto& record : nal::RankKeys(records, incoming)) {
        for (const auto& certificate : FindByKeyIdentifier(storage, record.NumberKey())) {
            if (!certificate.IsValidTime()) continue;
            key = {record, certificate};
            return true;
        }
    }
    return false;
}

}  // namespace

bool CNALDHCertManager::GetActualKeyNumber(const SNALDHPeer& peer, EDirection direction, IdentObj& keyNumber) const {
    const auto ranked = nal::RankKeys(m_records.GetPeerRecords(peer), direction == c_received);
    if (ranked.empty()) return false;
    keyNumber = ranked.front().NumberKey();
    return true;
}

bool CNALDHCertManager::GetActualCertificate(const SNALDHPeer& peer, EDirection direction, CNALCertContext& certificate,
                                             IdentObj* keyNumber) const {
    UsableKey key;
    if (!FindUsableKey(m_records.GetPeerRecords(peer), direction == c_received, m_storage, key)) return false;
    certificate = std::move(key.certificate);
    if (keyNumber) *keyNumber = key.record.NumberKey();
    return true;
}

bool CNALDHCertManager::MarkActual(const SNALDHPeer& peer, EDirection direction) {
    // The records stay as they are between the choice and the mark.
    const auto lock = IPC::CreateWriteLockerDeprecated(m_records.GetLockName());
    UsableKey key;
    return FindUsableKey(m_records.GetPeerRecords(peer), direction == c_received, m_storage, key) &&
           m_records.MarkActual(m_records.FindRecord(key.record));
}
