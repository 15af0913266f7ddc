// Storages: opening, walking, changing.
#include <cstdint>
#include <filesystem>
#include <utility>

#include "frame/failure.h"
#include "frame/log.h"
#include "nal/context.h"
#include "nal/request_context.h"
#include "requests/request_context_block.h"
#include "requests/request_storage_file.h"
#include "requests/request_storages.h"

namespace {

using nal::RequestContextBlock;
using nal::RequestEntry;
using nal::RequestList;
using nal::RequestStorages;

constexpr char c_sourcePath[] = "source/requests";

CTOOFileTime OrNow(const FILETIME& time) {
    const CTOOFileTime when(time);
    return when.IsZero() ? CTOOFileTime::Now() : when;
}

IdentObj Bytes(const CRYPTOAPI_BLOB& blob) {
    return blob.pbData != nullptr ? IdentObj(blob.pbData, blob.cbData) : IdentObj();
}

IdentObj EncodingOf(PCCERT_CONTEXT context) {
    return context != nullptr ? IdentObj(context->pbCertEncoded, context->cbCertEncoded) : IdentObj();
}

IdentObj EncodingOf(PCCRL_CONTEXT context) {
    return context != nullptr ? IdentObj(context->pbCrlEncoded, context->cbCrlEncoded) : IdentObj();
}

RequestEntry EntryFrom(const NAL_REQ_CONTEXT& from) {
    RequestEntry entry;
    entry.identity = Bytes(from.Identity);
    entry.request = Bytes(from.Request);
    entry.container = Bytes(from.Container);
    entry.value = from.dwValue;
    entry.type = from.dwRequestType;
    entry.certificate = EncodingOf(from.pCertificate);
    entry.issuer = EncodingOf(from.pIssuer);
    entry.crl = EncodingOf(from.pCrl);
    for (unsigned i = 0; i < NAL_REQ_TIME_COUNT; ++i)
        entry.times[i] = from.rgTime[i];
    return entry;
}

/// A name for the file that does not change with the working folder, and is the same by whatever way it is reached.
CTOOString FullPath(const CTOOString& path) {
    std::error_code error;
    const std::filesystem::path full = std::filesystem::weakly_canonical(path.str(), error);
    if (error) throw XTOOFile(TOOStatusFromErrno(error.value(), TOO_E_OPEN), path, "cannot open", error.value());
    return full.string();
}

/// The path that the first two arguments of NALCertOpenReqStorage say. @throws XTOOStatus
CTOOString PathFrom(const char* provider, const void* path) {
    constexpr std::uintptr_t numbers = 0x10000;  // no text lies in the first pages
    constexpr std::uintptr_t fileNameProvider = 7;
    const auto number = reinterpret_cast<std::uintptr_t>(provider);
    if (number != 0 && number < numbers && number != fileNameProvider)
        throw XTOOStatus(TOO_E_UNSUPPORTED, "NALCertOpenReqStorage");
    const char* text = number == fileNameProvider ? static_cast<const char*>(path) : provider;
    if (text == nullptr || *text == 0) throw XTOOStatus(TOO_E_BAD_ARGUMENT, "NALCertOpenReqStorage");
    return text;
}

unsigned long OpenStorage(const char* provider, const void* path, unsigned flags) {
    const CTOOString name = PathFrom(provider, path);
    if ((flags & ~static_cast<unsigned>(NAL_REQ_STORAGE_CREATE)) != 0) throw XTOOStatus(TOO_E_UNSUPPORTED, name);
    nal::RequestStorageFile file(FullPath(name));
    if ((flags & NAL_REQ_STORAGE_CREATE) != 0) file.Create();
    file.Read();
    return RequestStorages::Instance().Open(file.Path())->GetHandle();
}

/// Runs `action`, which gives a handle or pointer; a failure goes to the log and to the last error, and gives nothing.
template <class Action>
auto Guard(const nal::LogPlace& place, Action&& action) -> decltype(action()) {
    try {
        return action();
    } catch (const XTOOStatus& status) {
        nal::LogError(place, status.GetText());
        SetLastError(static_cast<DWORD>(status.GetCode()));
        return {};
    }
}

/// Runs `action` on the open storage of a context, as Guard does.
template <class Action>
BOOL OnStorageOf(const nal::LogPlace& place, const NAL_REQ_CONTEXT* context, Action&& action) {
    return Guard(place, [&]() -> BOOL {
        const auto storage = context != nullptr ? RequestStorages::Instance().Find(context->pStorage) : nullptr;
        if (storage == nullptr) throw XTOOStatus(TOO_E_BAD_ARGUMENT, place.shortFunction);
        action(*storage);
        return TRUE;
    });
}

}  // namespace

