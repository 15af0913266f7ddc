#include "host/provider/crypto/hash.h"

#include <algorithm>

#include "host/provider/crypto/gcrypt_handles.h"

namespace nalhost::crypto {

struct Hash::State {
    HashPtr handle;
};

namespace {

// Reading ends a hash in libgcrypt, and a value is always of 32 bytes here.
void ReadValue(gcry_md_hd_t handle, Digest& value) {
    const unsigned char* bytes = gcry_md_read(handle, 0);
    if (!bytes) throw CryptoError(Failure::kInternal, "reading a hash value");
    std::copy_n(bytes, value.size(), value.begin());
}

HashPtr Duplicate(gcry_md_hd_t handle) {
    gcry_md_hd_t copy = nullptr;
    CheckGcrypt(gcry_md_copy(&copy, handle), "duplicating a hash");
    return HashPtr(copy);
}

}  // namespace

Hash::Hash(const HashParameters& parameters) : m_parameters(&parameters), m_state(std::make_unique<State>()) {
    StartCrypto();
    gcry_md_hd_t handle = nullptr;
    CheckGcrypt(gcry_md_open(&handle, parameters.gcryptAlgorithm, GCRY_MD_FLAG_SECURE), "opening a hash");
    m_state->handle.reset(handle);
}

Hash::Hash(const Hash& other)
    : m_parameters(other.m_parameters),
      m_state(std::make_unique<State>()),
      m_value(other.m_value),
      m_finished(other.m_finished) {
    if (!m_finished) m_state->handle = Duplicate(other.m_state->handle.get());
}

Hash& Hash::operator=(const Hash& other) {
    if (this != &other) *this = Hash(other);
    return *this;
}

Hash::Hash(Hash&&) noexcept = default;
Hash& Hash::operator=(Hash&&) noexcept = default;

Hash::~Hash() {
    Wipe(m_value.data(), m_value.size());
}

void Hash::Update(ByteView data) {
    if (m_finished) throw CryptoError(Failure::kBadState, "a finished hash takes no more data");
    gcry_md_write(m_state->handle.get(), data.data(), data.size());
}

const Digest& Hash::Finish() {
    if (!m_finished) {
        ReadValue(m_state->handle.get(), m_value);
        m_finished = true;
        m_state->handle.reset();
    }
    return m_value;
}

Digest Hash::Peek() const {
    if (m_finished) return m_value;
    Digest value;
    ReadValue(Duplicate(m_state->handle.get()).get(), value);
    return value;
}

void Hash::SetValue(const Digest& value) {
    m_value = value;
    m_finished = true;
    m_state->handle.reset();
}

Digest Hash::Of(ByteView data, const HashParameters& parameters) {
    Hash hash(parameters);
    hash.Update(data);
    return hash.Finish();
}

}  // namespace nalhost::crypto
