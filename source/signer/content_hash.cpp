#include "signer/content_hash.h"

#include <algorithm>

#include "cms/file_content.h"
#include "cms/memory_content.h"
#include "frame/failure.h"
#include "ork/provider.h"
#include "signer/provider_calls.h"

namespace nal {

bool ContentHashes::Want(DWORD hashAlgId) {
    if (Find(hashAlgId) != nullptr) return true;
    ContentHash hash;
    hash.algId = hashAlgId;
    if (!ORKCreateHash(m_provider, hashAlgId, 0, hash.running.Receive(), 0)) {
        if (GetLastError() == ORK_E_BAD_ALGID) return false;
        ThrowProvider(m_context);
    }
    m_hashes.push_back(std::move(hash));
    return true;
}

void ContentHashes::KeepHead(asnt::View bytes) {
    const asnt::View head = bytes.Sub(0, c_headSize - m_head.GetSize());
    m_head.Append(head.data, static_cast<unsigned>(head.size));
}

void ContentHashes::Add(asnt::View bytes) {
    if (bytes.empty()) return;
    if (m_head.GetSize() < c_headSize) KeepHead(bytes);
    m_size += bytes.size;
    for (ContentHash& hash : m_hashes) {
        if (!ORKHashData(hash.running.Get(), bytes.data, static_cast<DWORD>(bytes.size), 0)) ThrowProvider(m_context);
    }
}

void ContentHashes::Add(const WhatToSignStruct& what) {
    if ((what.flags & c_NAL_CONTENT_IN_FILE) != 0) {
        FileContent(what, m_context).ForEachChunk(c_hashChunk, [this](asnt::View chunk) { Add(chunk); });
        return;
    }
    Add(MemoryContent(what, m_context));
}

void ContentHashes::Add(const CNALSignData& message) {
    if (message.dataSource.IsFile()) {
        Add(message.dataSource);
    } else {
        Add(asnt::View(message.eContent));
    }
}

void ContentHashes::Finish() {
    for (ContentHash& hash : m_hashes) {
        HashHandle copy;  // reading the value finishes a hash
        if (!ORKDuplicateHash(hash.running.Get(), nullptr, 0, copy.Receive()) ||
            !ORKGetHashParam(copy.Get(), ORK_HASH_PARAM_VALUE, hash.value)) {
            ThrowProvider(m_context);
        }
    }
}

const ContentHash* ContentHashes::Find(DWORD hashAlgId) const {
    const auto found = std::find_if(m_hashes.begin(), m_hashes.end(), [&](const auto& hash) { return hash.algId == hashAlgId; });
    return found == m_hashes.end() ? nullptr : &*found;
}

bool ContentHashes::LooksLikeAttributes() const {
    // SET OF SEQUENCE { OBJECT IDENTIFIER ... that ends where the content does.
    asnt::Header set;
    if (asnt::ParseHeader(m_head, asnt::Rules::Ber, set) != asnt::HeaderState::Read || set.tag != asnt::tag::Set ||
        set.size + set.contentSize != m_size) {
        return false;
    }
    const asnt::View inside = asnt::View(m_head).Sub(set.size);
    asnt::Header attribute;
    if (asnt::ParseHeader(inside, asnt::Rules::Ber, attribute) != asnt::HeaderState::Read) return false;
    const asnt::View type = inside.Sub(attribute.size);
    return attribute.tag == asnt::tag::Sequence && !type.empty() && type[0] == asnt::tag::Oid.number;
}

}  // namespace nal
