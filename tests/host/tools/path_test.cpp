#include "too/path.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

TEST(Path, SplitsAndJoins) {
    struct {
        const char *path, *folder, *name;
        bool isFull;
    } const cases[] = {
        {"/a/b/c.txt", "/a/b", "c.txt", true}, {"/a/b/", "/a/b", "", true}, {"/a", "/", "a", true}, {"a/b", "a", "b", true},
        {"../x", "..", "x", true},             {"a//b", "a", "b", true},    {"/", "/", "", true},   {"a", "", "a", false},
        {"\\a", "", "\\a", false},             {"///a", "/", "a", true},    {"", "", "", false},
    };
    for (const auto& test : cases) {
        CTOOString folder = "before";
        CTOOString name = "before";
        EXPECT_EQ(test.isFull, storedev::ParseFullPath(test.path, folder, name)) << test.path;
        EXPECT_EQ(test.folder, folder) << test.path;
        EXPECT_EQ(test.name, name) << test.path;
    }
    CTOOString itself = "/a/b";
    CTOOString name;
    storedev::ParseFullPath(itself, itself, name);
    EXPECT_EQ("/a", itself);

    EXPECT_EQ("/a/b", storedev::MakeFullPath("/a", "b"));
    EXPECT_EQ("/a/b", storedev::MakeFullPath("/a/", "b", ""));
    EXPECT_EQ("/b.cer", storedev::MakeFullPath("/", "b", "cer"));
    EXPECT_EQ("b.cer", storedev::MakeFullPath("", "b", ".cer"));
}

TEST(Path, ConvertsBackslashes) {
    const char* pairs[][2] = {
        {"C:\\dir\\file", "/dir/file"}, {"dir\\file", "dir/file"}, {"C:file", "C:file"}, {"/a/b", "/a/b"}, {"", ""},
        {"\\\\host\\x", "//host/x"}};
    for (const auto& [from, to] : pairs) EXPECT_EQ(to, toolsunix::FilenameConvertor(from));
}

void Set(const char* name, const char* value) { value != nullptr ? setenv(name, value, 1) : unsetenv(name); }

TEST(Path, HomeFollowsTheEnvironment) {
    struct {
        const char *home, *data, *user, *expected;
    } const cases[] = {
        {"/n", "/d", "/u", "/n/csp"},
        {nullptr, "/d", "/u", "/d/nal/csp"},
        {"", "/d", "/u", "/d/nal/csp"},
        {nullptr, "relative", "/u", "/u/.local/share/nal/csp"},
        {nullptr, nullptr, "/u", "/u/.local/share/nal/csp"},
    };
    const char* userBefore = std::getenv("HOME");
    const std::string user = userBefore != nullptr ? userBefore : "";
    for (const auto& test : cases) {
        Set("NAL_HOME", test.home);
        Set("XDG_DATA_HOME", test.data);
        Set("HOME", test.user);
        EXPECT_EQ(test.expected, GetTarnCSPPath());
    }
    for (const char* name : {"NAL_HOME", "XDG_DATA_HOME"}) Set(name, nullptr);
    Set("HOME", userBefore != nullptr ? user.c_str() : nullptr);
}

}  // namespace
