// What a command gives back: data for scripts, and the same for people.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/fault.h"
#include "cli/terminal.h"

namespace cli {

using Json = nlohmann::ordered_json;

/// The text for people is made of the data unless the command writes its own; that text is safe to print as it is.
struct Outcome {
    Json data = Json::object();
    std::string text;
    int exit = kGood;
    std::vector<Fault> faults;  ///< what failed while the rest was done; told behind the rest, the first one is the exit code
};

/// Data as text: a line a field, labels from the keys ("not_after" is "not after"), objects and lists indented. Everything in it is
/// made printable. "verdict" is coloured by the boolean "good" beside it.
std::string RenderText(const Json& data, bool colour);

/// Rows under heads, in columns as wide as they need to be.
class Table {
public:
    explicit Table(std::vector<std::string> heads) : m_rows{std::move(heads)} {}
    /// Cells are made printable.
    void Row(std::vector<std::string> cells);
    bool Empty() const { return m_rows.size() == 1; }
    std::string Text(bool colour) const;

private:
    std::vector<std::vector<std::string>> m_rows;
};

}  // namespace cli
