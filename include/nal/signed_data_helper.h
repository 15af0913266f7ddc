/// Editing signed messages as wholes: merge, take apart, trim. No signature is made or checked, and none is broken.
///
/// Every function throws XTOOStatus and then leaves its output as it was. An output may be one of the inputs. Failures are logged.
/// Distinct messages may be edited by several threads at once.
#pragma once

#include <list>

#include "nal/export.h"
#include "nal/signed_data.h"
#include "too/ident_obj.h"
#include "too/string.h"

class NAL_EXPORT SignedDataHelper {
public:
    SignedDataHelper() = delete;

    // --- Merging ---

    /// Joins two messages over the same content: certificates, CRLs and signer infos of `a`, in their order, then those of `b` that are
    /// not among them; the digest algorithms of both, sorted; content as MergeContent. Elements are the same when their encodings are.
    /// The version is computed anew.
    /// @throws XTOOStatus(131, "SignedDataHelper::Merge") when the messages name different types of content: signatures cover the type;
    ///         and as MergeContent
    static void Merge(const CNALSignData& a, const CNALSignData& b, CNALSignData& out);

    /// Gives `out` the content, and its type, of `a` or `b`, whichever is attached. When both are, they must be equal byte for byte, and
    /// that of `a` is taken; when none is, `out` becomes detached with the type of `a`. Nothing else of `out` changes.
    /// @throws XTOOStatus(131, context) when the contents differ: "SignedDataHelper::MergeContent FM" for a file and memory, "... MM" for
    ///         memory, "... FF" for two files; and as the comparisons below
    static void MergeContent(const CNALSignData& a, const CNALSignData& b, CNALSignData& out);

    // --- Taking apart; indices count from 0 in the order of `signerInfos` ---

    /// `out` becomes `in` with this one signature, shrunk, and with the version that it then needs.
    /// @throws XTOOStatus(37, "SignedDataHelper::ExtractSignature signerInfoIndex") when there is none; as Shrink
    static void ExtractSignature(const CNALSignData& in, int index, CNALSignData& out);

    /// `out` becomes `in` without this signature, shrunk, and with the version that it then needs.
    /// @throws XTOOStatus(37, "SignedDataHelper::DeleteSignature signerInfoIndex") when there is none; as Shrink
    static void DeleteSignature(const CNALSignData& in, int index, CNALSignData& out);

    /// Takes one unsigned attribute out of one signer info. Signatures do not cover it.
    /// @throws XTOOStatus(37) when there is none, context "SignedDataHelper::RemoveUnsignedAttribute signerInfoIndex" or
    ///         "... unsignedAttributeIndex"; (206) when the signer info does not decode
    static void RemoveUnsignedAttribute(CNALSignData& sd, int signerInfoIndex, int unsignedAttributeIndex);

    /// Keeps only the digest algorithms that some signer info uses, and the certificates that some signer info names (by issuer and serial
    /// number, or by key identifier). Certificates of authorities and other forms of certificates go; CRLs stay.
    /// @throws XTOOStatus(206) when a signer info does not decode
    static void Shrink(CNALSignData& sd);

    // --- Looking ---

    /// The version that SignedData needs for what it holds: 5, 4, 3 or 1. Source: RFC 5652 section 5.1.
    static int GetVersion(const CNALSignData& sd);

    /// Whether content is carried: a file region, or bytes in memory.
    static bool IsAttached(const CNALSignData& sd);

    /// Whether a region of a file holds exactly these bytes. A file is read once, in pieces.
    /// @param file  the region, see WhatToSignStruct
    /// @param name  the file's path; empty: the one in `file`
    /// @throws XTOOStatus: (4, path) when there is no such file; (28), (37), (12), (206), context
    ///         "SignedDataHelper::CompareFileAgainstMemory", for a region that is none; (14) when the progress handler cancels; XTOOFile
    static bool CompareFileAgainstMemory(const IdentObj& mem, const WhatToSignStruct& file, const CTOOString& name);

    /// The same for two regions of files. @throws likewise, context "SignedDataHelper::CompareFileAgainstFile"
    static bool CompareFileAgainstFile(const WhatToSignStruct& file1, const CTOOString& name1, const WhatToSignStruct& file2,
                                       const CTOOString& name2);

    /// Whether an element of the list has an outer tag of the context-specific class with this number.
    static bool CheckIfRecordWithSpecifiedTagPresents(const std::list<IdentObj>& list, int tag);

    static bool CheckIfOtherCertificateTypesPresent(const std::list<IdentObj>& certificates);  ///< tag 3
    static bool CheckIfVersion2AttributeCertsPresent(const std::list<IdentObj>& certificates);  ///< tag 2
    static bool CheckIfVersion1AttributeCertsPresent(const std::list<IdentObj>& certificates);  ///< tag 1
    static bool CheckIfOtherCrlTypesPresent(const std::list<IdentObj>& crls);  ///< tag 1

    /// Whether a signer info decodes and has version 3. One that does not decode is passed over.
    static bool CheckIfVersion3SignerInfoPresent(const std::list<IdentObj>& signerInfos);
};
