/// Certificate revocation lists. Source: RFC 5280 section 5.
///
/// A list is decoded once, in one pass that checks every entry; the entries stay where they lie in the encoding, with 16
/// bytes beside each. Copies of a list share both. The first look-up by serial number builds an index (at most 16 bytes an
/// entry more), so that later ones take the same time however long the list is.
///
/// Serial numbers go in and out least significant byte first, as CryptoAPI has them, every content octet kept.
#pragma once

#include <cstddef>
#include <memory>

#include "asnt/view.h"
#include "asnt/writer.h"
#include "nal/algorithm.h"
#include "nal/export.h"
#include "nal/extensions.h"
#include "nal/name.h"
#include "nal/signed_envelope.h"
#include "too/bit_blob.h"
#include "too/ident_obj.h"
#include "too/types.h"

namespace nal {
class CrlEntries;
}

/// One revoked certificate: SEQUENCE { userCertificate INTEGER, revocationDate Time, crlEntryExtensions Extensions OPTIONAL }.
class NAL_EXPORT CNAL_CRL_Entry {
public:
    /// Reads an entry from the start of `data`.
    /// @return the bytes consumed; 0, with nothing changed, for a null pointer or a size of 0
    /// @throws XTOOStatus(TOO_E_BAD_STRUCTURE, "CNAL_CRL_Entry::ReadData")
    unsigned ReadData(const void* data, unsigned size);
    /// The entry's DER. @throws XTOOStatus(TOO_E_ENCODE) without a serial number, or for a time that DER cannot say
    IdentObj WriteData() const;
    void WriteData(asnt::Writer& writer) const;
    unsigned GetObjectSize() const;

    IdentObj m_serialNumber;                 ///< least significant byte first
    FILETIME m_revocationDate{0, 0};
    CNALCertExtensionList m_extensions;
};

/// An entry where it lies in the encoding of its list; valid as long as the list, or a copy of it, lives unchanged.
struct NAL_EXPORT CNAL_CRL_EntryView {
    asnt::View m_serialOctets;               ///< the INTEGER's content as encoded: most significant byte first
    FILETIME m_revocationDate{0, 0};
    asnt::View m_extensions;                 ///< the Extensions SEQUENCE; empty when absent
};

/// The signed part of a CRL (TBSCertList).
///
/// The fields may be set, entries added and the whole encoded, which is how a list is issued.
/// Any number of threads may read one object, the look-ups included, while none changes it.
class NAL_EXPORT CNAL_CRL_Info {
public:
    static constexpr std::size_t npos = static_cast<std::size_t>(-1);
    /// The size of a CRL number in a store's key, in bytes.
    static constexpr unsigned kSerialSize = 16;

    CNAL_CRL_Info() = default;
    CNAL_CRL_Info(const CNAL_CRL_Info&) = default;
    CNAL_CRL_Info(CNAL_CRL_Info&&) noexcept = default;
    CNAL_CRL_Info& operator=(const CNAL_CRL_Info&) = default;
    CNAL_CRL_Info& operator=(CNAL_CRL_Info&&) noexcept = default;
    virtual ~CNAL_CRL_Info() = default;

    /// Reads a TBSCertList from the start of `data`, of which it keeps a copy.
    /// @return the bytes consumed; 0, with nothing changed, for a null pointer or a size of 0
    /// @throws XTOOStatus(TOO_E_BAD_STRUCTURE, "CNAL_CRL_Info::ReadData") for a damaged list, a version above v2, a repeated CRL
    ///         number or authority key identifier; nothing is changed then
    unsigned ReadData(const void* data, unsigned size);

    /// Encodes the fields: version 2, times as RFC 5280 section 5.1.2.4 asks, entries as they were read or added, no
    /// revokedCertificates when there are none.
    /// @throws XTOOStatus(TOO_E_NOT_INITIALIZED, "CNAL_CRL_Info") without an issuer, a signature algorithm or this-update
    IdentObj WriteData() const;
    unsigned GetObjectSize() const;

    std::size_t GetEntryCount() const;
    /// @throws XTOOStatus(TOO_E_RANGE, "CNAL_CRL_Info::GetEntry") for an index beyond the end
    CNAL_CRL_Entry GetEntry(std::size_t index) const;
    /// The same without a copy; costs some tens of nanoseconds.
    CNAL_CRL_EntryView ViewEntry(std::size_t index) const;
    /// Adds an entry behind the others. No other thread may use this object or a copy of it meanwhile.
    /// @throws as CNAL_CRL_Entry::WriteData
    void AddEntry(const CNAL_CRL_Entry& entry);

