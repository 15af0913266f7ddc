#include "ork/oid_info.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>

#include "ork/constants.h"

namespace {

using orkcspex::FindOIDInfo;

std::string Oid(const CRYPT_OID_INFO* info) { return info == nullptr ? "(none)" : info->pszObjId; }

DWORD Extra(const CRYPT_OID_INFO& info) {
    DWORD extra = 0;
    if (info.ExtraInfo.cbData != 0) std::memcpy(&extra, info.ExtraInfo.pbData, sizeof extra);
    return extra;
}

TEST(OidRegistry, FindsByOid) {
    const struct {
        const char* oid;
        DWORD algId, extra;
    } cases[] = {
        {"1.2.643.2.2.9", 0x801E, 0},  {"1.2.643.2.2.19", 0x2E23, 0},            {"1.2.643.2.2.20", 0x2E1E, 0},
        {"1.2.643.2.2.98", 0xAA24, 0}, {"1.2.643.2.2.99", 0xAA1E, 0},            {"1.2.643.2.2.21", 0x661E, 0},
        {"1.2.643.2.2.35.1", 0, 0},    {"1.2.643.2.2.3", 0x801E, 0x2E23},        {"1.2.643.2.2.4", 0x801E, 0x2E1E},
        {"2.5.4.42", 0, 0},            {"1.3.6.1.4.1.47474.2.1.1.2", 0x8029, 0}, {"1.3.6.1.4.1.47474.2.1.2.2", 0x2E29, 0},
    };
    for (const auto& c : cases) {
        const CRYPT_OID_INFO* info = FindOIDInfo(1, c.oid, 0);
        ASSERT_NE(info, nullptr) << c.oid;
        EXPECT_STREQ(info->pszObjId, c.oid);
        EXPECT_EQ(info->Algid, c.algId) << c.oid;
        EXPECT_EQ(Extra(*info), c.extra) << c.oid;
        EXPECT_NE(info->pwszName[0], 0) << c.oid;
    }
    for (const char* unknown : {"", "1.2.643.2.2", "1.2.643.2.2.1", "1.2.643.2.2.190", "2.5.4.3"}) {
        EXPECT_EQ(Oid(FindOIDInfo(1, unknown, 0)), "(none)") << unknown;
    }
}

TEST(OidRegistry, FindsByNumberButNeverASignature) {
    const std::pair<DWORD, const char*> cases[] = {
        {0x801E, "1.2.643.2.2.9"},  {0x2E23, "1.2.643.2.2.19"}, {0x8029, "1.3.6.1.4.1.47474.2.1.1.2"}, {0, "(none)"},
        {0x2E1E, "1.2.643.2.2.20"}, {0xAA24, "1.2.643.2.2.98"}, {0x2E29, "1.3.6.1.4.1.47474.2.1.2.2"}, {0xAA25, "(none)"},
        {0xAA1E, "1.2.643.2.2.99"}, {0x661E, "1.2.643.2.2.21"}, {0xFFFF, "(none)"},
    };
    for (const auto& [algId, oid] : cases) EXPECT_EQ(Oid(FindOIDInfo(3, &algId, 0)), oid) << std::hex << algId;
}

TEST(OidRegistry, FindsSignaturesByPair) {
    const struct {
        DWORD pair[2];
        const char* oid;
    } cases[] = {{{0x801E, 0x2E23}, "1.2.643.2.2.3"}, {{0x801E, 0x2E1E}, "1.2.643.2.2.4"}, {{0x8029, 0x2E29}, "1.3.6.1.4.1.47474.2.1.2.2"},
                 {{0x8029, 0x2E23}, "(none)"},        {{0x801E, 0x2E29}, "(none)"},        {{0x2E23, 0x801E}, "(none)"},
                 {{0x2E29, 0}, "(none)"},             {{0, 0}, "(none)"}};
    for (const auto& c : cases) EXPECT_EQ(Oid(FindOIDInfo(4, c.pair, 0)), c.oid) << std::hex << c.pair[0];
}

TEST(OidRegistry, FindsNamesInAnyCaseAndKeepsGroupsApart) {
    const struct {
        const wchar_t* name;
        DWORD group;
        const char* oid;
    } cases[] = {{L"GIVENNAME", 5, "2.5.4.42"},  {L"gN", 5, "2.5.4.42"}, {L"GOST R 34.11-94", 0, "1.2.643.2.2.9"},
                 {L"givenNames", 5, "(none)"}, {L"", 5, "(none)"},     {L"GOST R 34.11-94", 5, "(none)"},
                 {L"givenNam", 5, "(none)"}};
    for (const auto& c : cases) EXPECT_EQ(Oid(FindOIDInfo(2, c.name, c.group)), c.oid) << &c - cases;
    EXPECT_EQ(Oid(FindOIDInfo(1, "1.2.643.2.2.9", 5)), "(none)");
    EXPECT_EQ(Oid(FindOIDInfo(1, "1.2.643.2.2.9", 1)), "1.2.643.2.2.9");
    // The library's own keyword tables answer for these.
    for (const wchar_t* own : {L"C", L"CN", L"E", L"EMAIL", L"L", L"O", L"OU", L"S", L"ST", L"T", L"TITLE", L"PSEUDONYM", L"DEPARTMENT",
                               L"SERIALNUMBER", L"POSTALADDRESS"}) {
        EXPECT_EQ(Oid(FindOIDInfo(2, own, 5)), "(none)");
    }
}

TEST(OidRegistry, AnswersImpossibleQuestionsWithNothing) {
    for (DWORD keyType : {0U, 1U, 2U, 3U, 4U, 5U}) EXPECT_EQ(FindOIDInfo(keyType, nullptr, 0), nullptr);
    EXPECT_EQ(FindOIDInfo(9, "1.2.643.2.2.9", 0), nullptr);
}

}  // namespace
