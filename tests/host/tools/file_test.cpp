#include "too/file.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>
#include <utility>

#include "support/child.h"
#include "support/temp_folder.h"
#include "too/folder.h"
#include "too/testing.h"

namespace {

namespace fs = std::filesystem;
using nal_test::ChildEnd;
using nal_test::TempFolder;

void Store(const std::string& path, const std::string& text) { nal_test::WriteFile(path, text); }

std::string Load(const std::string& path) {
    const auto bytes = nal_test::ReadFile(path);
    return {bytes.begin(), bytes.end()};
}

std::size_t CountEntries(const std::string& folder) {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

unsigned PermissionsOf(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 ? info.st_mode & 0777 : 0;
}

// The code of the XTOOFile that a call throws, which must name `file`; -1 when it throws nothing.
int CodeOf(const std::string& file, const std::function<void()>& call) {
    try {
        call();
    } catch (const XTOOFile& failure) {
        EXPECT_EQ(file, failure.GetFileName().str());
        EXPECT_NE(CTOOString::npos, failure.GetText().find(file)) << failure.what();
        return failure.GetCode();
    }
    return -1;
}

TEST(File, WritesSeeksAndReads) {
    const TempFolder folder;
    CTOOFile file(folder.File("f"), "wbc+");
    file.Write("0123456789", 10);
    EXPECT_EQ(10U, file.Length());
    EXPECT_EQ(4U, file.Seek(4));
    char text[20] = {};
    EXPECT_EQ(6U, file.Read(text, sizeof text));
    EXPECT_STREQ("456789", text);
    EXPECT_EQ(8U, file.Seek(-2, CTOOFile::c_end));
    file.Write("xyz", 3);
    file.Seek(-1, CTOOFile::c_current);
    EXPECT_THROW(file.ReadExactly(text, 2), XTOOFile);
    file.Flush();
    file.Close();
    file.Close();
    EXPECT_EQ("01234567xyz", Load(folder.File("f")));
    EXPECT_EQ(TOO_E_NOT_INITIALIZED, CodeOf(folder.File("f"), [&] { file.Read(text, 1); }));

    CTOOFile again(folder.File("f"), "r+");
    again.Write("AB", 2);
    CTOOFile moved = std::move(again);
    EXPECT_EQ(2U, moved.Tell());
    moved.SetLength(4);
    moved.Close();
    EXPECT_EQ("AB23", Load(folder.File("f")));
}

TEST(File, PositionsAndLengthsPass4GiB) {
    const TempFolder folder;
    CTOOFile file(folder.File("sparse"), "wb+");
    const std::uint64_t far = (std::uint64_t{1} << 32) + 5;
    file.Seek(static_cast<std::int64_t>(far));
    file.Write("end", 3);
    EXPECT_EQ(far + 3, file.Length());
    EXPECT_EQ(TOO_E_TOO_LARGE, CodeOf(folder.File("sparse"), [&] { CTOOFile::ReadWhole(folder.File("sparse")); }));
}

TEST(File, ReportsWhatIsWrongAndNamesTheFile) {
    const TempFolder folder;
    const std::string file = folder.File("file");
    Store(file, "text");
    ASSERT_EQ(0, mkfifo(folder.File("pipe").c_str(), 0600));
    fs::create_symlink("nowhere", folder.File("dangling"));
    fs::create_symlink("loop", folder.File("loop"));
    struct {
        std::string path;
        const char* mode;
        int code;
    } const cases[] = {
        {folder.File("missing"), "rbc", TOO_E_FILE_NOT_FOUND}, {folder.File("dangling"), "rb", TOO_E_FILE_NOT_FOUND},
        {folder.File("no/such"), "wbc", TOO_E_FILE_NOT_FOUND}, {folder.File("loop"), "rb", TOO_E_NOT_A_FILE},
        {folder.Path(), "rb", TOO_E_NOT_A_FILE},               {folder.Path(), "wb", TOO_E_NOT_A_FILE},
        {folder.File("pipe"), "rb", TOO_E_NOT_A_FILE},         {folder.File("pipe"), "wb", TOO_E_NOT_A_FILE},
        {folder.File("file/below"), "rb", TOO_E_NOT_A_FOLDER}, {folder.File("dangling"), "wx", TOO_E_FILE_EXISTS},
        {file, "wx", TOO_E_FILE_EXISTS},                       {folder.File(std::string(300, 'x')), "wb", TOO_E_BAD_ARGUMENT},
        {file, "q", TOO_E_BAD_ARGUMENT},                       {file, "", TOO_E_BAD_ARGUMENT},
        {file, "rx", TOO_E_BAD_ARGUMENT},                      {file, "rbz", TOO_E_BAD_ARGUMENT},
        {"", "rb", TOO_E_BAD_ARGUMENT},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(test.code, CodeOf(test.path, [&] { CTOOFile(test.path, test.mode); })) << test.path << " " << test.mode;
    }
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, CodeOf(folder.File("fi?le"), [&] { CTOOFile(folder.File(std::string("fi\0le", 5)), "wb"); }));
    EXPECT_EQ("text", Load(file));
    EXPECT_EQ(TOO_E_SEEK, CodeOf(file, [&] { CTOOFile(file, "rb").Seek(-1); }));
    EXPECT_EQ(TOO_E_WRITE, CodeOf(file, [&] { CTOOFile(file, "rb").Write("x", 1); }));
    char c = 0;
    EXPECT_EQ(TOO_E_READ, CodeOf(file, [&] { CTOOFile(file, "w").Read(&c, 1); }));
}

TEST(File, AccessRefused) {
    const TempFolder folder;
    fs::permissions(folder.Path(), fs::perms(0755));
    Store(folder.File("secret"), "x");
    fs::permissions(folder.File("secret"), fs::perms::none);
    // The superuser may read everything, so the question is put as somebody else.
    EXPECT_EQ(ChildEnd::success, nal_test::RunInChild([&] {
                  const bool isRoot = geteuid() == 0;
                  if (isRoot && setuid(65534) != 0) _exit(1);
                  if (CodeOf(folder.File("secret"), [&] { CTOOFile(folder.File("secret"), "rb"); }) != TOO_E_ACCESS) _exit(2);
                  const auto store = [&] { CTOOWholeFile::Store(folder.File("new"), "x", 1); };
                  if (isRoot && CodeOf(folder.File("new"), store) != TOO_E_ACCESS) _exit(3);
              }));
}

TEST(File, ADiskThatFillsIsReported) {
    const TempFolder folder;
    CTOOFile file(folder.File("f"), "wbc");
    {
        const too_testing::ScopedStepFailure full(2);
        file.Write("1234", 4);
        EXPECT_EQ(TOO_E_DISK_FULL, CodeOf(folder.File("f"), [&] { file.Write("5678", 4); }));
        EXPECT_EQ("123456", Load(folder.File("f")));
        EXPECT_EQ(TOO_E_DISK_FULL, CodeOf(folder.File("f"), [&] { file.Close(); }));
    }
    EXPECT_FALSE(file.IsOpen());
    if (CTOOFile::Exists("/dev/full")) {
        CTOOFile device("/dev/full", "wb");
        EXPECT_EQ(TOO_E_DISK_FULL, CodeOf("/dev/full", [&] { device.Write("x", 1); }));
    }
}

TEST(File, OnlyAWriterWaitsForTheDisk) {
    const TempFolder folder;
    const std::string path = folder.File("f");
    Store(path, "text");
    for (const auto& [mode, syncs] : {std::pair("rbc", 0U), std::pair("rb+", 0U), std::pair("rbc+", 1U)}) {
        CTOOFile file(path, mode);
        too_testing::ResetSteps();
        file.Close();
        EXPECT_EQ(syncs, too_testing::GetStepCount()) << mode;
    }
}

TEST(File, ExistsDeleteMoveCopy) {
    const TempFolder folder;
    const std::string a = folder.File("a");
    const std::string b = folder.File("b");
    Store(a, "text");
    fs::permissions(a, fs::perms(0640));
    EXPECT_TRUE(CTOOFile::Exists(a));
    EXPECT_FALSE(CTOOFile::Exists(folder.Path()));
    EXPECT_FALSE(CTOOFile::Exists(CTOOString("/dev/null\0", 10)));

    CTOOFile::CopyFile(a, b);
    EXPECT_EQ("text", Load(b));
    EXPECT_EQ(0640U, PermissionsOf(b));
    Store(a, "newer");
    CTOOFile::MoveFile(a, b);
    EXPECT_EQ("newer", Load(b));
    EXPECT_FALSE(CTOOFile::Exists(a));

    EXPECT_EQ(TOO_E_FILE_NOT_FOUND, CodeOf(a, [&] { CTOOFile::MoveFile(a, b); }));
    EXPECT_EQ(TOO_E_FILE_NOT_FOUND, CodeOf(a, [&] { CTOOFile::CopyFile(a, b); }));
    EXPECT_EQ(TOO_E_NOT_A_FILE, CodeOf(folder.Path(), [&] { CTOOFile::CopyFile(folder.Path(), b); }));
    EXPECT_EQ("newer", Load(b));
    EXPECT_TRUE(CTOOFile::Delete(b));
    EXPECT_FALSE(CTOOFile::Delete(b));
    EXPECT_EQ(TOO_E_NOT_A_FILE, CodeOf(folder.Path(), [&] { CTOOFile::Delete(folder.Path()); }));
    EXPECT_EQ(0U, CountEntries(folder.Path()));
}

TEST(File, ReadWholeKeepsToItsLimit) {
    const TempFolder folder;
    Store(folder.File("f"), std::string(10000, 'x'));
    Store(folder.File("empty"), "");
    EXPECT_EQ(10000U, CTOOFile::ReadWhole(folder.File("f"), 10000).GetSize());
    EXPECT_EQ(TOO_E_TOO_LARGE, CodeOf(folder.File("f"), [&] { CTOOFile::ReadWhole(folder.File("f"), 9999); }));
    EXPECT_TRUE(CTOOFile::ReadWhole(folder.File("empty")).IsEmpty());
    // Files whose length is not known beforehand are read to their end, and no further than the limit.
    EXPECT_FALSE(CTOOFile::ReadWhole("/proc/self/status").IsEmpty());
    EXPECT_EQ(TOO_E_TOO_LARGE, CodeOf("/dev/zero", [&] { CTOOFile::ReadWhole("/dev/zero", 100000); }));
}

// ---- whole files ----

TEST(WholeFile, AppearsOnlyByCommit) {
    const TempFolder folder;
    const std::string target = folder.File("t");
    {
        CTOOWholeFile file(target);
        file.Write("abandoned", 9);
        EXPECT_FALSE(CTOOFile::Exists(target));
        EXPECT_EQ(0600U, PermissionsOf(file.GetFile().GetName().str()));
    }
    EXPECT_EQ(0U, CountEntries(folder.Path()));

    const mode_t umaskBefore = umask(027);
    CTOOWholeFile::Store(target, "first", 5);
    umask(umaskBefore);
    EXPECT_EQ("first", Load(target));
    EXPECT_EQ(0640U, PermissionsOf(target));

    fs::permissions(target, fs::perms(0604));
    CTOOWholeFile::Store(target, "second", 6);
    EXPECT_EQ("second", Load(target));
    EXPECT_EQ(0604U, PermissionsOf(target));

    CTOOWholeFile secret(folder.File("s"), 0600);
    secret.Write("x", 1);
    secret.Commit();
    EXPECT_EQ(0600U, PermissionsOf(folder.File("s")));
    EXPECT_THROW(secret.Write("x", 1), XTOOFile);
    EXPECT_EQ(2U, CountEntries(folder.Path()));
}

TEST(WholeFile, RefusesATargetThatIsNoFileAndReplacesALink) {
    const TempFolder folder;
    EXPECT_EQ(TOO_E_NOT_A_FILE, CodeOf(folder.Path(), [&] { CTOOWholeFile file(folder.Path()); }));
    EXPECT_EQ(TOO_E_NOT_A_FILE, CodeOf("/dev/null", [&] { CTOOWholeFile file("/dev/null"); }));
    EXPECT_EQ(TOO_E_NOT_A_FILE, CodeOf(folder.File("x/"), [&] { CTOOWholeFile file(folder.File("x/")); }));
    const std::string nowhere = folder.File("no/such");
    EXPECT_EQ(TOO_E_FILE_NOT_FOUND, CodeOf(nowhere, [&] { CTOOWholeFile file(nowhere); }));
    EXPECT_EQ(TOO_E_FILE_NOT_FOUND, CodeOf(nowhere, [&] { CTOOWholeFile file(nowhere, CTOOWholeFile::Unnamed); }));

    Store(folder.File("victim"), "old");
    fs::create_symlink("victim", folder.File("link"));
    CTOOWholeFile::Store(folder.File("link"), "new", 3);
    EXPECT_EQ("old", Load(folder.File("victim")));
    EXPECT_FALSE(fs::is_symlink(folder.File("link")));

    const std::string longest = folder.File(std::string(255, 'n'));
    CTOOWholeFile::Store(longest, "x", 1);
    EXPECT_EQ("x", Load(longest));
}

TEST(WholeFile, AGroupThatCannotBeKeptBringsNobodyIn) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to make a file of another group";
    const TempFolder folder;
    constexpr unsigned nobody = 65534;
    const std::string path = folder.File("f");
    Store(path, "old");
    ASSERT_EQ(0, chmod(folder.Path().c_str(), 0777));
    ASSERT_EQ(0, chmod(path.c_str(), 0664));
    ASSERT_EQ(0, chown(path.c_str(), nobody, 0));
    EXPECT_EQ(ChildEnd::success, nal_test::RunInChild([&] {
                  if (setgroups(0, nullptr) != 0 || setgid(nobody) != 0 || setuid(nobody) != 0) _exit(1);
                  CTOOWholeFile::Store(path, "new", 3);
              }));
    EXPECT_EQ("new", Load(path));
    EXPECT_EQ(0644U, PermissionsOf(path));
}

