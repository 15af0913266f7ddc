#include "host/provider/crypto/cipher.h"

#include "host/provider/crypto/gcrypt_handles.h"
#include "host/provider/crypto/symmetric/cfb_run.h"

namespace nalhost::crypto {
namespace {

// libgcrypt's default S-box is the hash's test set, so the set is always named, and before the key.
void SetSbox(gcry_cipher_hd_t handle, const CipherParameters& parameters) {
    CheckGcrypt(gcry_cipher_ctl(handle, GCRYCTL_SET_SBOX, const_cast<char*>(parameters.oid), 0),
                "choosing the S-boxes");
}

CipherPtr OpenCipher(int algorithm, int mode, const CipherParameters& parameters, ByteView key) {
    StartCrypto();
    RequireSize(key, kCipherKeySize, "The key");
    gcry_cipher_hd_t opened = nullptr;
    CheckGcrypt(gcry_cipher_open(&opened, algorithm, mode, GCRY_CIPHER_SECURE), "opening a cipher");
    CipherPtr handle(opened);
    SetSbox(opened, parameters);
    CheckGcrypt(gcry_cipher_setkey(opened, key.data(), key.size()), "setting the cipher's key");
    return handle;
}

void Process(gcry_cipher_hd_t handle, Direction direction, ByteView in, ByteSpan out) {
    if (in.empty()) return;
    // libgcrypt takes "in place" as no input at all.
    const bool inPlace = in.data() == out.data();
    const void* source = inPlace ? nullptr : in.data();
    const std::size_t sourceSize = inPlace ? 0 : in.size();
    if (direction == Direction::kEncrypt) {
        CheckGcrypt(gcry_cipher_encrypt(handle, out.data(), out.size(), source, sourceSize), "encrypting");
    } else {
        CheckGcrypt(gcry_cipher_decrypt(handle, out.data(), out.size(), source, sourceSize), "decrypting");
    }
}

}  // namespace

// The handle is libgcrypt's, the run that of a kernel of our own: one of them is there.
struct CfbCipher::State {
    CipherPtr handle;
    SecureObject<symmetric::CfbRun> run;
    symmetric::CfbKernel kernel{};
    const SboxTables* boxes = nullptr;
};

CfbCipher::CfbCipher(Direction direction, const CipherParameters& parameters, KeyMeshing meshing, ByteView key,
                     ByteView iv, Kernel kernel)
    : m_state(std::make_unique<State>()), m_direction(direction) {
    const bool meshes = meshing == KeyMeshing::kOfParameterSet && parameters.meshes;
    if (kernel != Kernel::kReference) {
        StartCrypto();
        RequireSize(key, kCipherKeySize, "The key");
        RequireSize(iv, kCipherBlockSize, "The initialisation vector");
        m_state->run = SecureObject<symmetric::CfbRun>::Make();
        m_state->kernel = symmetric::ChooseCfbKernel(kernel);
        m_state->boxes = parameters.boxes;
        symmetric::StartCfb(*m_state->run, key, iv, meshes);
        return;
    }
    m_state->handle =
        OpenCipher(meshes ? GCRY_CIPHER_GOST28147_MESH : GCRY_CIPHER_GOST28147, GCRY_CIPHER_MODE_CFB, parameters, key);
    RequireSize(iv, kCipherBlockSize, "The initialisation vector");
    CheckGcrypt(gcry_cipher_setiv(m_state->handle.get(), iv.data(), iv.size()), "setting the initialisation vector");
}

CfbCipher::CfbCipher(CfbCipher&&) noexcept = default;
CfbCipher& CfbCipher::operator=(CfbCipher&&) noexcept = default;
CfbCipher::~CfbCipher() = default;

void CfbCipher::Process(ByteView in, ByteSpan out) {
    RequireSize(out, in.size(), "The output");
    if (!m_state->run) return crypto::Process(m_state->handle.get(), m_direction, in, out);
    if (m_direction == Direction::kEncrypt) {
        symmetric::EncryptCfb(*m_state->boxes, m_state->kernel, *m_state->run, in, out);
    } else {
        symmetric::DecryptCfb(*m_state->boxes, m_state->kernel, *m_state->run, in, out);
    }
}

void ProcessEcb(Direction direction, const CipherParameters& parameters, ByteView key, ByteSpan data) {
    if (data.size() % kCipherBlockSize != 0) throw CryptoError(Failure::kBadLength, "The data are not of whole blocks");
    const CipherPtr handle = OpenCipher(GCRY_CIPHER_GOST28147, GCRY_CIPHER_MODE_ECB, parameters, key);
    Process(handle.get(), direction, data, data);
}

struct MacCode::State {
    MacPtr handle;
    Mac value{};
};

MacCode::MacCode(const CipherParameters& parameters, ByteView key, ByteView iv) : m_state(std::make_unique<State>()) {
    StartCrypto();
    RequireSize(key, kCipherKeySize, "The key");
    RequireSize(iv, kCipherBlockSize, "The initialisation vector");
    gcry_mac_hd_t handle = nullptr;
    CheckGcrypt(gcry_mac_open(&handle, GCRY_MAC_GOST28147_IMIT, GCRY_MAC_FLAG_SECURE, nullptr),
                "opening an authentication code");
    m_state->handle.reset(handle);
    CheckGcrypt(gcry_mac_ctl(handle, GCRYCTL_SET_SBOX, const_cast<char*>(parameters.oid), 0), "choosing the S-boxes");
    CheckGcrypt(gcry_mac_setkey(handle, key.data(), key.size()), "setting the code's key");
    CheckGcrypt(gcry_mac_setiv(handle, iv.data(), iv.size()), "setting the initialisation vector");
}

MacCode::MacCode(MacCode&&) noexcept = default;
MacCode& MacCode::operator=(MacCode&&) noexcept = default;
MacCode::~MacCode() = default;

void MacCode::Update(ByteView data) {
    if (!m_state->handle) throw CryptoError(Failure::kBadState, "a finished authentication code takes no more data");
    if (!data.empty()) CheckGcrypt(gcry_mac_write(m_state->handle.get(), data.data(), data.size()), "authenticating");
}

Mac MacCode::Finish() {
    // A handle that has served one message gives wrong codes for the next, so it ends here.
    if (m_state->handle) {
        std::size_t size = m_state->value.size();
        CheckGcrypt(gcry_mac_read(m_state->handle.get(), m_state->value.data(), &size),
                    "reading an authentication code");
        m_state->handle.reset();
    }
    return m_state->value;
}

}  // namespace nalhost::crypto
