// An authority for tests: a root whose certificates and CRLs verify, made by the key centre's library.
#pragma once

#include "keycentre/issuer.h"
#include "support/temp_folder.h"

namespace nal_test {

/// A folder with key containers that goes with the object, and a root in it.
class Authority {
public:
    explicit Authority(const keycentre::Profile& profile = keycentre::RootProfile())
        : root(keycentre::Issuer::SelfSigned(NewKey(), keycentre::Name("CN=Root, O=Tests"), profile)) {}

    /// A key pair in a container of its own without a password.
    keycentre::KeyPair NewKey(DWORD algId = ORK_KEY_SIGNATURE, const char* paramOid = nullptr) {
        return keycentre::KeyPair::Create(m_folder.File("key" + std::to_string(++m_count)), "", algId, paramOid);
    }
    const TempFolder& Folder() const { return m_folder; }

private:
    TempFolder m_folder;
    int m_count = 0;

public:
    keycentre::Issuer root;
};

}  // namespace nal_test
