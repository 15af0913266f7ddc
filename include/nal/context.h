/// What the library passes around in the place of bare contexts and handles: values that own one reference each.
///
/// Accessors report absence by null, an empty value, false or 0xFFFFFFFF and throw nothing, also for a certificate that does not
/// decode. Threads: distinct objects may be used at once, also when they share a context; one object is for one thread at a time.
/// A context that came from a store is used while that store is open.
#pragma once

#include <mutex>
#include <string>

#include "nal/export.h"
#include "nal/wincrypt.h"
#include "too/ident_obj.h"
#include "too/reference.h"
#include "too/string.h"
#include "too/time.h"

class CNALCRLContext;

/// Kinds of certificates, as GetCertificateType tells them.
#define NAL_CERT_TYPE_END 1   ///< no CA
#define NAL_CERT_TYPE_CA 2    ///< a CA that another issued
#define NAL_CERT_TYPE_ROOT 3  ///< a CA whose subject is its issuer
#define NAL_UNKNOWN 0xFFFFFFFFU

/// A certificate: one reference to a certificate context.
class NAL_EXPORT CNALCertContext {
public:
    CNALCertContext() = default;
    /// Adds a reference to `context`, which may be null.
    explicit CNALCertContext(const CERT_CONTEXT* context);
    /// As CreateContext. @throws as CertCreateCertificateContext
    explicit CNALCertContext(const IdentObj& encoded, unsigned int encodingType = 0, const void* reserved = nullptr);
    /// A copy shares the context and allocates nothing, unless the other holds its key provider info: then that is read anew.
    CNALCertContext(const CNALCertContext& other);
    CNALCertContext(CNALCertContext&& other) noexcept;
    CNALCertContext& operator=(const CNALCertContext& other);
    CNALCertContext& operator=(CNALCertContext&& other) noexcept;
    /// Takes up another context, and then forgets the status; the same pointer changes nothing.
    CNALCertContext& operator=(const CERT_CONTEXT* context);
    virtual ~CNALCertContext();

    /// Takes a reference over from the caller.
    static CNALCertContext Adopt(PCCERT_CONTEXT context);

    /// Makes a free-standing context of a DER certificate in the place of the present one.
    /// @param encodingType, reserved  not used
    /// @return FALSE for no bytes: the wrapper is then empty
    /// @throws as CertCreateCertificateContext; the wrapper is then empty
    BOOL CreateContext(const IdentObj& encoded, unsigned int encodingType = 0, const void* reserved = nullptr);

    bool IsInitialized() const { return m_context != nullptr; }
    /// The context, still owned by this wrapper; null when empty.
    PCCERT_CONTEXT GetContext() const { return m_context; }
    /// Hands the reference to the caller and leaves this wrapper empty.
    PCCERT_CONTEXT Detach();

    /// Equal encodings are equal. An empty wrapper comes before all others; then the shorter encoding, then memcmp decides.
    bool operator==(const CNALCertContext& other) const { return Compare(other) == 0; }
    bool operator!=(const CNALCertContext& other) const { return Compare(other) != 0; }
    bool operator<(const CNALCertContext& other) const { return Compare(other) < 0; }
    bool operator>(const CNALCertContext& other) const { return Compare(other) > 0; }

    /// Where the private key is (property 2), read once and kept.
    /// @return null without a context or property; else valid until the property is set through this wrapper or it is reassigned
    const CRYPT_KEY_PROV_INFO* GetProviderInfo() const;
    /// Sets a property as CertSetCertificateContextProperty does. In a store with a file this is one transaction of the store.
    /// @return as there; FALSE with an `errno` when the store cannot be changed
    BOOL CNALSetContextProperty(unsigned int id, unsigned int flags, const void* data);
    /// As CertGetCertificateContextProperty.
    BOOL CNALGetContextProperty(unsigned int id, void* data, DWORD* size) const;

