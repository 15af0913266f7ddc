// Keys under other keys: session keys in simple blobs, private keys in private-key blobs.
#pragma once

#include "host/provider/crypto/secure_memory.h"
#include "host/provider/key.h"
#include "too/ident_obj.h"

namespace nalhost::provider {

// Wraps a session key. @param under  an agreed key, or a session key that is used as it is
// @throws ProviderError ORK_E_BAD_KEY, ORK_E_BAD_KEY_STATE when the key may not be exported
IdentObj ExportSessionKey(const SessionKey& key, Key& under);
// @throws ProviderError ORK_E_BAD_DATA when the blob was not made with this key
SessionKey ImportSessionKey(asnt::View blob, Key& under, bool isExportable);

// Seals a private key. @param protection  an agreed or session key; null: a one-time key
IdentObj ExportPrivateKey(const AsymmetricKey& key, Key* protection);

struct ImportedPrivateKey {
    KeyFormat format;
    crypto::PrivateKey key;
};
// @throws ProviderError ORK_E_BAD_DATA when the blob was not made with this key, or a one-time key was used up
ImportedPrivateKey ImportPrivateKey(asnt::View blob, Key* protection);
// Ends the life of the one-time key of a blob that was imported.
void FinishImport(asnt::View blob);

// The 32 bytes that a protection key contributes to a container's key.
crypto::SecureBytes ContainerProtection(Key& protection);

}  // namespace nalhost::provider
