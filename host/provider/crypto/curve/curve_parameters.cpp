#include "host/provider/crypto/curve/curve_parameters.h"

#include <array>

#include "host/provider/crypto/gcrypt_handles.h"

namespace nalhost::crypto::curve {
namespace {

Number ToNumber(const gcry_mpi* mpi) {
    std::array<std::uint8_t, kNumberSize> bytes{};
    MpiToLittleEndian(mpi, bytes);
    return LoadNumber(bytes.data());
}

bool Has256Bits(const Number& number) {
    return number.limb[kLimbs - 1] >> 63 == 1;
}

}  // namespace

CurveParameters LoadCurveParameters(const char* oid) {
    StartCrypto();
    gcry_ctx_t opened = nullptr;
    CheckGcrypt(gcry_mpi_ec_new(&opened, nullptr, oid), "opening a curve");
    const ContextPtr context(opened);
    const auto parameter = [&](const char* name) {
        const MpiPtr mpi(gcry_mpi_ec_get_mpi(name, context.get(), 1));
        if (!mpi) throw CryptoError(Failure::kInternal, "a curve without parameters");
        return ToNumber(mpi.get());
    };
    CurveParameters parameters = {parameter("p"), parameter("a"), parameter("b"), parameter("n"), {}};
    parameters.generator = {parameter("g.x"), parameter("g.y")};
    if (!Has256Bits(parameters.p) || !Has256Bits(parameters.q)) {
        throw CryptoError(Failure::kInternal, "a curve of another size");
    }
    return parameters;
}

}  // namespace nalhost::crypto::curve
