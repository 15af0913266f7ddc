// Content that comes from memory blocks and files, and goes there.
#include <gtest/gtest.h>

#include <functional>

#include "cms/file_content.h"
#include "cms/memory_content.h"
#include "cms/message_test.h"
#include "nal/progress.h"
#include "nal/signed_data.h"
#include "support/folder_test.h"
#include "too/file.h"
#include "too/status.h"
#include "too/testing.h"

namespace {

using nal_test::FailureOf;
using nal_test::FromText;
using nal_test::FullMessage;
using nal_test::StatusOf;

TEST(MemoryContents, AreBytesOrNothing) {
    const IdentObj bytes("0123456789", 10);
    struct Case {
        const void* data;
        DWORD start;
        DWORD end;
        int status;
    };
    const Case cases[] = {
        {bytes.GetData(), 3, 10, TOO_OK}, {bytes.GetData(), 5, 4, TOO_E_RANGE}, {nullptr, 3, 10, TOO_E_BAD_ARGUMENT}, {nullptr, 0, 0, TOO_OK},
        {nullptr, 5, 5, TOO_OK},  // no offset is added to a null pointer
    };
    for (const Case& test : cases) {
        WhatToSignStruct what;
        what.data = test.data;
        what.start = test.start;
        what.end = test.end;
        asnt::View view;
        EXPECT_EQ(test.status, StatusOf([&] { view = nal::MemoryContent(what, "test"); })) << test.start;
        const bool hasBytes = test.status == TOO_OK && test.data != nullptr;
        EXPECT_TRUE(view == (hasBytes ? asnt::View("3456789", 7) : asnt::View()) && (view.data != nullptr) == hasBytes);
    }
}

class Content : public nal_test::FolderTest {
protected:
    void WriteSource(const IdentObj& bytes) const { Store("source", bytes); }
    void WriteSource(const std::string& text) const { Store("source", FromText(text)); }

    /// What WriteObject writes into a file of its own.
    IdentObj WriteToFile(CNALSignData& message) const {
        CTOOFile file(m_target, "wbc");
        EXPECT_EQ(message.WriteObject(file, 0xFFFFFFFF), 1);
        file.Close();
        return Load(m_target);
    }

