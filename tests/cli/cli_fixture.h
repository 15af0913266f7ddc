// Runs the built program in a home of its own.
#pragma once

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/authority.h"
#include "support/paths.h"
#include "support/process.h"
#include "support/temp_folder.h"

namespace nal_test {

using Json = nlohmann::ordered_json;

/// A command and what it must do. In `command` and `errors`, "@" stands for the test's folder
/// and "@NAL@" for the path of the program.
struct CliCase {
    std::string command;         ///< a line for sh; "nal" is the program
    int exitCode = 0;
    std::string errors = "";     ///< a part of standard error; empty: there must be nothing
    std::string output = "";     ///< a part of standard output
};

class Cli : public ::testing::Test {
protected:
    std::string Path(const std::string& name) const { return m_folder.File(name); }
    std::string InFolder(std::string text) const;
    void Write(const std::string& name, const IdentObj& bytes) { WriteFile(Path(name), bytes.GetData(), bytes.GetSize()); }

    /// Runs a line of sh in the folder.
    ProcessResult Run(const std::string& command) const;
    /// Runs cases in their order.
    void RunAll(const std::vector<CliCase>& cases) const;
    /// Runs with --json and gives what it printed.
    Json RunJson(const std::string& command, int exitCode = 0) const;

private:
    TempFolder m_folder;
};

/// Whether data have these fields and no others, in a notation of one line: "file:s certificates:[ subject:s not_after:s? ]". Types are
/// s text, n number, b boolean, { ... } an object, [ ... ] a list of such objects, [s] a list of texts; "?" lets it be null, "~" absent.
::testing::AssertionResult HasShape(const Json& data, const std::string& shape);

}  // namespace nal_test
