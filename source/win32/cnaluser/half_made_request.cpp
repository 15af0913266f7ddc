#include "win32/cnaluser/half_made_request.h"

#include <algorithm>
#include <vector>

#include "asnt/view.h"
#include "asnt/writer.h"
#include "frame/log.h"
#include "nal/user.h"
#include "requests/request_lookup.h"
#include "too/file.h"
#include "too/folder.h"
#include "too/path.h"
#include "win32/cnaluser/container_entries.h"

namespace nal {
namespace {

constexpr char c_context[] = "CNALUser::LogInUser";
constexpr char c_readContext[] = "HalfMadeRequest";
constexpr char c_sourcePath[] = "source/win32/cnaluser";
constexpr unsigned c_permissions = 0600;
constexpr std::uint32_t c_maxNoteSize = 16U << 20;
constexpr DWORD c_format = 1;

CTOOString NoteOf(const CTOOString& container) {
    return container + ".newkey";
}

asnt::View Bytes(const CTOOString& text) {
    return {text.data(), text.length()};
}

CTOOString Text(asnt::View bytes) {
    return {reinterpret_cast<const char*>(bytes.data), bytes.size};
}

CTOOString FolderOf(const CTOOString& path) {
    CTOOString folder;
    CTOOString name;
    storedev::ParseFullPath(path, folder, name);
    return folder;
}

/// Deletes a file for good. @return false when there was none
bool DeleteDurably(const CTOOString& path) {
    if (!CTOOFile::Delete(path)) return false;
    CTOOFolder::Sync(FolderOf(path));
    return true;
}

/// The keys that came since the note was written and have no certificate.
std::vector<IdentObj> NewKeys(const CNALProvider& provider, const HalfMadeRequest& note) {
    std::vector<IdentObj> keys;
    for (const CNALUserKeyInfo& key : ReadEntries(provider, CTOOString(), c_context)) {
        const bool isOld = std::find(note.keys.begin(), note.keys.end(), key.m_publicKeyInfo) != note.keys.end();
        if (!isOld && !key.m_certificate.IsInitialized()) keys.push_back(key.m_publicKeyInfo);
    }
    return keys;
}

void RemoveKey(const CNALProvider& provider, const IdentObj& key) {
    try {
        if (GoToKey(provider, key, c_context)) DeleteCurrentEntry(provider, c_context);
    } catch (const XTOOStatus& status) {
        LogError(NAL_HERE(c_sourcePath),
                 "Remove key error: Container " + UniqueNameOf(provider) + " Code: " + std::to_string(status.GetCode()));
        throw;
    }
}

}  // namespace

void HalfMadeRequest::Write(const CTOOString& container) const {
    asnt::Writer writer;
    writer.Sequence([&] {
        writer.Unsigned(c_format);
        writer.OctetString(Bytes(storage));
        writer.OctetString(Bytes(file));
        writer.Sequence([&] {
            for (const IdentObj& key : keys) writer.OctetString(asnt::View(key));
        });
    });
    CTOOWholeFile output(NoteOf(container), c_permissions);
    output.Write(writer.Finish());
    output.Commit();
}

void HalfMadeRequest::Remove(const CTOOString& container) {
    DeleteDurably(NoteOf(container));
}

bool HalfMadeRequest::Exists(const CTOOString& container) {
    return CTOOFile::Exists(NoteOf(container));
}

HalfMadeRequest HalfMadeRequest::Read(const CTOOString& container) {
    const IdentObj encoded = CTOOFile::ReadWhole(NoteOf(container), c_maxNoteSize);
    asnt::Reader outer(encoded, c_readContext);
    asnt::Reader fields = outer.Enter(asnt::tag::Sequence);
    outer.ExpectEnd();
    if (fields.Unsigned() != c_format) fields.Fail();
    HalfMadeRequest note;
    note.storage = Text(fields.Octets());
    note.file = Text(fields.Octets());
    asnt::Reader keys = fields.Enter(asnt::tag::Sequence);
    fields.ExpectEnd();
    while (!keys.AtEnd()) note.keys.push_back(keys.Octets().Copy());
    return note;
}

void WriteRequestFile(const CTOOString& path, const IdentObj& request) {
    if (!CTOOFile::Exists(path)) CTOOWholeFile::Store(path, request.GetData(), request.GetSize());
}

void UndoRequest(const CNALProvider& provider, const HalfMadeRequest& note, const IdentObj& key) {
    DeleteDurably(note.file);
    if (CTOOFile::Exists(note.storage)) {
        const OpenRequestStorage storage(note.storage);
        while (const CNALCertReqContext request = FindRequestFor(storage.Get(), key)) storage.Get().DeleteContext(request.Get());
    }
    RemoveKey(provider, key);
}

void RepairHalfMadeRequest(const CNALProvider& provider, const CTOOString& container) {
    if (!HalfMadeRequest::Exists(container)) return;
    const HalfMadeRequest note = HalfMadeRequest::Read(container);
    std::vector<IdentObj> orphans;
    for (IdentObj& key : NewKeys(provider, note)) {
        CNALCertReqContext request;
        if (CTOOFile::Exists(note.storage)) request = FindRequestFor(OpenRequestStorage(note.storage).Get(), key);
        if (!request) {
            orphans.push_back(std::move(key));
        } else if (request->dwStatus == NAL_REQ_STATUS_MADE) {
            WriteRequestFile(note.file, IdentObj(request->Request.pbData, request->Request.cbData));
        }
    }
    // The library makes no second key while a note is there: with several, somebody else made keys, and which ones cannot be told.
    if (orphans.size() == 1) {
        RemoveKey(provider, orphans.front());
    } else if (orphans.size() > 1) {
        LogError(NAL_HERE(c_sourcePath), container + ": keys without a request stay, for they cannot be told apart");
    }
    HalfMadeRequest::Remove(container);
}

}  // namespace nal
