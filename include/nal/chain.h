/// Chains: from a certificate, issuer by issuer, up to a root that the host trusts, and what is wrong on the way.
///
/// Which roots are trusted, and where issuers are sought, is told in nal/trust_storages.h; docs/chains.md tells the rules step by step
/// and explains every bit. Source: the rules of RFC 5280 section 6 that this library applies, with the CryptoAPI's status bits.
///
/// A chain that was built says nothing by that alone: the verdict is its status, and 0 is the only good one.
///
/// Threads: all functions may be called from any threads at once; one object is for one thread at a time. Searches hold
/// NALStorageLocker (nal/storage.h); signatures are checked outside it.
#pragma once

#include <cstddef>
#include <list>

#include "nal/certificate.h"
#include "nal/context.h"
#include "nal/export.h"
#include "nal/storage.h"
#include "nal/wincrypt.h"
#include "too/types.h"

/// One certificate of a chain.
struct NAL_EXPORT CNALChainElement {
    CNALCertContext m_cert;
    /// What is wrong with this certificate and its link to its issuer: CERT_TRUST_IS_*, CERT_TRUST_* error bits; 0 when nothing is.
    DWORD m_trustErrors = 0;
    /// The CRL of the issuer that the certificate was sought on; empty when there was none or it was not asked for. A CRL that is
    /// out of date is used all the same: its GetCheckStatus tells.
    CNALCRLContext m_crl;
};

/// A chain as it was built. A value; copies share the contexts.
class NAL_EXPORT CNALCertificateChain {
public:
    CNALCertificateChain();
    CNALCertificateChain(const CNALCertificateChain&);
    CNALCertificateChain(CNALCertificateChain&&) noexcept;
    CNALCertificateChain& operator=(const CNALCertificateChain&);
    CNALCertificateChain& operator=(CNALCertificateChain&&) noexcept;
    virtual ~CNALCertificateChain();

    /// Makes it empty: no elements, status and time zero.
    void Clear();

    /// The number of elements.
    std::size_t GetCount() const { return m_elements.size(); }
    /// The chain's error bits; 0 means that the chain leads to a trusted root and that every check asked for passed.
    DWORD GetErrors() const { return m_trustStatus.dwErrorStatus; }

    /// From the end certificate to the last issuer found.
    std::list<CNALChainElement> m_elements;
    /// Errors: those of all elements, and of the chain itself CERT_TRUST_IS_PARTIAL_CHAIN, CERT_TRUST_IS_CYCLIC and
    /// CERT_TRUST_INVALID_BASIC_CONSTRAINTS. The information bits are 0.
    CERT_TRUST_STATUS m_trustStatus{0, 0};
    /// When it was built.
    FILETIME m_time{0, 0};
};

/// Builds chains. Made for one verification; keeps nothing between calls but the system stores.
class NAL_EXPORT CNALChainEngine {
public:
    CNALChainEngine();
    CNALChainEngine(const CNALChainEngine&) = delete;
    CNALChainEngine& operator=(const CNALChainEngine&) = delete;
    virtual ~CNALChainEngine();

    /// Builds the chain of a certificate.
    ///
    /// @param cert   the end certificate
    /// @param chain  receives the chain; emptied first
    /// @param flags  in: the checks to make, CERT_STORE_SIGNATURE_FLAG, CERT_STORE_TIME_VALIDITY_FLAG, CERT_STORE_REVOCATION_FLAG; not
    ///               changed; null means all three
    /// @param extra  a further storage for certificates whose issuer the trust storages do not have; may be null or closed. Whether its
    ///               self-signed certificates are trusted says its m_untrusted, which is 0 after opening: set it to 1 for anything that
    ///               came from outside
    /// @return TRUE when a chain was built, whatever its status; FALSE, with an empty chain and last error 87, only for an empty `cert`
    /// @throws XTOOStatus(206) for a certificate that no longer decodes
    BOOL GetCertificateChain(const CNALCertContext& cert, CNALCertificateChain& chain, unsigned* flags = nullptr,
                             CNALCertStorage* extra = nullptr);

