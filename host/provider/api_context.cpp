// ORK* calls on contexts.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <mutex>

#include "host/provider/crypto/error.h"
#include "host/provider/crypto/random.h"
#include "host/provider/objects.h"
#include "host/provider/transport.h"
#include "host/provider/value.h"
#include "ork/provider.h"
#include "orklog/orklog.h"

namespace {

using namespace nalhost::provider;  // NOLINT(google-build-using-namespace)
namespace crypto = nalhost::crypto;

constexpr DWORD c_version = 0x0100;

struct ListedAlgorithm {
    DWORD algId;
    DWORD bits;
    const char* name;
};

constexpr ListedAlgorithm c_algorithms[] = {
    {ORK_ALG_GOSTR3411, 256, "GOST R 34.11-94"},      {ORK_ALG_PRIVATE_HASH, 256, "Ormatek hash"},
    {ORK_ALG_GOST28147, 256, "GOST 28147-89"},        {ORK_ALG_GOST2001_SIGN, 512, "GOST R 34.10-2001"},
    {ORK_ALG_GOST94_SIGN, 1024, "GOST R 34.10-94"},   {ORK_ALG_PRIVATE_SIGN, 1024, "Ormatek signature"},
    {ORK_ALG_GOST2001_EXCHANGE, 512, "GOST 2001 DH"}, {ORK_ALG_GOST94_EXCHANGE, 1024, "GOST 94 DH"},
    {ORK_ALG_EPHEMERAL, 512, "GOST ephemeral DH"},
};

IdentObj AlgorithmRecord(const ListedAlgorithm& algorithm) {
    ORKAlgInfo info{};
    info.aiAlgid = algorithm.algId;
    info.dwBitLen = algorithm.bits;
    const std::size_t length = std::min(std::strlen(algorithm.name), sizeof info.szName - 1);
    std::memcpy(info.szName, algorithm.name, length);
    info.dwNameLen = static_cast<DWORD>(length + 1);
    return {&info, sizeof info};
}

void CheckProvider(const char* name, DWORD type) {
    const bool isNamed = name != nullptr && *name != 0;
    Require(!isNamed || std::strcmp(name, ORK_PROVIDER_NAME) == 0, ORK_E_PROVIDER_NOT_REGISTERED);
    Require(type == ORK_PROVIDER_TYPE || (type == 0 && isNamed), ORK_E_TYPE_NOT_REGISTERED);
}

void CheckOpenFlags(DWORD flags, bool isNamed) {
    if ((flags & ORK_OPEN_VERIFY) == ORK_OPEN_VERIFY) {
        Require((flags & ~(ORK_OPEN_VERIFY | ORK_OPEN_SILENT)) == 0 && !isNamed, ORK_E_BAD_FLAGS);
        return;
    }
    constexpr DWORD known = ORK_OPEN_NEW | ORK_OPEN_DELETE | ORK_OPEN_SILENT | ORK_OPEN_NO_PASSWORD;
    Require((flags & ~known) == 0, ORK_E_BAD_FLAGS);
    Require((flags & ORK_OPEN_NEW) == 0 || (flags & ORK_OPEN_DELETE) == 0, ORK_E_BAD_FLAGS);
}

std::shared_ptr<Context> OpenContainer(const std::string& name, bool isNew) {
    if (isNew) {
        return std::make_shared<Context>(Container::Create(ContainerName::ParseNew(name)), name, 0);
    }
    const ContainerName parsed = ContainerName::Parse(name);
    Container container = Container::Open(parsed);
    Require(parsed.entry == 0 || container.File().Find(parsed.entry) != nullptr, ORK_E_NO_KEY);
    return std::make_shared<Context>(std::move(container), name, parsed.entry);
}

IdentObj ReadParam(Context& context, DWORD param, DWORD flags) {
    const bool first = (flags & ORK_ENUM_FIRST) != 0;
    switch (param) {
        case ORK_PARAM_ENUM_ALGS:
            return AlgorithmRecord(c_algorithms[context.NextAlgorithm(first, std::size(c_algorithms))]);
        case ORK_PARAM_ENUM_ENTRIES:
            return ValueOf(context.NextEntry(first));
        case ORK_PARAM_NAME:
            return ValueOf(ORK_PROVIDER_NAME);
        case ORK_PARAM_VERSION:
            return ValueOfNumber(c_version);
        case ORK_PARAM_CONTAINER:
            Require(context.HasContainer(), ORK_E_BAD_KEYSET);
            return ValueOf(context.GivenName());
        case ORK_PARAM_TYPE:
            return ValueOfNumber(ORK_PROVIDER_TYPE);
        case ORK_PARAM_UNIQUE_NAME:
            return ValueOf(context.UniqueName());
        case ORK_PARAM_PROTECTION:
            return ValueOfNumber(context.Protection());
        case ORK_PARAM_HASH_PARAMS:
            return ValueOf(context.HashParams().oid);
        case ORK_PARAM_CIPHER_PARAMS:
            return ValueOf(context.CipherParams().oid);
        case ORK_PARAM_SIGN_PARAMS:
            return ValueOf(context.GetKeyParams(ORK_KEY_SIGNATURE));
        case ORK_PARAM_EXCHANGE_PARAMS:
            return ValueOf(context.GetKeyParams(ORK_KEY_EXCHANGE));
        case ORK_PARAM_ENTRY_CERTIFICATE:
            return context.EntryCertificate();
        case ORK_PARAM_ENTRY_INFO:
            return context.EntryInfo();
        default:
            Fail(ORK_E_BAD_TYPE);
    }
}

void WriteParam(Context& context, DWORD param, std::string_view text) {
    switch (param) {
        case ORK_PARAM_PIN:
            return context.SetPin(text);
        case ORK_PARAM_PASSWORD:
            return context.SetPassword(text);
        case ORK_PARAM_NEW_PASSWORD:
            return context.ChangePassword(text);
        case ORK_PARAM_NEW_PIN:
            return context.ChangePin(text);
        case ORK_PARAM_HASH_PARAMS:
            return context.SetHashParams(text);
        case ORK_PARAM_CIPHER_PARAMS:
            return context.SetCipherParams(text);
        case ORK_PARAM_SIGN_PARAMS:
            return context.SetKeyParams(ORK_KEY_SIGNATURE, text);
        case ORK_PARAM_EXCHANGE_PARAMS:
            return context.SetKeyParams(ORK_KEY_EXCHANGE, text);
        case ORK_PARAM_DELETE_ENTRY:
            return context.DeleteEntry();
        default:
            Fail(ORK_E_BAD_TYPE);
    }
}

// Reads a parameter and gives it to `take`; every form of ORKGetProvParam.
template <class Take>
BOOL GetParam(unsigned long hProv, DWORD param, DWORD flags, Take&& take) {
    return Guard("ORKGetProvParam", [&] {
        const auto context = Contexts().Get(hProv);
        Require((flags & ~ORK_ENUM_FIRST) == 0, ORK_E_BAD_FLAGS);
        take(ReadParam(*context, param, flags));
    });
}

BOOL SetParam(unsigned long hProv, DWORD param, std::string_view text, DWORD flags) {
    return Guard("ORKSetProvParam", [&] {
        const auto context = Contexts().Get(hProv);
        Require(flags == 0, ORK_E_BAD_FLAGS);
        WriteParam(*context, param, text);
    });
}

// Tells the operator, once and before the first key comes, when keys may reach the swap space.
void WarnOfUnlockedMemory() {
    static std::once_flag once;
    std::call_once(once, [] {
        constexpr int warning = 2;
        const OrkLogProps* props = OrkLog_GetProps_cl_module(0);
        if (props->level < warning) return;
        try {
            const char* text = crypto::SecureMemoryWarning(crypto::GetSecureMemoryState());
            if (*text == 0) return;
            OkrLogHelper record(props, warning, "ORKAcquireContext", "host/provider", __LINE__);
            record << "Warning: " << text;
        } catch (const crypto::CryptoError&) {
            return;  // without the cryptographic library no key comes either, and the calls that want one say why
        }
    });
}

}  // namespace

