// ORK* calls on keys, and encryption.
#include <algorithm>

#include "host/provider/blob.h"
#include "host/provider/crypto/random.h"
#include "host/provider/objects.h"
#include "host/provider/transport.h"
#include "host/provider/value.h"
#include "ork/oid_info.h"
#include "ork/provider.h"

namespace {

using namespace nalhost::provider;  // NOLINT(google-build-using-namespace)
namespace crypto = nalhost::crypto;

constexpr DWORD c_sessionKeyBits = 256;
constexpr DWORD c_sessionBlockBits = 64;
constexpr char c_diversifiedWrap[] = "1.2.643.2.2.13.1";
constexpr char c_plainWrap[] = "1.2.643.2.2.13.0";

unsigned long AddKey(const std::shared_ptr<Context>& context, unsigned long hProv, KeyState state) {
    return Keys().Add(std::make_shared<Key>(context, hProv, std::move(state)));
}

KeyState Generate(Context& context, DWORD algId, DWORD flags) {
    const bool later = (flags & ORK_GEN_LATER) != 0;
    if (algId == ORK_ALG_GOST28147) {
        Require(!later, ORK_E_BAD_FLAGS);
        return SessionKey(crypto::RandomSecret(crypto::kCipherKeySize), context.CipherParams(),
                          (flags & ORK_GEN_EXPORTABLE) != 0);
    }
    const KeyFormat format = context.FormatFor(algId);
    if (algId == ORK_ALG_EPHEMERAL) {
        if (later) return PendingKey{format};
        return GeneratePair(format);
    }
    Require(!later, ORK_E_BAD_FLAGS);
    Require(context.HasContainer(), ORK_E_BAD_KEYSET);
    return context.AddKey(format, KeyTypeOf(format.algId), crypto::PrivateKey::Generate(*format.set));
}

IdentObj Export(Key& key, unsigned long hExpKey, DWORD blobType, DWORD flags) {
    Require(flags == 0 || (flags == ORK_EXPORT_TRANSPORT && blobType == ORK_BLOB_SIMPLE), ORK_E_BAD_FLAGS);
    switch (blobType) {
        case ORK_BLOB_PUBLIC: {
            Require(hExpKey == 0, ORK_E_BAD_KEY);
            const AsymmetricKeyRef exported = key.Asymmetric();
            return WritePublicBlob(exported->format, ViewOf(exported->publicKey.Bytes()));
        }
        case ORK_BLOB_SIMPLE: {
            const auto under = Keys().Get(hExpKey);
            // Copied, so that two keys that wrap one another never wait for each other.
            const KeyState state = key.CopyState();
            const auto* session = std::get_if<SessionKey>(&state);
            Require(session != nullptr, ORK_E_BAD_KEY);
            return ExportSessionKey(*session, *under);
        }
        case ORK_BLOB_PRIVATE: {
            const std::shared_ptr<Key> protection = hExpKey == 0 ? nullptr : Keys().Get(hExpKey);
            const AsymmetricKeyRef pair = key.Pair();
            return ExportPrivateKey(*pair, protection.get());
        }
        default:
            Fail(ORK_E_BAD_TYPE);
    }
}

KeyState Import(Context& context, asnt::View blob, unsigned long hKey, DWORD flags) {
    const std::shared_ptr<Key> other = hKey == 0 ? nullptr : Keys().Get(hKey);
    switch (BlobType(blob)) {
        case ORK_BLOB_PUBLIC: {
            AsymmetricKeyRef key = MakePublic(ParsePublicBlob(blob));
            if (!other) return key;
            return Agree(other->Pair(), *key);
        }
        case ORK_BLOB_SIMPLE:
            Require(other != nullptr, ORK_E_BAD_KEY);
            return ImportSessionKey(blob, *other, (flags & ORK_GEN_EXPORTABLE) != 0);
        case ORK_BLOB_PRIVATE: {
            Require(context.HasContainer(), ORK_E_BAD_KEYSET);
            ImportedPrivateKey imported = ImportPrivateKey(blob, other.get());
            KeyState key = context.AddKey(imported.format, KeyTypeOf(imported.format.algId), std::move(imported.key));
            FinishImport(blob);
            return key;
        }
        default:
            Fail(ORK_E_BAD_TYPE);
    }
}

// --- Parameters ---

IdentObj ReadPairParam(Context& context, const AsymmetricKey& key, DWORD param) {
    switch (param) {
        case ORK_KEY_PARAM_ALGID:
            return ValueOfNumber(key.format.algId);
        case ORK_KEY_PARAM_LENGTH:
            return ValueOfNumber<DWORD>(key.format.PublicKeySize() * 8);
        case ORK_KEY_PARAM_CERTIFICATE:
            Require(key.entry != 0, ORK_E_BAD_TYPE);
            return context.Certificate(key.entry);
        case ORK_KEY_PARAM_HASH_PARAMS:
            return ValueOf(key.format.hash->oid);
        case ORK_KEY_PARAM_CIPHER_PARAMS:
            Require(key.format.cipher != nullptr, ORK_E_NOT_FOUND);
            return ValueOf(key.format.cipher->oid);
        case ORK_KEY_PARAM_KEY_PARAMS:
            return ValueOf(key.format.SetOid());
        case ORK_KEY_PARAM_TYPE:
            return ValueOfNumber(key.keyType);
        case ORK_KEY_PARAM_ENTRY:
            Require(key.entry != 0, ORK_E_BAD_TYPE);
            return ValueOf(context.EntryName(key.entry));
        default:
            Fail(ORK_E_BAD_TYPE);
    }
}

IdentObj ReadSessionParam(const SessionKey& key, DWORD param) {
    switch (param) {
        case ORK_KEY_PARAM_IV:
            return {key.Iv().data(), static_cast<unsigned>(key.Iv().size())};
        case ORK_KEY_PARAM_ALGID:
            return ValueOfNumber(ORK_ALG_GOST28147);
        case ORK_KEY_PARAM_BLOCK_LENGTH:
            return ValueOfNumber(c_sessionBlockBits);
        case ORK_KEY_PARAM_LENGTH:
            return ValueOfNumber(c_sessionKeyBits);
        case ORK_KEY_PARAM_MESHING:
            return ValueOfNumber<DWORD>(key.Meshes() ? 1 : 0);
        case ORK_KEY_PARAM_CIPHER_PARAMS:
            return ValueOf(key.Cipher().oid);
        case ORK_KEY_PARAM_TYPE:
            return ValueOfNumber<DWORD>(0);
        default:
            Fail(ORK_E_BAD_TYPE);
    }
}

IdentObj ReadAgreedParam(const AgreedKey& key, DWORD param) {
    switch (param) {
        case ORK_KEY_PARAM_ALGID:
            return ValueOfNumber(ORK_ALG_GOST28147);
        case ORK_KEY_PARAM_LENGTH:
            return ValueOfNumber(c_sessionKeyBits);
        case ORK_KEY_PARAM_HASH_PARAMS:
            return ValueOf(key.own->format.hash->oid);
        case ORK_KEY_PARAM_CIPHER_PARAMS:
            return ValueOf(key.cipher->oid);
        case ORK_KEY_PARAM_WRAP:
            return ValueOf(key.wrap == crypto::KeyWrap::kPlain ? c_plainWrap : c_diversifiedWrap);
        case ORK_KEY_PARAM_KEY_PARAMS:
            return ValueOf(key.own->format.SetOid());
        case ORK_KEY_PARAM_TYPE:
            return ValueOfNumber<DWORD>(0);
        default:
            Fail(ORK_E_BAD_TYPE);
    }
}

IdentObj ReadPendingParam(const PendingKey& key, DWORD param) {
    switch (param) {
        case ORK_KEY_PARAM_ALGID:
            return ValueOfNumber(key.format.algId);
        case ORK_KEY_PARAM_HASH_PARAMS:
            return ValueOf(key.format.hash->oid);
        case ORK_KEY_PARAM_KEY_PARAMS:
            return ValueOf(key.format.SetOid());
        case ORK_KEY_PARAM_TYPE:
            return ValueOfNumber<DWORD>(0);
        default:
            Fail(ORK_E_BAD_KEY_STATE);
    }
}

IdentObj ReadParam(Key& key, DWORD param) {
    if (param == ORK_KEY_PARAM_CONTEXT) {
        Require(Contexts().Contains(key.ContextHandle()), ORK_E_INVALID_HANDLE);
        return ValueOfNumber(key.ContextHandle());
    }
    const KeyState state = key.CopyState();
    if (const auto* pair = std::get_if<AsymmetricKeyRef>(&state)) {
        return ReadPairParam(*key.GetContext(), **pair, param);
    }
    if (const auto* session = std::get_if<SessionKey>(&state)) return ReadSessionParam(*session, param);
    if (const auto* agreed = std::get_if<AgreedKey>(&state)) return ReadAgreedParam(*agreed, param);
    return ReadPendingParam(std::get<PendingKey>(state), param);
}

const crypto::CipherParameters& CipherSet(asnt::View oid) {
    const crypto::CipherParameters* cipher = crypto::FindCipherParameters(TextOf(oid));
    Require(cipher != nullptr, ORK_E_BAD_ALGID);
    return *cipher;
}

const crypto::HashParameters& HashSet(asnt::View oid) {
    const crypto::HashParameters* hash = crypto::FindHashParameters(TextOf(oid));
    Require(hash != nullptr, ORK_E_BAD_ALGID);
    return *hash;
}

void WriteSessionParam(SessionKey& key, DWORD param, asnt::View value) {
    switch (param) {
        case ORK_KEY_PARAM_IV:
            return key.SetIv(Bytes(value));
        case ORK_KEY_PARAM_MESHING: {
            const auto number = NumberOf<DWORD>(value);
            Require(number <= 1, ORK_E_INVALID_PARAMETER);
            return key.SetMeshing(number == 1);
        }
        case ORK_KEY_PARAM_CIPHER_PARAMS:
            return key.SetCipher(CipherSet(value));
        default:
            Fail(ORK_E_BAD_TYPE);
    }
}

void WriteAgreedParam(AgreedKey& key, DWORD param, asnt::View value) {
    switch (param) {
        case ORK_KEY_PARAM_CIPHER_PARAMS:
            key.cipher = &CipherSet(value);
            return;
        case ORK_KEY_PARAM_WRAP: {
            const std::string_view wrap = TextOf(value);
            Require(wrap == c_diversifiedWrap || wrap == c_plainWrap, ORK_E_BAD_ALGID);
            key.wrap = wrap == c_plainWrap ? crypto::KeyWrap::kPlain : crypto::KeyWrap::kCryptoPro;
            return;
        }
        default:
            Fail(ORK_E_BAD_TYPE);
    }
}

// @return the generated pair when the parameter asks for that
AsymmetricKeyRef WritePendingParam(PendingKey& key, DWORD param, asnt::View value) {
    switch (param) {
        case ORK_KEY_PARAM_HASH_PARAMS:
            key.format.hash = &HashSet(value);
            return nullptr;
        case ORK_KEY_PARAM_CIPHER_PARAMS:
            key.format.cipher = &CipherSet(value);
            return nullptr;
        case ORK_KEY_PARAM_KEY_PARAMS: {
            const auto format = FormatForSet(key.format.algId, TextOf(value));
            Require(format.has_value(), ORK_E_BAD_ALGID);
            key.format.set = format->set;
            key.format.isImplied = format->isImplied;
            return nullptr;
        }
        case ORK_KEY_PARAM_GENERATE:
            return GeneratePair(key.format);
        default:
            Fail(ORK_E_BAD_TYPE);
    }
}

void WriteParam(Key& key, DWORD param, asnt::View value) {
    AsymmetricKeyRef pair;
    key.With([&](KeyState& state) {
        if (auto* session = std::get_if<SessionKey>(&state)) return WriteSessionParam(*session, param, value);
        if (auto* pending = std::get_if<PendingKey>(&state)) {
            if (AsymmetricKeyRef generated = WritePendingParam(*pending, param, value)) state = std::move(generated);
            return;
        }
        if (auto* agreed = std::get_if<AgreedKey>(&state)) return WriteAgreedParam(*agreed, param, value);
        pair = std::get<AsymmetricKeyRef>(state);
    });
    if (!pair) return;
    switch (param) {
        case ORK_KEY_PARAM_CERTIFICATE:
            Require(pair->entry != 0, ORK_E_BAD_KEY);
            return key.GetContext()->SetCertificate(pair->entry, value);
        case ORK_KEY_PARAM_GENERATE:
        case ORK_KEY_PARAM_HASH_PARAMS:
        case ORK_KEY_PARAM_CIPHER_PARAMS:
        case ORK_KEY_PARAM_KEY_PARAMS:
            Fail(ORK_E_BAD_KEY_STATE);
        default:
            Fail(ORK_E_BAD_TYPE);
    }
}

template <class Take>
BOOL GetParam(unsigned long hKey, DWORD param, Take&& take) {
    return Guard("ORKGetKeyParam", [&] { take(ReadParam(*Keys().Get(hKey), param)); });
}

BOOL SetParam(unsigned long hKey, DWORD param, asnt::View value) {
    return Guard("ORKSetKeyParam", [&] { WriteParam(*Keys().Get(hKey), param, value); });
}

// --- Encryption ---

void Process(crypto::Direction direction, unsigned long hKey, unsigned long hHash, BOOL final, const void* data,
             DWORD length, void* out) {
    const auto key = Keys().Get(hKey);
    Require(hHash == 0, ORK_E_BAD_HASH);
    Require(length == 0 || (data != nullptr && out != nullptr), ORK_E_INVALID_PARAMETER);
    key->With([&](KeyState& state) {
        auto* session = std::get_if<SessionKey>(&state);
        Require(session != nullptr, ORK_E_BAD_KEY);
        session->Process(direction, final != 0, {static_cast<const std::uint8_t*>(data), length},
                         {static_cast<std::uint8_t*>(out), length});
    });
}

void Process(crypto::Direction direction, unsigned long hKey, unsigned long hHash, BOOL final, const void* data,
             DWORD length, IdentObj& out) {
    // The caller's buffer keeps its memory from piece to piece. It changes size only when the result is sure to come.
    if (out.GetSize() == length) return Process(direction, hKey, hHash, final, data, length, out.GetData());
    IdentObj result;
    result.SetSize(length);
    Process(direction, hKey, hHash, final, data, length, result.GetData());
    out = std::move(result);
}

void RequireOutput(const unsigned long* handle) {
    Require(handle != nullptr, ORK_E_INVALID_PARAMETER);
}

void RequireGenFlags(DWORD flags) {
    Require((flags & ~(ORK_GEN_EXPORTABLE | ORK_GEN_LATER)) == 0, ORK_E_BAD_FLAGS);
}

}  // namespace

