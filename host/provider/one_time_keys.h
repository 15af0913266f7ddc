// The keys that protect private-key blobs made with protection key 0: each is good for one import in this process.
#pragma once

#include <list>
#include <mutex>

#include "host/provider/blob.h"
#include "host/provider/crypto/secure_memory.h"

namespace nalhost::provider {

class OneTimeKeys {
public:
    static OneTimeKeys& Get();

    // A new key under a new random salt. Beyond c_limit keys that nobody took, the oldest is forgotten.
    crypto::SecureBytes Make(Salt& salt);
    // The key of this salt. @throws ProviderError ORK_E_BAD_DATA when there is none
    crypto::SecureBytes Find(const Salt& salt);
    // Ends the key's life.
    void Forget(const Salt& salt);

private:
    static constexpr std::size_t c_limit = 1024;

    struct Entry {
        Salt salt;
        crypto::SecureBytes key;
    };

    std::mutex m_mutex;
    std::list<Entry> m_entries;  // oldest first
};

}  // namespace nalhost::provider
