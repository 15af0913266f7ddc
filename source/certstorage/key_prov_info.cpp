#include "certstorage/key_prov_info.h"

#include <strings.h>

#include <cstdint>
#include <cstring>
#include <cwchar>
#include <limits>

namespace nal {
namespace {

constexpr std::size_t kInfoSize = sizeof(CRYPT_KEY_PROV_INFO);
constexpr std::size_t kParamSize = sizeof(CRYPT_KEY_PROV_PARAM);
constexpr std::size_t kMaxBlock = std::numeric_limits<std::int32_t>::max();

bool IsKept(const CRYPT_KEY_PROV_PARAM& param, bool withPin) {
    return withPin || param.dwParam != PP_SIGNATURE_PIN_PARAM;
}

std::size_t TextSize(const wchar_t* text) { return ((text != nullptr ? std::wcslen(text) : 0) + 1) * sizeof(wchar_t); }

template <class Pointer>
Pointer OffsetAsPointer(std::size_t offset) {
    return reinterpret_cast<Pointer>(offset);  // NOLINT(performance-no-int-to-ptr): the stored form has offsets there
}
std::size_t PointerAsOffset(const void* pointer) { return reinterpret_cast<std::uintptr_t>(pointer); }

template <class Record>
Record ReadAt(const unsigned char* block, std::size_t offset) {
    Record record;
    std::memcpy(&record, block + offset, sizeof record);
    return record;
}

bool IsTextInside(asnt::View block, std::size_t offset) {
    for (; offset <= block.size && block.size - offset >= sizeof(wchar_t); offset += sizeof(wchar_t)) {
        if (ReadAt<wchar_t>(block.data, offset) == L'\0') return true;
    }
    return false;
}

// Fills a block from its start on; every piece is counted before.
class BlockWriter {
public:
    explicit BlockWriter(std::size_t size) : m_block(size) {}

    std::size_t Append(const void* data, std::size_t size) {
        const std::size_t offset = m_used;
        if (size != 0) std::memcpy(m_block.data() + offset, data, size);
        m_used += size;
        return offset;
    }
    void Skip(std::size_t size) { m_used += size; }
    void WriteAt(std::size_t offset, const void* data, std::size_t size) { std::memcpy(m_block.data() + offset, data, size); }
    SecretBytes Take() { return std::move(m_block); }

private:
    SecretBytes m_block;
    std::size_t m_used = 0;
};

}  // namespace

SecretBytes::~SecretBytes() {
    if (!m_bytes.empty()) explicit_bzero(m_bytes.data(), m_bytes.size());
}

std::optional<SecretBytes> FlattenKeyProvInfo(const CRYPT_KEY_PROV_INFO& info, bool withPin) {
    if (info.cProvParam != 0 && info.rgProvParam == nullptr) return std::nullopt;
    CRYPT_KEY_PROV_INFO head = info;
    head.cProvParam = 0;
    std::size_t size = kInfoSize + TextSize(info.pwszContainerName) + TextSize(info.pwszProvName);
    for (DWORD i = 0; i < info.cProvParam; ++i) {
        const CRYPT_KEY_PROV_PARAM& param = info.rgProvParam[i];
        if (param.cbData != 0 && param.pbData == nullptr) return std::nullopt;
        if (!IsKept(param, withPin)) continue;
        ++head.cProvParam;
        size += kParamSize + param.cbData;
    }
    if (size > kMaxBlock) return std::nullopt;

    BlockWriter writer(size);
    writer.Skip(kInfoSize + head.cProvParam * kParamSize);
    const wchar_t* const none = L"";
    const auto append = [&](const wchar_t* text) {
        return OffsetAsPointer<LPWSTR>(writer.Append(text != nullptr ? text : none, TextSize(text)));
    };
    head.pwszContainerName = append(info.pwszContainerName);
    head.pwszProvName = append(info.pwszProvName);
    head.rgProvParam = OffsetAsPointer<PCRYPT_KEY_PROV_PARAM>(head.cProvParam != 0 ? kInfoSize : 0);
    writer.WriteAt(0, &head, kInfoSize);
    std::size_t place = kInfoSize;
    for (DWORD i = 0; i < info.cProvParam; ++i) {
        CRYPT_KEY_PROV_PARAM param = info.rgProvParam[i];
        if (!IsKept(param, withPin)) continue;
        param.pbData = OffsetAsPointer<BYTE*>(writer.Append(param.pbData, param.cbData));
        writer.WriteAt(place, &param, kParamSize);
        place += kParamSize;
    }
    return writer.Take();
}

bool IsKeyProvInfoBlock(asnt::View block) {
    if (block.size < kInfoSize) return false;
    const auto info = ReadAt<CRYPT_KEY_PROV_INFO>(block.data, 0);
    if (info.cProvParam > (block.size - kInfoSize) / kParamSize) return false;
    const std::size_t texts = kInfoSize + info.cProvParam * kParamSize;
    if (PointerAsOffset(info.rgProvParam) != (info.cProvParam != 0 ? kInfoSize : 0)) return false;
    for (const wchar_t* name : {info.pwszContainerName, info.pwszProvName}) {
        const std::size_t offset = PointerAsOffset(name);
        if (offset < texts || offset % sizeof(wchar_t) != 0 || !IsTextInside(block, offset)) return false;
    }
    for (DWORD i = 0; i < info.cProvParam; ++i) {
        const auto param = ReadAt<CRYPT_KEY_PROV_PARAM>(block.data, kInfoSize + i * kParamSize);
        const std::size_t offset = PointerAsOffset(param.pbData);
        if (param.cbData == 0) continue;
        if (offset < texts || offset > block.size || param.cbData > block.size - offset) return false;
    }
    return true;
}

void ResolveKeyProvInfo(void* block) {
    auto* const bytes = static_cast<unsigned char*>(block);
    const auto resolve = [bytes](auto* pointer) {
        return reinterpret_cast<decltype(pointer)>(bytes + PointerAsOffset(pointer));
    };
    auto info = ReadAt<CRYPT_KEY_PROV_INFO>(bytes, 0);
    for (DWORD i = 0; i < info.cProvParam; ++i) {
        const std::size_t place = kInfoSize + i * kParamSize;
        auto param = ReadAt<CRYPT_KEY_PROV_PARAM>(bytes, place);
        param.pbData = param.cbData != 0 ? resolve(param.pbData) : nullptr;
        std::memcpy(bytes + place, &param, kParamSize);
    }
    info.pwszContainerName = resolve(info.pwszContainerName);
    info.pwszProvName = resolve(info.pwszProvName);
    if (info.cProvParam != 0) info.rgProvParam = resolve(info.rgProvParam);
    std::memcpy(bytes, &info, kInfoSize);
}

}  // namespace nal
