// The user: opening a container, and the secrets that protect it.
#include "nal/user.h"

#include <strings.h>

#include "frame/failure.h"
#include "frame/log.h"
#include "ork/csp.h"
#include "too/path.h"
#include "win32/cnaluser/container_change.h"
#include "win32/cnaluser/container_entries.h"
#include "win32/cnaluser/half_made_request.h"

namespace {

constexpr char c_defaultFile[] = "sgn_cont";
constexpr unsigned c_fileInFolder = 1;  // kind of MakeContainerName

void Wipe(CTOOString& secret) {
    if (!secret.empty()) explicit_bzero(&secret[0], secret.length());
    secret.clear();
}

/// The new secret takes the place of the old one, which is wiped. No copy is made on the way.
template <class Text>
void Replace(CTOOString& secret, const Text& text) {
    Wipe(secret);
    secret += text;
}

/// The container is there and good: a note that stays hinders no more than the making of keys, which tells so.
void ForgetEarlierContainer(const CNALProvider& provider, const CTOOString& path) {
    try {
        nal::ForgetEarlierContainer(provider);
    } catch (const XTOOStatus& status) {
        nal::LogError(NAL_HERE("source/win32/cnaluser"), path + ": the note of an earlier container cannot be removed: " + status.what());
    }
}

int SetParam(const CNALProvider& provider, DWORD param, const CTOOString& text) {
    return ORKSetProvParam(provider.GetProviderHandle(), param, text.c_str(), 0) ? TOO_OK : nal::LastErrorStatus();
}

}  // namespace

CNALUser::CNALUser() : m_currentKey(m_keys.end()) {}

CNALUser::CNALUser(const CNALUser& other) : CNALUser() {
    *this = other;
}

CNALUser& CNALUser::operator=(const CNALUser& other) {
    if (this == &other) return *this;
    Reset();
    m_path = other.m_path;
    m_password = other.m_password;
    m_pin = other.m_pin;
    m_provider = other.m_provider;
    return *this;
}

CNALUser::~CNALUser() {
    Reset();
}

void CNALUser::Reset() {
    Wipe(m_password);
    Wipe(m_pin);
    m_certificate = CNALCertContext();
    m_newPublicKey = CNALCertPublicKeyInfo();
    DestroyKeys();
    m_provider.Reset();
}

void CNALUser::DestroyKeys() {
    for (const OpenKey& key : m_keys) ORKDestroyKey(key.handle);
    m_keys.clear();
    m_currentKey = m_keys.end();
}

// Keys of the container that was open before are of no use in the next one.
int CNALUser::OpenContainer(const char* path, const char* providerName, unsigned provType, unsigned flags) {
    DestroyKeys();
    int status = TOO_OK;
    m_provider.Init(path, providerName, provType, flags, &status);
    return status;
}

int CNALUser::LogInUser(const char* path, const char* password, const char* pin, bool create) {
    m_path = CTOOString(path);
    Replace(m_password, password);
    Replace(m_pin, pin);
    const bool hasSecret = !m_password.empty() || !m_pin.empty();
    const DWORD flags = (create ? ORK_OPEN_NEW : 0) | (hasSecret ? 0 : ORK_OPEN_NO_PASSWORD);
    int status = OpenContainer(m_path.c_str(), ORK_PROVIDER_NAME, ORK_PROVIDER_TYPE, flags);
    if (status == TOO_OK) status = HandOnSecrets();
    if (status != TOO_OK) return status;
    if (create) {
        ForgetEarlierContainer(m_provider, m_path);
        return TOO_OK;
    }
    nal::Report(&status, [&] {
        const CTOOString unique = nal::UniqueNameOf(m_provider);
        if (!unique.empty() && nal::HalfMadeRequest::Exists(unique)) nal::ContainerChange{m_provider};
    });
    return status;
}

