// Moving keys from one container to another.
//
//   1  the target is made, which must not exist, and gets its secrets
//   2  entry by entry, the key travels under the protection key and its certificate after it, until the target holds all
//   3  the source is deleted
//   4  the user opens the target
//
// Before step 3 a failure deletes the target; a process that dies leaves the source whole, and perhaps a target with some of the keys.
// From step 3 on the target is whole.
#include <algorithm>
#include <utility>

#include "frame/failure.h"
#include "frame/log.h"
#include "nal/user.h"
#include "ork/csp.h"
#include "too/path.h"
#include "win32/cnaluser/container_change.h"
#include "win32/cnaluser/container_entries.h"

namespace {

constexpr char c_context[] = "CNALUser::TransferKeys";

void Require(int status) {
    if (status != TOO_OK) throw XTOOStatus(status, c_context);
}

CNALProvider Open(const CTOOString& path, DWORD flags) {
    CNALProvider provider;
    int status = TOO_OK;
    provider.Init(path.c_str(), ORK_PROVIDER_NAME, ORK_PROVIDER_TYPE, flags, &status);
    Require(status);
    return provider;
}

void SetSecret(const CNALProvider& provider, DWORD param, const CTOOString& secret) {
    if (secret.empty()) return;
    nal::RequireDone(ORKSetProvParam(provider.GetProviderHandle(), param, secret.c_str(), 0), c_context);
}

/// The container behind a path, if there is one.
CTOOString UniqueNameAt(const CTOOString& path) {
    try {
        return nal::UniqueNameOf(Open(path, ORK_OPEN_SILENT | ORK_OPEN_NO_PASSWORD));
    } catch (const XTOOStatus&) {
        return {};
    }
}

void DeleteContainer(const CTOOString& path) {
    CTOOString folder;
    CTOOString name;
    storedev::ParseFullPath(path, folder, name);
    Open(storedev::MakeFullPath(folder, name), ORK_OPEN_DELETE);
}

/// The container that keys move to; it is deleted with this object unless it was kept.
class Target {
public:
    Target(const CTOOString& path, const CTOOString& password, const CTOOString& pin, unsigned long defenceKey)
        : m_provider(Open(path, ORK_OPEN_NEW | ORK_OPEN_SILENT)), m_name(path) {
        try {
            const CTOOString unique = nal::UniqueNameOf(m_provider);  // the path may be a bare name
            if (!unique.empty()) m_name = unique;
            nal::ForgetEarlierContainer(m_provider);
            nal::RequireDone(ORKSetProvParam(Handle(), ORK_PARAM_PROTECTION_KEY, defenceKey, 0), c_context);
            SetSecret(m_provider, ORK_PARAM_PASSWORD, password);
            SetSecret(m_provider, ORK_PARAM_PIN, pin);
        } catch (const XTOOStatus&) {
            Undo();
            throw;
        }
    }
    ~Target() {
        if (!m_isKept) Undo();
    }
    Target(const Target&) = delete;
    Target& operator=(const Target&) = delete;

    const CNALProvider& Provider() const { return m_provider; }
    unsigned long Handle() const { return m_provider.GetProviderHandle(); }
    void Keep() { m_isKept = true; }

private:
    void Undo() noexcept {
        try {
            DeleteContainer(m_name);
        } catch (const XTOOStatus& status) {
            nal::LogError(NAL_HERE("source/win32/cnaluser"), m_name + ": the container cannot be deleted: " + status.what());
        }
    }

    CNALProvider m_provider;
    CTOOString m_name;
    bool m_isKept = false;
};

/// The keys of one container on their way into another.
class Transfer {
public:
    Transfer(const CNALProvider& source, const Target& target, unsigned long defenceKey)
        : m_source(source), m_target(target), m_defenceKey(defenceKey) {}

    /// Copies until nothing is missing: a process that does not use this library may add keys meanwhile.
    void Run() {
        while (CopyMissing()) {
        }
    }

