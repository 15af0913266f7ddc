#include "nal/fingerprint.h"

#include <gtest/gtest.h>

// As an independent implementation gives them.
TEST(Fingerprint, IsTheGroupedHash) {
    EXPECT_EQ(NALGetFingerprint(IdentObj("abc", 3)), "B285056D BF18D739 2D767736 9524DD14 747459ED 8143997E 163B2986 F92FD42C");
    EXPECT_EQ(NALGetFingerprint(IdentObj()), "981E5F3C A30C8414 87830F84 FB433E13 AC110156 9B9C1358 4AC48323 4CD656C0");
}
