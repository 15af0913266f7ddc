#include "nal/signed_data_helper.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>

#include "frame/log.h"
#include "signed_data_helper/content_compare.h"
#include "signer/signer_match.h"
#include "too/status.h"

namespace {

constexpr char c_source[] = "source/signed_data_helper";
constexpr char c_fileMemoryLabel[] = "Error CompareFileAgainstMemory Code: ";
constexpr char c_fileFileLabel[] = "Error CompareFileAgainstFile Code: ";

[[noreturn]] void Refuse(const nal::LogPlace& place, int code, const char* context, const char* label = "Error Code: ") {
    nal::LogErrorCode(place, code, label);
    throw XTOOStatus(code, context);
}

CNALMessageSignerInfo Decode(const IdentObj& der) {
    CNALMessageSignerInfo info;
    info.ReadData(der.GetData(), der.GetSize(), nullptr);
    return info;
}

/// The element at `index`; the end when there is none.
template <class List>
auto At(List& list, int index) {
    const bool isThere = index >= 0 && static_cast<std::size_t>(index) < list.size();
    return isThere ? std::next(list.begin(), index) : list.end();
}

void AddOnce(const std::list<IdentObj>& from, std::list<IdentObj>& to, std::set<IdentObj>& known) {
    for (const IdentObj& element : from) {
        if (known.insert(element).second) to.push_back(element);
    }
}

std::list<IdentObj> Joined(const std::list<IdentObj>& a, const std::list<IdentObj>& b) {
    std::list<IdentObj> joined;
    std::set<IdentObj> known;
    AddOnce(a, joined, known);
    AddOnce(b, joined, known);
    return joined;
}

std::list<CNALAlgorithmIdentifier> Joined(const std::list<CNALAlgorithmIdentifier>& a,
                                          const std::list<CNALAlgorithmIdentifier>& b) {
    std::list<CNALAlgorithmIdentifier> joined = a;
    joined.insert(joined.end(), b.begin(), b.end());
    joined.sort();
    joined.unique();
    return joined;
}

/// Whether the contents are equal; a comparison that cannot be made is logged like one that fails.
template <class Compare>
void RequireEqual(const nal::LogPlace& place, const char* context, const char* label, Compare&& compare) {
    bool equal = false;
    try {
        equal = compare();
    } catch (const XTOOStatus& status) {
        nal::LogErrorCode(place, status.GetCode(), label);
        throw;
    }
    if (!equal) Refuse(place, TOO_E_NOT_VERIFIED, context, label);
}

void RequireEqualContents(const CNALSignData& a, const CNALSignData& b) {
    const nal::LogPlace place = NAL_HERE(c_source);
    if (a.dataSource.IsFile() && b.dataSource.IsFile()) {
        RequireEqual(place, "SignedDataHelper::MergeContent FF", c_fileFileLabel, [&] {
            return SignedDataHelper::CompareFileAgainstFile(a.dataSource, {}, b.dataSource, {});
        });
    } else if (a.dataSource.IsFile() || b.dataSource.IsFile()) {
        const bool aIsFile = a.dataSource.IsFile();
        RequireEqual(place, "SignedDataHelper::MergeContent FM", c_fileMemoryLabel, [&] {
            return SignedDataHelper::CompareFileAgainstMemory((aIsFile ? b : a).eContent, (aIsFile ? a : b).dataSource, {});
        });
    } else if (a.eContent != b.eContent) {
        Refuse(place, TOO_E_NOT_VERIFIED, "SignedDataHelper::MergeContent MM");
    }
}

/// The region, in the file of this name if there is one. Valid as long as both.
WhatToSignStruct RegionIn(const WhatToSignStruct& file, const CTOOString& name) {
    WhatToSignStruct region = file;
    region.flags |= c_NAL_CONTENT_IN_FILE;
    if (!name.empty()) region.data = name.c_str();
    return region;
}

/// Keeps those signer infos of `in` for which `keep` is true of their place, and trims the rest.
template <class Keep>
CNALSignData WithSignatures(const CNALSignData& in, Keep&& keep) {
    CNALSignData result = in;
    int place = 0;
    result.signerInfos.remove_if([&](const IdentObj& /*der*/) { return !keep(place++); });
    SignedDataHelper::Shrink(result);
    result.version = SignedDataHelper::GetVersion(result);
    return result;
}

}  // namespace

void SignedDataHelper::Merge(const CNALSignData& a, const CNALSignData& b, CNALSignData& out) {
    if (a.eContentType != b.eContentType) Refuse(NAL_HERE(c_source), TOO_E_NOT_VERIFIED, "SignedDataHelper::Merge");
    CNALSignData merged;
    MergeContent(a, b, merged);
    merged.digestAlgorithms = Joined(a.digestAlgorithms, b.digestAlgorithms);
    merged.certificates = Joined(a.certificates, b.certificates);
    merged.crls = Joined(a.crls, b.crls);
    merged.signerInfos = Joined(a.signerInfos, b.signerInfos);
    merged.version = GetVersion(merged);
    out = std::move(merged);
}

void SignedDataHelper::MergeContent(const CNALSignData& a, const CNALSignData& b, CNALSignData& out) {
    if (IsAttached(a) && IsAttached(b)) RequireEqualContents(a, b);
    const CNALSignData& from = !IsAttached(a) && IsAttached(b) ? b : a;
    if (&out == &from) return;
    out.eContent = from.eContent;
    out.dataSource = from.dataSource;
    out.eContentType = from.eContentType;
}