BOOL ORKGetUserKey(unsigned long hProv, DWORD keyType, unsigned long* hKey) {
    return Guard("ORKGetUserKey", [&] {
        const auto context = Contexts().Get(hProv);
        RequireOutput(hKey);
        *hKey = AddKey(context, hProv, context->OpenKey(keyType));
    });
}

BOOL ORKGenKey(unsigned long hProv, DWORD algId, DWORD flags, unsigned long* hKey) {
    return Guard("ORKGenKey", [&] {
        const auto context = Contexts().Get(hProv);
        RequireOutput(hKey);
        RequireGenFlags(flags);
        *hKey = AddKey(context, hProv, Generate(*context, algId, flags));
    });
}

BOOL ORKDeriveKey(unsigned long hProv, DWORD algId, unsigned long hBaseData, DWORD flags, unsigned long* hKey) {
    return Guard("ORKDeriveKey", [&] {
        const auto context = Contexts().Get(hProv);
        const auto base = Hashes().Get(hBaseData);
        RequireOutput(hKey);
        Require((flags & ~ORK_GEN_EXPORTABLE) == 0, ORK_E_BAD_FLAGS);
        Require(algId == ORK_ALG_GOST28147, ORK_E_BAD_ALGID);
        const std::lock_guard lock(base->mutex);
        crypto::SecureBytes secret = base->hash.FinishSecret();
        base->isEmpty = false;
        *hKey = AddKey(context, hProv,
                       SessionKey(std::move(secret), context->CipherParams(), (flags & ORK_GEN_EXPORTABLE) != 0));
    });
}

