#include "nal/signed_data.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <string>
#include <utility>

#include "cms/file_content.h"
#include "cms/outgoing.h"
#include "cms/outgoing_message.h"
#include "cms/sign_data_reader.h"
#include "frame/failure.h"
#include "too/status.h"

namespace {

constexpr char c_attachContext[] = "CNALSignData::AttachData";
constexpr char c_detachContext[] = "CNALSignData::DetachData";
constexpr char c_writeContext[] = "CNALSignData::WriteObject";
constexpr char c_writeFileContext[] = "CNALSignData::WriteData";

IdentObj TextOf(const char* oid) {
    return {oid, static_cast<unsigned>(std::char_traits<char>::length(oid))};
}

void SetContentIsData(CNALSignData& message) {
    message.eContentType = CASNTIdData(c_NAL_OID_DATA);
}

void StoreOpenEnd(CNALSignData& message, const nal::FileContent* content) {
    if (content != nullptr) message.dataSource.end = content->End();
}

}  // namespace

void CNALContentSource::Assign(const WhatToSignStruct& what) {
    // Taken before anything changes: `what` may be this object.
    const bool isFile = (what.flags & c_NAL_CONTENT_IN_FILE) != 0 && what.data != nullptr;
    CTOOString path(isFile ? static_cast<const char*>(what.data) : nullptr);
    static_cast<WhatToSignStruct&>(*this) = what;
    m_path = std::move(path);
    if (isFile) data = m_path.c_str();
}

CNALSignData::CNALSignData() : contentType(TextOf(c_NAL_OID_SIGNED_DATA)) {
    SetContentIsData(*this);
}

int CNALSignData::AttachData(const WhatToSignStruct& what, int* err) {
    return nal::Report(err, [&] {
        const bool inFile = (what.flags & c_NAL_CONTENT_IN_FILE) != 0;
        if (what.data == nullptr && (inFile || what.start != what.end)) {
            throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_attachContext);
        }
        if (inFile) {
            const CNALContentSource source = what;
            if (!CTOOFile::Exists(source.GetPath())) throw XTOOStatus(TOO_E_FILE_NOT_FOUND, source.GetPath());
            dataSource = source;
            eContent.Clear();
        } else {
            if (what.end < what.start) throw XTOOStatus(TOO_E_RANGE, c_attachContext);
            // The bytes may be this message's own.
            IdentObj bytes;
            if (what.end != what.start) {
                bytes.SetData(static_cast<const unsigned char*>(what.data) + what.start, what.end - what.start);
            }
            dataSource = WhatToSignStruct();
            eContent = std::move(bytes);
        }
        m_detached.reset();
        SetContentIsData(*this);
    });
}

int CNALSignData::DetachData(WhatToSignStruct& what, int* err) {
    return nal::Report(err, [&] {
        const bool toFile = (what.flags & c_NAL_CONTENT_IN_FILE) != 0;
        if (toFile && what.data == nullptr) throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_detachContext);
        if (!IsAttached()) throw XTOOStatus(TOO_E_NOT_INITIALIZED, c_detachContext);

        std::unique_ptr<nal::FileContent> source;
        if (dataSource.IsFile()) source = std::make_unique<nal::FileContent>(dataSource, c_detachContext);
        const DWORD size = source ? static_cast<DWORD>(source->Size()) : eContent.GetSize();
        auto detached = std::make_shared<IdentObj>();
        if (toFile) {
            CTOOWholeFile target(CTOOString(static_cast<const char*>(what.data)));
            if (source) {
                source->ForEachChunk(nal::c_copyChunk, [&](asnt::View chunk) { target.Write(chunk.data, chunk.size); });
            } else {
                target.Write(eContent);
            }
            target.Commit();
        } else if (source) {
            detached->SetSize(size);
            source->CopyTo(detached->GetData());
        } else {
            *detached = std::move(eContent);
        }
        m_detached = std::move(detached);
        if (!toFile) what.data = m_detached->GetData();
        what.start = 0;
        what.end = size;
        what.flags &= ~c_NAL_CONTENT_IN_PIECES;
        eContent.Clear();
        dataSource = WhatToSignStruct();
    });
}

IdentObj CNALSignData::WriteObject(int* err) {
    IdentObj der;
    nal::Report(err, [&] {
        nal::OutgoingMessage message(*this, c_writeContext);
        der = message.Encode();
        StoreOpenEnd(*this, message.File());
    });
    return der;
}

int CNALSignData::WriteObject(CTOOFile& file, unsigned int /*flags*/) {
    nal::OutgoingMessage message(*this, c_writeFileContext);
    if (message.File() != nullptr && nal::IsSameFile(message.File()->File(), file)) {
        throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_writeFileContext);
    }
    message.Write(file);
    StoreOpenEnd(*this, message.File());
    return TRUE;
}

int CNALSignData::ReadObject(const unsigned char* data, unsigned int len, int* err) {
    // Kept until the end: `data` may be bytes of this message.
    const CNALSignData previous = std::exchange(*this, CNALSignData());
    return nal::Report(err, [&] { *this = nal::ReadSignData({data, data != nullptr ? len : 0}); });
}

int CNALSignData::ReadObject(const CTOOFile& file, unsigned int offset, int* err) {
    *this = CNALSignData();
    return nal::Report(err, [&] { *this = nal::ReadSignData(file, offset); });
}

void CNALSignData::FillEntry(const CASNTUnit& unit) {
    *this = CNALSignData();
    *this = nal::ReadSignData(unit.GetWhole());
}

void CNALSignData::ReadObject_AlgList(const IdentObj& element) {
    nal::ReadDigestAlgorithms(element, *this);
}

void CNALSignData::ReadObject_EncapsContentInfo(const IdentObj& element) {
    nal::ReadEncapContentInfo(element, *this);
}

void CNALSignData::ReadObject_CertificateSet(const IdentObj& element) {
    nal::ReadCertificates(element, *this);
}

void CNALSignData::ReadObject_CRLList(const IdentObj& element) {
    nal::ReadCrls(element, *this);
}

unsigned int CNALSignData::GetDataSize() const {
    constexpr std::uint64_t fixedPart = 12;
    constexpr std::uint64_t listHeader = 4;
    std::uint64_t size = fixedPart + eContentType.WriteID().GetSize();
    for (const CNALAlgorithmIdentifier& algorithm : digestAlgorithms) size += algorithm.GetObjectSize();
    for (const auto* list : {&certificates, &crls, &signerInfos}) {
        size += listHeader;
        for (const IdentObj& element : *list) size += element.GetSize();
    }
    return static_cast<unsigned>(std::min<std::uint64_t>(size, std::numeric_limits<unsigned>::max()));
}

unsigned int CNALSignData::GetObjectSize() const {
    return nal::OutgoingMessage(*this, c_writeContext).Size();
}

std::list<IdentObj> CNALSignData::GetSigersInfo(int* err) const {
    nal::Outcome().Finish(err);
    return signerInfos;
}
