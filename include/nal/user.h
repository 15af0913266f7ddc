/// Users: who owns key pairs in a key container of the provider.
///
/// A CNALUser stands for one container, opened with its password and PIN. It hands out handles of the private keys in it, makes keys,
/// makes requests for certificates, and binds the certificates that come back to their keys. All key material stays inside the
/// provider. docs/users-and-keys.md tells how a key is renewed, in which files, and what a crash leaves.
///
/// Methods with trailing `int* err` and `CTOOString* msg` store a status and a text that names the failed step; when `err` is null a
/// failure is thrown as XTOOStatus(status, text). A status that the provider gave is what WinErr2ToolsErr makes of its last error:
/// 86 for a wrong password or PIN, 121 for a container that is missing or damaged, or was removed or replaced while it was open,
/// 122 for one that exists already, 3 for one whose protection key is missing, 9 for a full disk.
///
/// Threads: the const methods of one user may be called by several threads at once; they take turns, by the lock of the provider
/// context (CNALProvider::Lock). Other methods are for one thread while no other uses the object. Changes of a container are
/// made under its inter-process lock, so users in several processes may share one.
#pragma once

#include <list>
#include <memory>

#include "nal/algorithm.h"
#include "nal/certificate.h"
#include "nal/context.h"
#include "nal/export.h"
#include "nal/request_context.h"
#include "too/ident_obj.h"
#include "too/string.h"
#include "too/time.h"
#include "too/types.h"

// What protects a container, bits of CNALUserContainerInfo::m_protection.
#define NAL_PROTECTED_PASSWORD 1
#define NAL_PROTECTED_PIN 2
#define NAL_PROTECTED_KEY 4  ///< a protection key, see CNALUser::SetDefenceKey

/// Flag of CNALUser::CreateNewKeys: an exchange key instead of a signature key.
#define NAL_NEW_KEY_EXCHANGE 1

/// The months that a renewed key is asked for when the caller gives no end.
#define NAL_REQUEST_MONTHS 12

/// One key of a container.
class NAL_EXPORT CNALUserKeyInfo {
public:
    /// The entry's name; opens the container with this key current.
    CTOOString GetName() const { return CTOOString(reinterpret_cast<const char*>(m_name.GetData()), m_name.GetSize()); }
    /// The public key. @throws XTOOStatus(206) when the provider's record of it is damaged
    CNALCertPublicKeyInfo GetPublicKey() const;
    /// AT_SIGNATURE or AT_KEYEXCHANGE, by the key's algorithm; 0 for an algorithm that is not known.
    unsigned GetKeyType() const;
    /// The algorithm's OID and the parameter set's, dotted; the set is empty when the algorithm implies it.
    void GetParams(CTOOString& algOID, CTOOString& keyParamOID) const;
    /// The validity of the certificate. @return false, with nothing changed, without one or for one that does not decode
    bool GetValidity(CTOOFileTime& notBefore, CTOOFileTime& notAfter) const;

    IdentObj m_name;                ///< the entry's name, bytes of a path
    IdentObj m_publicKeyInfo;       ///< SubjectPublicKeyInfo, DER
    CTOOFileTime m_created;         ///< when the key came into the container
    CNALCertContext m_certificate;  ///< the certificate bound to the key; empty when there is none
};

/// One container, as anybody sees it who may read its file: no password is needed.
class NAL_EXPORT CNALUserContainerInfo {
public:
    CTOOString m_name;                  ///< the name that it was asked for by, or that it is listed under; opens it
    CTOOString m_path;                  ///< its unique full name, which opens it from anywhere; empty when it could not be opened
    DWORD m_protection = 0;             ///< NAL_PROTECTED_* bits
    std::list<CNALUserKeyInfo> m_keys;  ///< in the order in which they came
    int m_status = TOO_OK;              ///< 0, or why the container could not be read: then only m_name, and perhaps m_path, is filled
};

/// A user.
class NAL_EXPORT CNALUser {
public:
    CNALUser();
    /// As assignment to a new user.
    CNALUser(const CNALUser& other);
    /// Resets this user, then copies path, password, PIN and the provider, which both share from then on. The certificate, the
    /// open keys and the public key of the last pair are not copied.
    CNALUser& operator=(const CNALUser& other);
    virtual ~CNALUser();

    // --- Opening ---

