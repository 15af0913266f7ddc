/// A storage of certificates and CRLs: one store, with the searches that chains are built from.
///
/// A store with a file may be open in several processes. Each search sees it whole and as it is at that moment; each change is a
/// transaction that is on the disk when the call returns, and leaves the file as it was when it fails. A process that dies in a
/// change, in whatever way, leaves a store that opens and holds every change that was acknowledged, and none half-made. Beside
/// the file `X` lie `X.lock`, which carries a count of the changes, and, during a change, `X.journal`; neither is to be moved or
/// deleted while a process uses the store. docs/store-format.md writes the protocol down.
///
/// Threads: searches and changes of one storage, and of storages that share a store, may be made from any threads. Opening,
/// closing and assigning a storage is for one thread while no other uses it. All searches hold NALStorageLocker, a change
/// does not. A thread never changes a store inside a search of it: last error EDEADLK.
///
/// A damaged file, or one that is no store, is refused with last error EUCLEAN and a record in the log that names the file and
/// what to do.
#pragma once

#include <boost/thread/recursive_mutex.hpp>
#include <list>
#include <memory>

#include "nal/context.h"
#include "nal/export.h"
#include "nal/wide_string.h"
#include "nal/wincrypt.h"

namespace nal {
struct SharedIndex;
class StorageIndex;
}

/// Held by every search of a storage, for the whole search. Recursive: a search may call another on the same thread.
/// Made when the library is loaded. Taken before any store's own lock.
extern NAL_EXPORT boost::recursive_mutex NALStorageLocker;

/// One certificate store and its searches. Copies share the store and what searches have learnt of it.
class NAL_EXPORT CNALCertStorage {
public:
    CNALCertStorage() = default;
    /// A storage over a store that is open already, which then stays open for both. Null gives a closed storage.
    static CNALCertStorage OverStore(HCERTSTORE store);
    /// As OpenStorage; IsOpened() tells how it went.
    CNALCertStorage(CNALString& name, const char* storeProvider, unsigned int flags, unsigned int storageType, void* reserved);
    CNALCertStorage(const CNALCertStorage& other);
    CNALCertStorage& operator=(const CNALCertStorage& other);
    virtual ~CNALCertStorage();

    /// Opens a store in the place of the present one.
    ///
    /// @param name           the path of the file for provider 7, else a store's name; kept
    /// @param storeProvider  a number as CertOpenStore takes it: 2 memory, 7 file; others get the wide name
    /// @param flags          handed to CertOpenStore
    /// @param storageType    kept in m_storageType
    /// @param reserved       not used
    /// @return TRUE when opened; else FALSE with the last error of CertOpenStore
    BOOL OpenStorage(CNALString& name, const char* storeProvider, unsigned int flags, unsigned int storageType, void* reserved);
    /// Gives the store up. @param flag  not used
    void CloseStorage(bool flag = false);
    /// Closes the store and clears every field.
    void Clear();

    bool IsOpened() const { return m_store != nullptr; }
    /// The store, still owned by this storage; null when closed.
    HCERTSTORE GetStore() const { return m_store; }

    // --- Changes. FALSE with a last error when nothing was changed: 6 without a store, 0x80070057 for what no store can keep, an
    //     `errno` when the store's file cannot be changed, else as the store function named. ---

    /// Adds a certificate in the place of one with the same key identifier, whose properties go too
    /// (CertAddCertificateContextToStore, 3). A certificate without subject key identifier is refused.
    BOOL AddCertificate(const CNALCertContext& cert);
    /// Adds a DER certificate likewise, but properties stay (CertAddEncodedCertificateToStore, 5).
    BOOL AddEncodetCertificate(const IdentObj& encoded, unsigned int encoding);
    /// AddCertificate for each, as one transaction: all are added, or, in a store with a file, none.
    BOOL AddCertificateList(const std::list<CNALCertContext>& certs);
    /// CertAddCRLContextToStore. No signature is checked.
    BOOL AddCRLContext(const CNALCRLContext& crl, unsigned int disposition);
    /// CertAddEncodedCRLToStore with disposition 4. A CRL that cannot be keyed (see NALCheckCRLKey) is refused.
    BOOL AddEncodetCRL(const IdentObj& encoded, unsigned int encoding);
    /// Deletes the certificate and its properties from the store that the context belongs to.
    /// @return TRUE when deleted: the wrapper is then empty; else it stays as it was
    BOOL DeleteCertificate(CNALCertContext& cert);
    /// The same for a CRL; the wrapper is empty afterwards in every case.
    BOOL DeleteCRL(CNALCRLContext& crl);

