#include "nal/crl.h"

#include <algorithm>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "model_crls/model_test.h"

namespace {

using nal_test::FromHexText;
using nal_test::kAlgorithm;
using nal_test::kLater;
using nal_test::kName;
using nal_test::kSignature;
using nal_test::kUpdate;
using nal_test::MakeCrl;
using nal_test::MakeEntry;
using nal_test::MakeExtension;
using nal_test::ReadCrl;
using nal_test::StatusOf;
using nal_test::Wrap;

constexpr auto npos = CNAL_CRL_Info::npos;

const IdentObj& FullCrl() {
    static const IdentObj der = [] {
        const IdentObj reason = MakeExtension("2.5.29.21", "0A0101");
        asnt::Writer entry;
        entry.Sequence([&] {
            entry.Unsigned(0x0A1B2C);
            entry.Raw(FromHexText("18 0F 32303235303130313132303030305A"));  // 2025-01-01 12:00:00
            entry.Sequence([&] { entry.Raw(reason); });
        });
        return MakeCrl({FromHexText("020101"), FromHexText(kAlgorithm), FromHexText(kName), FromHexText(kUpdate), FromHexText(kLater),
                        Wrap(asnt::tag::Sequence, {MakeEntry("00FF"), entry.Finish()}),
                        Wrap(asnt::tag::Context(0), {Wrap(asnt::tag::Sequence, {MakeExtension("2.5.29.20", "02021001")})})});
    }();
    return der;
}

CNAL_CRL_List Read(const IdentObj& der) {
    CNAL_CRL_List crl;
    crl.ReadData(der.GetData(), der.GetSize());
    return crl;
}

std::uint64_t Ticks(const FILETIME& time) { return std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime; }

TEST(Crl, GivesEveryFieldAndTheBytesThatWereRead) {
    IdentObj padded = FullCrl();
    padded.Append("behind", 6);
    CNAL_CRL_List crl;
    EXPECT_EQ(crl.ReadData(padded.GetData(), padded.GetSize()), FullCrl().GetSize());
    EXPECT_EQ(crl.WriteData(), FullCrl());

    const CNAL_CRL_Info& info = crl.m_info;
    EXPECT_EQ(info.m_version, 1u);
    EXPECT_EQ(info.m_signatureAlgorithm.GetID(), "1.2.643.2.2.3");
    EXPECT_EQ(static_cast<const IdentObj&>(info.m_issuer), FromHexText(kName));
    EXPECT_EQ(Ticks(info.m_nextUpdate) - Ticks(info.m_thisUpdate), 30ull * 86400 * 10000000);
    EXPECT_EQ(crl.m_signature.m_data, FromHexText("ABCD"));
    EXPECT_EQ(info.GetSerial(), FromHexText("0110 0000 0000 0000 0000 0000 0000 0000"));

    ASSERT_EQ(info.GetEntryCount(), 2u);
    EXPECT_EQ(info.GetEntry(0).m_serialNumber, FromHexText("FF00"));
    EXPECT_EQ(info.GetEntry(0).m_revocationDate.dwLowDateTime, info.m_thisUpdate.dwLowDateTime);
    const CNAL_CRL_Entry second = info.GetEntry(1);
    EXPECT_EQ(second.m_serialNumber, FromHexText("2C1B0A"));
    CNALReasonCode reason;
    ASSERT_TRUE(reason.ReadFrom(second.m_extensions, c_NAL_OID_REASON_CODE));
    EXPECT_EQ(reason.m_reason, 1u);
    EXPECT_EQ(StatusOf([&] { info.GetEntry(2); }), TOO_E_RANGE);

    CNAL_CRL_Entry again;
    const IdentObj der = second.WriteData();
    EXPECT_EQ(second.GetObjectSize(), der.GetSize());
    EXPECT_EQ(again.ReadData(der.GetData(), der.GetSize()), der.GetSize());
    EXPECT_EQ(again.m_serialNumber, second.m_serialNumber);
    EXPECT_EQ(Ticks(again.m_revocationDate), Ticks(second.m_revocationDate));
    EXPECT_EQ(again.m_extensions, second.m_extensions);
}

TEST(Crl, AcceptsAndRefusesShapes) {
    const IdentObj v2 = FromHexText("020101");
    const IdentObj one = v2;
    const IdentObj algorithm = FromHexText(kAlgorithm);
    const IdentObj name = FromHexText(kName);
    const IdentObj now = FromHexText(kUpdate);
    const IdentObj later = FromHexText(kLater);
    const IdentObj number = MakeExtension("2.5.29.20", "020105");
    const auto extensions = [](const std::vector<IdentObj>& items) {
        return Wrap(asnt::tag::Context(0), {Wrap(asnt::tag::Sequence, items)});
    };
    const auto entries = [](const std::vector<IdentObj>& items) { return Wrap(asnt::tag::Sequence, items); };
    /// A CRL with one entry of these elements, or with these extensions.
    const auto entry = [&](const std::vector<IdentObj>& elements) {
        return std::vector{v2, algorithm, name, now, later, entries({Wrap(asnt::tag::Sequence, elements)})};
    };
    const auto with = [&](const std::vector<IdentObj>& items) { return std::vector{v2, algorithm, name, now, later, extensions(items)}; };
    const auto entryWith = [&](const char* extension) { return entry({one, now, FromHexText(extension)}); };
    const IdentObj issuer = MakeExtension("2.5.29.35", "3000");
    const struct {
        const char* what;
        std::vector<IdentObj> parts;
        bool accepted = false;
    } cases[] = {
        {"version 1", {algorithm, name, now, later, entries({MakeEntry("01")})}, true},
        {"no next update", {v2, algorithm, name, now, extensions({number})}, true},
        {"an empty list of entries", {v2, algorithm, name, now, later, entries({})}, true},
        {"an unknown version", {FromHexText("020102"), algorithm, name, now, later}},
        {"an endless version", {FromHexText("0209 010000000000000000"), algorithm, name, now, later}},
        {"no issuer", {v2, algorithm, now, later}},
        {"no algorithm", {v2, name, now, later}},
        {"no time", {v2, algorithm, name}},
        {"a time that is none", {v2, algorithm, name, FromHexText("17 0D 3236313333323130303030305A"), later}},
        {"a third time", {v2, algorithm, name, now, later, later}},
        {"a bare number among the entries", {v2, algorithm, name, now, later, entries({one})}},
        {"an entry without a date", entry({one})},
        {"an entry with an empty serial", entry({FromHexText("0200"), now})},
        {"an entry with a serial longer than it need be", entry({FromHexText("02020001"), now}), true},
        {"an entry with something behind", entry({one, now, FromHexText("3000"), FromHexText("0500")})},
        {"an entry with damaged extensions", entryWith("3004 30020500")},
        {"an entry with an extension of no OID", entryWith("300A 3008 0603 551DE3 0401 00")},
        {"an entry with a critical flag that is none", entryWith("300C 300A 0602 2A03 0101 01 0401 00")},
        {"extensions twice", {v2, algorithm, name, now, later, extensions({number}), extensions({number})}},
        {"extensions in no list", {v2, algorithm, name, now, later, Wrap(asnt::tag::Context(0), {number, number})}},
        {"the number repeated", with({number, number})},
        {"the issuer's key repeated", with({issuer, number, issuer})},
    };
    for (const auto& c : cases) {
        const IdentObj der = MakeCrl(c.parts);
        EXPECT_EQ(StatusOf([&] { Read(der); }), c.accepted ? TOO_OK : TOO_E_BAD_STRUCTURE) << c.what;
    }
}

TEST(Crl, RefusesEveryBeginningAndKeepsWhatItHeld) {
    EXPECT_EQ(nal_test::CountAcceptedBeginnings(FullCrl(), [](const IdentObj& cut) { Read(cut); }), 0u);

    CNAL_CRL_List crl = Read(FullCrl());
    EXPECT_EQ(StatusOf([&] { crl.ReadData("0", 1); }), TOO_E_BAD_STRUCTURE);
    EXPECT_EQ(crl.ReadData(nullptr, 7), 0u);
    EXPECT_EQ(crl.ReadData("", 0), 0u);
    EXPECT_EQ(crl.WriteData(), FullCrl());
    EXPECT_EQ(crl.m_info.GetEntryCount(), 2u);
}

TEST(Crl, ClaimedSizesCostNoMemory) {
    // Headers that promise gigabytes, at every depth: the list, the signed part, a name, eight octets of length; and no length.
    for (const char* der : {"3084FFFFFFFF", "3008 3084FFFFFFF0 0201", "300A 3008 020101 3084FFFFFFFF", "3088 00000000FFFFFFFF 0201",
                            "3080 020101 0000"}) {
        EXPECT_EQ(StatusOf([&] { Read(FromHexText(der)); }), TOO_E_BAD_STRUCTURE) << der;
    }
}

TEST(CrlLookup, FindsTheFirstEntryOfASerial) {
    const CNAL_CRL_List crl =
        ReadCrl({MakeEntry("05"), MakeEntry("0100"), MakeEntry("05"), MakeEntry("FF01"), MakeEntry("00FF")}, {});
    const struct {
        const char* serial;  // least significant first
        std::size_t index;
    } cases[] = {{"05", 0}, {"0001", 1}, {"01FF", 3}, {"FF00", 4}, {"0500", npos}, {"0100", npos}, {"FF", npos}, {"", npos}};
    for (const auto& c : cases) EXPECT_EQ(crl.m_info.FindEntry(FromHexText(c.serial)), c.index) << c.serial;
    EXPECT_EQ(crl.m_info.FindEntryByOctets(FromHexText("0100")), 1u);
    EXPECT_EQ(CNAL_CRL_Info().FindEntry(FromHexText("05")), npos);
}

TEST(CrlLookup, AgreesWithAScanWhateverTheSerials) {
    std::mt19937 random(20261122);
    CNAL_CRL_Info info;
    std::vector<IdentObj> serials;
    for (int i = 0; i < 3000; ++i) {
        IdentObj serial(nullptr, 1 + random() % 20);
        for (unsigned j = 0; j < serial.GetSize(); ++j) serial.GetData()[j] = static_cast<unsigned char>(random() % 3);
        serial.GetData()[serial.GetSize() - 1] = 0x01;  // so that every serial is one in its shortest form
        CNAL_CRL_Entry entry;
        entry.m_serialNumber = serial;
        entry.m_revocationDate = {0, 0x01D00000};
        info.AddEntry(entry);
        serials.push_back(serial);
    }
    ASSERT_EQ(info.GetEntryCount(), serials.size());
    const auto scan = [&](const IdentObj& serial) {
        const auto found = std::find(serials.begin(), serials.end(), serial);
        return found == serials.end() ? npos : static_cast<std::size_t>(found - serials.begin());
    };
    // From several threads, so that the index is asked for while it is being built.
    std::vector<std::thread> threads;
    std::vector<std::size_t> wrong(4, 0);
    for (std::size_t t = 0; t < wrong.size(); ++t) {
        threads.emplace_back([&, t] {
            for (std::size_t i = t; i < serials.size(); i += wrong.size()) {
                IdentObj other = serials[i];
                other.GetData()[0] ^= 0x40;
                if (info.FindEntry(serials[i]) != scan(serials[i])) ++wrong[t];
                if (info.FindEntry(other) != scan(other)) ++wrong[t];
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(wrong, std::vector<std::size_t>(4, 0));
}

TEST(CrlLookup, SeesAddedEntriesAndCopiesDoNot) {
    const CNAL_CRL_List crl = Read(FullCrl());
    CNAL_CRL_Info changed = crl.m_info;
    EXPECT_EQ(changed.FindEntry(FromHexText("07")), npos);
    CNAL_CRL_Entry entry;
    entry.m_serialNumber = FromHexText("07");
    entry.m_revocationDate = crl.m_info.m_thisUpdate;
    changed.AddEntry(entry);
    CNAL_CRL_Info copy = changed;
    entry.m_serialNumber = FromHexText("08");
    changed.AddEntry(entry);
    EXPECT_EQ(changed.FindEntry(FromHexText("07")), 2u);
    EXPECT_EQ(changed.FindEntry(FromHexText("08")), 3u);
    EXPECT_EQ(copy.FindEntry(FromHexText("08")), npos);
    EXPECT_EQ(copy.GetEntryCount(), 3u);
    EXPECT_EQ(crl.m_info.GetEntryCount(), 2u);
}

TEST(CrlInfo, EncodesWhatItReads) {
    const CNAL_CRL_List crl = Read(FullCrl());
    const IdentObj signedPart = crl.GetSignedPart().Copy();
    EXPECT_EQ(crl.m_info.WriteData(), signedPart);
    EXPECT_EQ(crl.m_info.GetObjectSize(), signedPart.GetSize());

    CNAL_CRL_Info again;
    EXPECT_EQ(again.ReadData(signedPart.GetData(), signedPart.GetSize()), signedPart.GetSize());
    EXPECT_EQ(again.GetEntry(1).m_serialNumber, crl.m_info.GetEntry(1).m_serialNumber);
    again.m_nextUpdate = {0, 0};
    again.m_extensions.Clear();
    const IdentObj shorter = again.WriteData();
    CNAL_CRL_Info third;
    third.ReadData(shorter.GetData(), shorter.GetSize());
    EXPECT_EQ(Ticks(third.m_nextUpdate), 0u);
    EXPECT_TRUE(third.m_extensions.empty());
    EXPECT_EQ(third.GetEntryCount(), 2u);

    EXPECT_EQ(StatusOf([] { CNAL_CRL_Info().WriteData(); }), TOO_E_NOT_INITIALIZED);
    EXPECT_EQ(StatusOf([&] { again.AddEntry(CNAL_CRL_Entry()); }), TOO_E_ENCODE);
    EXPECT_EQ(again.GetEntryCount(), 2u);

    // A serial as a certificate may bear it, which DER would write shorter: added, found and read back.
    CNAL_CRL_Entry entry;
    entry.m_serialNumber = FromHexText("0100");
    entry.m_revocationDate = again.m_thisUpdate;
    again.AddEntry(entry);
    const IdentObj longer = again.WriteData();
    third.ReadData(longer.GetData(), longer.GetSize());
    EXPECT_EQ(third.FindEntry(FromHexText("0100")), 2u);
    EXPECT_EQ(third.GetEntry(2).m_serialNumber, FromHexText("0100"));
}

TEST(CrlKey, ComesFromNumberAndIssuer) {
    const char* const issuer = "3016 8014 000102030405060708090A0B0C0D0E0F10111213";
    const struct {
        const char* what;
        const char* issuer;  // value of the authority key identifier; null for none
        const char* number;  // value of the CRL number; null for none
        int status;
        const char* serial;  // as GetSerial gives it
    } cases[] = {
        {"one byte", issuer, "020107", TOO_OK, "07000000000000000000000000000000"},
        {"zero", issuer, "020100", TOO_OK, "00000000000000000000000000000000"},
        {"a sign octet", issuer, "020200FF", TOO_OK, "FF000000000000000000000000000000"},
        {"sixteen bytes", issuer, "0210 7F0102030405060708090A0B0C0D0E0F", TOO_OK, "0F0E0D0C0B0A0908070605040302017F"},
        {"sixteen bytes behind a sign octet", issuer, "0211 00FF0102030405060708090A0B0C0D0E0F", TOO_OK,
         "0F0E0D0C0B0A090807060504030201FF"},
        {"seventeen bytes", issuer, "0211 7F000102030405060708090A0B0C0D0E0F", TOO_E_CERT_REFUSED,
         "0F0E0D0C0B0A090807060504030201007F"},
        {"no number", issuer, nullptr, TOO_E_CERT_REFUSED, ""},
        {"a number that is text", issuer, "0C0137", TOO_E_BAD_STRUCTURE, nullptr},
        {"no issuer", nullptr, "020107", TOO_E_CERT_REFUSED, "07000000000000000000000000000000"},
        {"an issuer of 19 bytes", "3015 8013 000102030405060708090A0B0C0D0E0F101112", "020107", TOO_E_CERT_REFUSED,
         "07000000000000000000000000000000"},
        {"an issuer without key identifier", "3000", "020107", TOO_E_CERT_REFUSED, "07000000000000000000000000000000"},
        {"an issuer that is no list", "0500", "020107", TOO_E_BAD_STRUCTURE, "07000000000000000000000000000000"},
    };
    for (const auto& c : cases) {
        std::vector<IdentObj> extensions;
        if (c.issuer) extensions.push_back(MakeExtension("2.5.29.35", c.issuer));
        if (c.number) extensions.push_back(MakeExtension("2.5.29.20", c.number));
        const CNAL_CRL_List crl = ReadCrl({}, extensions);
        EXPECT_EQ(StatusOf([&] { NALCheckCRLKey(crl.m_info); }), c.status) << c.what;
        if (c.serial != nullptr) {
            EXPECT_EQ(crl.m_info.GetSerial(), FromHexText(c.serial)) << c.what;
        }
        if (c.status != TOO_OK) continue;
        EXPECT_EQ(NALCheckCRLKey(crl.m_info).m_crlSerial, FromHexText(c.serial)) << c.what;
        EXPECT_EQ(NALCheckCRLKey(crl.m_info).m_issuerID, FromHexText("000102030405060708090A0B0C0D0E0F10111213")) << c.what;
    }
}

}  // namespace
