/// The trust storages of the process: which roots are trusted, and the lists that the network delivers.
///
/// The main storage is the store `trust/trusted.dat` in TOOGetHomePath(); it is read, never written, here. Beside it there are
/// lists, files in `d_station` of the transport folder, each loaded at its first use and again when it changed:
///
///   ID_trl.p7s  a trust list: signed, and trusted as far as docs/trust-lists.md says
///   ID.trl      certificates and CRLs in a message that nobody signed; its roots are not trusted
///   ID_usr.p7b  users' certificates, likewise
///
/// where ID is the four-character identifier of a network, "0000" for what all networks share.
///
/// All functions here hold NALStorageLocker and may be called by any thread; the settings are plain data. Storages that were handed
/// out stay valid, and as they were, when a list is replaced.
#pragma once

#include <list>
#include <memory>

#include "nal/export.h"
#include "nal/storage.h"
#include "too/string.h"
#include "too/types.h"

/// Kinds of storages, as storageType of a storage and as sets of kinds.
#define NAL_STORAGE_MAIN 0x1                 ///< the main storage
#define NAL_STORAGE_TRUST_LIST 0x2           ///< accepted trust lists
#define NAL_STORAGE_UNSIGNED_LIST 0x10       ///< unsigned lists
#define NAL_STORAGE_USERS 0x20               ///< users' lists
#define NAL_STORAGE_ALL_NETWORKS 0x20000000  ///< of a set: the lists of all networks; without it those of "0000" and what is loaded

/// m_state: everything is to be loaded again at the next use.
#define NAL_TRUST_STATE_RELOAD 8
/// m_certNumber: not computed yet.
#define NAL_CERT_NUMBER_UNKNOWN 0xFFFFFFFFU

/// A list file that nobody signed: certificates and CRLs in a SignedData message without signer (RFC 5652 section 5), as a storage in
/// memory that is untrusted. Certificates that do not decode or have no subject key identifier, CRLs that cannot be keyed, and CRLs
/// that no certificate of the list signed are left out and logged.
class NAL_EXPORT CNALCertList : public CNALCertStorage {
public:
    /// Loads a file in the place of what was loaded before.
    /// @param storageType  the storage's kind
    /// @param err  receives 0, 206 for a damaged file, 205 for one that is no message, 12 above 64 MiB, else the file's error;
    ///             when null, that is thrown
    /// @param msg  receives the text, which names the file
    /// @return TRUE when loaded; otherwise what was loaded before stays
    BOOL LoadFile(const CTOOString& path, unsigned int storageType, int* err, CTOOString* msg);
};

/// The collection. There is one, m_VPN_TrustStorages.
class NAL_EXPORT CNALCertStorageCollection {
public:
    CNALCertStorageCollection();
    ~CNALCertStorageCollection();
    CNALCertStorageCollection(const CNALCertStorageCollection&) = delete;
    CNALCertStorageCollection& operator=(const CNALCertStorageCollection&) = delete;

    /// Loads the main storage, and again when its file changed or m_state asks for it. Every search does this by itself.
    /// A main storage that cannot be read is logged; the last one stays in use, at first an empty one.
    void Load();

    /// Gives all storages up. Transport folder and certificate number stay.
    void Reset();

    /// Finds the issuer of a certificate: in the main storage; in the trust list of its network or, where there is none, in that
    /// network's unsigned list; in the common trust list. The first one that has an issuer decides.
    ///
    /// @param flags   as CNALCertStorage::FindIssuerCertificate; 0x20000 alone among the failures when there is no issuer
    /// @param crl     receives the CRL used, or is emptied; may be null
    /// @return TRUE when an issuer was found; else FALSE, with last error 6 for an empty `subject`
    /// @throws XTOOStatus(206) for a `subject` that does not decode
    BOOL FindIssuerCertificate(const CNALCertContext& subject, CNALCertContext& issuer, unsigned int* flags, CNALCRLContext* crl);

    /// The storages of the kinds asked for: main, trust lists, unsigned lists, users' lists, by name within a kind.
    /// @param kinds  NAL_STORAGE_*, combined
    std::list<CNALCertStorage> GetStorages(unsigned int kinds);

    /// The storage of one list, loaded if it is not; a closed storage when there is no such file.
    /// @param name  "ID_trl.p7s", "ID.trl" or "ID_usr.p7b" with an id of four characters 0-9a-f; any other name has no storage
    CNALCertStorage GetList(const CTOOString& name);

    unsigned int m_initialized = 0;                    ///< not 0: loaded
    CTOOString m_transportFolder = ".\\";              ///< as set by NALSetTransDir
    DWORD m_certNumber = NAL_CERT_NUMBER_UNKNOWN;      ///< see NALGetCurrentCertNumber
    DWORD m_state = 0;                                 ///< 0, or NAL_TRUST_STATE_RELOAD

private:
    struct Storages;
    std::unique_ptr<Storages> m_storages;  // guarded by NALStorageLocker
};

extern NAL_EXPORT CNALCertStorageCollection m_VPN_TrustStorages;

/// Finds certificates in the storages of some kinds.
///
/// @param list      what is found is appended, storage by storage
/// @param kinds     NAL_STORAGE_*, combined; 51 (0x33) is every kind, 0x20000033 every kind in the lists of all networks
/// @param findType, findPara  as CNALCertStorage::FindCertList
/// @return TRUE when at least one was appended; else FALSE with the last error of the last storage asked, 0x80092004 when there is none
NAL_EXPORT BOOL NALFindCertificate(std::list<CNALCertContext>& list, unsigned int kinds, unsigned int findType, const void* findPara);

/// The network that a certificate belongs to: the first four characters of its issuer unique identifier, or else its subject unique
/// identifier, or else, from a serial number of 16 bytes (a leading zero sign octet aside), the network number in it. Lower case.
/// @return four characters 0-9a-f; nothing when there is none or it has other characters
NAL_EXPORT CTOOString NALGetNetworkIdentifier(const CNALCertContext& cert);

/// The name of the users' list in which a certificate's issuer and neighbours are: "ID_usr.p7b" for a certificate whose identifier (that
/// from which NALGetNetworkIdentifier takes four characters) is longer than seven, else "0000_usr.p7b".
NAL_EXPORT CTOOString NALGetUsersListName(const CNALCertContext& cert);