// When the nth step of a store fails, or its process dies there, the target holds the old or the new content.
TEST(WholeFile, IsOldOrNewWhereverItStops) {
    const TempFolder folder;
    const std::string target = folder.File("t");
    const std::string newText(5000, 'n');
    const struct {
        bool unnamed, replaces;
        unsigned steps;  // write, sync, rename or link (and then rename), sync of the folder
    } cases[] = {{false, false, 4}, {false, true, 4}, {true, false, 4}, {true, true, 6}};
    for (const auto& c : cases) {
        const auto fill = [&](CTOOWholeFile&& file) {
            file.Write(newText.data(), newText.size());
            file.Commit();
        };
        const auto store = [&] { c.unnamed ? fill(CTOOWholeFile(target, CTOOWholeFile::Unnamed)) : fill(CTOOWholeFile(target)); };
        const std::string before = c.replaces ? std::string(3000, 'o') : "none";
        const auto reset = [&] {
            fs::remove(target);
            if (c.replaces) Store(target, before);
        };
        const auto content = [&] { return CTOOFile::Exists(target) ? Load(target) : "none"; };
        reset();
        too_testing::ResetSteps();
        store();
        ASSERT_EQ(c.steps, too_testing::GetStepCount());
        for (unsigned nth = 1; nth <= c.steps; ++nth) {
            SCOPED_TRACE(std::to_string(&c - cases) + " " + std::to_string(nth));
            const std::string& expected = nth < c.steps ? before : newText;  // only the last step comes after the rename
            reset();
            {
                const too_testing::ScopedStepFailure full(nth);
                EXPECT_THROW(store(), XTOOFile);
            }
            EXPECT_EQ(expected, content());
            EXPECT_EQ(c.replaces || nth == c.steps ? 1U : 0U, CountEntries(folder.Path()));
            reset();
            EXPECT_EQ(ChildEnd::killed, nal_test::RunInChild([&] {
                          too_testing::KillAtStep(nth);
                          store();
                      }));
            EXPECT_EQ(expected, content());
            // A leftover of the dead process hinders nobody. An unnamed one is seen between its two names only, when it is complete.
            store();
            EXPECT_EQ(newText, content());
            for (const auto& entry : fs::directory_iterator(folder.Path())) {
                if (entry.path() == target) continue;
                EXPECT_TRUE(!c.unnamed || (c.replaces && nth + 1 == c.steps && Load(entry.path().string()) == newText));
                fs::remove(entry.path());
            }
        }
    }
}

