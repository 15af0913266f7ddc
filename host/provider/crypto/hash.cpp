#include "host/provider/crypto/hash.h"

#include <algorithm>

#include "host/provider/crypto/gcrypt_handles.h"

namespace nalhost::crypto {

struct Hash::State {
    HashPtr handle;
};

Hash::Hash(const HashParameters& parameters) : m_state(std::make_unique<State>()) {
    StartCrypto();
    gcry_md_hd_t handle = nullptr;
    CheckGcrypt(gcry_md_open(&handle, parameters.gcryptAlgorithm, GCRY_MD_FLAG_SECURE), "opening a hash");
    m_state->handle.reset(handle);
}

Hash::Hash(const Hash& other)
    : m_state(std::make_unique<State>()), m_givenValue(other.m_givenValue), m_finished(other.m_finished) {
    if (m_givenValue) return;
    gcry_md_hd_t copy = nullptr;
    CheckGcrypt(gcry_md_copy(&copy, other.m_state->handle.get()), "duplicating a hash");
    m_state->handle.reset(copy);
}

Hash& Hash::operator=(const Hash& other) {
    if (this != &other) *this = Hash(other);
    return *this;
}

Hash::Hash(Hash&&) noexcept = default;
Hash& Hash::operator=(Hash&&) noexcept = default;
Hash::~Hash() = default;

void Hash::Update(ByteView data) {
    if (m_finished) throw CryptoError(Failure::kBadState, "a finished hash takes no more data");
    gcry_md_write(m_state->handle.get(), data.data(), data.size());
}

// The library below keeps the value in the handle's secure memory, where it is left.
ByteView Hash::FinishedValue() {
    m_finished = true;
    if (m_givenValue) return *m_givenValue;
    const unsigned char* bytes = gcry_md_read(m_state->handle.get(), 0);
    if (!bytes) throw CryptoError(Failure::kInternal, "reading a hash value");
    return {bytes, kDigestSize};
}

Digest Hash::Finish() {
    const ByteView value = FinishedValue();
    Digest digest;
    std::copy(value.begin(), value.end(), digest.begin());
    return digest;
}

SecureBytes Hash::FinishSecret() {
    return SecureBytes(FinishedValue());
}

void Hash::SetValue(const Digest& value) {
    m_givenValue = value;
    m_finished = true;
    m_state->handle.reset();
}

Digest Hash::Of(ByteView data, const HashParameters& parameters) {
    Hash hash(parameters);
    hash.Update(data);
    return hash.Finish();
}

}  // namespace nalhost::crypto
