#include "host/provider/one_time_keys.h"

#include <algorithm>

#include "host/provider/crypto/protection.h"
#include "host/provider/crypto/random.h"
#include "host/provider/failure.h"
#include "ork/constants.h"

namespace nalhost::provider {

OneTimeKeys& OneTimeKeys::Get() {
    static OneTimeKeys keys;
    return keys;
}

crypto::SecureBytes OneTimeKeys::Make(Salt& salt) {
    crypto::FillRandom(salt);
    crypto::SecureBytes key = crypto::RandomSecret(crypto::kProtectionKeySize);
    const std::lock_guard lock(m_mutex);
    if (m_entries.size() == c_limit) m_entries.pop_front();
    m_entries.push_back({salt, key.Clone()});
    return key;
}

crypto::SecureBytes OneTimeKeys::Find(const Salt& salt) {
    const std::lock_guard lock(m_mutex);
    const auto found =
        std::find_if(m_entries.begin(), m_entries.end(), [&](const Entry& entry) { return entry.salt == salt; });
    Require(found != m_entries.end(), ORK_E_BAD_DATA);
    return found->key.Clone();
}

void OneTimeKeys::Forget(const Salt& salt) {
    const std::lock_guard lock(m_mutex);
    m_entries.remove_if([&](const Entry& entry) { return entry.salt == salt; });
}

}  // namespace nalhost::provider