BOOL ORKAcquireContext(unsigned long* hProv, const char* container, const char* provider, DWORD type, DWORD flags) {
    return Guard("ORKAcquireContext", [&] {
        const std::string name = container == nullptr ? "" : container;
        const bool deletes = (flags & ORK_OPEN_VERIFY) != ORK_OPEN_VERIFY && (flags & ORK_OPEN_DELETE) != 0;
        Require(hProv != nullptr || deletes, ORK_E_INVALID_PARAMETER);
        CheckProvider(provider, type);
        CheckOpenFlags(flags, !name.empty());
        WarnOfUnlockedMemory();
        unsigned long handle = 0;
        if ((flags & ORK_OPEN_VERIFY) == ORK_OPEN_VERIFY) {
            handle = Contexts().Add(std::make_shared<Context>(std::nullopt, name, 0));
        } else if (deletes) {
            Container::Delete(ContainerName::Parse(name));
        } else {
            handle = Contexts().Add(OpenContainer(name, (flags & ORK_OPEN_NEW) != 0));
        }
        if (hProv != nullptr) *hProv = handle;
    });
}

BOOL ORKReleaseContext(unsigned long hProv, DWORD flags) {
    return Guard("ORKReleaseContext", [&] {
        Require(flags == 0, ORK_E_BAD_FLAGS);
        Contexts().Remove(hProv);
    });
}

