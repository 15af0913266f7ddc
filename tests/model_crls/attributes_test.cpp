#include "nal/attributes.h"

#include <string>
#include <vector>

#include "model_crls/model_test.h"

namespace {

using nal_test::FromHexText;
using nal_test::StatusOf;

// 1.2.3 with one value, 1.2.4 with two in the wrong order for DER, 1.2.3 again with none.
constexpr char kFirst[] = "3008 0602 2A03 3102 0500";
constexpr char kSecond[] = "300C 0602 2A04 3106 020102 020101";
constexpr char kThird[] = "3006 0602 2A03 3100";
constexpr char kContent[] = "3008 0602 2A03 3102 0500  300C 0602 2A04 3106 020102 020101  3006 0602 2A03 3100";

CNALAttributesList Read(const IdentObj& der) {
    CNALAttributesList list;
    list.ReadData(der.GetData(), der.GetSize());
    return list;
}

TEST(AttributesSet, HoldsATypeAndItsValues) {
    CNALAttributesSet set("1.2.4", FromHexText("020102"));
    EXPECT_EQ(set.GetOID(), "1.2.4");
    asnt::View value;
    ASSERT_TRUE(set.GetSingleValue(value));
    EXPECT_EQ(value, asnt::View(FromHexText("020102")));
    set.AddValue(FromHexText("020101"));
    EXPECT_EQ(set.WriteData(), FromHexText(kSecond));
    EXPECT_EQ(set.GetValueCount(), 2u);
    EXPECT_EQ(set.GetValues()[1], asnt::View(FromHexText("020101")));
    EXPECT_FALSE(set.GetSingleValue(value));
    EXPECT_TRUE(set.HasOID("1.2.4"));
    EXPECT_FALSE(set.HasOID("1.2.40"));
    EXPECT_FALSE(set.HasOID("no OID"));

    EXPECT_EQ(CNALAttributesSet().GetOID(), "");
    EXPECT_EQ(CNALAttributesSet().GetValueCount(), 0u);
    for (const char* value : {"", "0201", "02010100", "3003 020200"}) {
        EXPECT_EQ(StatusOf([&] { CNALAttributesSet("1.2.3", FromHexText(value)); }), TOO_E_ENCODE) << value;
        EXPECT_EQ(StatusOf([&] { set.AddValue(FromHexText(value)); }), TOO_E_ENCODE) << value;
    }
    EXPECT_EQ(StatusOf([] { CNALAttributesSet("1.2.", FromHexText("0500")); }), TOO_E_ENCODE);
    EXPECT_EQ(StatusOf([] { CNALAttributesSet().AddValue(FromHexText("0500")); }), TOO_E_ENCODE);
}

TEST(AttributesList, WritesTheOrderThatItReadUnderTheTagThatIsAsked) {
    const struct {
        const char* first;  // octet of the tag
        DWORD number;
        bool universal;
    } tags[] = {{"31", 17, true}, {"A0", 0, false}, {"A1", 1, false}, {"B1", 17, false}};
    for (const auto& tag : tags) {
        const IdentObj der = FromHexText(std::string(tag.first) + "20" + kContent);
        CNALAttributesList list = Read(der);
        EXPECT_EQ(list.GetTagNumber(), tag.number);
        EXPECT_EQ(list.IsUniversal(), tag.universal);
        EXPECT_EQ(list.WriteData(), der);
        EXPECT_EQ(list.GetObjectSize(), der.GetSize());
        list.SetTag(17, true);
        EXPECT_EQ(list.WriteData(), FromHexText(std::string("3120") + kContent));
    }
    EXPECT_EQ(CNALAttributesList().WriteData(), FromHexText("3100"));
}

TEST(AttributesList, SortsAttributesAndValuesOnlyWhenAsked) {
    CNALAttributesList list = Read(FromHexText(std::string("A020") + kContent));
    EXPECT_FALSE(list.IsSorted());
    EXPECT_EQ(list.WriteSorted(), FromHexText("A020 3006 0602 2A03 3100  3008 0602 2A03 3102 0500  300C 0602 2A04 3106 020101 020102"));
    EXPECT_TRUE(Read(list.WriteSorted()).IsSorted());
    EXPECT_TRUE(CNALAttributesList().IsSorted());
}

TEST(AttributesList, FindsAddsAndTakesOut) {
    CNALAttributesList list = Read(FromHexText(std::string("3120") + kContent));
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(list.Count("1.2.3"), 2u);
    EXPECT_EQ(list.Count("1.2"), 0u);
    ASSERT_NE(list.Find("1.2.4"), nullptr);
    EXPECT_EQ(list.Find("1.2.4")->WriteData(), FromHexText(kSecond));
    EXPECT_EQ(list.Find("1.2.5"), nullptr);

    asnt::View value;
    EXPECT_FALSE(list.GetSingleValue("1.2.5", value));
    EXPECT_EQ(StatusOf([&] { list.GetSingleValue("1.2.3", value); }), TOO_E_BAD_STRUCTURE) << "repeated";
    EXPECT_EQ(StatusOf([&] { list.GetSingleValue("1.2.4", value); }), TOO_E_BAD_STRUCTURE) << "two values";
    EXPECT_EQ(list.Remove("1.2.3"), 2u);
    EXPECT_EQ(list.Remove("1.2.3"), 0u);
    list.Add("1.2.3", FromHexText("0500"));
    ASSERT_TRUE(list.GetSingleValue("1.2.3", value));
    EXPECT_EQ(value, asnt::View(FromHexText("0500")));
    EXPECT_EQ(list.WriteData(), FromHexText(std::string("3118") + kSecond + kFirst));
}

TEST(AttributesList, RefusesWhatIsNoList) {
    const struct {
        const char* what;
        std::string der;
    } cases[] = {
        {"a sequence", "3000"},
        {"an application tag", "6100"},
        {"a primitive tag", "8000"},
        {"a bare value", "3102 0500"},
        {"a type that is a number", "3107 3005 020101 3100"},
        {"an empty type", "3106 3004 0600 3100"},
        {"values in a sequence", "3108 3006 0602 2A03 3000"},
        {"no values", "3106 3004 0602 2A03"},
        {"something behind the values", std::string("310A 3008 0602 2A03 3100 0500")},
        {"a value that is cut", "310A 3008 0602 2A03 3102 0201"},
    };
    CNALAttributesList list = Read(FromHexText(std::string("3108") + kThird));
    for (const auto& c : cases) {
        const IdentObj der = FromHexText(c.der);
        EXPECT_EQ(StatusOf([&] { list.ReadData(der.GetData(), der.GetSize()); }), TOO_E_BAD_STRUCTURE) << c.what;
    }
    EXPECT_EQ(list.size(), 1u);
    EXPECT_EQ(list.ReadData(nullptr, 4), 0u);
    EXPECT_EQ(nal_test::CountAcceptedBeginnings(FromHexText(std::string("3120") + kContent), [](const IdentObj& cut) { Read(cut); }),
              0u);
}

}  // namespace
