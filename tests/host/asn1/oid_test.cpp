#include "asnt/oid.h"

#include <gtest/gtest.h>

#include "support/hex.h"

namespace {

using nal_test::FromHexText;

TEST(Oid, TextAndContentBothWays) {
    const std::pair<const char*, const char*> cases[] = {
        {"0.0", "00"},      {"0.39", "27"},          {"1.0", "28"},   {"1.39", "4F"},
        {"2.0", "50"},      {"2.39", "77"},          {"2.47", "7F"},  {"2.48", "8100"},
        {"2.999.3", "883703"},                       {"1.2.643.2.2.3", "2A8503020203"},
        {"1.2.840.113549.1.7.2", "2A864886F70D010702"},
        {"1.3.6.1.4.1.47474.2.1.2.2", "2B0601040182F27202010202"},
        {"2.25.329800735698586629295641978511506172918", "6983F09DA7EBCFDEE0C7A1A7B2C0948CC8F9D776"},
        {"1.2.18446744073709551615", "2A81FFFFFFFFFFFFFFFF7F"},
        {"1.2.340282366920938463463374607431768211455", "2A83FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF7F"},
    };
    for (const auto& [text, hex] : cases) {
        const IdentObj expected = FromHexText(hex);
        std::string content;
        EXPECT_TRUE(asnt::OidFromText(text, content)) << text;
        EXPECT_EQ(asnt::View(content.data(), content.size()), asnt::View(expected)) << text;
        std::string back;
        EXPECT_TRUE(asnt::OidToText(expected, back)) << text;
        EXPECT_EQ(back, text);
    }
}

TEST(Oid, RefusesTextThatIsNone) {
    std::string content = "kept";
    for (const char* text : {"", "1", "1.", ".1", "1..2", "1.2.", "3.1", "0.40", "1.40", "01.2", "1.02", "1.2.-3", "1.2.+3", "1.2.3 ",
                             " 1.2", "1.2.x", "a.b", "1,2", "1.2.340282366920938463463374607431768211456",
                             "2.340282366920938463463374607431768211455"}) {
        EXPECT_FALSE(asnt::OidFromText(text, content)) << text;
    }
    EXPECT_FALSE(asnt::OidFromText(std::string_view("1.2\0", 4), content));
    EXPECT_EQ(content, "kept");
}

TEST(Oid, RefusesContentThatIsNone) {
    std::string text = "kept";
    for (const char* hex : {"", "80", "8001", "2A8001", "2A85", "2A84808080808080808080808080808080808080 00",
                            "2A8181818181818181818181818181818181818181 00"}) {
        EXPECT_FALSE(asnt::OidToText(FromHexText(hex), text)) << hex;
    }
    EXPECT_EQ(text, "kept");
}

TEST(Oid, BoundsItsSize) {
    std::string text = "2.47";
    std::string content;
    for (std::size_t arcs = 1; arcs < asnt::kMaxOidContent; ++arcs) text += ".127";
    ASSERT_TRUE(asnt::OidFromText(text, content));
    EXPECT_EQ(content.size(), asnt::kMaxOidContent);
    EXPECT_LT(text.size(), 4096u);
    std::string back;
    EXPECT_TRUE(asnt::OidToText(asnt::View(content.data(), content.size()), back));
    EXPECT_EQ(back, text);

    EXPECT_FALSE(asnt::OidFromText(text + ".1", content));
    content += '\x01';
    EXPECT_FALSE(asnt::OidToText(asnt::View(content.data(), content.size()), back));
}

}  // namespace
