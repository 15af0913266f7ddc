// The text of a configuration file, kept line by line so that a change touches only what it must.
// too/config_file.h says what a line may be.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "too/config_file.h"

namespace nalhost {

class ConfigText {
public:
    // An empty text. `file` names it in errors.
    ConfigText(CTOOString file, std::size_t maxSize, std::size_t maxLine);

    // Takes a text apart; throws XTOOFile 5 or 12, and the object is then to be thrown away.
    void Parse(std::string_view text);

    // The whole text; throws XTOOFile 12 when a change made it or a line too long.
    std::string GetText() const;

    bool GetSection(const CTOOString& section, std::list<CConfigFileKeyListItem>& keys) const;
    void GetAllSections(std::list<CConfigFileSectionListItem>& sections) const;
    bool GetValue(const CTOOString& section, const CTOOString& key, CTOOString& value) const;

    void PutSection(const CTOOString& section, const std::list<CConfigFileKeyListItem>& keys);
    void PutAllSections(const std::list<CConfigFileSectionListItem>& sections);
    void PutValue(const CTOOString& section, const CTOOString& key, const CTOOString& value);
    bool DeleteSection(const CTOOString& section);

private:
    enum class Kind { other, section, key };

    // A line or, so that many of them take little room, a run of lines of the kind `other`.
    struct Line {
        std::string text;  // with its end
        Kind kind = Kind::other;
        unsigned char endSize = 0;  // of "\n" or "\r\n"; 0 in a last line without one
        // Where in `text` things stand:
        std::uint32_t nameAt = 0;  // the name of the section or key
        std::uint32_t nameSize = 0;
        std::uint32_t valueAt = 0;  // the key's value, as the caller sees it
        std::uint32_t valueSize = 0;
        std::uint32_t changeAt = 0;  // from here to its end the line changes with the value

        std::string_view Raw() const { return std::string_view(text).substr(0, text.size() - endSize); }
        std::string_view Name() const { return std::string_view(text).substr(nameAt, nameSize); }
        std::string_view Value() const { return std::string_view(text).substr(valueAt, valueSize); }
    };

    // The keys that a section is to have and those of them that no line holds yet.
    struct WantedSection {
        CTOOString name;
        std::vector<const CConfigFileKeyListItem*> keys;
        std::map<std::string, std::list<std::size_t>> open;  // by folded key: indices into `keys`, in order
    };
    using WantedSections = std::map<std::string, WantedSection>;

    Line ParseLine(std::string_view raw, std::string_view end, std::size_t number) const;
    void AppendLine(Line line);
    void EndLine(Line& line) const;
    bool EndsInABlankLine() const;
    void SetValue(Line& line, const CTOOString& value) const;
    Line MakeKeyLine(const CConfigFileKeyListItem& item) const;
    Line MakeSectionLine(const CTOOString& section) const;
    void Want(WantedSections& wanted, const CTOOString& section, const std::list<CConfigFileKeyListItem>& keys) const;
    void Apply(WantedSections& wanted, bool removeOthers);
    void InsertLines(std::size_t at, std::vector<Line> lines);
    [[noreturn]] void Refuse(const CTOOString& what) const;

    CTOOString m_file;
    std::size_t m_maxSize;
    std::size_t m_maxLine;
    std::string m_lineEnd = "\n";
    std::string m_mark;  // the byte order mark that editors put before UTF-8
    std::vector<Line> m_lines;
};

}  // namespace nalhost
