// NALSignFile and NALCreateFileP7S: what is written, and that nothing is when something goes wrong.
#include <fstream>
#include <functional>

#include "nal/progress.h"
#include "support/child.h"
#include "too/testing.h"
#include "win32/certsign/signing_test.h"

namespace {

using nal_test::FromHexText;
using nal_test::FromText;
using nal_test::Person;
using nal_test::StatusOf;
using Statuses = std::vector<DWORD>;

class SignFile : public nal_test::SigningTest {
protected:
    static int Status(const Person& who, const std::string& source, const char* out, DWORD flags, IdentObj* message = nullptr) {
        int err = 0;
        const bool done = NALSignFile(who.user, who.cert, source.c_str(), out, message, flags, nullptr, &err);
        EXPECT_EQ(done, err == TOO_OK);
        return err;
    }

    static CNALSignData ReadFrom(const std::string& path) {
        CNALSignData message;
        EXPECT_EQ(1, message.ReadObject(CTOOFile(CTOOString(path), "rbc"), 0, nullptr));
        return message;
    }
};

TEST_F(SignFile, AFileBecomesASignatureFile) {
    const IdentObj cert = EncodingOf(s_ann->cert);
    for (const unsigned size : {0U, 1U, 65536U, 65537U, 600000U}) {
        const IdentObj bytes = MakeBytes(size);
        const std::string source = Store("source", bytes);
        const std::string out = Path("source.p7s");
        for (const DWORD flags : {DWORD{0}, c_NAL_SIGN_BY_KEY_ID, c_NAL_SIGN_NO_CERTIFICATE}) {
            IdentObj written;
            ASSERT_EQ(TOO_OK, Status(*s_ann, source, out.c_str(), flags, &written)) << size;
            EXPECT_EQ(Load(out), written);
            const CNALSignData message = Read(written);
            EXPECT_EQ(bytes, message.eContent);
            EXPECT_EQ(flags == 0 ? 1 : 3, message.version);
            EXPECT_EQ(flags == c_NAL_SIGN_NO_CERTIFICATE ? std::list<IdentObj>() : std::list<IdentObj>{cert}, message.certificates);
            EXPECT_EQ(Statuses{0}, Check(ReadFrom(out), std::nullopt, {s_ann->cert}));
            EXPECT_TRUE(SignerOf(message.signerInfos.front()).signedAttrs[1].HasOID(c_NAL_OID_SIGNING_TIME));
            EXPECT_EQ(bytes, Load(source));
        }
    }
}

TEST_F(SignFile, InPlaceWhenNoOtherPathIsNamed) {
    const IdentObj bytes = MakeBytes(100000);
    const std::string source = Path("source");
    std::string upper = source;
    std::transform(upper.begin(), upper.end(), upper.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    for (const char* target : {static_cast<const char*>(nullptr), upper.c_str(), source.c_str()}) {
        Store("source", bytes);
        ASSERT_EQ(TOO_OK, Status(*s_ann, source, target, 0));
        EXPECT_EQ(Statuses{0}, Check(ReadFrom(source)));
        EXPECT_EQ(1U, Listing().size());
        // One more signature, in place too.
        ASSERT_EQ(TOO_OK, Status(*s_bob, source, target, c_NAL_SIGN_ADD_TO_FILE));
        EXPECT_EQ((Statuses{0, 0}), Check(ReadFrom(source)));
        EXPECT_EQ(bytes, Read(Load(source)).eContent);
    }
    // By a link: the file is signed, and the link still names it.
    Store("source", bytes);
    const std::string link = Path("link");
    std::filesystem::create_symlink(source, link);
    ASSERT_EQ(TOO_OK, Status(*s_ann, link, nullptr, 0));
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(Statuses{0}, Check(ReadFrom(source)));
}

TEST_F(SignFile, AddsToSignatureFiles) {
    const IdentObj bytes = MakeBytes(3000);
    const std::string source = Store("source", bytes);
    const std::string one = Path("one");
    const std::string two = Path("two");
    ASSERT_EQ(TOO_OK, Status(*s_ann, source, one.c_str(), 0));
    ASSERT_EQ(TOO_OK, Status(*s_bob, one, two.c_str(), c_NAL_SIGN_ADD_TO_FILE));
    EXPECT_EQ((Statuses{0, 0}), Check(ReadFrom(two)));
    EXPECT_EQ(Read(Load(one)).signerInfos.front(), Read(Load(two)).signerInfos.front());
    EXPECT_EQ(1U, ReadFrom(two).digestAlgorithms.size());
    EXPECT_EQ(TOO_E_ALREADY_SIGNED, Status(*s_ann, two, nullptr, c_NAL_SIGN_ADD_TO_FILE));
    ASSERT_EQ(TOO_OK, Status(*s_ann, two, nullptr, c_NAL_SIGN_ADD_TO_FILE | c_NAL_SIGN_AGAIN));
    EXPECT_EQ((Statuses{0, 0}), Check(ReadFrom(two)));
    EXPECT_EQ(2U, ReadFrom(two).certificates.size());

    // Without the flag a signature file is content as any other.
    ASSERT_EQ(TOO_OK, Status(*s_ann, one, two.c_str(), 0));
    EXPECT_EQ(Load(one), Read(Load(two)).eContent);
    // And what is no signature file is content with the flag too.
    ASSERT_EQ(TOO_OK, Status(*s_ann, source, two.c_str(), c_NAL_SIGN_ADD_TO_FILE));
    EXPECT_EQ(Statuses{0}, Check(ReadFrom(two)));

    IdentObj detached;
    ASSERT_EQ(1, NALSignData(s_ann->user, s_ann->cert, InMemory(bytes), &detached, nullptr, nullptr));
    Store("one", detached);
    EXPECT_EQ(TOO_E_NOT_INITIALIZED, Status(*s_bob, one, two.c_str(), c_NAL_SIGN_ADD_TO_FILE));

    // A signature file whose content is no longer the one that was signed.
    ASSERT_EQ(TOO_OK, Status(*s_ann, source, one.c_str(), 0));
    IdentObj changed = Load(one);
    changed.GetData()[500] ^= 1;
    Store("one", changed);
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, Status(*s_bob, one, nullptr, c_NAL_SIGN_ADD_TO_FILE));
    EXPECT_EQ(changed, Load(one));

    // What stands behind the message would be lost in place.
    ASSERT_EQ(TOO_OK, Status(*s_ann, source, one.c_str(), 0));
    IdentObj longer = Load(one);
    longer.Append("more", 4);
    Store("one", longer);
    EXPECT_EQ(TOO_E_BAD_STRUCTURE, Status(*s_bob, one, nullptr, c_NAL_SIGN_ADD_TO_FILE));
    EXPECT_EQ(longer, Load(one));
    EXPECT_EQ(TOO_OK, Status(*s_bob, one, two.c_str(), c_NAL_SIGN_ADD_TO_FILE));

    // Content in pieces, as others write it: an indefinite OCTET STRING of two.
    const IdentObj pieces = FromHexText(
        "3080 0609 2A864886F70D010702 A080 3080 020101 3100 3080 0609 2A864886F70D010701 A080 2480 0402 6869 0403 796573"
        "0000 0000 0000 3100 0000 0000 0000");
    const std::string inPieces = Store("pieces", pieces);
    ASSERT_EQ(TOO_OK, Status(*s_bob, inPieces, nullptr, c_NAL_SIGN_ADD_TO_FILE));
    EXPECT_EQ(Statuses{0}, Check(ReadFrom(inPieces), FromText("hiyes")));
    EXPECT_EQ(FromText("hiyes"), Read(Load(inPieces)).eContent);
}

TEST_F(SignFile, FailuresAreToldAndChangeNothing) {
    const IdentObj bytes = MakeBytes(100000);
    const std::string source = Store("source", bytes);
    const std::string out = Store("out", FromText("old"));
    const auto before = Listing();
    Person wrong = NewPerson("Wrong", ORK_KEY_SIGNATURE, keycentre::RootProfile());
    const Person mixed{s_ann->user, s_bob->cert, ""};
    EXPECT_EQ(TOO_E_FILE_NOT_FOUND, Status(*s_ann, Path("missing"), out.c_str(), 0));
    EXPECT_EQ(TOO_E_KEY_NOT_FOUND, Status(mixed, source, out.c_str(), 0));
    EXPECT_EQ(TOO_E_CERT_REFUSED, Status(wrong, source, out.c_str(), 0));
    EXPECT_NE(TOO_OK, Status(*s_ann, source, Path("no/folder").c_str(), 0));
    EXPECT_NE(TOO_OK, Status(*s_ann, m_folder.Path(), out.c_str(), 0));
    const CTOOString unknown("1.2.3");
    EXPECT_EQ(TOO_E_UNKNOWN_ALGORITHM,
              StatusOf([&] { NALSignFile(s_ann->user, s_ann->cert, source.c_str(), out.c_str(), nullptr, 0, &unknown, nullptr); }));
    for (const char* call : {"ORKCreateHash", "ORKHashData", "ORKGetHashParam", "ORKSignHash"}) {
        for (const char* target : {out.c_str(), static_cast<const char*>(nullptr)}) {
            const too_testing::ScopedCallFailure failure(call, ORK_E_NO_MEMORY);
            IdentObj message("kept", 4);
            EXPECT_EQ(WinErr2ToolsErr(ORK_E_NO_MEMORY), Status(*s_ann, source, target, 0, &message)) << call;
            EXPECT_EQ(4U, message.GetSize());
        }
    }
    EXPECT_EQ(before, Listing());
    EXPECT_EQ(bytes, Load(source));
    EXPECT_EQ(FromText("old"), Load(out));
}

// Every step of writing fails once: output and source are as before, or the signature file is whole.
TEST_F(SignFile, AFullDiskOrSuddenDeathLeavesAllAsItWas) {
    const IdentObj bytes = MakeBytes(600000);
    for (const bool inPlace : {false, true}) {
        for (const bool die : {false, true}) {
            bool done = false;
            for (unsigned nth = 1; !done; ++nth) {
                ASSERT_LT(nth, 50U);
                const std::string source = Store("source", bytes);
                const std::string out = inPlace ? source : Store("out", FromText("old"));
                const IdentObj before = Load(out);
                const char* target = inPlace ? nullptr : out.c_str();
                if (die) {
                    done = nal_test::RunInChild([&] {
                               too_testing::KillAtStep(nth);
                               if (Status(*s_ann, source, target, 0) != TOO_OK) throw XTOOStatus(TOO_E_INTERNAL);
                           }) == nal_test::ChildEnd::success;
                } else {
                    const too_testing::ScopedStepFailure full(nth);
                    const int status = Status(*s_ann, source, target, 0);
                    done = status == TOO_OK;
                    EXPECT_EQ(done ? TOO_OK : TOO_E_DISK_FULL, status) << nth;
                    EXPECT_EQ(inPlace ? 1U : 2U, Listing().size()) << nth;
                }
                const bool changed = Load(out) != before;
                EXPECT_TRUE(changed || !done);
                if (changed) {
                    EXPECT_EQ(Statuses{0}, Check(ReadFrom(out))) << nth;
                }
                EXPECT_TRUE(inPlace || Load(source) == bytes);
            }
            for (const auto& entry : std::filesystem::directory_iterator(m_folder.Path())) std::filesystem::remove(entry.path());
        }
    }
}

/// Called by the library when a part of the file was read.
struct Meanwhile {
    std::function<bool()> act;
    bool done = false;

