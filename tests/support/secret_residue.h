// Looking for secrets in memory that can be swapped out.
#pragma once

#include "host/provider/crypto/secure_memory.h"

namespace nal_test {

/// Why no residue can be looked for in this process; null when it can.
const char* WhyNoResidueIsSeen();

/// How often a secret that lies in locked memory is found in other memory that the process writes to, released memory included. Either
/// half of 16 bytes and more counts, since the heap writes to the ends of what it has released, in both byte orders.
int Residue(nalhost::crypto::ByteView secret);

}  // namespace nal_test