BOOL ORKDuplicateKey(unsigned long hKey, const DWORD* reserved, DWORD flags, unsigned long* hCopy) {
    return Guard("ORKDuplicateKey", [&] {
        const auto key = Keys().Get(hKey);
        RequireOutput(hCopy);
        Require(reserved == nullptr, ORK_E_INVALID_PARAMETER);
        Require(flags == 0, ORK_E_BAD_FLAGS);
        KeyState state = key->CopyState();
        if (const auto* pair = std::get_if<AsymmetricKeyRef>(&state); pair != nullptr && (*pair)->entry != 0) {
            key->GetContext()->MakeCurrent((*pair)->entry);
        }
        *hCopy = AddKey(key->GetContext(), key->ContextHandle(), std::move(state));
    });
}

BOOL ORKDestroyKey(unsigned long hKey) {
    return Guard("ORKDestroyKey", [&] { Keys().Remove(hKey); });
}

BOOL ORKExportKey(unsigned long hProv, unsigned long hKey, unsigned long hExpKey, DWORD blobType, DWORD flags,
                  IdentObj& blob) {
    return Guard("ORKExportKey", [&] {
        Contexts().Get(hProv);
        blob = Export(*Keys().Get(hKey), hExpKey, blobType, flags);
    });
}

BOOL ORKImportKey(unsigned long hProv, const void* blob, DWORD length, unsigned long hKey, DWORD flags,
                  unsigned long* hImported) {
    return Guard("ORKImportKey", [&] {
        const auto context = Contexts().Get(hProv);
        RequireOutput(hImported);
        Require(blob != nullptr, ORK_E_INVALID_PARAMETER);
        Require((flags & ~ORK_GEN_EXPORTABLE) == 0, ORK_E_BAD_FLAGS);
        *hImported = AddKey(context, hProv, Import(*context, {blob, length}, hKey, flags));
    });
}

