#include <utility>

#include "frame/failure.h"
#include "nal/context.h"
#include "ork/csp.h"

namespace {

constexpr char c_changeContext[] = "CNALProvider::ChangePassword";

const char* ProviderName(const char* given, unsigned type) {
    if (given != nullptr && *given != '\0') return given;
    return type == 0 ? ORK_PROVIDER_NAME : nullptr;
}

}  // namespace

CNALHProv::~CNALHProv() { ORKReleaseContext(m_handle, 0); }

CNALProvider::CNALProvider(const CNALProvider& other) : m_holder(other.m_holder) {
    if (m_holder != nullptr) m_holder->AddRef();
}

CNALProvider::CNALProvider(CNALProvider&& other) noexcept : m_holder(std::exchange(other.m_holder, nullptr)) {}

CNALProvider& CNALProvider::operator=(const CNALProvider& other) {
    if (other.m_holder != nullptr) other.m_holder->AddRef();
    Reset();
    m_holder = other.m_holder;
    return *this;
}

CNALProvider& CNALProvider::operator=(CNALProvider&& other) noexcept {
    std::swap(m_holder, other.m_holder);
    return *this;
}

CNALProvider::~CNALProvider() { Reset(); }

void CNALProvider::Reset() {
    if (m_holder != nullptr) std::exchange(m_holder, nullptr)->Release();
}

BOOL CNALProvider::Init(const char* container, const char* providerName, unsigned int provType, unsigned int flags, int* error) {
    Reset();
    unsigned long handle = 0;
    nal::Outcome outcome;
    if (!ORKAcquireContext(&handle, container, ProviderName(providerName, provType), provType, flags)) {
        outcome.FailProvider(container);
    } else if (handle != 0) {  // deleting a container gives none
        m_holder = new CNALHProv(handle);  // NOLINT(cppcoreguidelines-owning-memory): counted from here on
    }
    return outcome.Finish(error);
}

BOOL CNALProvider::SetPassword(const char* password) {
    return ORKSetProvParam(GetProviderHandle(), ORK_PARAM_PASSWORD, password, 0);
}

bool CNALProvider::CanChangePassword() const {
    DWORD protection = 0;
    return m_holder != nullptr && ORKGetProvParam(GetProviderHandle(), ORK_PARAM_PROTECTION, protection) != FALSE;
}

BOOL CNALProvider::ChangePassword(const char* newPassword, int* error) {
    nal::Outcome outcome;
    if (!CanChangePassword()) {
        outcome.Fail(TOO_E_NOT_INITIALIZED, c_changeContext);
    } else if (newPassword == nullptr) {
        outcome.Fail(TOO_E_BAD_ARGUMENT, c_changeContext);
    } else if (!ORKSetProvParam(GetProviderHandle(), ORK_PARAM_NEW_PASSWORD, newPassword, 0)) {
        outcome.FailProvider(c_changeContext);
    }
    return outcome.Finish(error);
}