    static bool Handle(std::uint64_t /*done*/, std::uint64_t /*all*/, void* context) {
        auto& self = *static_cast<Meanwhile*>(context);
        return std::exchange(self.done, true) || self.act();
    }
    explicit Meanwhile(std::function<bool()> what) : act(std::move(what)) { NALSetProgressHandler(Handle, this); }
    ~Meanwhile() { NALSetProgressHandler(nullptr, nullptr); }
    Meanwhile(const Meanwhile&) = delete;
    Meanwhile& operator=(const Meanwhile&) = delete;
};

TEST_F(SignFile, AFileThatChangesMeanwhileIsRefused) {
    const IdentObj bytes = MakeBytes(1000000);
    const std::string source = Path("source");
    const std::string out = Path("out");
    const struct {
        const char* name;
        std::function<bool()> change;
        int status;
        std::size_t left;  // size of the source afterwards
    } cases[] = {
        {"grows", [&] { return static_cast<bool>(std::ofstream(source, std::ios::app) << "more"); }, TOO_E_READ, 1000004},
        {"shrinks", [&] { return std::filesystem::resize_file(source, 700000), true; }, TOO_E_READ, 700000},
        {"shrinks behind what was read", [&] { return std::filesystem::resize_file(source, 10), true; }, TOO_E_READ, 10},
        {"vanishes", [&] { return std::filesystem::remove(source); }, TOO_E_READ, 0},
        {"is replaced", [&] { return Store("out", bytes), std::filesystem::rename(out, source), true; }, TOO_E_READ, 1000000},
        {"cancelled", [] { return false; }, TOO_E_CANCELLED, 1000000},
    };
    for (const auto& test : cases) {
        for (const int kind : {0, 1, 2}) {  // to another file, in place, detached
            Store("source", bytes);
            // Its time is not the one that a change now will have.
            std::filesystem::last_write_time(source, std::filesystem::last_write_time(source) - std::chrono::hours(1));
            IdentObj message;
            int err = 0;
            {
                Meanwhile meanwhile(test.change);
                if (kind == 2) {
                    NALSignData(s_ann->user, s_ann->cert, InFile(source), &message, nullptr, &err);
                } else {
                    NALSignFile(s_ann->user, s_ann->cert, source.c_str(), kind == 0 ? out.c_str() : nullptr, &message, 0, nullptr, &err);
                }
            }
            EXPECT_EQ(test.status, err) << test.name << " " << kind;
            EXPECT_TRUE(message.IsEmpty());
            EXPECT_EQ(test.left == 0 ? std::vector<std::string>() : std::vector<std::string>{"source:" + std::to_string(test.left)},
                      Listing())
                << test.name << " " << kind;
        }
    }
}

TEST_F(SignFile, WhatIsTooLargeIsRefusedBeforeAnythingIsWritten) {
    const std::string source = Store("source", {});
    const std::string out = Path("out");
    const too_testing::ScopedCallFailure noHashing("ORKHashData", ORK_E_FAIL);
    for (const std::uint64_t size : {std::uint64_t{0x100000001}, std::uint64_t{0xFFFFFFFF}, std::uint64_t{0xFFFFFFFE} - 300}) {
        std::filesystem::resize_file(source, size);
        const auto before = Listing();
        too_testing::ResetSteps();
        for (const char* target : {out.c_str(), static_cast<const char*>(nullptr)}) {
            EXPECT_EQ(TOO_E_TOO_LARGE, Status(*s_ann, source, target, 0)) << size;
        }
        IdentObj message;
        int err = 0;
        NALSignData(s_ann->user, s_ann->cert, InFile(source, c_NAL_SIGN_ATTACHED), &message, nullptr, &err);
        EXPECT_EQ(TOO_E_TOO_LARGE, err) << size;
        NALSignData(s_ann->user, s_ann->cert, InFile(source), &message, nullptr, &err);
        EXPECT_EQ(size > 0xFFFFFFFE ? TOO_E_TOO_LARGE : WinErr2ToolsErr(ORK_E_FAIL), err) << size;
        EXPECT_EQ(0U, too_testing::GetStepCount());
        EXPECT_EQ(before, Listing());
    }
}

// The token is another process, which has the key and gets what is to be signed in a file.
TEST_F(SignFile, ATokenInAnotherProcessSigns) {
    const IdentObj bytes = MakeBytes(300000);
    const std::string source = Store("source", bytes);
    const std::string out = Path("out");
    for (const DWORD hashAlgId : {ORK_ALG_GOSTR3411, ORK_ALG_PRIVATE_HASH}) {
        const Person who = NewPerson("Holder", hashAlgId == ORK_ALG_GOSTR3411 ? ORK_ALG_GOST2001_SIGN : ORK_ALG_PRIVATE_SIGN);
        const CNALUser nobody;
        IdentObj toBeSigned;
        IdentObj contentHash;
        IdentObj message;
        CTOOFileTime time;
        unsigned char value[c_NAL_HASH_SIZE] = {};
        const auto call = [&](unsigned char* signature, const char* target) {
            int err = 0;
            NALCreateFileP7S(signature, signature == nullptr ? value : nullptr, nobody, who.cert, source.c_str(), target, &message, 0,
                             toBeSigned, time, contentHash, nullptr, &err);
            return err;
        };
        ASSERT_EQ(TOO_OK, call(nullptr, out.c_str()));
        EXPECT_TRUE(message.IsEmpty());
        EXPECT_EQ(1U, Listing().size()) << "the first call writes nothing";
        Store("order", IdentObj(value, sizeof value));

        ASSERT_EQ(nal_test::ChildEnd::success, nal_test::RunInChild([&] {
            const keycentre::KeyPair key = keycentre::KeyPair::Open(CTOOString(who.container), "");
            ork::HashHandle hash;
            IdentObj signature;
            if (!ORKCreateHash(key.GetProvider(), hashAlgId, key.GetKey(), hash.Receive(), 0) ||
                !ORKSetHashParam(hash.Get(), ORK_HASH_PARAM_VALUE, Load(Path("order"))) ||
                !ORKSignHash(hash.Get(), ORK_KEY_ANY, 0, signature)) {
                throw XTOOStatus(TOO_E_INTERNAL);
            }
            Store("signature", signature);
        }));
        IdentObj signature = Load(Path("signature"));
        std::filesystem::remove(Path("order"));
        std::filesystem::remove(Path("signature"));

        // A signature that does not hold, other attributes and other content: nothing is written.
        signature.GetData()[7] ^= 1;
        EXPECT_EQ(TOO_E_BAD_SIGNATURE, call(signature.GetData(), out.c_str()));
        signature.GetData()[7] ^= 1;
        const IdentObj goodHash = contentHash;
        contentHash.GetData()[0] ^= 1;
        EXPECT_EQ(TOO_E_BAD_SIGNATURE, call(signature.GetData(), out.c_str()));
        contentHash = goodHash;
        Store("source", MakeBytes(300001));
        EXPECT_EQ(TOO_E_BAD_SIGNATURE, call(signature.GetData(), nullptr));
        EXPECT_EQ(std::vector<std::string>{"source:300001"}, Listing());
        Store("source", bytes);
        time = CTOOFileTime(time.GetTicks() + CTOOFileTime::c_ticksPerSecond);
        EXPECT_EQ(TOO_E_BAD_ARGUMENT, call(signature.GetData(), out.c_str()));
        time = CTOOFileTime(time.GetTicks() - CTOOFileTime::c_ticksPerSecond);

        too_testing::AdvanceClock(3600);  // a token may take its time
        ASSERT_EQ(TOO_OK, call(signature.GetData(), out.c_str()));
        too_testing::ResetClock();
        EXPECT_EQ(Statuses{0}, Check(ReadFrom(out)));
        EXPECT_EQ(Load(out), message);
        std::filesystem::remove(out);
    }
}

}  // namespace