BOOL ORKGetProvParam(unsigned long hProv, DWORD param, IdentObj& value, DWORD flags) {
    return GetParam(hProv, param, flags, [&](IdentObj&& read) { value = std::move(read); });
}

BOOL ORKGetProvParam(unsigned long hProv, DWORD param, CTOOString& text, DWORD flags) {
    return GetParam(hProv, param, flags, [&](const IdentObj& read) { text = CTOOString(TextOf(read)); });
}

BOOL ORKGetProvParam(unsigned long hProv, DWORD param, DWORD& number, DWORD flags) {
    return GetParam(hProv, param, flags, [&](const IdentObj& read) { number = NumberOf<DWORD>(read); });
}

BOOL ORKSetProvParam(unsigned long hProv, DWORD param, const char* text, DWORD flags) {
    return SetParam(hProv, param, text == nullptr ? "" : text, flags);
}

BOOL ORKSetProvParam(unsigned long hProv, DWORD param, const IdentObj& value, DWORD flags) {
    return SetParam(hProv, param, TextOf(value), flags);
}

BOOL ORKSetProvParam(unsigned long hProv, DWORD param, unsigned long key, DWORD flags) {
    return Guard("ORKSetProvParam", [&] {
        const auto context = Contexts().Get(hProv);
        Require(flags == 0, ORK_E_BAD_FLAGS);
        Require(param == ORK_PARAM_PROTECTION_KEY, ORK_E_BAD_TYPE);
        context->SetProtectionKey(key == 0 ? crypto::SecureBytes() : ContainerProtection(*Keys().Get(key)));
    });
}

BOOL ORKGenRandom(unsigned long hProv, DWORD length, void* buffer) {
    return Guard("ORKGenRandom", [&] {
        Contexts().Get(hProv);
        Require(buffer != nullptr || length == 0, ORK_E_INVALID_PARAMETER);
        crypto::FillRandom({static_cast<std::uint8_t*>(buffer), length});
    });
}

DWORD ORKSCApi::GetRandomByteOctet(void* buffer, DWORD count, void* reserved) {
    const BOOL done = Guard("ORKSCApi_GetRandomByteOctet", [&] {
        Require(reserved == nullptr && (buffer != nullptr || count == 0), ORK_E_INVALID_PARAMETER);
        crypto::FillRandom({static_cast<std::uint8_t*>(buffer), count});
    });
    return done ? 0 : GetLastError();
}

DWORD ORKSCApi_GetRandomByteOctet(void* buffer, DWORD count, void* reserved) {
    return ORKSCApi::GetRandomByteOctet(buffer, count, reserved);
}
