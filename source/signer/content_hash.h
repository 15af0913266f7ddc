// The hash of a message's content, with every algorithm that its signers use, in one pass over the content.
#pragma once

#include <cstdint>
#include <list>

#include "asnt/view.h"
#include "model/provider_handles.h"
#include "nal/signed_data.h"

namespace nal {

/// A content hashed with one algorithm.
struct ContentHash {
    DWORD algId = 0;
    HashHandle running;  ///< holds all of the content and is not finished
    IdentObj value;      ///< the hash's value
};

/// Wanted algorithms first, then the content, then Finish; from then on Find gives the hashes.
class ContentHashes {
public:
    /// @param hProv    any context of the provider, which stays the caller's
    /// @param context  text of what is thrown; a literal
    ContentHashes(unsigned long hProv, const char* context) : m_provider(hProv), m_context(context) {}

    /// Asks for a hash; once or several times. @return false when the provider has no such hash
    bool Want(DWORD hashAlgId);

    /// Adds the next bytes of the content. @throws XTOOStatus(the provider's status, context), as all of these
    void Add(asnt::View bytes);
    /// Adds a memory block or file region, 64 KiB at a time.
    /// @throws XTOOStatus also as FileContent (cms/file_content.h); (28) for a null block, (37) for one that ends before it starts
    void Add(const WhatToSignStruct& what);
    /// Adds what an attached message carries.
    void Add(const CNALSignData& message);
    void Finish();

    /// @return null when there is no such hash; valid as long as this object
    const ContentHash* Find(DWORD hashAlgId) const;

    /// Whether the content has the form of an encoded set of attributes. A signature over such bytes may have been made for a
    /// message with those signed attributes, and about another content.
    bool LooksLikeAttributes() const;

private:
    static constexpr std::size_t c_headSize = 32;

    void KeepHead(asnt::View bytes);

    unsigned long m_provider;
    const char* m_context;
    std::list<ContentHash> m_hashes;
    std::uint64_t m_size = 0;
    IdentObj m_head;  // the content's first bytes
};

}  // namespace nal
