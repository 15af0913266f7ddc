// The parameter sets of RFC 4357, found by object identifier.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

#include "host/provider/crypto/symmetric/sbox_tables.h"

namespace nalhost::crypto {

/// A parameter set of GOST R 34.11-94. Source: RFC 4357 section 11.2.
struct HashParameters {
    const char* oid;
    int gcryptAlgorithm;
    const SboxTables* boxes;
};

/// A parameter set (S-boxes) of GOST 28147-89. Source: RFC 4357 section 11.1; RFC 7836 appendix C
/// for 1.2.643.7.1.2.5.1.1.
struct CipherParameters {
    const char* oid;
    bool meshes;  ///< the set asks for key meshing: all but the test set 1.2.643.2.2.31.0
    const SboxTables* boxes;
};

enum class KeyAlgorithm {
    kGost94,    ///< GOST R 34.10-94: 1024-bit prime, 256-bit order
    kGost2001,  ///< GOST R 34.10-2001: 256-bit curve
};

inline constexpr std::size_t kCurveCount = 4;

/// A parameter set of a key. Source: RFC 4357 sections 11.3 (94) and 11.4 (2001).
struct KeyParameters {
    const char* oid;
    KeyAlgorithm algorithm;
    std::size_t publicKeySize;  ///< bytes: 128 (94) or 64 (2001)
    std::size_t curve;          ///< 2001: a number below kCurveCount; sets of one curve have the same
    // Hexadecimal, most significant digit first: 94 only. libgcrypt knows the curves by their identifiers.
    const char* p;
    const char* q;
    const char* a;
};

/// @return the set of this dotted identifier, null when there is none. The records live as long as the process.
/// Hash sets: 1.2.643.2.2.30.0 (test) and 30.1 (CryptoPro).
const HashParameters* FindHashParameters(std::string_view oid);
/// Cipher sets: 1.2.643.2.2.31.0 (test), 31.1 to 31.4 (A to D), 1.2.643.7.1.2.5.1.1 (Z).
const CipherParameters* FindCipherParameters(std::string_view oid);
/// Key sets: 94: 1.2.643.2.2.32.2 to 32.5, 33.1 to 33.3; 2001: 1.2.643.2.2.35.0 to 35.3, 36.0, 36.1.
const KeyParameters* FindKeyParameters(std::string_view oid);

/// Every set, in the order of the lists above.
std::span<const HashParameters> AllHashParameters();
std::span<const CipherParameters> AllCipherParameters();
std::span<const KeyParameters> AllKeyParameters();

/// The CryptoPro hash set, which signatures, key agreement and certificates use.
const HashParameters& DefaultHashParameters();

}  // namespace nalhost::crypto