    /// Whether the source went away or was replaced, so that what was copied may be all there is.
    bool IsSourceGone() const {
        DWORD protection = 0;
        if (ORKGetProvParam(m_source.GetProviderHandle(), ORK_PARAM_PROTECTION, protection)) return false;
        return GetLastError() == ORK_E_BAD_KEYSET || GetLastError() == ORK_E_DAMAGED;
    }
    bool HasCopied() const { return m_hasCopied; }

private:
    bool CopyMissing() {
        const std::list<CNALUserKeyInfo> present = nal::ReadEntries(m_target.Provider(), CTOOString(), c_context);
        bool isComplete = true;
        nal::EntryWalk walk(m_source.GetProviderHandle(), c_context);
        while (walk.Next()) {
            const CNALUserKeyInfo key = walk.Read(CTOOString());
            const auto found = std::find_if(present.begin(), present.end(), [&](const CNALUserKeyInfo& other) {
                return other.m_publicKeyInfo == key.m_publicKeyInfo;
            });
            if (found != present.end() && found->m_certificate == key.m_certificate) continue;
            isComplete = false;
            const nal::KeyHandle opened = walk.OpenKey();
            nal::RequireDone(static_cast<bool>(opened), c_context);
            Bind(found == present.end() ? Copy(opened) : OpenCopy(key), opened);
        }
        return !isComplete;
    }

    nal::KeyHandle Copy(const nal::KeyHandle& key) {
        IdentObj blob;
        nal::RequireDone(ORKExportKey(m_source.GetProviderHandle(), key.Get(), m_defenceKey, ORK_BLOB_PRIVATE, 0, blob), c_context);
        nal::KeyHandle copy;
        nal::RequireDone(ORKImportKey(m_target.Handle(), blob.GetData(), blob.GetSize(), m_defenceKey, 0, copy.Receive()), c_context);
        m_hasCopied = true;
        return copy;
    }

    nal::KeyHandle OpenCopy(const CNALUserKeyInfo& key) const {
        nal::KeyHandle copy;
        nal::RequireDone(nal::GoToKey(m_target.Provider(), key.m_publicKeyInfo, c_context) &&
                             ORKGetUserKey(m_target.Handle(), ORK_KEY_ANY, copy.Receive()),
                         c_context);
        return copy;
    }

    /// The certificate as it is bound, whether or not this library can read it.
    static void Bind(const nal::KeyHandle& copy, const nal::KeyHandle& key) {
        IdentObj certificate;
        if (ORKGetKeyParam(key.Get(), ORK_KEY_PARAM_CERTIFICATE, certificate)) {
            nal::RequireDone(ORKSetKeyParam(copy.Get(), ORK_KEY_PARAM_CERTIFICATE, certificate), c_context);
        } else {
            nal::RequireDone(GetLastError() == ORK_E_NOT_FOUND, c_context);
        }
    }

    const CNALProvider& m_source;
    const Target& m_target;
    unsigned long m_defenceKey;
    bool m_hasCopied = false;
};

void DeleteSource(const CTOOString& name, const Transfer& transfer) {
    try {
        DeleteContainer(name);
    } catch (const XTOOStatus&) {
        if (!transfer.IsSourceGone()) throw;  // gone all the same: the target has everything
    }
}

}  // namespace

BOOL CNALUser::TransferKeys(const CTOOString& newPath, const CTOOString& newPIN, unsigned long defenceKey, int* err) {
    return TransferKeys(newPath, CTOOString(), newPIN, defenceKey, err, nullptr);
}

BOOL CNALUser::TransferKeys(const CTOOString& newPath, const CTOOString& newPassword, const CTOOString& newPIN,
                            unsigned long defenceKey, int* err, CTOOString* msg) {
    return nal::Report(err, msg, [&] {
        if (m_provider.GetProviderHandle() == 0) Require(TOO_E_NOT_INITIALIZED);
        if (newPath.empty()) Require(TOO_E_BAD_ARGUMENT);
        const CNALProvider source = m_provider;  // keeps the lock's owner while the user goes over to the target
        const auto lock = source.Lock();
        const nal::ContainerChange change(source, true);
        if (newPath == m_path || UniqueNameAt(newPath) == change.Container()) Require(TOO_E_SAME_CONTAINER);

        CNALProvider moved;
        {
            Target target(newPath, newPassword, newPIN, defenceKey);
            Transfer transfer(source, target, defenceKey);
            try {
                transfer.Run();
                DeleteSource(change.Container(), transfer);
            } catch (const XTOOStatus&) {
                if (!transfer.HasCopied() || !transfer.IsSourceGone()) throw;
                target.Keep();
                Require(TOO_E_TRANSFER);
            }
            target.Keep();
            moved = target.Provider();
        }
        const int status = OpenContainer(newPath.c_str(), ORK_PROVIDER_NAME, ORK_PROVIDER_TYPE, 0);
        if (status != TOO_OK) m_provider = moved;
        m_path = newPath;
        Require(SetPassword(newPassword));
        Require(SetPIN(newPIN));
        if (defenceKey != 0) Require(SetDefenceKey(defenceKey));
    });
}
