#include "host/provider/key_format.h"

#include <array>
#include <iterator>

#include "asnt/writer.h"
#include "host/provider/failure.h"
#include "ork/constants.h"
#include "ork/oid_info.h"

namespace nalhost::provider {

namespace {

using crypto::KeyAlgorithm;

constexpr char c_impliedSet[] = "1.2.643.2.2.32.2";
// The standard's own example: keys of it from outside are taken, none is made.
constexpr std::string_view c_testCurve = "1.2.643.2.2.35.0";

struct KeyPairAlgorithm {
    DWORD algId;
    DWORD keyType;  // 0: not kept in containers
    bool has94;
    bool has2001;
    const char* defaultSet;
};

constexpr KeyPairAlgorithm c_algorithms[] = {
    {ORK_ALG_GOST2001_SIGN, ORK_KEY_SIGNATURE, false, true, "1.2.643.2.2.35.1"},
    {ORK_ALG_GOST94_SIGN, ORK_KEY_SIGNATURE, true, false, "1.2.643.2.2.32.2"},
    {ORK_ALG_PRIVATE_SIGN, ORK_KEY_SIGNATURE, true, false, c_privateKeyOid},
    {ORK_ALG_GOST2001_EXCHANGE, ORK_KEY_EXCHANGE, false, true, "1.2.643.2.2.36.0"},
    {ORK_ALG_GOST94_EXCHANGE, ORK_KEY_EXCHANGE, true, false, "1.2.643.2.2.33.1"},
    {ORK_ALG_EPHEMERAL, 0, true, true, "1.2.643.2.2.35.1"},
};

// An algorithm's OID in the place of a set's, and the set that it stands for.
struct DefaultSet {
    std::string_view algorithmOid;
    const char* setOid;
};

constexpr DefaultSet c_defaultSets[] = {
    {"1.2.643.2.2.19", "1.2.643.2.2.35.1"}, {"1.2.643.2.2.3", "1.2.643.2.2.35.1"},
    {"1.2.643.2.2.20", "1.2.643.2.2.32.2"}, {"1.2.643.2.2.4", "1.2.643.2.2.32.2"},
    {"1.2.643.2.2.98", "1.2.643.2.2.36.0"}, {"1.2.643.2.2.99", "1.2.643.2.2.33.1"},
};

const KeyPairAlgorithm* FindAlgorithm(DWORD algId) {
    for (const KeyPairAlgorithm& algorithm : c_algorithms) {
        if (algorithm.algId == algId) return &algorithm;
    }
    return nullptr;
}

bool Suits(const KeyPairAlgorithm& algorithm, const crypto::KeyParameters& set) {
    return set.algorithm == KeyAlgorithm::kGost94 ? algorithm.has94 : algorithm.has2001;
}

KeyFormat ImpliedFormat(DWORD algId) {
    return {algId, crypto::FindKeyParameters(c_impliedSet), true, &crypto::DefaultHashParameters(), nullptr};
}

std::string_view ResolveDefault(std::string_view oid) {
    for (const DefaultSet& entry : c_defaultSets) {
        if (entry.algorithmOid == oid) return entry.setOid;
    }
    return oid;
}

}  // namespace

IdentObj KeyFormat::EncodeParameters() const {
    if (isImplied) return {};
    asnt::Writer writer;
    writer.Sequence([&] {
        writer.Oid(set->oid);
        writer.Oid(hash->oid);
        if (cipher != nullptr) writer.Oid(cipher->oid);
    });
    return writer.Finish();
}

const char* KeyFormat::AlgorithmOid() const {
    if (isImplied) return c_privateKeyOid;
    DWORD number = algId;
    if (algId == ORK_ALG_EPHEMERAL) {
        number = set->algorithm == KeyAlgorithm::kGost94 ? ORK_ALG_GOST94_SIGN : ORK_ALG_GOST2001_SIGN;
    }
    const CRYPT_OID_INFO* info = orkcspex::FindOIDInfo(ORK_OID_KEY_ALGID, &number, ORK_OID_GROUP_PUBLIC_KEY);
    Require(info != nullptr, ORK_E_BAD_ALGID);
    return info->pszObjId;
}

bool IsKeyPairAlgorithm(DWORD algId) {
    return FindAlgorithm(algId) != nullptr;
}

bool IsContainerAlgorithm(DWORD algId) {
    return KeyTypeOf(algId) != 0;
}

DWORD KeyTypeOf(DWORD algId) {
    const KeyPairAlgorithm* algorithm = FindAlgorithm(algId);
    return algorithm == nullptr ? 0 : algorithm->keyType;
}

std::optional<KeyFormat> DefaultFormat(DWORD algId) {
    const KeyPairAlgorithm* algorithm = FindAlgorithm(algId);
    if (algorithm == nullptr) return std::nullopt;
    return FormatForSet(algId, algorithm->defaultSet);
}

KeyFormat ParseKeyFormat(DWORD algId, asnt::View parameters) {
    const KeyPairAlgorithm* algorithm = FindAlgorithm(algId);
    Require(algorithm != nullptr, ORK_E_BAD_ALGID);
    if (algId == ORK_ALG_PRIVATE_SIGN) {
        Require(parameters.empty(), ORK_E_BAD_DATA);
        return ImpliedFormat(algId);
    }
    if (parameters.empty()) {
        // Only an ephemeral key made for a key of the private algorithm has none.
        Require(algId == ORK_ALG_EPHEMERAL, ORK_E_BAD_DATA);
        return ImpliedFormat(algId);
    }
    asnt::Reader top(parameters, "key parameters");
    asnt::Reader fields = top.Enter(asnt::tag::Sequence);
    top.ExpectEnd();
    KeyFormat format;
    format.algId = algId;
    format.set = crypto::FindKeyParameters(fields.Oid().view());
    format.hash = crypto::FindHashParameters(fields.Oid().view());
    Require(format.set != nullptr && format.hash != nullptr, ORK_E_BAD_ALGID);
    if (!fields.AtEnd()) {
        format.cipher = crypto::FindCipherParameters(fields.Oid().view());
        Require(format.cipher != nullptr, ORK_E_BAD_ALGID);
    }
    fields.ExpectEnd();
    Require(Suits(*algorithm, *format.set), ORK_E_BAD_ALGID);
    return format;
}

std::optional<KeyFormat> FormatForSet(DWORD algId, std::string_view setOid) {
    const KeyPairAlgorithm* algorithm = FindAlgorithm(algId);
    if (algorithm == nullptr) return std::nullopt;
    const bool isPrivate = algId == ORK_ALG_PRIVATE_SIGN;
    if (setOid == c_privateKeyOid) {
        if (!isPrivate && algId != ORK_ALG_EPHEMERAL) return std::nullopt;
        return ImpliedFormat(algId);
    }
    if (isPrivate) return std::nullopt;
    const crypto::KeyParameters* set = crypto::FindKeyParameters(ResolveDefault(setOid));
    if (set == nullptr || !Suits(*algorithm, *set) || set->oid == c_testCurve) return std::nullopt;
    return KeyFormat{algId, set, false, &crypto::DefaultHashParameters(), nullptr};
}

DWORD AlgorithmForSet(std::string_view setOid, DWORD keyType) {
    for (const KeyPairAlgorithm& algorithm : c_algorithms) {
        if (algorithm.keyType == keyType && FormatForSet(algorithm.algId, setOid)) return algorithm.algId;
    }
    return 0;
}

PublicKeyInfo ParseSubjectPublicKeyInfo(asnt::View der) {
    asnt::Reader top(der, "SubjectPublicKeyInfo");
    asnt::Reader fields = top.Enter(asnt::tag::Sequence);
    top.ExpectEnd();
    asnt::Reader algorithm = fields.Enter(asnt::tag::Sequence);
    const CTOOString oid = algorithm.Oid();
    const asnt::View parameters = algorithm.Rest();
    const asnt::BitString bits = fields.Bits();
    fields.ExpectEnd();
    Require(bits.unusedBits == 0, ORK_E_BAD_DATA);

    const CRYPT_OID_INFO* info = orkcspex::FindOIDInfo(ORK_OID_KEY_OID, oid.c_str(), ORK_OID_GROUP_PUBLIC_KEY);
    Require(info != nullptr, ORK_E_BAD_ALGID);
    PublicKeyInfo result;
    result.format = ParseKeyFormat(info->Algid, parameters);
    // RFC 4491 wraps the key in an OCTET STRING; a key that stands in the BIT STRING bare is taken as it is.
    asnt::Reader content(bits.bytes);
    asnt::Element octets;
    const bool isWrapped = content.TryNext(asnt::tag::OctetString, octets) && content.AtEnd();
    result.bytes = (isWrapped ? octets.content : bits.bytes).Copy();
    return result;
}

IdentObj WriteSubjectPublicKeyInfo(const KeyFormat& format, asnt::View bytes) {
    const IdentObj parameters = format.EncodeParameters();
    const IdentObj key = WrapPublicKey(bytes);
    asnt::Writer writer;
    writer.Sequence([&] {
        writer.Sequence([&] {
            writer.Oid(format.AlgorithmOid());
            writer.Raw(parameters);
        });
        writer.BitString(key);
    });
    return writer.Finish();
}

IdentObj WrapPublicKey(asnt::View bytes) {
    asnt::Writer writer;
    writer.OctetString(bytes);
    return writer.Finish();
}

}  // namespace nalhost::provider
