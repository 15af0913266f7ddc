/// Making one signature: the hash of a content region.
///
/// Everything is done by the provider (ork/provider.h); handles that are passed in stay the caller's.
#pragma once

#include "nal/export.h"
#include "nal/signed_data.h"
#include "too/ident_obj.h"
#include "too/types.h"

/// What the steps of signing share; the caller fills it and owns the handles.
struct SNALCryptInfo {
    unsigned long hProv = 0;  ///< provider context; 0: a step opens one for verification where that will do
    unsigned long hKey = 0;   ///< key to sign with, given to every hash that is made; 0 for none
    unsigned long hHash = 0;  ///< a running hash; 0: a step makes its own
    DWORD hashAlgId = 0;      ///< ALG_ID of the hash
};

/// Hashes a region of a file, 64 KiB at a time.
///
/// @param path    the file
/// @param start   offset of the first byte; 0xFFFFFFFF means 0
/// @param length  of the region in bytes; 0xFFFFFFFF means up to the end of the file
/// @param flags   c_NAL_CONTENT_IN_PIECES: the region holds encoded pieces and two bytes behind them that do not count
///                (see WhatToSignStruct); other bits are not looked at
/// @param info    with `hHash` that hash goes on, and stays unfinished; else one of `hashAlgId` is made
/// @return the hash's value
/// @throws XTOOStatus: (4, path) when there is no such file; (28, "NALHashFile") for a null path and for a region that
///         ends beyond the file; (206, "NALHashFile") for pieces that are damaged; (14) when the progress handler
///         cancels; the provider's status with "NALHashFile". XTOOFile. After a failure a running hash that was
///         passed in is of no more use.
/// Thread-safe, unless calls share a running hash.
NAL_EXPORT IdentObj NALHashFile(const char* path, unsigned int start, unsigned int length, unsigned int flags,
                                const SNALCryptInfo& info);
