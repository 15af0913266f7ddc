#include "certstorage/cert_store.h"

#include <cerrno>
#include <utility>

namespace nal {

CertStore* CertStore::OpenMemory() { return std::make_unique<CertStore>(std::make_shared<StoreBody>()).release(); }

CertStore* CertStore::OpenFile(const std::string& path) {
    auto body = StoreBody::OpenFile(path);
    return body == nullptr ? nullptr : std::make_unique<CertStore>(std::move(body)).release();
}

CertStore::CertStore(std::shared_ptr<StoreBody> body) : m_body(std::move(body)) {}

CertStore::~CertStore() = default;

void CertStore::DropReference() {
    if (!m_refCount.Drop()) return;
    StoreBody::Close(m_body);
    Release();
}

CertStore::Attachment CertStore::Attach() {
    m_attachments.Add();
    return Attachment(this);
}

void CertStore::Release() {
    if (m_attachments.Drop()) const std::unique_ptr<CertStore> last(this);
}

int CertStore::Closed() {
    errno = EBADF;
    return kTreeError;
}

// The key that comes before every record of `identifier`, also before one whose kind word no function of ours writes:
// the last key of the identifier below it.
RecordKey CertStore::FirstPossibleKey(const KeyIdentifier& identifier) {
    RecordKey key;
    key.identifier = identifier;
    auto byte = key.identifier.rbegin();
    while (byte != key.identifier.rend() && *byte == 0) ++byte;
    if (byte == key.identifier.rend()) return {};
    --*byte;
    std::fill(key.identifier.rbegin(), byte, static_cast<unsigned char>(0xFF));
    key.crlSerial.fill(0xFF);
    key.kind = 0x7FFFFFFF;
    return key;
}

int CertStore::Delete(const RecordKey& key) {
    return WithTree([&](Tree& tree) { return tree.Delete(key); });
}

int CertStore::storeCert(const KeyIdentifier& key, asnt::View bytes, PutMode mode) {
    return WithTree([&](Tree& tree) { return tree.Put(RecordKey::Cert(key), bytes, mode); });
}

int CertStore::deleteCert(const KeyIdentifier& key) { return Delete(RecordKey::Cert(key)); }

int CertStore::deleteCertCascade(const KeyIdentifier& key) {
    return ForIdentifier(key, [](const RecordKey& found, asnt::View) { return found.IsCert() || found.IsCertProp(); });
}

int CertStore::storeCrl(const RecordKey& key, asnt::View bytes, PutMode mode) {
    return WithTree([&](Tree& tree) { return tree.Put(key, bytes, mode); });
}

int CertStore::deleteCrl(const RecordKey& key) { return Delete(key); }

int CertStore::deleteCrlCascade(const KeyIdentifier& issuer, const CrlSerial& serial) {
    return ForIdentifier(issuer, [&](const RecordKey& found, asnt::View) {
        return found.crlSerial == serial && (found.kind == kKindCrl || found.IsCrlProp());
    });
}

int CertStore::storeProp(const KeyIdentifier& key, std::uint32_t propId, asnt::View bytes, const CrlSerial* crlSerial) {
    const RecordKey record = RecordKey::Prop(key, propId, crlSerial);
    return WithTree([&](Tree& tree) {
        int status = tree.Put(record, bytes, PutMode::KeepExisting);
        if (status == kTreeSpecial) status = tree.Delete(record);
        else return status;
        return status == kTreeError ? status : tree.Put(record, bytes, PutMode::Overwrite);
    });
}

int CertStore::getProp(const KeyIdentifier& key, std::uint32_t propId, void* buffer, DWORD* pcb,
                       const CrlSerial* crlSerial) {
    return WithTree([&](Tree& tree) {
        asnt::View value;
        const int status = tree.Get(RecordKey::Prop(key, propId, crlSerial), value);
        if (status != kTreeOk) return status;
        if (buffer != nullptr && *pcb >= value.size && !value.empty()) std::memcpy(buffer, value.data, value.size);
        *pcb = static_cast<DWORD>(value.size);
        return kTreeOk;
    });
}

int CertStore::getPropSize(const KeyIdentifier& key, std::uint32_t propId, DWORD* pcb, const CrlSerial* crlSerial) {
    return getProp(key, propId, nullptr, pcb, crlSerial);
}

int CertStore::deleteProp(const KeyIdentifier& key, std::uint32_t propId, const CrlSerial* crlSerial) {
    return Delete(RecordKey::Prop(key, propId, crlSerial));
}

int CertStore::transferProperties(CertStore& source, const KeyIdentifier& key) {
    int status = ForIdentifier(key, [](const RecordKey& found, asnt::View) { return found.IsCertProp(); });
    if (status != kTreeOk) return status;

    // Copied out first: the locks of two trees are never held at once.
    std::vector<std::pair<RecordKey, std::vector<unsigned char>>> copies;
    status = source.ForIdentifier(key, [&](const RecordKey& found, asnt::View value) {
        // Equality, not a test of the bit: see the header.
        if (found.kind == kKindCertProp) copies.push_back({found, {value.begin(), value.end()}});
        return false;
    });
    for (const auto& [record, value] : copies) {
        if (status != kTreeOk) break;
        status = WithTree([&, &record = record, &value = value](Tree& tree) {
            return tree.Put(record, {value.data(), value.size()}, PutMode::Overwrite);
        });
    }
    return status;
}

int CertStore::GetRecord(const RecordKey& key, std::vector<unsigned char>& value) {
    return WithTree([&](Tree& tree) {
        asnt::View found;
        const int status = tree.Get(key, found);
        if (status == kTreeOk) value.assign(found.begin(), found.end());
        return status;
    });
}

int CertStore::traverse(RecordKey& key, std::vector<unsigned char>& value) {
    return WithTree([&](Tree& tree) {
        Record record;
        const int status = tree.Move(m_position, m_cursorOp == CursorOp::First ? Step::First : Step::Next, record);
        if (status == kTreeOk) {
            key = record.Key();
            value.assign(record.value.begin(), record.value.end());
        }
        return status;
    });
}

int CertStore::SeekTo(const RecordKey& key) {
    return WithTree([&](Tree& tree) {
        Record record;
        return tree.Seek(m_position, key, record);
    });
}

}  // namespace nal
