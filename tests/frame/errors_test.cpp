#include "nal/errors.h"

#include <gtest/gtest.h>

#include <climits>

namespace {

TEST(Errors, MessageNumbers) {
    for (int unassigned : {INT_MIN, -1, 0, 109, 118, 119, 127, 145, 149, INT_MAX}) {
        EXPECT_EQ("", LoadStringCert(unassigned)) << unassigned;
    }
    EXPECT_EQ("The operation completed successfully", LoadStringCert(110));
    EXPECT_EQ("Certificate is not valid by usage", LoadStringCert(148));
    // Only 140 to 147 end in a full stop, and 141 has two blanks.
    for (int id = 110; id <= 148; ++id) {
        const std::string text = LoadStringCert(id);
        if (text.empty()) continue;
        EXPECT_EQ(id >= 140 && id <= 147, text.back() == '.') << id;
    }
    EXPECT_NE(std::string::npos, LoadStringCert(141).find("guaranteed.  The"));
}

TEST(Errors, WindowsCodes) {
    struct {
        unsigned int code;
        int message;
    } cases[] = {
        {0, 110},          {6, 124},          {0x57, 125},       {0xEA, 126},       {0x80070057, 123}, {0x80090001, 135},
        {0x80090006, 134}, {0x8009000C, 131}, {0x8009000D, 137}, {0x8009200A, 122}, {0x8009200B, 120}, {0x8009200E, 121},
        {0x80096002, 146}, {0x80096005, 147}, {0x800B010E, 144}, {0x800B0110, 148},
        // Neighbours of known codes are unknown ones.
        {1, 139},          {5, 139},          {7, 139},          {0x80090005, 139}, {0x8009200C, 139}, {0x800B0102, 139},
        {0xFFFFFFFF, 139},
    };
    for (const auto& c : cases) EXPECT_EQ(LoadStringCert(c.message), NALGetWinErrorExplaination(c.code).str()) << c.code;
}

TEST(Errors, TrustBits) {
    struct {
        unsigned int bits;
        int message;
        unsigned int code;
    } cases[] = {
        {0, 110, 0},
        {0x00010000, 114, 0x800B010A},
        {0x00000008, 111, 0x80096004},
        {0x00000020, 116, 0x800B010A},
        {0x00000001, 113, 0x800B0101},
        {0x00000002, 112, 0x800B0102},
        {0x00000004, 115, 0x800B010C},
        {0x00000010, 117, 0x800B0110},
        {0x00000040, 117, 0x800B010E},
        {0x00000080, 117, 0x800B010A},
        {0x00000100, 117, 0},
        {0x00000200, 117, 0x80096019},
        {0x00000400, 117, 0x80096019},
        {0x00000800, 117, 0x80096019},
        {0x00020000, 117, 0x800B0101},
        {0x00040000, 117, 0x80096004},
        {0x00080000, 117, 0x800B0110},
        {0x80000000, 117, 0},
        // Which of two wins, where the two orders differ.
        {0x21, 116, 0x800B010A},
        {0x28, 111, 0x800B010A},
        {0x6, 112, 0x800B010C},
        {0x5, 113, 0x800B010C},
        {0x10008, 114, 0x800B010A},
        {0x81, 113, 0x800B0101},
        {0xC0, 117, 0x800B010A},
        {0x42, 112, 0x800B010E},
        {0x60010, 117, 0x800B0110},
        {0x60000, 117, 0x80096004},
        {0xFFFFFFFF, 114, 0x800B010A},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(LoadStringCert(c.message), NALGetCertTotalBitMaskExplaination(c.bits).str()) << std::hex << c.bits;
        EXPECT_EQ(c.code, NALCertFlags2WinErr(c.bits)) << std::hex << c.bits;
        EXPECT_EQ(c.bits == 0, NALListTrustErrors(c.bits).empty()) << std::hex << c.bits;
    }
}

TEST(Errors, TrustBitsInWords) {
    const std::list<CTOOString> words = NALListTrustErrors(0x10021);
    ASSERT_EQ(3U, words.size());
    EXPECT_EQ("no issuer was found, so the chain does not reach a root", words.front());
    EXPECT_EQ("the certificate has expired or is not yet valid", words.back());
    EXPECT_EQ(std::list<CTOOString>{"an unknown fault"}, NALListTrustErrors(0x3000));
}

}  // namespace