    /// Opens a container with its secrets, in the place of the present one. They are checked when a key is first used: CheckPassword.
    ///
    /// Opened with flags 8 (create) or 0 with a password or PIN, 0x208 or 0x200 without. A new container takes the secrets as its
    /// protection with its first key. A request that a dead process left half-made in the container is finished or undone
    /// (docs/users-and-keys.md), if the secrets allow it.
    /// @param path      a file's path, or a bare name in the provider's directory
    /// @param password, pin  null or empty for none
    /// @param create    makes the container, which must not exist
    /// @return 0, else the status with which the provider refused; the user is then without a provider, or with one whose
    ///         password or PIN was refused
    int LogInUser(const char* path, const char* password, const char* pin, bool create);
    /// Opens a provider with the given values (ORKAcquireContext), in the place of the present one; password and PIN stay as set,
    /// and are not handed on. On success a path that is not empty becomes the user's, with flag 0x200 as the container's unique name.
    /// @return 0, else the status
    int OpenProvider(const char* path, const char* providerName, unsigned provType, unsigned flags);
    /// Back to empty: secrets are wiped, open keys destroyed, the provider given up. The path stays.
    void Reset();

    /// The container's path, as given or set.
    const CTOOString& GetPath() const { return m_path; }
    void SetPath(const CTOOString& path) { m_path = path; }
    /// Stores the password or PIN and, when it is not empty and a provider is open, hands it to the provider.
    /// @return 0, else the status with which the provider refused it (35: longer than 1024 bytes)
    int SetPassword(const CTOOString& password);
    int SetPIN(const CTOOString& pin);
    /// Sets the protection (defence) key of the container: a session or agreed key, whose handle stays the caller's. A container
    /// that is protected so needs it in each new context.
    /// @return 0; 28 for no key, 42 without a provider, else the provider's status
    int SetDefenceKey(unsigned long key);

    /// The provider whose context all calls use; not initialised when the user is empty.
    const CNALProvider& GetProvider() const { return m_provider; }
    /// The certificate that the host chose for this user; empty after construction and Reset.
    const CNALCertContext& GetCertificate() const { return m_certificate; }
    void SetCertificate(const CNALCertContext& cert) { m_certificate = cert; }
    /// The public key of the last pair that CreateNewKeys, UpdateKey or CreateNewRequest made; empty before.
    const CNALCertPublicKeyInfo& GetNewPublicKey() const { return m_newPublicKey; }

    // --- Secrets ---

    /// Whether a key of the container can be opened with the secrets that are set: a signature key, else an exchange key.
    /// @return false without a provider and for a container without keys, too
    bool CheckPassword() const;
    /// Whether the container at `path` exists, so that its password can be changed.
    static bool CanChangePassword(const char* path);
    /// Changes the container's password at once and durably, as CNALProvider::ChangePassword; the user keeps the new one.
    BOOL ChangePassword(const char* newPassword, int* err);
    /// The same for the PIN. @param err  28 for null, 42 without a container, 86 when the secrets that are set are wrong
    BOOL ChangePIN(const char* newPIN, int* err);

    /// A container's path from what the host gave. Kind 1: the path's folder and file name, "sgn_cont" for an empty file name; a bare
    /// name and other kinds: `path` as it is.
    static CTOOString MakeContainerName(const char* path, unsigned kind);

    // --- Keys ---

    /// Opens a private key.
    ///
    /// Without a certificate: the current open key, or, when none is open, the container's key of `keyType`. With one: the key that
    /// belongs to it, sought among the open keys first, once round from the current one, then in the container. The key found
    /// becomes current. A key that is open is found again without a call of the provider.
    /// @param keyType  AT_KEYEXCHANGE, AT_SIGNATURE, 0xFFFFFFFF for any; only looked at without a certificate
    /// @param cert     null for no certificate
    /// @param err      42 without a provider, 32 when no key matches or there is none, else the provider's
    /// @param msg      "CNALUser::GetUserKey()", or "CNALUser::GetUserKey " when no key matches
    /// @return the handle, which belongs to this user and lives until Reset: callers do not destroy it (ORKDuplicateKey gives them
    ///         one of their own); 0 on failure
    unsigned long GetUserKey(unsigned keyType, const CNALCertContext* cert, int* err, CTOOString* msg) const;

    /// Makes a key pair in the container; GetNewPublicKey gives its public key.
    ///
    /// @param flags     NAL_NEW_KEY_EXCHANGE, or 0 for a signature key
    /// @param paramOID  parameter set of a signature key; an exchange key gets the set that goes with it. Empty: the default
    /// @param err       42 without a provider, 73 for an unknown set, 36 when the provider does not say why, else its status; also what
    ///                  hinders that a request which was left half-made in the container is put right first (206: its note is damaged)
    /// @param msg       "CNALUser::CreateNewKeys", both
    /// @return TRUE when made; otherwise the container is as before
    BOOL CreateNewKeys(unsigned flags, const CTOOString& paramOID, int* err, CTOOString* msg);
    /// The same for an algorithm. @param signAlgOID  of the key or of its signatures; unknown: 73
    /// @param paramOID  empty: the algorithm's default set
    BOOL CreateNewKeys(const CTOOString& signAlgOID, const CTOOString& paramOID, int* err, CTOOString* msg);

