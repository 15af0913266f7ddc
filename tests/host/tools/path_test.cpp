#include "too/path.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>

namespace {

TEST(Path, SplitsAndJoins) {
    struct {
        const char *path, *folder, *name;
        bool isFull;
    } const cases[] = {
        {"/a/b/c.txt", "/a/b", "c.txt", true},
        {"a/b", "a", "b", true},
        {"/a", "/", "a", true},
        {"a", "", "a", false},
        {"/a/b/", "/a/b", "", true},
        {"", "", "", false},
        {"/", "/", "", true},
        {"a//b", "a", "b", true},
        {"///a", "/", "a", true},
        {"../x", "..", "x", true},
        {"\\a", "", "\\a", false},
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
    for (const auto& [from, to] : pairs)
        EXPECT_EQ(to, toolsunix::FilenameConvertor(from));
}

// Sets a variable of the environment, or takes it out, until the end of the scope.
class ScopedVariable {
public:
    ScopedVariable(const char* name, const char* value) : m_name(name) {
        if (const char* old = std::getenv(name)) m_old = old;
        Set(value);
    }
    ~ScopedVariable() { Set(m_old ? m_old->c_str() : nullptr); }
    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;

private:
    void Set(const char* value) const {
        if (value) {
            setenv(m_name, value, 1);
        } else {
            unsetenv(m_name);
        }
    }
    const char* m_name;
    std::optional<std::string> m_old;
};

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
    for (const auto& test : cases) {
        const ScopedVariable home("NAL_HOME", test.home);
        const ScopedVariable data("XDG_DATA_HOME", test.data);
        const ScopedVariable user("HOME", test.user);
        EXPECT_EQ(test.expected, GetTarnCSPPath());
    }
}

}  // namespace
