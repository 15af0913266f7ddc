#include "host/provider/crypto/hash.h"

#include <algorithm>
#include <utility>

#include "host/provider/crypto/gcrypt_handles.h"
#include "host/provider/crypto/symmetric/hash_run.h"

namespace nalhost::crypto {

// The handle is libgcrypt's, the run that of a kernel of our own: one of them is there.
struct Hash::State {
    HashPtr handle;
    SecureObject<symmetric::HashRun> run;
    const SboxTables* boxes = nullptr;
    symmetric::HashBlocks kernel = nullptr;
};

Hash::Hash(const HashParameters& parameters, Kernel kernel) : m_state(std::make_unique<State>()) {
    StartCrypto();
    if (kernel != Kernel::kReference) {
        m_state->run = SecureObject<symmetric::HashRun>::Make();
        m_state->boxes = parameters.boxes;
        m_state->kernel = symmetric::HashBlocksOf(kernel);
        return;
    }
    gcry_md_hd_t handle = nullptr;
    CheckGcrypt(gcry_md_open(&handle, parameters.gcryptAlgorithm, GCRY_MD_FLAG_SECURE), "opening a hash");
    m_state->handle.reset(handle);
}

Hash::Hash(const Hash& other)
    : m_state(std::make_unique<State>()), m_givenValue(other.m_givenValue), m_finished(other.m_finished) {
    if (m_givenValue) return;
    if (other.m_state->run) {
        m_state->run = other.m_state->run.Clone();
        m_state->boxes = other.m_state->boxes;
        m_state->kernel = other.m_state->kernel;
        return;
    }
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
    if (m_state->run) return symmetric::UpdateHash(*m_state->boxes, m_state->kernel, *m_state->run, data);
    gcry_md_write(m_state->handle.get(), data.data(), data.size());
}

// The value is left where it is, in secure memory.
ByteView Hash::FinishedValue() {
    const bool wasFinished = std::exchange(m_finished, true);
    if (m_givenValue) return *m_givenValue;
    if (m_state->run) {
        symmetric::HashRun& run = *m_state->run;
        if (!wasFinished) symmetric::FinishHash(*m_state->boxes, m_state->kernel, run);
        return run.digest;
    }
    const unsigned char* bytes = nullptr;
    WithWipedStack([&] { bytes = gcry_md_read(m_state->handle.get(), 0); });
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
    m_state->run.Clear();
}

Digest Hash::Of(ByteView data, const HashParameters& parameters) {
    Hash hash(parameters);
    hash.Update(data);
    return hash.Finish();
}

}  // namespace nalhost::crypto
