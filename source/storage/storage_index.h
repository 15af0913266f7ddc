// What repeated searches of a storage need, held in memory until the store changes.
//
// Certificates stand in the order of the store, each with the hashes of its names and its serial; three arrays of numbers, each
// sorted by one hash and then by place, answer a question with a binary search and give the places in the store's order. What a
// hash finds is then compared byte for byte. A certificate's context is made when it is first found, and kept.
//
// CRLs are held whole, decoded, with what their signature checks gave, so a search does not read them again.
#pragma once

#include <array>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "certstorage/cert_context.h"
#include "certstorage/cert_store.h"
#include "certstorage/crl_context.h"
#include "frame/failure.h"
#include "nal/context.h"
#include "nal/crl.h"

namespace nal {

/// The store cannot be read. It does not leave the storage, whose searches tell it as their last error (FindIn).
struct StoreReadFailure {
    int error;  ///< an errno
};

/// For one thread at a time: NALStorageLocker guards it. The store is held for a search meanwhile (StoreSearch).
class StorageIndex {
public:
    enum class By { Subject, Issuer, Serial };

    /// @param previous  an index of the same store before it changed, whose signature checks are taken over; may be null
    /// @throws StoreReadFailure, as both Find and FindKey
    StorageIndex(CertStore& store, const StorageIndex* previous);

    /// Whether the store is as it was when this was made.
    bool IsCurrent() const;

    /// The certificates whose name, or serial (its octets, most significant first), is `value`, in the order of the store.
    void Find(By by, asnt::View value, std::list<CNALCertContext>& found);
    /// The certificates kept under this key: one or none.
    void FindKey(const KeyIdentifier& key, std::list<CNALCertContext>& found);

    /// A CRL held here.
    struct Crl {
        CrlKey key;
        CNALCRLContext context;
        CNAL_CRL_List list;
        /// Keys that its signature was checked under, DER, and whether it holds.
        std::vector<std::pair<IdentObj, bool>> checks;

        bool HoldsUnder(const CNALCertPublicKeyInfo& issuerKey);
        bool Lists(const IdentObj& serial) const { return list.m_info.FindEntry(serial) != CNAL_CRL_Info::npos; }
    };

    /// The CRL that speaks for the issuer with this key identifier and this key (see GetCrlFromStorage); null when there is none.
    /// @param issuerSerial  when not null, a CRL that is numbered after it goes before all others (see FindRevocation)
    Crl* FindCrl(const KeyIdentifier& issuer, const CNALCertPublicKeyInfo& issuerKey, const IdentObj* issuerSerial = nullptr);

private:
    struct Entry {
        KeyIdentifier key;
        std::array<std::size_t, 3> hashes;  // by By
        CertContext::Reference context;     // null until found
        bool damaged = false;
    };

    void Load(const StorageIndex* previous);
    void Sort();
    void TakeChecks(const StorageIndex& previous);
    CertContext* ContextOf(Entry& entry);

    CertStore& m_store;
    std::shared_ptr<StoreBody> m_body;
    std::uint64_t m_changeCount = 0;
    std::vector<Entry> m_entries;                          // in the order of the store
    std::array<std::vector<std::uint32_t>, 3> m_sorted;    // places in m_entries
    std::vector<Crl> m_crls;                               // in the order of the store
};

/// Runs a search that reads an index. @return what it returns; FALSE with the errno as last error when the store cannot be read
template <class Find>
BOOL FindIn(Find&& find) {
    try {
        return find();
    } catch (const StoreReadFailure& failure) {
        return Refuse(static_cast<DWORD>(failure.error));
    }
}

}  // namespace nal
