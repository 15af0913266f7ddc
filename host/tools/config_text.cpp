#include "host/tools/config_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "too/status.h"

namespace nalhost {

namespace {

constexpr std::string_view c_blanks = " \t";
constexpr std::string_view c_byteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view c_forbidden("\0\r\n", 3);
// Places in a line fit 32 bits.
constexpr std::size_t c_longestLine = std::size_t{1} << 30;

std::string_view Trim(std::string_view text) {
    const std::size_t first = text.find_first_not_of(c_blanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(c_blanks) - first + 1);
}

bool IsComment(std::string_view trimmed) {
    return trimmed.empty() || trimmed[0] == ';' || trimmed[0] == '#';
}

bool IsQuoted(std::string_view text) {
    return text.size() > 1 && text.front() == '"' && text.back() == '"';
}

std::string Fold(std::string_view text) {
    std::string folded(text);
    for (char& c : folded) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return folded;
}

// A value in the form in which reading gives it back.
std::string Quote(std::string_view value) {
    if (Trim(value) == value && !IsQuoted(value)) return std::string(value);
    return fmt::format("\"{}\"", value);
}

}  // namespace

ConfigText::ConfigText(CTOOString file, std::size_t maxSize, std::size_t maxLine)
    : m_file(std::move(file)), m_maxSize(maxSize), m_maxLine(std::min(maxLine, c_longestLine)) {}

void ConfigText::Refuse(const CTOOString& what) const {
    throw XTOOFile(TOO_E_BAD_ARGUMENT, m_file, what + " cannot be written to");
}

void ConfigText::Parse(std::string_view text) {
    if (text.size() > m_maxSize)
        throw XTOOFile(TOO_E_TOO_LARGE, m_file, fmt::format("more than {} bytes in", m_maxSize));
    if (text.substr(0, c_byteOrderMark.size()) == c_byteOrderMark) {
        m_mark = c_byteOrderMark;
        text.remove_prefix(c_byteOrderMark.size());
    }
    for (std::size_t number = 1; !text.empty(); ++number) {
        const std::size_t feed = text.find('\n');
        const std::size_t next = feed == std::string_view::npos ? text.size() : feed + 1;
        std::size_t length = feed == std::string_view::npos ? text.size() : feed;
        if (length != next && length != 0 && text[length - 1] == '\r') --length;
        const std::string_view end = text.substr(length, next - length);
        if (number == 1 && !end.empty()) m_lineEnd = end;
        AppendLine(ParseLine(text.substr(0, length), end, number));
        text.remove_prefix(next);
    }
}

void ConfigText::AppendLine(Line line) {
    if (line.kind == Kind::other && !m_lines.empty() && m_lines.back().kind == Kind::other) {
        m_lines.back().text += line.text;
        m_lines.back().endSize = line.endSize;
    } else {
        m_lines.push_back(std::move(line));
    }
}

ConfigText::Line ConfigText::ParseLine(std::string_view raw, std::string_view end, std::size_t number) const {
    const auto damaged = [&](const char* what) {
        throw XTOOFile(TOO_E_READ, m_file, fmt::format("line {}: {} in", number, what));
    };
    if (raw.size() > m_maxLine) {
        throw XTOOFile(TOO_E_TOO_LARGE, m_file, fmt::format("line {}: more than {} bytes in", number, m_maxLine));
    }
    if (raw.find('\0') != std::string_view::npos) damaged("zero byte");
    Line line;
    line.text.reserve(raw.size() + end.size());
    line.text.append(raw).append(end);
    line.endSize = static_cast<unsigned char>(end.size());
    const std::string_view text = Trim(raw);
    if (IsComment(text)) return line;
    const auto at = [&](std::string_view part) { return static_cast<std::uint32_t>(part.data() - raw.data()); };
    const auto setName = [&](std::string_view name, const char* empty) {
        if (name.empty()) damaged(empty);
        line.nameAt = at(name);
        line.nameSize = static_cast<std::uint32_t>(name.size());
    };
    if (text[0] == '[') {
        const std::size_t close = text.find(']');
        if (close == std::string_view::npos || !IsComment(Trim(text.substr(close + 1))))
            damaged("unfinished section name");
        line.kind = Kind::section;
        setName(Trim(text.substr(1, close - 1)), "empty section name");
        return line;
    }
    const std::size_t equals = raw.find('=');
    if (equals == std::string_view::npos) damaged("neither section nor key=value");
    line.kind = Kind::key;
    setName(Trim(raw.substr(0, equals)), "empty key");
    line.changeAt = static_cast<std::uint32_t>(std::min(raw.find_first_not_of(c_blanks, equals + 1), raw.size()));
    std::string_view value = Trim(raw.substr(line.changeAt));
    if (IsQuoted(value)) value = value.substr(1, value.size() - 2);
    line.valueAt = value.empty() ? line.changeAt : at(value);
    line.valueSize = static_cast<std::uint32_t>(value.size());
    return line;
}

std::string ConfigText::GetText() const {
    std::size_t size = m_mark.size();
    for (const Line& line : m_lines) {
        if (line.kind != Kind::other && line.Raw().size() > m_maxLine) {
            throw XTOOFile(TOO_E_TOO_LARGE, m_file,
                           fmt::format("\"{}\" needs more than {} bytes in", line.Name(), m_maxLine));
        }
        size += line.text.size();
    }
    if (size > m_maxSize) throw XTOOFile(TOO_E_TOO_LARGE, m_file, fmt::format("more than {} bytes for", m_maxSize));
    std::string text = m_mark;
    text.reserve(size);
    for (const Line& line : m_lines)
        text += line.text;
    return text;
}

// ---- reading ----

bool ConfigText::GetSection(const CTOOString& section, std::list<CConfigFileKeyListItem>& keys) const {
    keys.clear();
    bool inside = section.empty();
    bool found = false;
    for (const Line& line : m_lines) {
        if (line.kind == Kind::section) {
            inside = section.CompareNoCase(line.Name()) == 0;
            found = found || inside;
        } else if (line.kind == Kind::key && inside) {
            keys.push_back({line.Name(), line.Value()});
            found = true;
        }
    }
    return found;
}

void ConfigText::GetAllSections(std::list<CConfigFileSectionListItem>& sections) const {
    sections.clear();
    std::map<std::string, CConfigFileSectionListItem*> known;
    CConfigFileSectionListItem* current = nullptr;
    const auto enter = [&](std::string_view name) {
        CConfigFileSectionListItem*& section = known[Fold(name)];
        if (!section) section = &sections.emplace_back(CConfigFileSectionListItem{name, {}});
        current = section;
    };
    for (const Line& line : m_lines) {
        if (line.kind == Kind::section) enter(line.Name());
        if (line.kind != Kind::key) continue;
        if (!current) enter("");
        current->m_keys.push_back({line.Name(), line.Value()});
    }
}

bool ConfigText::GetValue(const CTOOString& section, const CTOOString& key, CTOOString& value) const {
    std::list<CConfigFileKeyListItem> keys;
    GetSection(section, keys);
    for (const CConfigFileKeyListItem& item : keys) {
        if (item.m_key.CompareNoCase(key) == 0) {
            value = item.m_value;
            return true;
        }
    }
    return false;
}

// ---- changing ----

void ConfigText::SetValue(Line& line, const CTOOString& value) const {
    if (value.view().find_first_of(c_forbidden) != std::string_view::npos) {
        Refuse("the value of \"" + CTOOString(line.Name()) + "\", with a line end or zero byte,");
    }
    const std::string written = Quote(value.view());
    line.text.replace(line.changeAt, line.Raw().size() - line.changeAt, written);
    line.valueAt = line.changeAt + static_cast<std::uint32_t>((written.size() - value.size()) / 2);
    line.valueSize = static_cast<std::uint32_t>(value.size());
}

ConfigText::Line ConfigText::MakeKeyLine(const CConfigFileKeyListItem& item) const {
    const std::string_view key = item.m_key.view();
    if (IsComment(key) || key[0] == '[' || Trim(key) != key || key.find('=') != std::string_view::npos ||
        key.find_first_of(c_forbidden) != std::string_view::npos) {
        Refuse("the key \"" + item.m_key + "\"");
    }
    Line line;
    line.kind = Kind::key;
    line.nameSize = static_cast<std::uint32_t>(key.size());
    line.text.append(key).append("=");
    line.changeAt = line.nameSize + 1;
    SetValue(line, item.m_value);
    EndLine(line);
    return line;
}

ConfigText::Line ConfigText::MakeSectionLine(const CTOOString& section) const {
    const std::string_view name = section.view();
    if (name.empty() || Trim(name) != name || name.find(']') != std::string_view::npos ||
        name.find_first_of(c_forbidden) != std::string_view::npos) {
        Refuse("the section name \"" + section + "\"");
    }
    Line line;
    line.kind = Kind::section;
    line.nameAt = 1;
    line.nameSize = static_cast<std::uint32_t>(name.size());
    line.text.append("[").append(name).append("]");
    EndLine(line);
    return line;
}

void ConfigText::EndLine(Line& line) const {
    if (line.endSize != 0) return;
    line.text += m_lineEnd;
    line.endSize = static_cast<unsigned char>(m_lineEnd.size());
}

void ConfigText::Want(WantedSections& wanted, const CTOOString& section,
                      const std::list<CConfigFileKeyListItem>& keys) const {
    WantedSection& entry = wanted[Fold(section.view())];
    entry.name = section;
    for (const CConfigFileKeyListItem& item : keys) {
        entry.open[Fold(item.m_key.view())].push_back(entry.keys.size());
        entry.keys.push_back(&item);
    }
}

// One pass over the lines: a key line takes the next wanted value of its name or goes; keys that no line took are put
// behind the last key (or the head) of their section, and sections that no line opened at the end.
void ConfigText::Apply(WantedSections& wanted, bool removeOthers) {
    std::size_t kept = 0;                         // how many lines stay, at the front of m_lines
    std::map<std::string, std::size_t> insertAt;  // by section: index of what stays behind its last key or head
    std::string sectionKey;
    auto section = wanted.find(sectionKey);
    if (section != wanted.end()) insertAt[sectionKey] = 0;
    for (Line& line : m_lines) {
        if (line.kind == Kind::section) {
            sectionKey = Fold(line.Name());
            section = wanted.find(sectionKey);
        }
        const bool isHead = sectionKey.empty();
        if (section == wanted.end() && removeOthers && (!isHead || line.kind == Kind::key)) continue;
        if (section != wanted.end() && line.kind == Kind::key) {
            const auto open = section->second.open.find(Fold(line.Name()));
            if (open == section->second.open.end() || open->second.empty()) continue;
            const CConfigFileKeyListItem*& item = section->second.keys[open->second.front()];
            open->second.pop_front();
            if (item->m_value.view() != line.Value()) SetValue(line, item->m_value);
            item = nullptr;
        }
        const bool counts = line.kind != Kind::other;
        if (&line != &m_lines[kept]) m_lines[kept] = std::move(line);
        ++kept;
        if (section != wanted.end() && counts) insertAt[sectionKey] = kept;
    }
    m_lines.resize(kept);

    // From the back, so that the places ahead stay right.
    std::vector<std::pair<std::size_t, WantedSection*>> places;
    std::vector<WantedSection*> missing;
    for (auto& [name, entry] : wanted) {
        const auto place = insertAt.find(name);
        if (place == insertAt.end()) {
            missing.push_back(&entry);
        } else {
            places.emplace_back(place->second, &entry);
        }
    }
    std::sort(places.begin(), places.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    const auto linesOf = [this](const WantedSection& entry) {
        std::vector<Line> lines;
        for (const CConfigFileKeyListItem* item : entry.keys) {
            if (item) lines.push_back(MakeKeyLine(*item));
        }
        return lines;
    };
    for (const auto& [at, entry] : places)
        InsertLines(at, linesOf(*entry));
    for (const WantedSection* entry : missing) {
        std::vector<Line> lines = linesOf(*entry);
        lines.insert(lines.begin(), MakeSectionLine(entry->name));
        if (!m_lines.empty() && !EndsInABlankLine()) {
            Line blank;
            EndLine(blank);
            lines.insert(lines.begin(), blank);
        }
        InsertLines(m_lines.size(), std::move(lines));
    }
}

bool ConfigText::EndsInABlankLine() const {
    const std::string_view raw = m_lines.back().Raw();
    return Trim(raw.substr(raw.rfind('\n') + 1)).empty();
}

void ConfigText::InsertLines(std::size_t at, std::vector<Line> lines) {
    if (lines.empty()) return;
    if (at > 0) EndLine(m_lines[at - 1]);
    m_lines.insert(m_lines.begin() + static_cast<std::ptrdiff_t>(at), std::make_move_iterator(lines.begin()),
                   std::make_move_iterator(lines.end()));
}

void ConfigText::PutSection(const CTOOString& section, const std::list<CConfigFileKeyListItem>& keys) {
    WantedSections wanted;
    Want(wanted, section, keys);
    Apply(wanted, false);
}

void ConfigText::PutAllSections(const std::list<CConfigFileSectionListItem>& sections) {
    WantedSections wanted;
    for (const CConfigFileSectionListItem& section : sections)
        Want(wanted, section.m_name, section.m_keys);
    Apply(wanted, true);
}

void ConfigText::PutValue(const CTOOString& section, const CTOOString& key, const CTOOString& value) {
    std::list<CConfigFileKeyListItem> keys;
    GetSection(section, keys);
    const auto found = std::find_if(keys.begin(), keys.end(), [&](const CConfigFileKeyListItem& item) {
        return item.m_key.CompareNoCase(key) == 0;
    });
    if (found == keys.end()) {
        keys.push_back({key, value});
    } else {
        found->m_value = value;
    }
    PutSection(section, keys);
}

bool ConfigText::DeleteSection(const CTOOString& section) {
    bool inside = section.empty();
    bool found = false;
    std::vector<Line> kept;
    for (Line& line : m_lines) {
        if (line.kind == Kind::section) inside = section.CompareNoCase(line.Name()) == 0;
        // Comments above the first section speak of the file, not of the keys beside them.
        const bool goes = inside && (!section.empty() || line.kind == Kind::key);
        found = found || goes;
        if (!goes) kept.push_back(std::move(line));
    }
    m_lines = std::move(kept);
    return found;
}

}  // namespace nalhost