int CNALUser::HandOnSecrets() {
    int status = TOO_OK;
    if (!m_password.empty()) status = SetParam(m_provider, ORK_PARAM_PASSWORD, m_password);
    if (status == TOO_OK && !m_pin.empty()) status = SetParam(m_provider, ORK_PARAM_PIN, m_pin);
    return status;
}

int CNALUser::OpenProvider(const char* path, const char* providerName, unsigned provType, unsigned flags) {
    int status = OpenContainer(path, providerName, provType, flags);
    if (status != TOO_OK || path == nullptr || *path == '\0') return status;
    m_path = CTOOString(path);
    if ((flags & ORK_OPEN_NO_PASSWORD) == 0) return TOO_OK;
    nal::Report(&status, [&] {
        const CTOOString unique = nal::UniqueNameOf(m_provider);
        if (!unique.empty()) m_path = unique;
    });
    return status;
}

int CNALUser::SetPassword(const CTOOString& password) {
    Replace(m_password, password);
    const bool isOpen = m_provider.GetProviderHandle() != 0;
    return isOpen && !m_password.empty() ? SetParam(m_provider, ORK_PARAM_PASSWORD, m_password) : TOO_OK;
}

int CNALUser::SetPIN(const CTOOString& pin) {
    Replace(m_pin, pin);
    const bool isOpen = m_provider.GetProviderHandle() != 0;
    return isOpen && !m_pin.empty() ? SetParam(m_provider, ORK_PARAM_PIN, m_pin) : TOO_OK;
}

int CNALUser::SetDefenceKey(unsigned long key) {
    if (key == 0) return TOO_E_BAD_ARGUMENT;
    if (m_provider.GetProviderHandle() == 0) return TOO_E_NOT_INITIALIZED;
    return ORKSetProvParam(m_provider.GetProviderHandle(), ORK_PARAM_PROTECTION_KEY, key, 0) ? TOO_OK : nal::LastErrorStatus();
}

bool CNALUser::CheckPassword() const {
    constexpr DWORD cancelledByUser = 1223;
    const unsigned long provider = m_provider.GetProviderHandle();
    if (provider == 0) return false;
    const auto lock = m_provider.Lock();
    nal::KeyHandle key;
    if (ORKGetUserKey(provider, ORK_KEY_SIGNATURE, key.Receive())) return true;
    return GetLastError() != cancelledByUser && ORKGetUserKey(provider, ORK_KEY_EXCHANGE, key.Receive());
}

bool CNALUser::CanChangePassword(const char* path) {
    CNALProvider provider;
    int status = TOO_OK;
    return provider.Init(path, ORK_PROVIDER_NAME, ORK_PROVIDER_TYPE, ORK_OPEN_SILENT, &status) && provider.CanChangePassword();
}

BOOL CNALUser::ChangePassword(const char* newPassword, int* err) {
    if (!m_provider.ChangePassword(newPassword, err)) return FALSE;
    Replace(m_password, newPassword);
    return TRUE;
}

BOOL CNALUser::ChangePIN(const char* newPIN, int* err) {
    constexpr char context[] = "CNALUser::ChangePIN";
    return nal::Report(err, nullptr, [&] {
        if (!m_provider.CanChangePassword()) throw XTOOStatus(TOO_E_NOT_INITIALIZED, context);
        if (newPIN == nullptr) throw XTOOStatus(TOO_E_BAD_ARGUMENT, context);
        nal::RequireDone(ORKSetProvParam(m_provider.GetProviderHandle(), ORK_PARAM_NEW_PIN, newPIN, 0), context);
        Replace(m_pin, newPIN);
    });
}

CTOOString CNALUser::MakeContainerName(const char* path, unsigned kind) {
    CTOOString given(path);
    CTOOString folder;
    CTOOString name;
    if (kind != c_fileInFolder || !storedev::ParseFullPath(given, folder, name)) return given;
    return storedev::MakeFullPath(folder, name.empty() ? CTOOString(c_defaultFile) : name);
}