    /// Proves by a signature that the container's private key belongs to the certificate.
    /// @param err  42 without a provider, 58 when the signature does not hold, else as GetUserKey and the provider
    /// @param msg  "CNALUser", or the provider call that failed
    BOOL CheckSignKeys(const CNALCertContext& cert, int* err, CTOOString* msg) const;

    /// Deletes a key with its certificate from the container; the handles of it that are open stay usable.
    /// @param publicKeyInfo  the key's SubjectPublicKeyInfo, DER (CNALUserKeyInfo::m_publicKeyInfo)
    /// @param err            42 without a provider, 32 when the container has no such key, else the provider's
    BOOL DeleteKey(const IdentObj& publicKeyInfo, int* err, CTOOString* msg);

    /// What the open container holds.
    /// @param info  on failure only its name is filled
    /// @param err   42 without a container, else the provider's
    BOOL GetContainerInfo(CNALUserContainerInfo& info, int* err, CTOOString* msg) const;

    // --- Certificates ---

    /// Binds a certificate to the key of the container that it belongs to, in the place of one that is bound already.
    /// @param err  28 for an empty certificate, 42 without a provider, 32 when no key matches, else the provider's
    /// @param msg  "CNALUser::PutCertificate"; with 32 followed by why a key could not be opened, if one could not: with a wrong password
    ///             none can, and so none matches
    BOOL PutCertificate(const CNALCertContext& cert, int* err, CTOOString* msg);
    /// Installs the answer to a request: verifies the certificate, binds it to its key, keeps an external user's in the storage of the
    /// year, takes it out of the input storage, and sets the request's status to 6. After a failure between, the status is still 5
    /// and the call can be repeated.
    ///
    /// Of the trust errors unknown revocation is tolerated, and the validity period of a certificate that is not valid yet.
    /// @param req  in: a request of status 5 with its certificate; out, on success: a context that shows status 6, the old one closed
    /// @param err  28 for null, 156 for another status or a certificate that does not verify, else as above or of the storages
    /// @param msg  "PutCertificate ", followed by what is wrong where that helps
    BOOL PutCertificate(const NAL_REQ_CONTEXT** req, int* err, CTOOString* msg);

    /// The first certificate that is bound to a key, with its key provider info (property 2), which names the key's entry, its type
    /// and, when a PIN is set, carries it (parameter 17).
    /// @return false, with `out` untouched, without one and without a provider
    bool FindCertificate(CNALCertContext& out) const;
    /// All of them likewise.
    /// @param out  emptied first
    /// @param err  42 without a provider, else the provider's
    BOOL GetCertificateList(std::list<CNALCertContext>& out, int* err, CTOOString* msg) const;

    // --- Moving ---

    /// Moves all keys with their certificates into a new container, which the user has open afterwards; the old one is deleted.
    ///
    /// Handles that GetUserKey gave out end with the move. A failure before the old container is deleted deletes the new one, and the
    /// user keeps the old one. A process that dies leaves the old one whole, or the new one; as long as the old one is there, it is
    /// the one that counts, and the new one may be deleted.
    /// The new container gets no password by this form: see the other one.
    /// @param newPath     a path or bare name that no container has
    /// @param newPIN      empty for none
    /// @param defenceKey  the new container's protection key, 0 for none; keys travel under it, or under a key made for the transfer
    /// @param err         42 without a provider, 143 when the target is the present container, 122 when it exists, 195 when the
    ///                    old container vanished during the move (nothing is deleted then: the new one may be all there is), else
    ///                    the provider's; when null, that is thrown with "CNALUser::TransferKeys"
    BOOL TransferKeys(const CTOOString& newPath, const CTOOString& newPIN, unsigned long defenceKey, int* err);
    /// The same with a password, which protects the new container from its first byte on.
    BOOL TransferKeys(const CTOOString& newPath, const CTOOString& newPassword, const CTOOString& newPIN, unsigned long defenceKey,
                      int* err, CTOOString* msg);

    // --- Requests ---
    //
    // Both make a key pair in this user's container and a request for it (nal/pkcs10.h), record the request in the storage of the year,
    // and write the request's file for the key centre, all in the transport folder. They fail as a whole: no key stays without its
    // request, no request without its key; so it is after a crash, too, once the container is opened again.