// ---- folders ----

TEST(Folder, MakesFindsAndRemoves) {
    const TempFolder folder;
    const std::string deep = folder.File("a//b/c/");
    CTOOFolder::MakeFolder(deep);
    CTOOFolder::MakeFolder(deep);
    EXPECT_TRUE(CTOOFolder::Exists(folder.File("a/b/c")));
    EXPECT_EQ(TOO_E_FILE_EXISTS, CodeOf(folder.File("a"), [&] { CTOOFolder::Delete(folder.File("a")); }));
    EXPECT_TRUE(CTOOFolder::Delete(folder.File("a/b/c")));
    EXPECT_FALSE(CTOOFolder::Delete(folder.File("a/b/c")));
    Store(folder.File("file"), "x");
    for (const char* name : {"file/x", "file"}) {
        EXPECT_EQ(TOO_E_NOT_A_FOLDER, CodeOf(folder.File("file"), [&] { CTOOFolder::MakeFolder(folder.File(name)); }));
    }
    EXPECT_FALSE(CTOOFolder::Exists(folder.File("file")));
}

TEST(Folder, UniqueNames) {
    const TempFolder folder;
    EXPECT_EQ(folder.File("00C0FFEE.$$$"), CTOOFolder::UniqueFileName(folder.Path(), "00C0FFEE.$$$").str());
    Store(folder.File("00C0FFEE.$$$"), "");
    fs::create_symlink("nowhere", folder.File("00C0FFEE~1.$$$"));
    EXPECT_EQ(folder.File("00C0FFEE~2.$$$"), CTOOFolder::UniqueFileName(folder.Path(), "00C0FFEE.$$$").str());
    EXPECT_THROW(CTOOFolder::UniqueFileName(folder.Path(), "../x"), XTOOFile);
    EXPECT_THROW(CTOOFolder::UniqueFileName(folder.Path(), ""), XTOOFile);
}

