// A key provider info (property 2) as one block, the form in which a store keeps it:
//
//   offset        content
//   0             the CRYPT_KEY_PROV_INFO, 48 bytes; its name pointers hold offsets from the block's start, rgProvParam holds 48,
//                 or 0 when there are no parameters
//   48            cProvParam CRYPT_KEY_PROV_PARAM records, 24 bytes each; pbData holds the offset of the data
//   then          the container name, 4-byte characters and a terminator
//   then          the provider name, likewise
//   then          the data of each parameter, in order
#pragma once

#include <optional>
#include <vector>

#include "asnt/view.h"
#include "nal/wincrypt.h"

namespace nal {

/// Bytes that are overwritten before they are given back.
class SecretBytes {
public:
    SecretBytes() = default;
    explicit SecretBytes(std::size_t size) : m_bytes(size) {}
    explicit SecretBytes(std::vector<unsigned char> bytes) : m_bytes(std::move(bytes)) {}
    SecretBytes(SecretBytes&&) noexcept = default;
    SecretBytes& operator=(SecretBytes&&) = delete;
    ~SecretBytes();

    unsigned char* data() { return m_bytes.data(); }
    std::size_t size() const { return m_bytes.size(); }
    asnt::View View() const { return {m_bytes.data(), m_bytes.size()}; }

private:
    std::vector<unsigned char> m_bytes;
};

/// Writes `info` as one block. A null name counts as an empty one.
/// @param withPin  false leaves the PIN parameters out
/// @return nothing when a parameter has a size without data, or the block would pass 2 GiB
std::optional<SecretBytes> FlattenKeyProvInfo(const CRYPT_KEY_PROV_INFO& info, bool withPin);

/// Whether every offset, length and terminator of a block lies inside it, so that ResolveKeyProvInfo may make pointers.
bool IsKeyProvInfoBlock(asnt::View block);

/// Turns the offsets of a checked block, which may lie at any address, into pointers. A parameter without data gets a null.
void ResolveKeyProvInfo(void* block);

}  // namespace nal
