// Which hash and which key a signature algorithm stands for, as the provider numbers them.
#pragma once

#include "nal/algorithm.h"

namespace nal {

struct SignatureNumbers {
    DWORD hash;
    DWORD key;  ///< a signature key's, also when an exchange key signs
};

/// The hash that goes with a key.
DWORD HashForKey(DWORD keyAlgId);

/// The signature key's number of a key that may be an exchange key.
DWORD SignatureKeyFor(DWORD keyAlgId);

/// The numbers of a signature algorithm, or of a key's algorithm. @return false for any other algorithm
bool FindSignatureNumbers(const CNALAlgorithmIdentifier& algorithm, SignatureNumbers& numbers);

}  // namespace nal
