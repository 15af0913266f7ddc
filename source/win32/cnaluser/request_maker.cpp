#include "win32/cnaluser/request_maker.h"

#include <fmt/format.h>

#include <cstring>
#include <set>

#include "frame/failure.h"
#include "frame/full_path.h"
#include "frame/log.h"
#include "model/provider_handles.h"
#include "nal/settings.h"
#include "ork/csp.h"
#include "requests/request_lookup.h"
#include "too/file.h"
#include "too/folder.h"
#include "too/locker.h"
#include "too/path.h"
#include "trust/transport_folder.h"
#include "win32/cnaluser/container_change.h"
#include "win32/cnaluser/container_entries.h"
#include "win32/cnaluser/half_made_request.h"

namespace nal {
namespace {

constexpr char c_context[] = "CNALUser::MakeRequest";
constexpr char c_noNetwork[] = "0000FFFF";  // the network's place holds its first four characters

unsigned ThisYear() {
    SYSTEMTIME now{};
    GetSystemTime(&now);
    return now.wYear;
}

/// The folder of one kind of requests, and the names in it.
class RequestFolder {
public:
    explicit RequestFolder(unsigned type) : m_suffix(type == NAL_REQ_TYPE_EXTERNAL ? "_extu" : "_ownu") {
        const CTOOString station = StationFolder(CurrentTransportFolder());
        m_path = storedev::MakeFullPath(station, type == NAL_REQ_TYPE_EXTERNAL ? "e_users" : "o_users");
        CTOOFolder::MakeFolder(m_path);
        CTOOFolder::MakeFolder(storedev::MakeFullPath(station, "tmp"));
        m_lock = IPC::CreateWriteLockerDeprecated("requests " + m_path);
    }

    /// The storage of the year.
    CTOOString Storage() const { return storedev::MakeFullPath(m_path, fmt::format("{:04}{}.log", ThisYear(), m_suffix)); }
    CTOOString File(const CTOOString& network, DWORD number) const {
        const char* id = network.empty() ? c_noNetwork : network.c_str();
        return storedev::MakeFullPath(m_path, fmt::format("{:.4}{:04}{}.req", id, number, m_suffix));
    }

private:
    const char* m_suffix;
    CTOOString m_path;
    std::unique_ptr<IPC::CLocker> m_lock;  // names are chosen by one process at a time
};

/// The numbers of the requests in a storage.
std::set<DWORD> NumbersIn(CNALReqContextStorage& storage) {
    std::set<DWORD> numbers;
    CNALCertReqContext request;
    for (;;) {
        request.Attach(storage.EnumContexts(request.Detach()));
        if (!request) return numbers;
        DWORD number = 0;
        if (request->Identity.cbData < 2 * sizeof number) continue;
        std::memcpy(&number, request->Identity.pbData + sizeof number, sizeof number);
        numbers.insert(number);
    }
}

/// The running number; one that another process took is passed over.
DWORD TakeNumber(const RequestFolder& folder, CNALReqContextStorage& storage, const CTOOString& network) {
    const std::set<DWORD> taken = NumbersIn(storage);
    for (;;) {
        const DWORD number = NALGetCurrentCertNumber();
        NALAddCurrentCertNumber();
        if (taken.count(number) == 0 && !CTOOFile::Exists(folder.File(network, number))) return number;
    }
}

/// The request with its signatures, DER.
IdentObj Sign(CNALPKCS10Data data, const RequestSigner& signer, unsigned long hProv, unsigned long newKey) {
    if (signer.hKey != 0) {
        const CNALCertInfo info(*signer.cert.GetContext());
        CNALSecondSignature signature;
        signature.m_issuer = info.m_issuer;
        signature.m_serialNumber = info.m_serialNumber;
        signature.m_keyIdentifier = signer.cert.GetSubjectKeyId();
        data.AddSecondSignature(signature, signer.hProv, signer.hKey, nullptr);
    }
    CNALPKCS10Request request;
    request.SignData(data, hProv, newKey, nullptr);
    return request.WriteData();
}

class RequestMaker {
public:
    RequestMaker(CNALUser& user, const RequestPlan& plan)
        : m_user(user),
          m_plan(plan),
          m_change(user.GetProvider(), true),
          m_folder(plan.type),
          m_storage(m_folder.Storage(), NAL_REQ_STORAGE_CREATE),
          m_number(TakeNumber(m_folder, m_storage.Get(), plan.network)) {}

