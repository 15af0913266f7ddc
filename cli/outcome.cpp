#include "cli/outcome.h"

#include <algorithm>

namespace cli {
namespace {

std::string LabelOf(std::string key) {
    std::replace(key.begin(), key.end(), '_', ' ');
    return Printable(key);
}

// "2026-03-01T09:05:00Z", as every time in the data is written
bool IsTime(const std::string& text) {
    static constexpr std::string_view kForm = "0000-00-00T00:00:00Z";
    if (text.size() != kForm.size()) return false;
    return std::equal(text.begin(), text.end(), kForm.begin(),
                      [](char c, char form) { return form == '0' ? c >= '0' && c <= '9' : c == form; });
}

std::string ScalarText(const Json& value) {
    if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
    if (value.is_null()) return "-";
    if (!value.is_string()) return value.dump();
    const auto& text = value.get_ref<const std::string&>();
    if (IsTime(text)) return text.substr(0, 10) + " " + text.substr(11, 8) + " UTC";
    return Printable(text);
}

bool IsScalarList(const Json& value) {
    return value.is_array() && std::none_of(value.begin(), value.end(), [](const Json& item) { return item.is_structured(); });
}

void Render(const Json& data, std::size_t indent, bool colour, std::string& out);

void RenderField(const std::string& label, const Json& value, Colour tint, std::size_t indent, std::size_t width, bool colour,
                 std::string& out) {
    const std::string head(indent, ' ');
    const std::string padded = label + std::string(width - std::min(width, Columns(label)), ' ') + "  ";
    if (!value.is_structured()) {
        out += head + Coloured(padded, Colour::Label, colour) + Coloured(ScalarText(value), tint, colour) + "\n";
    } else if (value.empty()) {
        out += head + Coloured(padded, Colour::Label, colour) + "-\n";
    } else if (IsScalarList(value)) {
        bool first = true;
        for (const Json& item : value) {
            out += head + (first ? Coloured(padded, Colour::Label, colour) : std::string(Columns(padded), ' ')) + ScalarText(item) + "\n";
            first = false;
        }
    } else {
        out += head + Coloured(label, Colour::Label, colour) + "\n";
        Render(value, indent + 2, colour, out);
    }
}

void Render(const Json& data, std::size_t indent, bool colour, std::string& out) {
    if (data.is_array()) {
        bool first = true;
        for (const Json& item : data) {
            if (!first) out += "\n";
            first = false;
            Render(item, indent, colour, out);
        }
        return;
    }
    if (!data.is_object()) {
        out += std::string(indent, ' ') + ScalarText(data) + "\n";
        return;
    }
    std::size_t width = 0;
    for (const auto& [key, value] : data.items()) {
        if (!value.is_structured() || value.empty() || IsScalarList(value)) width = std::max(width, Columns(LabelOf(key)));
    }
    for (const auto& [key, value] : data.items()) {
        Colour tint = Colour::None;
        if (key == "verdict" && data.contains("good")) tint = data["good"] == true ? Colour::Good : Colour::Bad;
        RenderField(LabelOf(key), value, tint, indent, width, colour, out);
    }
}

}  // namespace

std::string RenderText(const Json& data, bool colour) {
    std::string out;
    Render(data, 0, colour, out);
    return out;
}

void Table::Row(std::vector<std::string> cells) {
    for (std::string& cell : cells) cell = Printable(cell);
    m_rows.push_back(std::move(cells));
}

std::string Table::Text(bool colour) const {
    std::vector<std::size_t> widths(m_rows.front().size(), 0);
    for (const auto& row : m_rows) {
        for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], Columns(row[i]));
    }
    std::string out;
    for (const auto& row : m_rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            if (i + 1 < row.size()) line += std::string(widths[i] - Columns(row[i]) + 2, ' ');
        }
        while (!line.empty() && line.back() == ' ') line.pop_back();
        out += (&row == &m_rows.front() ? Coloured(line, Colour::Label, colour) : line) + "\n";
    }
    return out;
}

}  // namespace cli