    /// Checks that all certificates of a chain but the first may issue: by extension "2.5.29.19" (RFC 5280 section 4.2.1.9), or else the
    /// older "2.5.29.10"; one with neither passes. Elements that may not get CERT_TRUST_INVALID_BASIC_CONSTRAINTS; the chain's own
    /// status stays.
    /// @return whether all may
    bool CheckBasicConstraints(CNALCertificateChain& chain) const;

    /// Finds an issuer in the trust storages (CNALCertStorageCollection::FindIssuerCertificate).
    ///
    /// @param issuer  receives the issuer; untouched when there is none
    /// @param crl     receives the CRL that was used, or is emptied; untouched when there is no issuer
    /// @param isRoot  set to true when the certificate is its own issuer; else untouched
    /// @param flags   in: the checks to make; out: those that failed, see there. A root needs no CRL: 0x10000 is never among them then
    /// @return true when an issuer was found
    bool FindIssuerCertAndCrlInMainStore(const CNALCertContext& cert, CNALCertContext& issuer, CNALCRLContext& crl, bool& isRoot,
                                         unsigned& flags) const;
    /// The same in one storage.
    bool FindIssuerCertAndCrlInAdditionalStore(CNALCertStorage& storage, const CNALCertContext& cert, CNALCertContext& issuer,
                                               CNALCRLContext& crl, bool& isRoot, unsigned& flags) const;

    /// Opens the system stores "Root" and "CA" for a host that wants to look into them; chains are not built from them. With bit
    /// NAL_APP_UNTRUSTED_SYSTEM_STORES of the application flags they are marked untrusted.
    /// @return whether both were opened; else the last error of CertOpenStore
    bool OpenMSStorages();
    /// The stores, closed unless they were opened.
    const CNALCertStorage& GetRootStorage() const { return m_root; }
    const CNALCertStorage& GetCAStorage() const { return m_ca; }

private:
    CNALCertStorage m_root;
    CNALCertStorage m_ca;
    bool m_storesOpened = false;
};

/// storageType of the system stores.
#define NAL_STORAGE_SYSTEM_ROOT 0x10000001
#define NAL_STORAGE_SYSTEM_CA 0x10000002

/// Verifies a certificate by its chain: CNALChainEngine::GetCertificateChain.
NAL_EXPORT BOOL NALVerifyCertificate(const CNALCertContext& cert, CNALCertificateChain& chain, unsigned* flags = nullptr,
                                     CNALCertStorage* extra = nullptr);

/// The same with all checks and without a further storage, for callers that want the verdict alone.
/// @param status  receives the chain's status; untouched when the result is FALSE
NAL_EXPORT BOOL NALVerifyCertificate(const CNALCertContext& cert, CERT_TRUST_STATUS& status);

/// Walks a chain through the CryptoAPI's system stores, with a CryptoAPI code for each link.
///
/// On this platform a store names no issuer (CertGetIssuerCertificateFromStore), so the first round ends the walk; NALVerifyCertificate
/// is what verifies.
class NAL_EXPORT CNALCertChain {
public:
    CNALCertChain();
    CNALCertChain(const CNALCertChain&) = delete;
    CNALCertChain& operator=(const CNALCertChain&) = delete;
    virtual ~CNALCertChain();

    /// Asks the system stores "Root", "CA" and "MY" for one issuer after the other until a self-signed one ends the chain.
    /// @param cert  its reference stays the caller's; null gives no chain
    /// @param out   emptied first; receives the links. A round in which every store fails adds 0x800B0107 and ends the walk
    void LoadVerifyChain(const CERT_CONTEXT* cert, std::list<CNALX509CheckSignResult>& out);

    /// Asks one store for an issuer of the current certificate whose signature and time checks pass, and goes on to it.
    /// @param result  receives the issuer, or in m_result why there is none: 0x800B0107 no issuer, 0x80090006 signature, 0x80092010
    ///                revoked, 0x800B0101 out of its validity
    /// @return 0, or a library status
    int FindNextInStore(HCERTSTORE store, CNALX509CheckSignResult& result);

    /// Whether a self-signed certificate ended the chain.
    bool IsComplete() const { return m_complete; }

private:
    bool m_complete = false;
    CNALCertContext m_current;
};
