// Owning types for libgcrypt's handles, and the one place where its errors become exceptions. Private to this folder.
#pragma once

#include <gcrypt.h>

#include <memory>
#include <span>

#include "host/provider/crypto/error.h"
#include "host/provider/crypto/secure_memory.h"

namespace nalhost::crypto {

template <auto Release>
struct GcryptRelease {
    template <typename T>
    void operator()(T* handle) const {
        Release(handle);
    }
};

using MpiPtr = std::unique_ptr<gcry_mpi, GcryptRelease<gcry_mpi_release>>;
using PointPtr = std::unique_ptr<gcry_mpi_point, GcryptRelease<gcry_mpi_point_release>>;
using SexpPtr = std::unique_ptr<gcry_sexp, GcryptRelease<gcry_sexp_release>>;
using ContextPtr = std::unique_ptr<gcry_context, GcryptRelease<gcry_ctx_release>>;
using HashPtr = std::unique_ptr<gcry_md_handle, GcryptRelease<gcry_md_close>>;
using CipherPtr = std::unique_ptr<gcry_cipher_handle, GcryptRelease<gcry_cipher_close>>;
using MacPtr = std::unique_ptr<gcry_mac_handle, GcryptRelease<gcry_mac_close>>;

/// @throws CryptoError for any error but success: kNoMemory when memory is short, else kInternal; `what` names the step
void CheckGcrypt(gcry_error_t error, const char* what);

/// @throws CryptoError kBadLength unless `bytes` has `size` bytes
void RequireSize(ByteView bytes, std::size_t size, const char* what);

/// A number from bytes, least significant first, in secure memory when `secret`.
MpiPtr MpiFromLittleEndian(ByteView bytes, bool secret);

/// Writes a number that fits into `out`, least significant byte first, padded with zeros.
void MpiToLittleEndian(const gcry_mpi* number, ByteSpan out);

/// An empty number for results; in secure memory when `secret`.
MpiPtr NewMpi(unsigned bits, bool secret);

}  // namespace nalhost::crypto
