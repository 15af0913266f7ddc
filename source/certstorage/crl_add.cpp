#include "certstorage/crl_add.h"

#include <cerrno>
#include <cstdint>
#include <optional>
#include <vector>

#include "certstorage/crl_decoder.h"
#include "certstorage/invariant.h"
#include "frame/failure.h"
#include "too/time.h"

namespace nal {
namespace {

// What happens to a CRL that is present. An absent one is put, whatever the rule.
enum class WhenPresent {
    NotSupported,         // absent or present
    Keep,                 // last error 0x80092005
    PutOver,              // properties stay
    Delete,               // the record goes, properties stay
    DeleteAll,            // with its properties
    DeleteAllWhenOlder,   // else last error 0x80092005
};

struct CrlAddRule {
    WhenPresent present;
    bool bringsProperties = false;  // those that the context was built with
};

constexpr CrlAddRule kNotSupported = {WhenPresent::NotSupported};

constexpr CrlAddRule kEncodedRules[] = {
    kNotSupported,             // 0
    {WhenPresent::Keep},       // 1 new
    kNotSupported,             // 2
    {WhenPresent::DeleteAll},  // 3 replace existing
    {WhenPresent::PutOver},    // 4 always
    {WhenPresent::Delete},     // 5 replace, inherit properties
    {WhenPresent::Keep},       // 6 newer; dates are not compared here, only in the context form: kept deliberately
    {WhenPresent::PutOver},    // 7 newer, inherit properties
};

constexpr CrlAddRule kContextRules[] = {
    kNotSupported,                            // 0
    {WhenPresent::Keep},                      // 1 new
    kNotSupported,                            // 2
    {WhenPresent::DeleteAll, true},           // 3 replace existing
    {WhenPresent::PutOver},                   // 4 always
    {WhenPresent::Delete},                    // 5 replace, inherit properties
    {WhenPresent::DeleteAllWhenOlder, true},  // 6 newer
    {WhenPresent::PutOver},                   // 7 newer, inherit properties
};

template <std::size_t Count>
const CrlAddRule& RuleOf(const CrlAddRule (&rules)[Count], DWORD disposition) {
    return disposition < Count ? rules[disposition] : kNotSupported;
}

bool Fail(DWORD lastError) { return Refuse(lastError) != FALSE; }
bool FailTree() { return Fail(static_cast<DWORD>(errno)); }

// A stored CRL that does not decode is older than any.
bool IsOlder(asnt::View present, const FILETIME& thisUpdate) {
    try {
        return CTOOFileTime(DecodeCrl(present).m_info.m_thisUpdate).GetTicks() < CTOOFileTime(thisUpdate).GetTicks();
    } catch (const XTOOStatus&) {
        LogError(NAL_HERE(kStoreSource), "a stored CRL that does not decode is replaced");
        return true;
    }
}

int Clear(CertStore& store, const CrlKey& key, WhenPresent rule) {
    if (rule == WhenPresent::PutOver) return kTreeOk;
    return rule == WhenPresent::Delete ? store.deleteCrl(key.Record()) : store.deleteCrlCascade(key.issuerID, key.crlSerial);
}

// @param thisUpdate  of the new CRL, where the rules compare it
bool Add(CertStore& store, const CrlKey& key, asnt::View encoded, const CrlAddRule& rule, const FILETIME* thisUpdate) {
    std::vector<unsigned char> present;
    const int status = store.GetRecord(key.Record(), present);
    if (status == kTreeError) return FailTree();
    if (rule.present == WhenPresent::NotSupported) return Fail(TOO_E_UNSUPPORTED);
    if (status == kTreeOk) {
        const bool keeps = rule.present == WhenPresent::Keep ||
                           (rule.present == WhenPresent::DeleteAllWhenOlder && thisUpdate != nullptr &&
                            !IsOlder({present.data(), present.size()}, *thisUpdate));
        if (keeps) return Fail(NAL_STORE_E_EXISTS);
        if (Clear(store, key, rule.present) == kTreeError) return FailTree();
    }
    return store.storeCrl(key.Record(), encoded, PutMode::Overwrite) == kTreeOk || FailTree();
}

}  // namespace

bool AddEncodedCrl(CertStore& store, const CrlKey& key, asnt::View encoded, DWORD disposition) {
    return Add(store, key, encoded, RuleOf(kEncodedRules, disposition), nullptr);
}

bool AddCrlContext(CertStore& store, CrlContext& context, DWORD disposition) {
    const CrlAddRule& rule = RuleOf(kContextRules, disposition);
    if (!Add(store, context.Key(), context.Encoded(), rule, &context.pCrlInfo->ThisUpdate)) return false;
    if (!rule.bringsProperties) return true;
    const int error = context.storeProperties(&store);
    return error == 0 || Fail(static_cast<DWORD>(error));
}

}  // namespace nal