    /// Renews a key: the request is for the subject of `oldCert` and is also signed with the old key, which must be in the container.
    ///
    /// @param keyParamOID  parameter set of the new key; empty: the old key's
    /// @param algOID       algorithm of the new key; empty: the old key's
    /// @param notBefore    asked for as the beginning of the private key's usage; zero: now
    /// @param notAfter     its end; zero: NAL_REQUEST_MONTHS after the beginning
    /// @param oldCert      verified first; unknown revocation is tolerated, nothing else
    /// @param outReq       receives the request, for NALCloseReqContext; untouched on failure
    /// @param err          28 for an empty certificate, null output or an end before the beginning, 42 without a provider, 106 when
    ///                     `oldCert` does not verify, 32 when its key is not here, else the provider's or of the files
    /// @param msg          "CNALUser::UpdateKey", followed by what is wrong where that helps
    BOOL UpdateKey(const CTOOString& keyParamOID, const CTOOString& algOID, CTOOFileTime notBefore, CTOOFileTime notAfter,
                   const CNALCertContext& oldCert, const NAL_REQ_CONTEXT** outReq, int* err, CTOOString* msg);

    /// Makes a request for what a template says.
    ///
    /// With a signer's certificate the request is for another (external) user, and is also signed with the signer's key. Without one
    /// it is a first request of one's own, signed by the new key alone: the key centre asks its operator before it answers.
    /// @param signer      who answers for the request; not looked at without `signerCert`
    /// @param signerCert  verified first, nothing is tolerated; may be null
    /// @param info        subject, key algorithm and parameter set (m_publicKeyInfo.m_algorithm; empty: GOST R 34.10-2001 with its
    ///                    default set), the extensions asked for, and the period (m_notBefore, m_notAfter, as in UpdateKey). The
    ///                    network is taken from its unique identifiers or serial number, else from `signerCert`
    /// @param outReq      receives the request, for NALCloseReqContext; untouched on failure
    /// @param err         28 for null, 42 without a provider, 106 when `signerCert` does not verify, else as UpdateKey
    /// @param msg         "CNALUser::CreateNewRequest", followed by what is wrong where that helps;
    ///                    "CreateExternAbonentSign: CryptCreateContext" when the signer's container does not open
    BOOL CreateNewRequest(const CNALUser& signer, const CNALCertContext* signerCert, const CNALCertInfo& info,
                          const NAL_REQ_CONTEXT** outReq, int* err, CTOOString* msg);
    /// The same with the type of the request said. @param requestType  NAL_REQ_TYPE_OWN or NAL_REQ_TYPE_EXTERNAL
    BOOL CreateNewRequest(const CNALUser& signer, const CNALCertContext* signerCert, const CNALCertInfo& info, unsigned requestType,
                          const NAL_REQ_CONTEXT** outReq, int* err, CTOOString* msg);

private:
    // An open private key. Its public key is read from the provider when it is first compared.
    struct OpenKey {
        unsigned long handle = 0;
        IdentObj publicKey;
    };
    using OpenKeys = std::list<OpenKey>;

    void DestroyKeys();
    int OpenContainer(const char* path, const char* providerName, unsigned provType, unsigned flags);
    int HandOnSecrets();
    unsigned long Keep(unsigned long handle, IdentObj publicKey) const;
    unsigned long FindOpenKey(const IdentObj& publicKey) const;
    unsigned long FindKeyOf(const CNALCertContext& cert) const;
    void MakeKeyPair(DWORD algId);
    void MakeKeysFor(const CTOOString& algOID, const CTOOString& paramOID);
    void OpenAsSigner();
    void Bind(const CNALCertContext& cert, const char* function, const char* failureText);

    CNALCertContext m_certificate;
    CNALCertPublicKeyInfo m_newPublicKey;
    CNALProvider m_provider;
    mutable OpenKeys m_keys;
    mutable OpenKeys::iterator m_currentKey;
    CTOOString m_path;
    CTOOString m_password;
    CTOOString m_pin;
};

// --- Containers ---

/// Lists the containers that this host sees, sorted, with what each holds.
///
/// @param folder  empty: the provider's directory; else a folder, whose files that are no containers are passed over
/// @param list    emptied first; a container that cannot be read is listed with its status
/// @param err     receives 0, or the status with which the folder could not be read; when null, that is thrown
/// @param msg     "NALGetContainerList"
NAL_EXPORT BOOL NALGetContainerList(const CTOOString& folder, std::list<CNALUserContainerInfo>& list, int* err, CTOOString* msg);

/// Tells what one container holds.
/// @param path  a path or bare name
/// @param info  on failure its name and status are filled
/// @param err   121 when there is none or it is damaged, else the provider's
/// @param msg   "NALGetContainerInfo"
NAL_EXPORT BOOL NALGetContainerInfo(const CTOOString& path, CNALUserContainerInfo& info, int* err, CTOOString* msg);

/// Deletes a container with all its keys; no password is asked for. Waits for who makes a request in it.
/// @param err  121 when there is none or the file is none, 13 or another that says why its lock cannot be used, else the provider's
/// @param msg  "NALDeleteContainer"
NAL_EXPORT BOOL NALDeleteContainer(const CTOOString& path, int* err, CTOOString* msg);