    std::string m_source = Path("source");
    std::string m_target = Path("target");
};

TEST_F(Content, AFileRegionIsWrittenAsItsBytesAre) {
    for (const unsigned size : {0U, 1U, 127U, 128U, 70000U, 600000U}) {
        SCOPED_TRACE(size);
        const IdentObj bytes = MakeBytes(size);
        IdentObj padded = FromText("before");
        padded.Append(bytes.GetData(), size);
        padded.Append("after", 5);
        WriteSource(padded);
        CNALSignData inMemory = FullMessage();
        inMemory.AttachData(InMemory(bytes), nullptr);
        CNALSignData inFile = FullMessage();
        inFile.AttachData(InFile(m_source, 0, 6, 6 + size), nullptr);
        const IdentObj der = inFile.WriteObject(nullptr);
        EXPECT_EQ(inFile.GetObjectSize(), der.GetSize());
        EXPECT_EQ(WriteToFile(inFile), der);
        if (size == 0) continue;  // in memory no content is the same as none
        EXPECT_EQ(der, inMemory.WriteObject(nullptr));
        EXPECT_EQ(WriteToFile(inMemory), der);
    }
}

TEST_F(Content, AnOpenEndIsTheFilesLengthWhenItIsWritten) {
    WriteSource("0123456789");
    CNALSignData message;
    message.AttachData(InFile(m_source, 0, 4), nullptr);
    EXPECT_EQ(message.dataSource.end, c_NAL_TO_END_OF_FILE);
    WriteSource("0123456789AB");
    const IdentObj der = message.WriteObject(nullptr);
    EXPECT_EQ(message.dataSource.end, 12u);
    CNALSignData read;
    read.ReadObject(der.GetData(), der.GetSize(), nullptr);
    EXPECT_EQ(read.eContent, FromText("456789AB"));
    message.dataSource.end = c_NAL_TO_END_OF_FILE;
    EXPECT_EQ(WriteToFile(message), der);
    EXPECT_EQ(message.dataSource.end, 12u);
}

TEST_F(Content, WrongRegionsAreRefusedBeforeAnythingIsWritten) {
    WriteSource("0123456789");
    const std::string missing = Path("missing");
    WhatToSignStruct noPieces = InFile(m_source);
    noPieces.flags |= c_NAL_CONTENT_IN_PIECES;
    const struct {
        const char* what;
        WhatToSignStruct region;
        std::string failure;
    } cases[] = {
        {"beyond the end", InFile(m_source, 0, 0, 11), "37 CNALSignData::Write"},
        {"starts beyond it", InFile(m_source, 0, 11), "37 CNALSignData::Write"},
        {"ends before its start", InFile(m_source, 0, 5, 4), "37 CNALSignData::Write"},
        {"no file", InFile(missing), "4 " + missing},
        {"pieces that are none", noPieces, "206 CNALSignData::Write"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.what);
        CNALSignData message = FullMessage();
        message.dataSource = test.region;
        CTOOFile file(m_target, "wb");
        EXPECT_EQ(FailureOf([&] { message.WriteObject(nullptr); }).find(test.failure), 0u);
        EXPECT_EQ(FailureOf([&] { message.WriteObject(file, 0); }).find(test.failure), 0u);
        EXPECT_EQ(file.Length(), 0u);
    }
}

TEST_F(Content, AMessageEndsBelowFourGigabytes) {
    CNALSignData message = FullMessage();
    const std::uint64_t overhead = message.GetObjectSize();
    const auto sizeWith = [&](std::uint64_t size) {
        CTOOFile(m_source, "wb").SetLength(size);
        message.dataSource = InFile(m_source);
        return message.GetObjectSize();
    };
    // The largest content there is room for is found by asking, then one byte more is refused.
    std::uint64_t good = c_NAL_MAX_MESSAGE_SIZE - overhead - 64;
    const std::uint64_t size = sizeWith(good);
    good += c_NAL_MAX_MESSAGE_SIZE - size;
    EXPECT_EQ(sizeWith(good), c_NAL_MAX_MESSAGE_SIZE);
    for (const std::uint64_t more : {good + 1, good + 2, good + 64, std::uint64_t{0xFFFFFFFE}, std::uint64_t{0xFFFFFFFF},
                                     std::uint64_t{0x100000001}}) {
        CTOOFile(m_source, "wb").SetLength(more);
        message.dataSource = InFile(m_source);
        CTOOFile file(m_target, "wb");
        EXPECT_EQ(StatusOf([&] { message.WriteObject(file, 0); }), TOO_E_TOO_LARGE) << more;
        EXPECT_EQ(file.Length(), 0u) << more;
    }
    EXPECT_EQ(CTOOFile(m_source, "rb").Length(), 0x100000001U);
}

// A failed write leaves the output as it was before, whatever step failed.
TEST_F(Content, AFullDiskLeavesNothingBehind) {
    WriteSource(MakeBytes(600000));
    CNALSignData message = FullMessage();
    message.AttachData(InFile(m_source), nullptr);
    unsigned failures = 0;
    for (unsigned step = 1;; ++step) {
        Store("target", FromText("kept"));
        CTOOFile file(m_target, "r+b");
        file.Seek(0, CTOOFile::c_end);
        int status = 0;
        {
            const too_testing::ScopedStepFailure failure(step, ENOSPC, 1);
            status = StatusOf([&] { message.WriteObject(file, 0); });
        }
        if (status == 0) break;
        ++failures;
        EXPECT_EQ(status, TOO_E_DISK_FULL);
        EXPECT_EQ(Load(m_target), FromText("kept")) << step;
    }
    EXPECT_GE(failures, 3u);
}

TEST_F(Content, ItsOwnFileIsNoOutput) {
    WriteSource(MakeBytes(1000));
    CNALSignData message = FullMessage();
    message.AttachData(InFile(m_source), nullptr);
    CTOOFile file(m_source, "r+b");
    EXPECT_EQ(StatusOf([&] { message.WriteObject(file, 0); }), TOO_E_BAD_ARGUMENT);
    EXPECT_EQ(Load(m_source), MakeBytes(1000));
}

TEST_F(Content, AFileThatShrinksAndACancelLeaveNothingBehind) {
    for (const bool cancel : {false, true}) {
        const int expected = cancel ? TOO_E_CANCELLED : TOO_E_READ;
        CNALSignData message = FullMessage();
        WriteSource(MakeBytes(2000000));
        message.AttachData(InFile(m_source), nullptr);
        CTOOFile file(m_target, "wb");
        std::function<bool()> interfere = [&] { return !cancel && (CTOOFile(m_source, "r+b").SetLength(10), true); };
        NALSetProgressHandler(
            [](std::uint64_t, std::uint64_t, void* context) { return (*static_cast<std::function<bool()>*>(context))(); },
            &interfere);
        EXPECT_EQ(StatusOf([&] { message.WriteObject(file, 0); }), expected);
        EXPECT_EQ(file.Length(), 0u);

        WriteSource(MakeBytes(2000000));
        EXPECT_EQ(StatusOf([&] { message.WriteObject(nullptr); }), expected);

        WriteSource(MakeBytes(2000000));
        const std::string out = Path("out");
        WhatToSignStruct what = InFile(out, 0, 1, 2);
        int err = 0;
        EXPECT_EQ(message.DetachData(what, &err), 0);
        NALSetProgressHandler(nullptr, nullptr);
        EXPECT_EQ(err, expected);
        EXPECT_FALSE(CTOOFile::Exists(out));
        EXPECT_TRUE(message.IsAttached());
        EXPECT_TRUE(what.start == 1 && what.end == 2);
    }
}

TEST_F(Content, AttachNamesAFileAndCopiesMemory) {
    CNALSignData message = FullMessage();
    message.eContentType = CASNTIdData("1.2.3");
    const IdentObj bytes = FromText("0123456789");
    ASSERT_EQ(message.AttachData(InMemory(bytes, 0, 3), nullptr), 1);
    EXPECT_EQ(message.eContent, FromText("3456789"));
    EXPECT_EQ(message.eContentType.GetID(), c_NAL_OID_DATA);

    WriteSource(bytes);
    {
        std::string path = m_source;
        ASSERT_EQ(message.AttachData(InFile(path, 0, 1, 4), nullptr), 1);
        path.assign(path.size(), '?');
    }
    EXPECT_TRUE(message.eContent.IsEmpty());
    const CNALSignData copy = std::exchange(message, CNALSignData());
    EXPECT_EQ(copy.dataSource.GetPath(), CTOOString(m_source)) << "the path is not the message's own";
    EXPECT_TRUE(copy.dataSource.start == 1 && copy.dataSource.end == 4);
    EXPECT_FALSE(message.IsAttached());

    WhatToSignStruct nothing;
    nothing.end = 1;
    WhatToSignStruct noPath;
    noPath.flags = c_NAL_CONTENT_IN_FILE;
    const std::string missing = Path("missing");
    message.eContent = bytes;
    for (const auto& [what, status] : {std::pair(nothing, TOO_E_BAD_ARGUMENT), std::pair(noPath, TOO_E_BAD_ARGUMENT),
                                       std::pair(InMemory(bytes, 0, 11), TOO_E_RANGE), std::pair(InFile(missing), TOO_E_FILE_NOT_FOUND)}) {
        int err = 0;
        EXPECT_EQ(message.AttachData(what, &err), 0);
        EXPECT_EQ(err, status);
        EXPECT_EQ(message.eContent, bytes);
    }
    // Bytes of its own.
    message.AttachData(InMemory(message.eContent, 0, 5), nullptr);
    EXPECT_EQ(message.eContent, FromText("56789"));
}

TEST_F(Content, DetachHandsItOverInEveryDirection) {
    const IdentObj bytes = MakeBytes(300000);
    for (const bool fromFile : {false, true}) {
        for (const bool toFile : {false, true}) {
            CNALSignData message = FullMessage();
            IdentObj padded = FromText("ab");
            padded.Append(bytes.GetData(), bytes.GetSize());
            WriteSource(padded);
            message.AttachData(fromFile ? InFile(m_source, 0, 2) : InMemory(bytes), nullptr);
            WhatToSignStruct what = toFile ? InFile(m_target, 0x10000, 7, 9) : InMemory({}, 0x10000);
            ASSERT_EQ(message.DetachData(what, nullptr), 1);
            EXPECT_EQ(toFile ? Load(m_target) : IdentObj(what.data, what.end), bytes);
            EXPECT_TRUE(what.start == 0 && what.end == bytes.GetSize() && what.options == 0x10000);
            EXPECT_FALSE(message.IsAttached());
            EXPECT_EQ(message.WriteObject(nullptr), FullMessage().WriteObject(nullptr));
            int err = 0;
            EXPECT_EQ(message.DetachData(what, &err), 0);
            EXPECT_EQ(err, TOO_E_NOT_INITIALIZED);
            if (!toFile) {
                message.AttachData(what, nullptr);  // what was handed out may come back
                EXPECT_EQ(message.eContent, bytes);
            }
        }
    }
    CNALSignData message;
    message.eContent = bytes;
    WhatToSignStruct what;
    what.flags = c_NAL_CONTENT_IN_FILE;
    int err = 0;
    EXPECT_EQ(message.DetachData(what, &err), 0);
    EXPECT_EQ(err, TOO_E_BAD_ARGUMENT);
    const std::string inMissingFolder = Path("none/target");
    what = InFile(inMissingFolder);
    EXPECT_EQ(message.DetachData(what, &err), 0);
    EXPECT_EQ(err, TOO_E_FILE_NOT_FOUND);
    EXPECT_EQ(message.eContent, bytes);
}

TEST_F(Content, AMessageFileBecomesItsContent) {
    CNALSignData message = FullMessage();
    message.eContent = MakeBytes(100000);
    WriteSource(message.WriteObject(nullptr));
    message.ReadObject(CTOOFile(m_source, "rbc"), 0, nullptr);
    WhatToSignStruct what = InFile(m_source);
    ASSERT_EQ(message.DetachData(what, nullptr), 1);
    EXPECT_EQ(Load(m_source), MakeBytes(100000));
}

TEST_F(Content, PiecesAreJoinedInChunksOfTheSizeAskedFor) {
    // Pieces of 1 to 999 bytes, some in a piece of pieces.
    const IdentObj bytes = MakeBytes(200000);
    IdentObj encoded;
    for (unsigned offset = 0, piece = 1; offset < bytes.GetSize(); piece = piece % 999 + 1) {
        const unsigned count = std::min(piece, bytes.GetSize() - offset);
        const IdentObj der = nal_test::Der([&](asnt::Writer& writer) {
            const asnt::View content(bytes.GetData() + offset, count);
            if (piece % 3 == 0) {
                writer.Constructed({asnt::Tag::kConstructed, 4}, [&] { writer.OctetString(content); });
            } else {
                writer.OctetString(content);
            }
        });
        encoded.Append(der.GetData(), der.GetSize());
        offset += count;
    }
    encoded.Append("\0\0", 2);
    WriteSource(encoded);
    WhatToSignStruct what = InFile(m_source);
    what.flags |= c_NAL_CONTENT_IN_PIECES;
    for (const std::size_t chunkSize : {std::size_t{1000}, std::size_t{65536}, std::size_t{1} << 20}) {
        nal::FileContent content(what, "");
        EXPECT_EQ(content.Size(), bytes.GetSize());
        IdentObj joined;
        content.ForEachChunk(chunkSize, [&](asnt::View chunk) {
            joined.Append(chunk.data, static_cast<unsigned>(chunk.size));
            EXPECT_TRUE(chunk.size == chunkSize || joined.GetSize() == bytes.GetSize());
        });
        EXPECT_EQ(joined, bytes);
    }
    // Two bytes that do not count, and nothing before them.
    WriteSource("??");
    EXPECT_EQ(nal::FileContent(what, "").Size(), 0u);
    WriteSource("?");
    EXPECT_EQ(StatusOf([&] { nal::FileContent(what, ""); }), TOO_E_RANGE);
}

}  // namespace
