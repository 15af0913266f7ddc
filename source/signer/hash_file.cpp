#include <cstdint>

#include "cms/file_content.h"
#include "model/provider_handles.h"
#include "nal/sign.h"
#include "ork/provider.h"
#include "signer/provider_calls.h"
#include "storage/signature_check.h"
#include "too/status.h"

namespace {

constexpr char c_context[] = "NALHashFile";
constexpr unsigned c_open = 0xFFFFFFFF;

WhatToSignStruct RegionOf(const char* path, unsigned start, unsigned length, unsigned flags) {
    if (path == nullptr) throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_context);
    WhatToSignStruct what;
    what.flags = c_NAL_CONTENT_IN_FILE | (flags & c_NAL_CONTENT_IN_PIECES);
    what.data = path;
    what.start = start == c_open ? 0 : start;
    what.end = c_NAL_TO_END_OF_FILE;
    if (length != c_open) {
        const std::uint64_t end = std::uint64_t{what.start} + length;
        if (end >= c_NAL_TO_END_OF_FILE) throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_context);
        what.end = static_cast<DWORD>(end);
    }
    return what;
}

void HashContent(const WhatToSignStruct& what, unsigned long hHash) {
    try {
        nal::FileContent content(what, c_context);
        content.ForEachChunk(nal::c_hashChunk, [&](asnt::View chunk) {
            if (!ORKHashData(hHash, chunk.data, static_cast<DWORD>(chunk.size), 0)) nal::ThrowProvider(c_context);
        });
    } catch (const XTOOStatus& status) {
        // A message's own region beyond its file is 37; of a region that is asked for it is a bad argument.
        if (status.GetCode() != TOO_E_RANGE) throw;
        throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_context);
    }
}

}  // namespace

IdentObj NALHashFile(const char* path, unsigned int start, unsigned int length, unsigned int flags,
                     const SNALCryptInfo& info) {
    const WhatToSignStruct what = RegionOf(path, start, length, flags);
    if (!CTOOFile::Exists(path)) throw XTOOStatus(TOO_E_FILE_NOT_FOUND, path);
    nal::ContextHandle provider;
    nal::HashHandle own;
    if (info.hHash == 0) {
        if (info.hProv == 0) {
            provider = nal::OpenVerifyProvider();
            if (!provider) nal::ThrowProvider(c_context);
        }
        const unsigned long hProv = info.hProv != 0 ? info.hProv : provider.Get();
        if (!ORKCreateHash(hProv, info.hashAlgId, info.hKey, own.Receive(), 0)) nal::ThrowProvider(c_context);
        HashContent(what, own.Get());
    } else {
        HashContent(what, info.hHash);
        // Reading the value finishes a hash, and the caller's goes on.
        if (!ORKDuplicateHash(info.hHash, nullptr, 0, own.Receive())) nal::ThrowProvider(c_context);
    }
    IdentObj value;
    if (!ORKGetHashParam(own.Get(), ORK_HASH_PARAM_VALUE, value)) nal::ThrowProvider(c_context);
    return value;
}