TEST(FindFile, MatchesSortedAndByKind) {
    const TempFolder folder;
    for (const char* name : {"b_trl.p7s", "a_trl.p7s", "a_trl.p7s.bak", ".hidden.p7s", "abc", "p7s"}) Store(folder.File(name), "");
    CTOOFolder::MakeFolder(folder.File("folder_trl.p7s"));
    fs::create_symlink(folder.Path(), folder.File("link"));
    struct {
        const char* mask;
        CTOOFindFile::Kind kind;
        const char* names;
    } const cases[] = {
        {"*_trl.p7s", CTOOFindFile::c_files, "a_trl.p7s b_trl.p7s "},
        {"*_trl.p7s", CTOOFindFile::c_all, "a_trl.p7s b_trl.p7s folder_trl.p7s "},
        {"**p*7s", CTOOFindFile::c_files, "a_trl.p7s b_trl.p7s p7s "},
        {"a*", CTOOFindFile::c_files, "a_trl.p7s a_trl.p7s.bak abc "},
        {"*.*.*", CTOOFindFile::c_files, "a_trl.p7s.bak "},
        {"*", CTOOFindFile::c_folders, "folder_trl.p7s link "},
        {".*", CTOOFindFile::c_all, ".hidden.p7s "},
        {"a?c", CTOOFindFile::c_files, "abc "},
        {"", CTOOFindFile::c_all, ""},
    };
    for (const auto& test : cases) {
        CTOOFindFile find(folder.Path(), test.mask, test.kind);
        std::string names;
        for (CTOOString name; find.Next(name);) names += name.str() + " ";
        EXPECT_EQ(test.names, names) << test.mask;
    }
    EXPECT_TRUE(CTOOFindFile(folder.File("missing")).GetNames().empty());
    EXPECT_EQ(TOO_E_NOT_A_FOLDER, CodeOf(folder.File("abc"), [&] { CTOOFindFile find(folder.File("abc")); }));
}

}  // namespace
