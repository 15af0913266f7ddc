#include "frame/failure.h"
#include "nal/sign.h"
#include "nal/user.h"
#include "ork/provider.h"
#include "too/status.h"

namespace {

constexpr char c_context[] = "NALGetKeyData";
constexpr char c_userContext[] = "NALGetKeyData::CNALUser";

bool IsOurs(const CNALProvider& provider) {
    CTOOString name;
    return provider.GetProviderHandle() != 0 && ORKGetProvParam(provider.GetProviderHandle(), ORK_PARAM_NAME, name) &&
           name == ORK_PROVIDER_NAME;
}

}  // namespace

int NALGetKeyData(const CNALUser& user, CNALCertContext& cert, CNALProvider& prov, unsigned long* hKey) {
    if (hKey == nullptr || !cert.IsInitialized()) throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_context);
    const CNALProvider provider = user.GetProvider();
    if (!IsOurs(provider)) throw XTOOStatus(TOO_E_NOT_INITIALIZED, c_userContext);
    // Held until the copy is made: its making is what leaves the entry current.
    const auto lock = provider.Lock();
    int err = TOO_OK;
    const unsigned long users = user.GetUserKey(cert.GetPrivateKeyType(), &cert, &err, nullptr);
    if (users == 0) throw XTOOStatus(err, c_context);
    if (!ORKDuplicateKey(users, nullptr, 0, hKey)) throw XTOOStatus(nal::LastErrorStatus(), c_context);
    prov = provider;
    return TRUE;
}