// ---------------------------------------------------------------------------------------------------------------------
// CNALReqContextStorage

CNALReqContextStorage::CNALReqContextStorage(const CTOOString& path)
    : m_file(std::make_unique<nal::RequestStorageFile>(path)), m_open(std::make_unique<Open>()) {}

CNALReqContextStorage::~CNALReqContextStorage() = default;

std::shared_ptr<CNALReqContextStorage> CNALReqContextStorage::FromHandle(unsigned long handle) {
    return RequestStorages::Instance().Find(reinterpret_cast<const CNALReqContextStorage*>(handle));
}

unsigned long CNALReqContextStorage::GetHandle() const {
    static_assert(sizeof(unsigned long) == sizeof(void*), "a handle is an address");
    return reinterpret_cast<unsigned long>(this);
}

const CTOOString& CNALReqContextStorage::GetPath() const {
    return m_file->Path();
}

std::uint64_t CNALReqContextStorage::EntryOf(const NAL_REQ_CONTEXT* context) const {
    const std::uint64_t entry = context != nullptr ? RequestStorages::Instance().EntryOf(this, context) : 0;
    if (entry == 0) throw XTOOStatus(TOO_E_BAD_ARGUMENT, GetPath() + ": not a request of this storage");
    return entry;
}

const NAL_REQ_CONTEXT* CNALReqContextStorage::EnumContexts(const NAL_REQ_CONTEXT* previous) {
    const CNALCertReqContext consumed(previous);
    std::uint64_t number = previous != nullptr ? EntryOf(previous) : 0;
    const auto list = m_file->Read(previous == nullptr);
    while (const RequestEntry* entry = list->After(number)) {
        number = entry->number;
        try {
            return RequestStorages::Instance().Publish(std::make_unique<RequestContextBlock>(*entry, this));
        } catch (const XTOOStatus& status) {
            nal::LogError(NAL_HERE(c_sourcePath),
                          GetPath() + ": a certificate or CRL of request " + std::to_string(number) + " is damaged: " + status.what());
        }
    }
    return nullptr;
}

const NAL_REQ_CONTEXT* CNALReqContextStorage::AddContext(const NAL_REQ_CONTEXT& from) {
    RequestEntry entry = EntryFrom(from);
    const DWORD status = from.dwStatus != 0 ? from.dwStatus : NAL_REQ_STATUS_MADE;
    const auto time = nal::TimeOfRequestStatus(status);
    entry.Record(status, time < NAL_REQ_TIME_COUNT ? OrNow(CTOOFileTime(from.rgTime[time])) : CTOOFileTime::Now());
    std::unique_ptr<RequestContextBlock> block;
    m_file->Change([&](RequestList& list) {
        entry.number = ++list.lastNumber;
        block = std::make_unique<RequestContextBlock>(entry, this);
        list.entries.push_back(std::move(entry));
    });
    return RequestStorages::Instance().Publish(std::move(block));
}

void CNALReqContextStorage::ChangeEntry(const NAL_REQ_CONTEXT** context, const std::function<void(nal::RequestEntry&)>& change) {
    const std::uint64_t number = EntryOf(context != nullptr ? *context : nullptr);
    std::unique_ptr<RequestContextBlock> block;
    m_file->Change([&](RequestList& list) {
        RequestEntry& entry = list.Get(number, GetPath());
        change(entry);
        block = std::make_unique<RequestContextBlock>(entry, this);
    });
    // The new one first, so that a storage that waits for its last context does not close between the two.
    const CNALCertReqContext old(*context);
    *context = RequestStorages::Instance().Publish(std::move(block));
}

void CNALReqContextStorage::ChangeContextStatus(const NAL_REQ_CONTEXT** context, unsigned status, FILETIME when) {
    ChangeEntry(context, [&](RequestEntry& entry) { entry.Record(status, OrNow(when)); });
}

