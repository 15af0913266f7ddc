#include "too/config_file.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdlib>
#include <list>
#include <string>

#include "support/child.h"
#include "support/temp_folder.h"
#include "too/status.h"
#include "too/testing.h"

namespace {

using nal_test::TempFolder;

class ConfigFile : public testing::Test {
protected:
    ConfigFile() { setenv("NAL_HOME", m_folder.File("home").c_str(), 1); }

    void Store(const std::string& text) const { nal_test::WriteFile(m_path, text); }
    std::string Load() const {
        const auto bytes = nal_test::ReadFile(m_path);
        return {bytes.begin(), bytes.end()};
    }
    CTOOConfigInfoFile Open(bool mayBeMissing = true) const { return CTOOConfigInfoFile(m_path.c_str(), mayBeMissing); }

    TempFolder m_folder;
    const std::string m_path = m_folder.File("cert_pki.cfg");
};

std::string Show(const std::list<CConfigFileKeyListItem>& keys) {
    std::string text;
    for (const auto& key : keys) text += key.m_key.str() + "<" + key.m_value.str() + ">";
    return text;
}

std::string Show(const CTOOConfigInfoFile& file) {
    std::list<CConfigFileSectionListItem> sections;
    file.GetAllSections(&sections);
    std::string text;
    for (const auto& section : sections) text += "[" + section.m_name.str() + "]" + Show(section.m_keys);
    return text;
}

TEST_F(ConfigFile, ReadsEveryFormOfALine) {
    const std::pair<const char*, const char*> cases[] = {
        {"", ""},
        {"\n\n", ""},
        {"[A]", "[A]"},
        {"[A]\nk=v\n", "[A]k<v>"},
        {"\xEF\xBB\xBF[A]\r\nk = v w \r\n; c\r\n # d\r\n\r\n[ B b ] ; note\r\nx=", "[A]k<v w>[B b]x<>"},
        {"k=v\n[A]\n", "[]k<v>[A]"},
        {"[A]\nk=a=b;c#d\n", "[A]k<a=b;c#d>"},
        {"[A]\nk=\"  a  \"\nl=\"\"\nm=\"\nn=\"a\" \"b\"\n", "[A]k<  a  >l<>m<\">n<a\" \"b>"},
        {"[A]\nk=1\n[B]\nk=2\n[a]\nK=3\n", "[A]k<1>K<3>[B]k<2>"},
    };
    for (const auto& [text, shown] : cases) {
        Store(text);
        EXPECT_EQ(shown, Show(Open())) << text;
    }
    for (const char* bad : {"[A]\n=x", "[A]\nword\n", "[A\n", "[A] x\n", "[]\n"}) {
        Store(bad);
        EXPECT_THROW(Open(), XTOOFile) << bad;
    }
}

TEST_F(ConfigFile, ErrorsNameFileAndLine) {
    const auto failure = [&](const std::string& text, unsigned long maxSize, unsigned long maxLine) {
        Store(text);
        try {
            const CTOOConfigInfoFile file(m_path.c_str(), true, maxSize, maxLine);
        } catch (const XTOOFile& caught) {
            EXPECT_EQ(m_path, caught.GetFileName().str());
            return std::to_string(caught.GetCode()) + " " + caught.GetText().substr(0, 7).str();
        }
        return std::string("none");
    };
    const struct {
        std::string text;
        unsigned long maxSize, maxLine;
        const char* start;
    } cases[] = {
        {"[A]\nk=v\nbroken\n", 0, 0, "5 line 3:"},
        {"; a\n\n[A]\n# b\n\nbroken\n", 0, 0, "5 line 6:"},
        {std::string("[A]\nk=a\0b\n", 10), 0, 0, "5 line 2:"},
        {"; a\n;" + std::string(100, 'x') + "\n", 0, 100, "12 line 2:"},
        {"[A]\nk=" + std::string(99, 'x'), 0, 100, "12 line 2:"},
        {"[A]\nk=" + std::string(98, 'x'), 0, 100, "none"},
        {"[A]\nk=1234\n", 10, 0, "12 more th"},
        {"[A]\nk=1234", 10, 0, "none"},
    };
    for (const auto& c : cases) EXPECT_THAT(failure(c.text, c.maxSize, c.maxLine), testing::StartsWith(c.start)) << c.text;

    unlink(m_path.c_str());
    EXPECT_EQ("", Show(Open()));
    EXPECT_THROW(Open(false), XTOOFile);
    EXPECT_THROW(CTOOConfigInfoFile(m_folder.Path().c_str()), XTOOFile);
    EXPECT_THROW(CTOOConfigInfoFile(nullptr), XTOOFile);
}

TEST_F(ConfigFile, AChangeTouchesOnlyWhatItMust) {
    const std::string text =
        "; head\r\n\r\n[General]\r\n; about a\r\na  =  1\r\nB=2\r\n\r\n; about x\r\n"
        "[Other] ; note\r\nx=\"7\"\r\n[general]\r\nc=3\r\n; tail";
    struct {
        const char* section;
        std::list<CConfigFileKeyListItem> keys;
        std::string from, to;  // what changes in the text
    } const cases[] = {
        {"General", {{"a", "1"}, {"b", "2"}, {"c", "3"}}, "", ""},
        {"GENERAL", {{"c", "3"}, {"b", "2"}, {"a", "one"}}, "a  =  1", "a  =  one"},
        {"General", {{"a", "1"}, {"c", "3"}}, "B=2\r\n", ""},
        {"General", {{"a", "1"}, {"b", "2"}, {"c", "3"}, {"d", "4"}}, "c=3\r\n", "c=3\r\nd=4\r\n"},
        {"Other", {{"x", " 7"}}, "\"7\"", "\" 7\""},
        {"Other", {{"x", "\"7\""}}, "\"7\"", "\"\"7\"\""},
        {"Other", {}, "x=\"7\"\r\n", ""},
        {"New", {{"k", "v"}}, "; tail", "; tail\r\n\r\n[New]\r\nk=v\r\n"},
        {"", {{"k", "v"}}, "; head", "k=v\r\n; head"},
    };
    for (const auto& test : cases) {
        Store(text);
        auto file = Open();
        file.PutSection(test.section, test.keys);
        std::string expected = text;
        if (!test.from.empty()) expected.replace(expected.find(test.from), test.from.size(), test.to);
        EXPECT_EQ(expected, Load());
        // What was put is what is read, by this object and by another.
        EXPECT_EQ(Show(Open()), Show(file));
        std::list<CConfigFileKeyListItem> keys;
        file.GetSection(test.section, &keys);
        EXPECT_EQ(test.keys.size(), keys.size());
        for (const auto& item : test.keys) {
            CTOOString value;
            EXPECT_TRUE(file.GetValue(test.section, item.m_key, &value));
            EXPECT_EQ(item.m_value, value);
        }
    }
}

TEST_F(ConfigFile, AllSectionsAndSingleValues) {
    const std::string text = "; head\n[A]\nk=1\n; in a\n[B]\nl=2\nl=3\n";
    Store(text);
    auto file = Open();
    std::list<CConfigFileSectionListItem> sections;
    file.GetAllSections(&sections);
    file.PutAllSections(sections);
    EXPECT_EQ(text, Load());

    sections.pop_front();
    sections.front().m_keys.back().m_value = "4";
    sections.push_back({"C", {{"m", "5"}}});
    file.PutAllSections(sections);
    EXPECT_EQ("; head\n[B]\nl=2\nl=4\n\n[C]\nm=5\n", Load());

    file.PutValue("b", "L", "9");
    file.PutValue("b", "n", "");
    EXPECT_EQ("; head\n[B]\nl=9\nl=4\nn=\n\n[C]\nm=5\n", Load());
    CTOOString value = "before";
    EXPECT_FALSE(file.GetValue("C", "n", &value));
    EXPECT_FALSE(file.GetValue("D", "m", &value));
    EXPECT_EQ("before", value);

    EXPECT_TRUE(file.DeleteSection("b"));
    EXPECT_FALSE(file.DeleteSection("b"));
    EXPECT_EQ("; head\n[C]\nm=5\n", Load());
}

TEST_F(ConfigFile, RefusesWhatWouldNotBeReadBack) {
    const std::string text = "[A]\nk=v\n";
    Store(text);
    auto file = Open();
    struct {
        CTOOString section, key, value;
    } const cases[] = {
        {"A", "k", "a\nb"}, {"A", "k", "a\r"}, {"A", "k", CTOOString("a\0b", 3)},
        {"A", "", "v"},     {"A", "a=b", "v"}, {"A", " k", "v"},
        {"A", "[k", "v"},   {"A", "#k", "v"},  {"A", "k\nx", "v"},
        {"A]", "k", "v"},   {" A", "k", "v"},  {"A\n[B", "k", "v"},
    };
    for (const auto& test : cases) {
        EXPECT_THROW(file.PutValue(test.section, test.key, test.value), XTOOFile) << test.section << " " << test.key;
        EXPECT_THROW(file.PutSection(test.section, {{test.key, test.value}}), XTOOFile);
    }
    EXPECT_THROW(file.PutValue("A", "k", std::string(CTOOConfigInfoFile::c_defaultMaxLine, 'x')), XTOOFile);
    EXPECT_EQ(text, Load());
    EXPECT_EQ("[A]k<v>", Show(file));
}

TEST_F(ConfigFile, AFullDiskLeavesFileAndObjectAsTheyWere) {
    Store("[A]\nk=v\n");
    auto file = Open();
    {
        const too_testing::ScopedStepFailure full(1);
        EXPECT_THROW(file.PutValue("A", "k", "w"), XTOOFile);
    }
    EXPECT_EQ("[A]\nk=v\n", Load());
    EXPECT_EQ("[A]k<v>", Show(file));
    file.PutValue("A", "k", "w");
    EXPECT_EQ("[A]\nk=w\n", Load());
}

TEST_F(ConfigFile, ProcessesDoNotLoseEachOthersChanges) {
    constexpr int processes = 4;
    constexpr int changes = 25;
    std::list<nal_test::Child> children;
    for (int process = 0; process < processes; ++process) {
        children.emplace_back([this, process] {
            auto file = Open();
            for (int i = 0; i < changes; ++i) file.PutValue("S" + CTOOString(std::to_string(process)), std::to_string(i), "x");
        });
    }
    for (auto& child : children) EXPECT_EQ(nal_test::ChildEnd::success, child.Wait());
    std::list<CConfigFileSectionListItem> sections;
    Open().GetAllSections(&sections);
    EXPECT_EQ(static_cast<std::size_t>(processes), sections.size());
    for (const auto& section : sections) EXPECT_EQ(static_cast<std::size_t>(changes), section.m_keys.size());
}

}  // namespace
