// Trust lists for tests, signed as the key centre signs them, or with whatever a test puts wrong.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "nal/signed_data.h"
#include "support/cert_builder.h"
#include "support/test_signer.h"

namespace nal_test {

/// A trust list to be.
struct TrustListBuilder {
    std::int64_t number = 1;
    std::vector<IdentObj> certificates;
    std::vector<IdentObj> crls;
    IdentObj signer;                            // the certificate in the message
    std::optional<FILETIME> signingTime = Date(2026, 3);
    std::vector<IdentObj> outside;              // further certificates in the message
    int version = 3;

    IdentObj Build(const TestSigner& key) const;
};

/// The extended key usage without which nobody signs trust lists.
BuiltExtension TrustListUsage();

/// An unsigned list: a message that carries certificates and CRLs and nothing else.
IdentObj UnsignedList(const std::vector<IdentObj>& certificates, const std::vector<IdentObj>& crls = {});

}  // namespace nal_test
