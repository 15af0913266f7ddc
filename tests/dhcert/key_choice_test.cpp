#include "dhcert/key_choice.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/hex.h"

namespace {

constexpr long c_in = c_NAL_DH_INCOMING;
constexpr long c_acked = c_NAL_DH_ACKNOWLEDGED;
constexpr long c_rejected = c_NAL_DH_REJECTED;
constexpr long c_actual = c_NAL_DH_ACTUAL;

struct Exchange {
    const char* key;
    long flags;
    std::uint64_t sent;
    std::uint64_t received = 0;
};

CNALSendCertRecord RecordOf(const Exchange& exchange) {
    CNALSendCertRecord record("0000", "0001", CTOOFileTime(exchange.sent), exchange.flags, nal_test::FromText(exchange.key), "");
    record.TimeReceive(CTOOFileTime(exchange.received));
    return record;
}

TEST(KeyChoice, KeysInTheirOrder) {
    const struct {
        const char* name;
        bool incoming;
        std::vector<Exchange> exchanges;
        const char* order;
    } cases[] = {
        {"nothing", false, {}, ""},
        {"not acknowledged yet", false, {{"a", 0, 1}}, ""},
        {"the latest acknowledged", false, {{"a", c_acked, 1}, {"c", c_acked, 3}, {"b", c_acked, 2}, {"d", 0, 4}}, "cba"},
        {"rejected", false, {{"a", c_acked, 1}, {"b", c_acked | c_rejected, 2}}, "a"},
        {"rejected, sent again", false, {{"a", c_rejected, 1}, {"a", c_acked, 2}}, "a"},
        {"acknowledged, then rejected", false, {{"a", c_acked, 1}, {"a", c_rejected, 2}}, ""},
        {"the last word by time, not by place", false, {{"a", c_rejected, 2}, {"a", c_acked, 1}}, ""},
        {"the last word of one time by place", false, {{"a", c_rejected, 1}, {"a", c_acked, 1}}, "a"},
        {"acknowledged, then sent again", false, {{"a", c_acked, 1}, {"a", 0, 2}}, "a"},
        {"actual before later ones", false, {{"a", c_acked | c_actual, 1}, {"b", c_acked, 2}}, "ab"},
        {"two marked actual", false, {{"a", c_acked | c_actual, 1}, {"b", c_acked | c_actual, 2}, {"c", c_acked, 3}}, "bac"},
        {"actual but rejected", false, {{"a", c_acked, 1}, {"b", c_acked | c_rejected | c_actual, 2}}, "a"},
        {"one time", false, {{"a", c_acked, 1}, {"b", c_acked, 1}}, "ba"},
        {"received needs no acknowledgement", true, {{"a", c_in, 0, 1}, {"b", c_in, 0, 2}}, "ba"},
        {"received, by time received", true, {{"a", c_in, 9, 1}, {"b", c_in, 1, 2}, {"c", c_in, 5}}, "cba"},
        {"received and rejected", true, {{"a", c_in | c_rejected, 0, 2}, {"b", c_in, 0, 1}}, "b"},
        {"the other direction", true, {{"a", c_acked, 1}}, ""},
        {"no key number", true, {{"", c_in, 0, 1}}, ""},
        {"keys of which one begins with the other", true, {{"a", c_in, 0, 1}, {"aa", c_in, 0, 2}}, "aaa"},
    };
    for (const auto& test : cases) {
        std::vector<CNALSendCertRecord> records;
        for (const auto& exchange : test.exchanges) records.push_back(RecordOf(exchange));
        std::string order;
        for (const auto& record : nal::RankKeys(records, test.incoming)) {
            const IdentObj key = record.NumberKey();
            order += std::string(reinterpret_cast<const char*>(key.GetData()), key.GetSize());
        }
        EXPECT_EQ(test.order, order) << test.name;
    }
}

}  // namespace