    CNALCertReqContext Run() {
        m_note.storage = m_storage.Get().GetPath();  // a name asked for anew may be that of another year
        m_note.file = FullPath(m_folder.File(m_plan.network, m_number));  // read in another working folder, perhaps
        for (CNALUserKeyInfo& key : ReadEntries(m_user.GetProvider(), CTOOString(), c_context)) {
            m_note.keys.push_back(std::move(key.m_publicKeyInfo));
        }
        m_note.Write(m_change.Container());
        try {
            m_plan.makeKeys();
            m_key = m_user.GetNewPublicKey().WriteData();
            CNALCertReqContext request = Record();
            RemoveNote();
            return request;
        } catch (const XTOOStatus&) {
            Undo();
            throw;
        }
    }

private:
    /// Steps 4 to 6.
    CNALCertReqContext Record() {
        const unsigned long provider = m_user.GetProvider().GetProviderHandle();
        KeyHandle key;
        RequireDone(GoToKey(m_user.GetProvider(), m_key, c_context) && ORKGetUserKey(provider, ORK_KEY_ANY, key.Receive()), c_context);
        NAL_REQ_CONTEXT record{};
        RequireDone(ORKGetKeyParam(key.Get(), ORK_KEY_PARAM_TYPE, record.dwValue), c_context);

        IdentObj identity = MakeRequestIdentity(m_plan.network, m_number);
        IdentObj encoded = Sign(MakeRequestContent(m_plan.from, m_user.GetNewPublicKey(), m_plan.period, identity), m_plan.signer, provider,
                                key.Get());
        CTOOWholeFile file(m_note.file);
        file.Write(encoded);

        CTOOString container = m_change.Container();
        record.Identity = {identity.GetSize(), identity.GetData()};
        record.Request = {encoded.GetSize(), encoded.GetData()};
        record.Container = {static_cast<DWORD>(container.length()), reinterpret_cast<BYTE*>(&container[0])};
        record.dwStatus = NAL_REQ_STATUS_MADE;
        record.dwRequestType = m_plan.type;
        CNALCertReqContext request(m_storage.Get().AddContext(record));
        file.Commit();
        return request;
    }

    /// Everything is made by now: a note that stays is looked at, and removed, when the container is opened next.
    void RemoveNote() noexcept {
        try {
            HalfMadeRequest::Remove(m_change.Container());
        } catch (const XTOOStatus& status) {
            LogError(NAL_HERE("source/win32/cnaluser"), status.what());
        }
    }

    void Undo() noexcept {
        try {
            if (!m_key.IsEmpty()) UndoRequest(m_user.GetProvider(), m_note, m_key);
            // The key may have been made although that was reported as a failure: of its last step.
            RepairHalfMadeRequest(m_user.GetProvider(), m_change.Container());
        } catch (const XTOOStatus& status) {
            LogError(NAL_HERE("source/win32/cnaluser"),
                     m_change.Container() + ": a half-made request is put right when the container is opened next: " + status.what());
        }
    }

    CNALUser& m_user;
    const RequestPlan& m_plan;
    ContainerChange m_change;
    RequestFolder m_folder;
    OpenRequestStorage m_storage;
    DWORD m_number;
    HalfMadeRequest m_note;
    IdentObj m_key;  // empty until the key is made
};

}  // namespace

CNALCertReqContext MakeRequest(CNALUser& user, const RequestPlan& plan) {
    return RequestMaker(user, plan).Run();
}

}  // namespace nal
