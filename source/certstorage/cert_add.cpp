#include "certstorage/cert_add.h"

#include <cstdint>
#include <optional>
#include <vector>

#include "certstorage/invariant.h"
#include "frame/failure.h"
#include "too/time.h"

namespace nal {
namespace {

// What goes before the new certificate is put.
enum class Clears { Nothing, Certificate, CertificateAndProperties };

enum class Kind {
    Put,           // clear, then put
    PutNew,        // put unless one is there
    PutNewer,      // put unless one is there that does not begin earlier
    Nothing,       // succeed and store nothing
    NotSupported,
    Refused,
};

enum class Transfers { Never, First, WhenAbsent, Always };  // properties from the context's own store

struct AddRule {
    Kind kind;
    Clears clears = Clears::Nothing;
    Transfers transfers = Transfers::Never;
};

constexpr AddRule kEncodedRules[] = {
    {Kind::Nothing},                                 // 0
    {Kind::PutNew},                                  // 1 new
    {Kind::NotSupported},                            // 2 use existing
    {Kind::Put, Clears::CertificateAndProperties},   // 3 replace existing
    {Kind::Put},                                     // 4 always
    {Kind::Put, Clears::Certificate},                // 5 replace, inherit properties
};
// Success without storing is kept deliberately.
constexpr AddRule kOtherEncoded = {Kind::Nothing};

constexpr AddRule kContextRules[] = {
    {Kind::Refused},                                                // 0
    {Kind::PutNew},                                                 // 1 new
    {Kind::Put, Clears::Certificate, Transfers::First},             // 2 use existing
    {Kind::Put, Clears::CertificateAndProperties},                  // 3 replace existing
    {Kind::Put},                                                    // 4 always
    {Kind::Put, Clears::Certificate},                               // 5 replace, inherit properties
    {Kind::PutNewer, Clears::Certificate, Transfers::Always},       // 6 newer
    {Kind::PutNewer, Clears::Certificate, Transfers::WhenAbsent},   // 7 newer, inherit properties
};
constexpr AddRule kOtherContext = {Kind::Refused};

template <std::size_t Count>
const AddRule& RuleOf(const AddRule (&rules)[Count], DWORD disposition, const AddRule& other) {
    return disposition < Count ? rules[disposition] : other;
}

AddResult TreeFailure() {
    SetLastError(static_cast<DWORD>(errno));
    return AddResult::Failed;
}

AddResult Present() {
    SetLastError(NAL_STORE_E_EXISTS);
    return AddResult::Present;
}

int Clear(CertStore& store, const KeyIdentifier& key, Clears clears) {
    if (clears == Clears::Nothing) return kTreeOk;
    return clears == Clears::Certificate ? store.deleteCert(key) : store.deleteCertCascade(key);
}

// Present only where the rule asks for a new one: an earlier certificate that is not there to be deleted is no failure.
AddResult Put(CertStore& store, const KeyIdentifier& key, asnt::View encoded, const AddRule& rule) {
    if (Clear(store, key, rule.clears) == kTreeError) return TreeFailure();
    const int status = store.storeCert(key, encoded, rule.kind == Kind::PutNew ? PutMode::KeepExisting : PutMode::Overwrite);
    if (status == kTreeError) return TreeFailure();
    return status == kTreeSpecial ? Present() : AddResult::Stored;
}

AddResult Transfer(CertStore& store, CertContext& context) {
    if (&store == &context.Store()) return AddResult::Stored;
    return store.transferProperties(context.Store(), context.Key()) == kTreeOk ? AddResult::Stored : TreeFailure();
}

// Nothing for a certificate that does not decode.
std::optional<std::uint64_t> BeginOf(asnt::View encoded) {
    try {
        return CTOOFileTime(ReadCertFields(encoded).notBefore).GetTicks();
    } catch (const XTOOStatus&) {
        return std::nullopt;
    }
}

AddResult AddNewer(CertStore& store, CertContext& context, const AddRule& rule) {
    std::vector<unsigned char> present;
    const int status = store.GetRecord(RecordKey::Cert(context.Key()), present);
    if (status == kTreeError) return TreeFailure();
    if (status == kTreeOk) {
        const auto begin = BeginOf({present.data(), present.size()});
        if (!begin) LogError(NAL_HERE(kStoreSource), "a stored certificate that does not decode is replaced");
        if (begin >= BeginOf(context.Encoded())) return Present();
    }
    const AddResult result = Put(store, context.Key(), context.Encoded(), rule);
    const bool transfers = rule.transfers == Transfers::Always || status == kTreeSpecial;
    return result == AddResult::Stored && transfers ? Transfer(store, context) : result;
}

AddResult Apply(CertStore& store, const KeyIdentifier& key, asnt::View encoded, const AddRule& rule) {
    switch (rule.kind) {
        case Kind::Nothing:
            return AddResult::Stored;
        case Kind::NotSupported:
            SetLastError(TOO_E_UNSUPPORTED);
            return AddResult::NotSupported;
        case Kind::Refused:
        case Kind::PutNewer:
            return AddResult::Refused;
        case Kind::Put:
        case Kind::PutNew:
            break;
    }
    return Put(store, key, encoded, rule);
}

}  // namespace

AddResult AddEncodedCert(CertStore& store, const KeyIdentifier& key, asnt::View encoded, DWORD disposition) {
    return Apply(store, key, encoded, RuleOf(kEncodedRules, disposition, kOtherEncoded));
}

AddResult AddCertContext(CertStore& store, CertContext& context, DWORD disposition) {
    const AddRule& rule = RuleOf(kContextRules, disposition, kOtherContext);
    if (rule.kind == Kind::PutNewer) return AddNewer(store, context, rule);
    if (rule.transfers == Transfers::First) {
        const AddResult transferred = Transfer(store, context);
        if (transferred != AddResult::Stored) return transferred;
    }
    return Apply(store, context.Key(), context.Encoded(), rule);
}

}  // namespace nal