    // --- Searches. When the store's file cannot be read they find nothing, and the last error is an `errno`. ---

    /// The next CRL of the storage. @param flags, reserved  not used
    /// @param previous  empty to start, else what the last call returned; it stays the caller's
    /// @return an empty wrapper at the end and without a store
    CNALCRLContext FindCRLInStore(unsigned int flags, const void* reserved, const CNALCRLContext& previous) const;

    /// Appends the certificates that fit, in the order of the store.
    ///
    /// @param findType  CERT_FIND_ANY; CERT_FIND_SUBJECT_NAME, CERT_FIND_ISSUER_NAME (a CERT_NAME_BLOB);
    ///                  CERT_FIND_EXISTING (a CRYPT_HASH_BLOB whose data are a certificate context);
    ///                  CERT_FIND_SUBJECT_CERT (a CERT_INFO: serial and issuer decide, and subject, public key and extensions as
    ///                  far as they are filled in; an issuer that consists of one key identifier attribute
    ///                  1.3.6.1.4.1.311.10.7.1 is compared with the key identifier instead, and the serial is not).
    ///                  CERT_FIND_PUBLIC_KEY finds nothing.
    /// @return TRUE when at least one was appended; else FALSE with last error 87 for a null parameter, 6 without a store, 230
    ///         for another type, 0x80092004 when nothing fits
    BOOL FindCertList(std::list<CNALCertContext>& list, unsigned int findType, const void* findPara) const;

    /// Finds the CRL that speaks for an issuer: of those stored under its key identifier whose signature holds under its key, the one
    /// with the latest ThisUpdate that is not in the future; of two, the one with the larger number. Checks are kept per CRL and key.
    /// @param crl  receives it; untouched when there is none
    BOOL GetCrlFromStorage(const CNALCertContext& issuer, CNALCRLContext& crl) const;
    /// Looks a certificate up on such a CRL of its issuer; but one whose number is longer than four bytes and begins, as stores keep
    /// numbers, with the first four bytes of the issuer's serial number goes before all others.
    /// @param isListed  receives whether the CRL lists the certificate's serial; untouched without a CRL
    /// @param crl       receives the CRL; untouched when there is none
    /// @return TRUE when there is a CRL
    BOOL FindRevocation(const CNALCertContext& subject, const CNALCertContext& issuer, bool& isListed, CNALCRLContext& crl) const;

    /// Finds the certificate that issued `subject` and the CRL that covers it. docs/issuer-search.md has the order of preference.
    ///
    /// @param subject  the certificate whose issuer is sought
    /// @param issuer   receives the issuer; untouched when there is none
    /// @param flags    in: the checks to make, 1 signature, 2 time, 4 revocation; null means all three. Out: the checks that failed;
    ///                 0x10000 no CRL; 0x20000, added to what was asked, no issuer; 0x20 the issuer is the subject itself, and this
    ///                 storage is untrusted
    /// @param crl      receives the CRL that was used, or is emptied, when not null; untouched when there is no issuer
    /// @return TRUE when an issuer was found, whatever its flags
    /// @throws XTOOStatus(206) for a `subject` that does not decode
    BOOL FindIssuerCertificate(const CNALCertContext& subject, CNALCertContext& issuer, unsigned int* flags,
                               CNALCRLContext* crl) const;

    unsigned int m_storageType = 0;  ///< the kind of storage, as given when it was opened; certificates found here carry it
    unsigned int m_untrusted = 0;    ///< not 0: a self-signed certificate in here is no trusted root
    CNALString m_name;               ///< the name or path given when it was opened

private:
    template <class Change>
    BOOL MakeChange(HCERTSTORE store, Change&& change);
    nal::StorageIndex& Index() const;
    BOOL FindWithIndex(std::list<CNALCertContext>& list, unsigned int findType, const void* findPara) const;

    HCERTSTORE m_store = nullptr;
    std::shared_ptr<nal::SharedIndex> m_index;  // shared by copies; what it holds is guarded by NALStorageLocker
};
