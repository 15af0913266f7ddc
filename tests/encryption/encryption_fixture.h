// People with keys and certificates who send one another encrypted messages, and a count of what the provider still holds.
#pragma once

#include <algorithm>
#include <filesystem>
#include <list>
#include <memory>
#include <string>

#include "host/provider/objects.h"
#include "nal/encrypt.h"
#include "nal/storage.h"
#include "nal/user.h"
#include "support/authority.h"
#include "support/folder_test.h"
#include "support/status_of.h"
#include "too/testing.h"

namespace nal_test {

/// The handles of contexts, keys and hashes that are open in the process.
inline std::size_t OpenHandles() {
    namespace provider = nalhost::provider;
    return provider::Contexts().Size() + provider::Keys().Size() + provider::Hashes().Size();
}

/// One owner of a key, whose certificate is bound to it in its container.
struct KeyHolder {
    CTOOString container;
    CNALCertContext cert;
    std::unique_ptr<CNALUser> user = std::make_unique<CNALUser>();
};

class EncryptionTest : public FolderTest {
protected:
    KeyHolder MakePerson(const std::string& name, DWORD algId = ORK_KEY_SIGNATURE, const char* paramOid = nullptr, bool binds = true) {
        KeyHolder person;
        const keycentre::KeyPair key = m_authority.NewKey(algId, paramOid);
        person.container = key.GetContainer();
        const keycentre::Profile profile = keycentre::ExchangeProfile();
        const IdentObj der = m_authority.root.Certify(keycentre::Name("CN=" + name), key.GetPublicKey(), profile);
        person.cert = CNALCertContext(der);
        if (binds) key.Bind(der);
        EXPECT_EQ(person.user->LogInUser(person.container.c_str(), nullptr, nullptr, false), 0);
        return person;
    }

    static WhatToSignStruct InPieces(const std::string& path) {
        WhatToSignStruct what = InFile(path);
        what.flags |= c_NAL_CONTENT_IN_PIECES;
        return what;
    }

    static IdentObj Encrypt(const IdentObj& bytes, const std::list<CNALCertContext>& recipients) {
        IdentObj message;
        EXPECT_EQ(NALEncryptMem(InMemory(bytes), recipients, message, nullptr), 1);
        return message;
    }

    /// Decrypts into the out folder. @return the status
    int DecryptToFile(const IdentObj& message, CNALUser* user, CNALCertStorage* storage = nullptr) const {
        WhatToSignStruct what = InMemory(message);
        int err = -1;
        NALDecryptFile(what, user, storage, m_out.c_str(), &err);
        return err;
    }

    /// Whether any file of the out folder holds 16 bytes or more of `plain`, which are taken from its beginning, its middle and its end.
    bool IsPlaintextLeft(const IdentObj& plain) const {
        const std::size_t window = std::min<std::size_t>(16, plain.GetSize());
        for (const auto& entry : std::filesystem::recursive_directory_iterator(m_outFolder.Path())) {
            if (!entry.is_regular_file()) continue;
            const Bytes bytes = ReadFile(entry.path().string());
            for (const std::size_t start : {std::size_t{0}, (plain.GetSize() - window) / 2, plain.GetSize() - window}) {
                const unsigned char* from = plain.GetData() + start;
                if (std::search(bytes.begin(), bytes.end(), from, from + window) != bytes.end()) return true;
            }
        }
        return false;
    }
    std::size_t OutFiles() const {
        using Walk = std::filesystem::directory_iterator;
        return static_cast<std::size_t>(std::distance(Walk(m_outFolder.Path()), Walk()));
    }

    Authority m_authority;
    TempFolder m_outFolder;
    std::string m_source = Path("source");
    std::string m_message = Path("message");
    std::string m_out = m_outFolder.File("out");
};

}  // namespace nal_test