    /// Finds the first entry, in the order of the list, with this serial number: same length, same bytes.
    /// @param serial  least significant byte first
    /// @return its index, npos when there is none
    std::size_t FindEntry(const IdentObj& serial) const;
    /// @param octets  the INTEGER's content octets, most significant byte first
    std::size_t FindEntryByOctets(asnt::View octets) const;

    /// The CRL number as the key of a store has it: a leading zero sign octet dropped, least significant byte first,
    /// filled up with zeros to 16 bytes.
    /// @return 16 bytes; more than 16 for a number that does not fit; none when the CRL has no number. Only 16 bytes are a
    ///         key: what takes a CRL in calls NALCheckCRLKey first
    /// @throws XTOOStatus(TOO_E_BAD_STRUCTURE) when the extension does not hold a number
    IdentObj GetSerial() const;

    DWORD m_version = 1;                         ///< CryptoAPI's numbering: 0 = v1, 1 = v2
    CNALAlgorithmIdentifier m_signatureAlgorithm;
    CNALX509Name m_issuer;
    FILETIME m_thisUpdate{0, 0};
    FILETIME m_nextUpdate{0, 0};                 ///< 0 when absent
    CNALCertExtensionList m_extensions;

private:
    friend class CNAL_CRL_List;

    /// `tbs` lies in `*encoded`.
    void Read(const std::shared_ptr<const IdentObj>& encoded, asnt::View tbs);

    std::shared_ptr<nal::CrlEntries> m_entries;  ///< null for none; shared by copies, replaced before a change
};

/// A CRL (CertificateList): the signed part, the algorithm and the signature.
class NAL_EXPORT CNAL_CRL_List {
public:
    CNAL_CRL_List() = default;
    virtual ~CNAL_CRL_List() = default;
    CNAL_CRL_List(const CNAL_CRL_List&) = default;
    CNAL_CRL_List(CNAL_CRL_List&&) noexcept = default;
    CNAL_CRL_List& operator=(const CNAL_CRL_List&) = default;
    CNAL_CRL_List& operator=(CNAL_CRL_List&&) noexcept = default;

    /// Reads a DER CRL from the start of `data`, of which it keeps a copy.
    /// @return the bytes consumed; 0, with nothing changed, for a null pointer or a size of 0
    /// @throws XTOOStatus(TOO_E_BAD_STRUCTURE, "CNAL_CRL_List::ReadData" or as CNAL_CRL_Info::ReadData); nothing is changed then
    unsigned ReadData(const void* data, unsigned size);
    /// The bytes that were read; empty before.
    IdentObj WriteData() const { return m_encoded ? *m_encoded : IdentObj(); }
    unsigned GetObjectSize() const { return m_encoded ? m_encoded->GetSize() : 0; }

    /// The bytes that the signature covers; valid as long as this object, or a copy of it, lives unchanged.
    asnt::View GetSignedPart() const { return m_signedPart; }

    /// Checks the signature under the issuer's key. See NALCheckSignature, whose statuses it gives; also 206 when the
    /// algorithm named inside the signed part is another than the one beside the signature.
    /// @return 1 when it holds, else 0
    int CheckSignature(unsigned long hProv, const CNALCertPublicKeyInfo& issuer, int* err) const;

    CNAL_CRL_Info m_info;
    CNALAlgorithmIdentifier m_signatureAlgorithm;
    CTOOCryptBitBlob m_signature;  ///< the BIT STRING as encoded

private:
    std::shared_ptr<const IdentObj> m_encoded;
    asnt::View m_signedPart;
};

/// What a store needs to keep a CRL.
struct NAL_EXPORT CNAL_CRL_Key {
    IdentObj m_issuerID;   ///< the issuer's key identifier, 20 bytes
    IdentObj m_crlSerial;  ///< CNAL_CRL_Info::GetSerial, 16 bytes
};

/// The key of a CRL, for every path that takes CRLs in, before a context is built from one.
///
/// @throws XTOOStatus(TOO_E_CERT_REFUSED, text for the operator) for a CRL without an authority key identifier of 20 bytes, without
///         a CRL number, or with one of more than 16 bytes; XTOOStatus(TOO_E_BAD_STRUCTURE) for an extension that does not decode
NAL_EXPORT CNAL_CRL_Key NALCheckCRLKey(const CNAL_CRL_Info& crl);