void SignedDataHelper::ExtractSignature(const CNALSignData& in, int index, CNALSignData& out) {
    if (At(in.signerInfos, index) == in.signerInfos.end()) {
        Refuse(NAL_HERE(c_source), TOO_E_RANGE, "SignedDataHelper::ExtractSignature signerInfoIndex");
    }
    out = WithSignatures(in, [&](int place) { return place == index; });
}

void SignedDataHelper::DeleteSignature(const CNALSignData& in, int index, CNALSignData& out) {
    if (At(in.signerInfos, index) == in.signerInfos.end()) {
        Refuse(NAL_HERE(c_source), TOO_E_RANGE, "SignedDataHelper::DeleteSignature signerInfoIndex");
    }
    out = WithSignatures(in, [&](int place) { return place != index; });
}

void SignedDataHelper::RemoveUnsignedAttribute(CNALSignData& sd, int signerInfoIndex, int unsignedAttributeIndex) {
    const auto der = At(sd.signerInfos, signerInfoIndex);
    if (der == sd.signerInfos.end()) {
        Refuse(NAL_HERE(c_source), TOO_E_RANGE, "SignedDataHelper::RemoveUnsignedAttribute signerInfoIndex");
    }
    CNALMessageSignerInfo info = Decode(*der);
    if (At(info.unsignedAttrs, unsignedAttributeIndex) == info.unsignedAttrs.end()) {
        Refuse(NAL_HERE(c_source), TOO_E_RANGE, "SignedDataHelper::RemoveUnsignedAttribute unsignedAttributeIndex");
    }
    const CNALAttributesList before = std::exchange(info.unsignedAttrs, {});
    for (std::size_t i = 0; i < before.size(); ++i) {
        if (i != static_cast<std::size_t>(unsignedAttributeIndex)) info.unsignedAttrs.Add(before[i]);
    }
    *der = info.WriteData(nullptr);
}

void SignedDataHelper::Shrink(CNALSignData& sd) {
    std::set<CTOOString> used;
    nal::SignerNames signers;
    for (const IdentObj& der : sd.signerInfos) {
        const CNALMessageSignerInfo info = Decode(der);
        used.insert(info.digestAlgorithm.GetID());
        signers.Add(info);
    }
    // By OID: a signer may leave out the parameters that the list has, and the reverse.
    sd.digestAlgorithms.remove_if([&](const CNALAlgorithmIdentifier& algorithm) { return used.count(algorithm.GetID()) == 0; });
    sd.certificates.remove_if([&](const IdentObj& certificate) { return !signers.Include(certificate); });
}

int SignedDataHelper::GetVersion(const CNALSignData& sd) {
    if (CheckIfOtherCertificateTypesPresent(sd.certificates) || CheckIfOtherCrlTypesPresent(sd.crls)) return 5;
    if (CheckIfVersion2AttributeCertsPresent(sd.certificates)) return 4;
    if (CheckIfVersion1AttributeCertsPresent(sd.certificates)) return 3;
    if (CheckIfVersion3SignerInfoPresent(sd.signerInfos)) return 3;
    return sd.eContentType.GetID() == c_NAL_OID_DATA ? 1 : 3;
}

bool SignedDataHelper::IsAttached(const CNALSignData& sd) { return sd.IsAttached(); }

bool SignedDataHelper::CompareFileAgainstMemory(const IdentObj& mem, const WhatToSignStruct& file, const CTOOString& name) {
    return nal::AreEqual(RegionIn(file, name), mem, "SignedDataHelper::CompareFileAgainstMemory");
}

bool SignedDataHelper::CompareFileAgainstFile(const WhatToSignStruct& file1, const CTOOString& name1, const WhatToSignStruct& file2,
                                              const CTOOString& name2) {
    return nal::AreEqual(RegionIn(file1, name1), RegionIn(file2, name2), "SignedDataHelper::CompareFileAgainstFile");
}

bool SignedDataHelper::CheckIfRecordWithSpecifiedTagPresents(const std::list<IdentObj>& list, int tag) {
    return std::any_of(list.begin(), list.end(), [tag](const IdentObj& element) {
        asnt::Header header;
        return asnt::ParseHeader(element, asnt::Rules::Der, header) == asnt::HeaderState::Read && header.tag.IsContext() &&
               tag >= 0 && header.tag.number == static_cast<std::uint32_t>(tag);
    });
}

bool SignedDataHelper::CheckIfOtherCertificateTypesPresent(const std::list<IdentObj>& certificates) {
    return CheckIfRecordWithSpecifiedTagPresents(certificates, 3);
}

bool SignedDataHelper::CheckIfVersion2AttributeCertsPresent(const std::list<IdentObj>& certificates) {
    return CheckIfRecordWithSpecifiedTagPresents(certificates, 2);
}

bool SignedDataHelper::CheckIfVersion1AttributeCertsPresent(const std::list<IdentObj>& certificates) {
    return CheckIfRecordWithSpecifiedTagPresents(certificates, 1);
}

bool SignedDataHelper::CheckIfOtherCrlTypesPresent(const std::list<IdentObj>& crls) {
    return CheckIfRecordWithSpecifiedTagPresents(crls, 1);
}

bool SignedDataHelper::CheckIfVersion3SignerInfoPresent(const std::list<IdentObj>& signerInfos) {
    return std::any_of(signerInfos.begin(), signerInfos.end(), [](const IdentObj& der) {
        CNALMessageSignerInfo info;
        int err = TOO_OK;
        return info.ReadData(der.GetData(), der.GetSize(), &err) != 0 && info.version == 3;
    });
}