BOOL ORKImportPKInfo(unsigned long hProv, const void* info, DWORD length, unsigned long* hKey) {
    return Guard("ORKImportPKInfo", [&] {
        const auto context = Contexts().Get(hProv);
        RequireOutput(hKey);
        Require(info != nullptr, ORK_E_INVALID_PARAMETER);
        *hKey = AddKey(context, hProv, MakePublic(ParseSubjectPublicKeyInfo({info, length})));
    });
}

BOOL ORKGetKeyParam(unsigned long hKey, DWORD param, IdentObj& value) {
    return GetParam(hKey, param, [&](IdentObj&& read) { value = std::move(read); });
}

BOOL ORKGetKeyParam(unsigned long hKey, DWORD param, CTOOString& text) {
    return GetParam(hKey, param, [&](const IdentObj& read) { text = CTOOString(TextOf(read)); });
}

BOOL ORKGetKeyParam(unsigned long hKey, DWORD param, DWORD& number) {
    return GetParam(hKey, param, [&](const IdentObj& read) { number = NumberOf<DWORD>(read); });
}

BOOL ORKGetKeyParam(unsigned long hKey, DWORD param, unsigned long& handle) {
    return GetParam(hKey, param, [&](const IdentObj& read) { handle = NumberOf<unsigned long>(read); });
}

