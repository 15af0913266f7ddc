#include "host/provider/crypto/gcrypt_handles.h"

#include <algorithm>
#include <array>
#include <string>

namespace nalhost::crypto {

void CheckGcrypt(gcry_error_t error, const char* what) {
    if (error == 0) return;
    throw CryptoError(gcry_err_code(error) == GPG_ERR_ENOMEM ? Failure::kNoMemory : Failure::kInternal,
                      std::string(what) + ": " + gcry_strerror(error));
}

void RequireSize(ByteView bytes, std::size_t size, const char* what) {
    if (bytes.size() == size) return;
    throw CryptoError(Failure::kBadLength, std::string(what) + " has " + std::to_string(bytes.size()) +
                                               " bytes where " + std::to_string(size) + " are needed");
}

MpiPtr MpiFromLittleEndian(ByteView bytes, bool secret) {
    // gcry_mpi_scan keeps a number in secure memory when the buffer that it reads is there.
    auto scan = [](ByteView mostSignificantFirst) {
        gcry_mpi_t number = nullptr;
        CheckGcrypt(
            gcry_mpi_scan(&number, GCRYMPI_FMT_USG, mostSignificantFirst.data(), mostSignificantFirst.size(), nullptr),
            "reading a number");
        return MpiPtr(number);
    };
    if (!secret) {
        std::array<std::uint8_t, 128> reversed;
        if (bytes.size() > reversed.size()) throw CryptoError(Failure::kBadLength, "a number is too long");
        std::reverse_copy(bytes.begin(), bytes.end(), reversed.begin());
        return scan({reversed.data(), bytes.size()});
    }
    SecureBytes reversed(bytes.size());
    std::reverse_copy(bytes.begin(), bytes.end(), reversed.begin());
    MpiPtr number = scan(reversed);
    gcry_mpi_set_flag(number.get(), GCRYMPI_FLAG_SECURE);
    return number;
}

void MpiToLittleEndian(const gcry_mpi* number, ByteSpan out) {
    std::size_t written = 0;
    CheckGcrypt(gcry_mpi_print(GCRYMPI_FMT_USG, out.data(), out.size(), &written, const_cast<gcry_mpi_t>(number)),
                "writing a number");
    std::reverse(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(written));
    std::fill(out.begin() + static_cast<std::ptrdiff_t>(written), out.end(), std::uint8_t{0});
}

MpiPtr NewMpi(unsigned bits, bool secret) {
    MpiPtr number(secret ? gcry_mpi_snew(bits) : gcry_mpi_new(bits));
    if (!number) throw CryptoError(Failure::kNoMemory, "no memory for a number");
    return number;
}

}  // namespace nalhost::crypto
