// Whether a certificate and its key may sign, and what verifications hash with.
#include <gtest/gtest.h>

#include "asnt/writer.h"
#include "support/hierarchy.h"
#include "nal/verify.h"
#include "ork/csp.h"
#include "support/certificate_parts.h"
#include "support/status_of.h"
#include "too/testing.h"

namespace {

using namespace nal_test;

const FILETIME kNow = At(2026, 3, 1, 12);
constexpr char kUsage[] = "2.5.29.15";

BuiltExtension Usage(unsigned flags) { return {kUsage, true, CNALKeyUsage(flags).WriteData()}; }

BuiltExtension Period(const FILETIME* from, const FILETIME* to) {
    CKeyUsagePeriod period;
    if ((period.m_hasNotBefore = from != nullptr)) period.m_notBefore = *from;
    if ((period.m_hasNotAfter = to != nullptr)) period.m_notAfter = *to;
    return {"2.5.29.16", false, period.WriteData()};
}
BuiltExtension Period(const FILETIME& from, const FILETIME& to) { return Period(&from, &to); }

const BuiltExtension kSigns = Usage(CNALKeyUsage::DigitalSignature);
const BuiltExtension kCA = BasicConstraints(true);

BuiltExtension Damaged(const char* oid) { return {oid, false, Filled(0x55, 3)}; }

// 0 when it may, else the last error.
DWORD Refusal(const CertBuilder& builder, bool useTime = false, const FILETIME& time = {0, 0}) {
    SetLastError(0);
    return NALCanSignByCert(CNALCertContext(builder.Build()), useTime, time) ? 0 : GetLastError();
}

DWORD OldRefusal(const CertBuilder& builder) {
    SetLastError(0);
    return NALCanSignByCert_old(CNALCertContext(builder.Build())) ? 0 : GetLastError();
}

class SignRules : public testing::Test {
protected:
    const too_testing::ScopedClock clock{kNow};
};

TEST_F(SignRules, UsageAndAuthorities) {
    const IdentObj oldCA("\x80", 1);
    const IdentObj oldEnd("\x40", 1);
    const struct {
        const char* name;
        std::vector<BuiltExtension> extensions;
        bool may;
        bool selfIssued = false;
    } cases[] = {
        {"signs", {kSigns}, true},
        {"signs and more", {Usage(CNALKeyUsage::DigitalSignature | CNALKeyUsage::KeyEncipherment)}, true},
        {"no usage", {}, false},
        {"non-repudiation alone", {Usage(CNALKeyUsage::NonRepudiation)}, false},
        {"second octet alone", {Usage(CNALKeyUsage::DecipherOnly)}, false},
        {"empty usage", {Usage(0)}, false},
        {"damaged usage", {Damaged(kUsage)}, false},
        {"self-issued", {kSigns}, false, true},
        {"no CA by the extension", {kSigns, BasicConstraints(false)}, true},
        {"CA", {kSigns, kCA}, false},
        {"damaged constraints", {kSigns, Damaged("2.5.29.19")}, false},
        {"old CA", {kSigns, OldBasicConstraints(oldCA)}, false},
        {"old end entity", {kSigns, OldBasicConstraints(oldEnd)}, true},
        {"damaged old constraints", {kSigns, Damaged("2.5.29.10")}, false},
        {"the newer extension decides", {kSigns, OldBasicConstraints(oldCA), BasicConstraints(false)}, true},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        CertBuilder builder;
        builder.extensions = test.extensions;
        if (test.selfIssued) builder.issuer = builder.subject;
        EXPECT_EQ(Refusal(builder), test.may ? 0 : 106U);
        EXPECT_EQ(OldRefusal(builder), test.may ? 0 : 106U);
    }
    EXPECT_FALSE(NALCanSignByCert(CNALCertContext(), false, CTOOFileTime()));
    EXPECT_FALSE(NALCanSignByCert_old(CNALCertContext()));
}

TEST_F(SignRules, TimesAndTheirPrecedence) {
    const FILETIME past = Date(2025);
    const FILETIME future = Date(2027);
    const FILETIME none{0, 0};
    const BuiltExtension over = Period(Date(2024), Date(2026));
    const BuiltExtension open = Period(Date(2026), Date(2028));
    const struct {
        const char* name;
        FILETIME notBefore, notAfter;
        std::vector<BuiltExtension> extensions;
        bool useTime;
        FILETIME time;
        DWORD refusal;
    } cases[] = {
        {"in time", past, future, {kSigns, open}, false, none, 0},
        {"first moment", kNow, future, {kSigns}, false, none, 0},
        {"last moment", past, kNow, {kSigns}, false, none, 0},
        {"expired", past, At(2026, 3, 1, 11, 59, 59), {kSigns}, false, none, 203},
        {"not yet valid", At(2026, 3, 1, 12, 0, 1), future, {kSigns}, false, none, 203},
        {"expired, and not for signing", past, Date(2026), {}, false, none, 203},
        {"key over", past, future, {kSigns, over}, false, none, 233},
        {"expired and key over", past, Date(2026), {kSigns, over}, false, none, 233},
        {"key over, and not for signing", past, future, {over}, false, none, 233},
        {"key over, signed before that", past, future, {kSigns, over}, true, Date(2025, 6), 0},
        {"signed before the key began", past, future, {kSigns, open}, true, Date(2025, 12, 31), 233},
        {"signed after the key ended", past, Date(2040), {kSigns, open}, true, Date(2028, 1, 2), 233},
        {"certificate expired since", past, Date(2026), {kSigns}, true, Date(2025, 6), 203},
        {"no time: key period not looked at", past, future, {kSigns, over}, true, none, 0},
        {"no time: the certificate's validity stands for it", past, Date(2026), {kSigns}, true, none, 233},
        {"damaged period", past, future, {kSigns, Damaged("2.5.29.16")}, false, none, 106},
        {"damaged period, expired", past, Date(2026), {kSigns, Damaged("2.5.29.16")}, false, none, 106},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        CertBuilder builder;
        builder.notBefore = test.notBefore;
        builder.notAfter = test.notAfter;
        builder.extensions = test.extensions;
        EXPECT_EQ(Refusal(builder, test.useTime, test.time), test.refusal);
    }
}

TEST_F(SignRules, WhatIsLeftOfAKey) {
    const FILETIME start = At(2026, 2, 1);
    const FILETIME end = At(2026, 3, 2, 12);
    const struct {
        const char* name;
        std::vector<BuiltExtension> extensions;
        CTOOFileTime at;
        bool valid;
        long seconds;
        CTOOFileTime keyNotAfter;
    } cases[] = {
        {"no period", {}, {}, true, -1, {}},
        {"a day", {Period(start, end)}, {}, true, 86400, end},
        {"a day, asked by time", {Period(start, end)}, kNow, true, 86400, end},
        {"cut to whole seconds", {Period(start, end)}, CTOOFileTime(CTOOFileTime(kNow).GetTicks() + 1), true, 86399, end},
        {"last moment", {Period(start, end)}, end, true, 0, end},
        {"first moment", {Period(start, end)}, start, true, 29L * 86400 + 43200, end},
        {"over", {Period(start, end)}, CTOOFileTime(CTOOFileTime(end).GetTicks() + 1), false, 0, end},
        {"not begun", {Period(start, end)}, CTOOFileTime(CTOOFileTime(start).GetTicks() - 1), false, 0, end},
        {"no start", {Period(nullptr, &end)}, Date(1990), true, 13209L * 86400 + 43200, end},
        {"no end", {Period(&start, nullptr)}, Date(2900), true, -1, {}},
        {"no end, not begun", {Period(&start, nullptr)}, Date(2020), false, 0, {}},
        {"a leap day", {Period(At(2028, 2, 28), At(2028, 3, 1))}, At(2028, 2, 28), true, 172800, At(2028, 3, 1)},
        {"beyond 2050", {Period(At(2049, 12, 31), At(2050, 1, 2))}, At(2050, 1, 1), true, 86400, At(2050, 1, 2)},
        {"damaged", {Damaged("2.5.29.16")}, {}, false, 0, {}},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        CertBuilder builder;
        builder.extensions = test.extensions;
        const CNALCertInfo info(*CNALCertContext(builder.Build()).GetContext());
        long seconds = 7;
        FILETIME keyNotAfter{7, 7};
        EXPECT_EQ(NALIsSignKeyPeriodValid(info, seconds, keyNotAfter, test.at) != FALSE, test.valid);
        EXPECT_EQ(seconds, test.seconds);
        EXPECT_EQ(CTOOFileTime(keyNotAfter), test.keyNotAfter);
    }
}

TEST(Usages, NothingIsKnownOfThem) {
    std::list<CTOOString> usages{"1.2"};
    bool all = true;
    NALGetEnhancedKeyUsage(CNALCertContext(CertBuilder().Build()).GetContext(), 0, usages, all);
    EXPECT_TRUE(all && usages == std::list<CTOOString>{"1.2"});
    NALCertGetValidUsages(std::vector<CNALCertContext>(2), usages, all);
    EXPECT_TRUE(!all && usages.empty());
}

TEST(VerifyParams, OpenAHash) {
    for (const char* oid : {static_cast<const char*>(nullptr), "", "1.2.643.2.2.9", "1.3.6.1.4.1.47474.2.1.1.2"}) {
        SCOPED_TRACE(oid != nullptr ? oid : "null");
        CNALVerifyParams params(oid);
        EXPECT_EQ(params.GetHashOID(), oid != nullptr && *oid != '\0' ? oid : "1.2.643.2.2.9");
        EXPECT_TRUE(ORKHashData(params.GetHash(), "abc", 3, 0));
        const CNALVerifyParams copy(params);
        EXPECT_EQ(copy.GetHashAlgId(), params.GetHashAlgId());
        EXPECT_EQ(copy.GetProvider().GetProviderHandle(), params.GetProvider().GetProviderHandle());
        EXPECT_EQ(copy.GetHash(), 0U);
        const unsigned long hash = params.GetHash();
        params = copy;
        EXPECT_EQ(params.GetHash(), 0U);
        IdentObj value;
        EXPECT_FALSE(ORKGetHashParam(hash, ORK_HASH_PARAM_VALUE, value)) << "the hash went with its owner";
    }
    const auto failureOf = [](const char* oid) { return FailureOf([&] { const CNALVerifyParams params(oid); }); };
    EXPECT_TRUE(failureOf("1.3.14.3.2.26").ends_with(" CNALProvider::Init")) << "no provider here has that hash";
    const too_testing::ScopedCallFailure failure("ORKCreateHash", ORK_E_BAD_LENGTH);
    EXPECT_TRUE(failureOf(nullptr).ends_with(" ORKCreateHash"));
}

}  // namespace
