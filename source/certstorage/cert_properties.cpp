// The properties of a certificate context: which ids there are, and how each is read and set.
#include <cstring>
#include <iterator>

#include "certstorage/cert_context.h"

namespace nal {
namespace {

enum class PropKind {
    ProviderHandle,   // read from the context, cannot be set
    KeyProviderInfo,  // one block, see key_prov_info.h
    KeySpec,          // 4 bytes, set from a DWORD
    Bytes,            // as they are, set from a CRYPT_DATA_BLOB
    AccessState,      // whether the context belongs to a store, cannot be set
};

struct PropRule {
    DWORD first;
    DWORD last;
    PropKind kind;
};

constexpr PropRule kPropRules[] = {
    {1, 1, PropKind::ProviderHandle},
    {2, 2, PropKind::KeyProviderInfo},
    {3, 4, PropKind::Bytes},
    {6, 6, PropKind::KeySpec},
    {9, 13, PropKind::Bytes},
    {14, 14, PropKind::AccessState},
    {15, 16, PropKind::Bytes},
    {20, 30, PropKind::Bytes},
    {64, 65, PropKind::Bytes},
    {70, 71, PropKind::Bytes},
    {76, 76, PropKind::Bytes},
    {81, 84, PropKind::Bytes},
};

const PropRule* FindRule(DWORD propId) {
    for (const PropRule& rule : kPropRules) {
        if (propId >= rule.first && propId <= rule.last) return &rule;
    }
    return nullptr;
}

// A buffer of exactly the value's size only gets the size reported: kept so, callers offer more.
template <class Value>
BOOL GiveFixed(Value value, void* data, DWORD* pcbData, bool reportSize) {
    if (data == nullptr || *pcbData <= sizeof value) {
        *pcbData = sizeof value;
        return TRUE;
    }
    std::memcpy(data, &value, sizeof value);
    if (reportSize) *pcbData = sizeof value;
    return TRUE;
}

BOOL GetKeyProvInfo(const CertContext& context, void* data, DWORD* pcbData) {
    std::vector<unsigned char> stored;
    const RecordKey record = RecordKey::Prop(context.Key(), CERT_KEY_PROV_INFO_PROP_ID, nullptr);
    if (context.Store().GetRecord(record, stored) != kTreeOk) return FALSE;
    SecretBytes block(std::move(stored));
    if (!IsKeyProvInfoBlock(block.View())) return FALSE;
    if (data != nullptr) {
        if (block.size() > *pcbData) return FALSE;
        std::memcpy(data, block.data(), block.size());
        ResolveKeyProvInfo(data);
    }
    *pcbData = static_cast<DWORD>(block.size());
    return TRUE;
}

}  // namespace

BOOL CertContext::getProperty(DWORD propId, void* data, DWORD* pcbData) const {
    const PropRule* rule = FindRule(propId);
    if (rule == nullptr || pcbData == nullptr) return FALSE;
    switch (rule->kind) {
        case PropKind::ProviderHandle:
            return GiveFixed(m_hCryptProv, data, pcbData, false);
        case PropKind::AccessState:
            return GiveFixed<DWORD>(m_boundToStore ? 1 : 0, data, pcbData, true);
        case PropKind::KeyProviderInfo:
            return GetKeyProvInfo(*this, data, pcbData);
        case PropKind::KeySpec:
        case PropKind::Bytes:
            break;
    }
    return m_store->getProp(m_key, propId, data, pcbData) == kTreeOk ? TRUE : FALSE;
}

BOOL CertContext::setProperty(DWORD propId, const void* data) {
    const PropRule* rule = FindRule(propId);
    if (rule == nullptr || data == nullptr) return FALSE;
    asnt::View value;
    switch (rule->kind) {
        case PropKind::ProviderHandle:
        case PropKind::AccessState:
            return FALSE;
        case PropKind::KeyProviderInfo: {
            // A PIN never goes to a disk.
            auto block = FlattenKeyProvInfo(*static_cast<const CRYPT_KEY_PROV_INFO*>(data), !m_store->HasFile());
            if (!block) return FALSE;
            m_ownedBuffers.push_back(std::move(*block));
            value = m_ownedBuffers.back().View();
            break;
        }
        case PropKind::KeySpec:
            value = {data, sizeof(DWORD)};
            break;
        case PropKind::Bytes: {
            const auto& blob = *static_cast<const CRYPT_DATA_BLOB*>(data);
            if (blob.pbData == nullptr && blob.cbData != 0) return FALSE;
            value = ViewOf(blob);
            break;
        }
    }
    return m_store->storeProp(m_key, propId, value) == kTreeOk ? TRUE : FALSE;
}

}  // namespace nal