BOOL ORKSetKeyParam(unsigned long hKey, DWORD param, const IdentObj& value) {
    return SetParam(hKey, param, value);
}

BOOL ORKSetKeyParam(unsigned long hKey, DWORD param, const char* text) {
    return SetParam(hKey, param,
                    text == nullptr ? asnt::View() : asnt::View(text, std::char_traits<char>::length(text)));
}

BOOL ORKSetKeyParam(unsigned long hKey, DWORD param, DWORD number) {
    return SetParam(hKey, param, {&number, sizeof number});
}

BOOL ORKEncrypt(unsigned long hKey, unsigned long hHash, BOOL final, const void* data, DWORD length, IdentObj& out) {
    return Guard("ORKEncrypt", [&] { Process(crypto::Direction::kEncrypt, hKey, hHash, final, data, length, out); });
}

BOOL ORKEncrypt(unsigned long hKey, unsigned long hHash, BOOL final, const void* data, DWORD length, void* out) {
    return Guard("ORKEncrypt", [&] { Process(crypto::Direction::kEncrypt, hKey, hHash, final, data, length, out); });
}

BOOL ORKDecrypt(unsigned long hKey, unsigned long hHash, BOOL final, const void* data, DWORD length, IdentObj& out) {
    return Guard("ORKDecrypt", [&] { Process(crypto::Direction::kDecrypt, hKey, hHash, final, data, length, out); });
}

BOOL ORKDecrypt(unsigned long hKey, unsigned long hHash, BOOL final, const void* data, DWORD length, void* out) {
    return Guard("ORKDecrypt", [&] { Process(crypto::Direction::kDecrypt, hKey, hHash, final, data, length, out); });
}

BOOL orkcspex::ORKEncodePublicKeyAndParametrs(const IdentObj& blob, CTOOString& algorithm, IdentObj& parameters,
                                              IdentObj& publicKey) {
    return Guard("ORKEncodePublicKeyAndParametrs", [&] {
        const PublicKeyInfo info = ParsePublicBlob(blob);
        CTOOString oid(info.format.AlgorithmOid());
        IdentObj encoded = info.format.EncodeParameters();
        publicKey = WrapPublicKey(info.bytes);
        algorithm = std::move(oid);
        parameters = std::move(encoded);
    });
}