void CNALReqContextStorage::SetAnswer(const NAL_REQ_CONTEXT** context, const CNALCertContext& certificate,
                                      const CNALCertContext& issuer, const CNALCRLContext& crl, unsigned status, FILETIME when) {
    if (!certificate.IsInitialized()) throw XTOOStatus(TOO_E_BAD_ARGUMENT, "CNALReqContextStorage::SetAnswer");
    ChangeEntry(context, [&](RequestEntry& entry) {
        entry.certificate = EncodingOf(certificate.GetContext());
        entry.issuer = EncodingOf(issuer.GetContext());
        entry.crl = EncodingOf(crl.GetContext());
        entry.Record(status, OrNow(when));
    });
}

void CNALReqContextStorage::DeleteContext(const NAL_REQ_CONTEXT* context) {
    const std::uint64_t number = EntryOf(context);
    m_file->Change([&](RequestList& list) {
        list.entries.erase(list.entries.begin() + (&list.Get(number, GetPath()) - list.entries.data()));
    });
    RequestStorages::Instance().Release(context);
}

std::list<CNALHistoryItem> CNALReqContextStorage::GetHistory(const NAL_REQ_CONTEXT* context) const {
    const std::uint64_t number = EntryOf(context);
    const auto list = m_file->Read(true);
    return list->Get(number, GetPath()).history;
}

// ---------------------------------------------------------------------------------------------------------------------
// Free functions

BOOL NALCertOpenReqStorage(const char* provider, const void* path, unsigned flags, unsigned long* handle, int* err,
                           CTOOString* msg) {
    nal::Outcome outcome;
    if (handle == nullptr) {
        outcome.Fail(TOO_E_BAD_ARGUMENT, "NALCertOpenReqStorage");
        return outcome.Finish(err, msg);
    }
    *handle = 0;
    try {
        *handle = OpenStorage(provider, path, flags);
    } catch (const XTOOStatus& status) {
        outcome.Fail(status);
    }
    return outcome.Finish(err, msg);
}

BOOL NALCertOpenReqStorage(const char* provider, const void* path, unsigned flags, unsigned long* handle) {
    return Guard(NAL_HERE(c_sourcePath), [&] { return NALCertOpenReqStorage(provider, path, flags, handle, nullptr, nullptr); });
}

BOOL NALCertCloseReqStore(unsigned long handle, unsigned /*flags*/) {
    if (!RequestStorages::Instance().Close(reinterpret_cast<const CNALReqContextStorage*>(handle)))
        return nal::Refuse(TOO_E_BAD_HANDLE);
    return TRUE;
}

const NAL_REQ_CONTEXT* NALFindReqContextInStorage(unsigned long handle, unsigned findType, void* /*findPara*/,
                                                  const NAL_REQ_CONTEXT* previous) {
    return Guard(NAL_HERE(c_sourcePath), [&]() -> const NAL_REQ_CONTEXT* {
        CNALCertReqContext consumed(previous);
        const auto storage = CNALReqContextStorage::FromHandle(handle);
        if (storage == nullptr) throw XTOOStatus(TOO_E_BAD_HANDLE, "NALFindReqContextInStorage");
        if (findType != 0) throw XTOOStatus(TOO_E_UNSUPPORTED, "NALFindReqContextInStorage");
        const NAL_REQ_CONTEXT* next = storage->EnumContexts(consumed.Detach());
        SetLastError(next != nullptr ? 0 : NAL_STORE_E_NOT_FOUND);
        return next;
    });
}

BOOL NALChangeContextStatus(const NAL_REQ_CONTEXT** context, unsigned status, FILETIME when, void* /*reserved*/) {
    return OnStorageOf(NAL_HERE(c_sourcePath), context != nullptr ? *context : nullptr,
                       [&](CNALReqContextStorage& storage) { storage.ChangeContextStatus(context, status, when); });
}

BOOL NALDeleteContextFromStorage(const NAL_REQ_CONTEXT* context) {
    return OnStorageOf(NAL_HERE(c_sourcePath), context,
                       [&](CNALReqContextStorage& storage) { storage.DeleteContext(context); });
}