    /// Of the key provider info: AT_SIGNATURE or AT_KEYEXCHANGE; NAL_UNKNOWN when there is none.
    unsigned int GetPrivateKeyType() const;
    /// Of the key provider info; NAL_UNKNOWN when there is none.
    unsigned int GetProviderType() const;
    /// Of the key provider info, as UTF-8; empty when there is none.
    CTOOString GetContainer() const;
    CTOOString GetProviderName() const;
    /// Write one field of the key provider info, which is made when there is none. @return as CNALSetContextProperty
    BOOL SetPrivateKeyType(unsigned int type);
    BOOL SetContainer(const char* container);

    /// Whether the certificate is valid at `time`, both bounds included; null means now.
    bool IsValidTime(const CTOOFileTime* time = nullptr) const;
    /// Whether the CRL lists the certificate's serial. The issuers are not compared, the CRL's signature is not checked.
    bool IsRevoced(const CNALCRLContext& crl) const;
    /// The subject key identifier, or without one the key identifier computed from the public key (the first 20 bytes of the key).
    IdentObj GetSubjectKeyId() const;
    /// NAL_CERT_TYPE_*, by extension "2.5.29.19" or else the older "2.5.29.10"; without either, and when it does not decode,
    /// NAL_CERT_TYPE_END. NAL_UNKNOWN without a context. Source: RFC 5280 section 4.2.1.9.
    unsigned int GetCertificateType() const;
    /// Whether the certificate's signature holds under the key of `issuer`. Names and validity are not looked at.
    ///
    /// For GOST R 34.11-94 with GOST R 34.10-2001 or 34.10-94 (RFC 4491 section 2.2). Any other algorithm gives false, with last
    /// error 230; so does a certificate that names another algorithm in its signed part than beside its signature, without one.
    bool IsValidSignature(const CNALCertContext& issuer) const;

    /// The kind of storage that the certificate came from; see NALGetStorageType.
    unsigned int m_storageType = 0;
    /// What verification found about the certificate; -1 for not known.
    int m_status = -1;

private:
    int Compare(const CNALCertContext& other) const;
    void Take(PCCERT_CONTEXT context);
    bool ReadProviderInfo() const;

    PCCERT_CONTEXT m_context = nullptr;
    mutable IdentObj m_providerInfo;  // a CRYPT_KEY_PROV_INFO block, empty when not read; wiped when it goes
};

/// The kind of storage that the certificate came from, as given to CNALCertStorage::OpenStorage; 0 when it came from none.
NAL_EXPORT unsigned int NALGetStorageType(CNALCertContext& cert);

/// A CRL: one reference to a CRL context.
class NAL_EXPORT CNALCRLContext {
public:
    CNALCRLContext() = default;
    /// Adds a reference to `context`, which may be null.
    explicit CNALCRLContext(const CRL_CONTEXT* context);
    /// As CreateCRLContext.
    explicit CNALCRLContext(const IdentObj& encoded, unsigned int encodingType = 0);
    CNALCRLContext(const CNALCRLContext& other);
    CNALCRLContext(CNALCRLContext&& other) noexcept;
    CNALCRLContext& operator=(const CNALCRLContext& other);
    CNALCRLContext& operator=(CNALCRLContext&& other) noexcept;
    /// Takes up another context; forgets the check status and m_data.
    CNALCRLContext& operator=(const CRL_CONTEXT* context);
    virtual ~CNALCRLContext();

    /// Takes a reference over from the caller.
    static CNALCRLContext Adopt(PCCRL_CONTEXT context);

    /// Makes a free-standing context of a DER CRL (RFC 5280 section 5) in the place of the present one.
    /// @param encodingType  not used
    /// @return FALSE for no bytes: the wrapper is then empty
    /// @throws XTOOStatus(206) for bytes that are no CRL, or a CRL that no store can key (NALCheckCRLKey); the wrapper is then empty
    BOOL CreateCRLContext(const IdentObj& encoded, unsigned int encodingType = 0);

    bool IsInitialized() const { return m_context != nullptr; }
    /// The context, still owned by this wrapper; null when empty.
    PCCRL_CONTEXT GetContext() const { return m_context; }
    /// Hands the reference to the caller and leaves this wrapper empty.
    PCCRL_CONTEXT Detach();

    /// The same context, or equal encodings; two empty wrappers are equal.
    bool operator==(const CNALCRLContext& other) const;
    bool operator!=(const CNALCRLContext& other) const { return !(*this == other); }

    /// The CRL's number as stores keep it: 16 bytes, least significant first; empty without a context.
    IdentObj GetSerialNumber() const;
    /// 42 when empty; 223 once the time is later than the CRL's NextUpdate, and from then on for this wrapper; else 0.
    unsigned int GetCheckStatus() const;

    CTOOString m_name;  ///< a text that storages keep with the CRL
    IdentObj m_data;    ///< bytes that storages keep with the CRL

private:
    void Take(PCCRL_CONTEXT context);

    PCCRL_CONTEXT m_context = nullptr;
    mutable unsigned int m_checkStatus = 0;
};

/// One provider context, released with its last user: the last Release deletes this object.
class NAL_EXPORT CNALHProv : private CTOOReference {  // NOLINT(cppcoreguidelines-virtual-class-destructor)
public:
    /// Takes the handle over.
    explicit CNALHProv(unsigned long handle) : m_handle(handle) {}
    CNALHProv(const CNALHProv&) = delete;
    CNALHProv& operator=(const CNALHProv&) = delete;

    using CTOOReference::AddRef;
    using CTOOReference::Release;

    unsigned long GetHandle() const { return m_handle; }
    /// Held by who needs the context's current entry to stay as it is: from choosing a key until the signature is made.
    std::recursive_mutex& GetMutex() { return m_mutex; }

private:
    ~CNALHProv() override;

    unsigned long m_handle;
    std::recursive_mutex m_mutex;
};

/// An open provider, perhaps with a key container. Copies share the provider context, whose last user releases it.
class NAL_EXPORT CNALProvider {
public:
    CNALProvider() = default;
    CNALProvider(const CNALProvider& other);
    CNALProvider(CNALProvider&& other) noexcept;
    CNALProvider& operator=(const CNALProvider& other);
    CNALProvider& operator=(CNALProvider&& other) noexcept;
    ~CNALProvider();

    /// Opens the provider in the place of the present one, which is given up first whatever comes of it.
    ///
    /// @param container     the container's name; null for none
    /// @param providerName  null, or empty, for the default of the type: "Ormatek Cryptographic Service Provider" for type 0
    /// @param provType      the provider's type; 0 goes with a name
    /// @param flags         as ORKAcquireContext (ork/provider.h)
    /// @param error         receives 0 or the status; when it is null a failure is thrown
    /// @return TRUE when opened
    /// @throws XTOOStatus(status, container) when `error` is null
    BOOL Init(const char* container, const char* providerName, unsigned int provType, unsigned int flags, int* error);
    /// Gives the provider up.
    void Reset();

    /// The provider context, still owned here; 0 when there is none.
    unsigned long GetProviderHandle() const { return m_holder != nullptr ? m_holder->GetHandle() : 0; }

    /// Takes the lock that all users of this provider context share (CNALHProv::GetMutex), which is recursive.
    /// @return the lock, to be given back before this object is reset; one that holds nothing when there is no context
    std::unique_lock<std::recursive_mutex> Lock() const {
        return m_holder != nullptr ? std::unique_lock<std::recursive_mutex>(m_holder->GetMutex())
                                   : std::unique_lock<std::recursive_mutex>();
    }

    /// Records the password of the container's keys; it is checked when a key is first used. @return the provider's answer
    BOOL SetPassword(const char* password);
    /// Whether the provider is open on a container, which is what a password belongs to.
    bool CanChangePassword() const;
    /// Gives the container another password, at once and durably. The old one must be recorded by SetPassword if there is one.
    ///
    /// @param newPassword  empty takes the protection by password away
    /// @param error        receives 0 or the status: 42 without an open container, 28 for null, 86 for a wrong old password
    /// @return TRUE when changed; otherwise the container is as before
    /// @throws XTOOStatus(status, "CNALProvider::ChangePassword") when `error` is null
    BOOL ChangePassword(const char* newPassword, int* error);

private:
    CNALHProv* m_holder = nullptr;
};
