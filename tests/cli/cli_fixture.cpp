#include "cli_fixture.h"

#include <sstream>

namespace nal_test {
namespace {

using ::testing::AssertionFailure;
using ::testing::AssertionResult;
using ::testing::AssertionSuccess;

// One field's type, or a list of fields up to the closing word.
class Shape {
public:
    explicit Shape(const std::string& text) : m_words(text) {}

    AssertionResult Object(const Json& data, const std::string& where, const std::string& end) {
        if (!data.is_object()) return AssertionFailure() << where << " is no object: " << data;
        std::size_t known = 0;
        for (std::string word; m_words >> word && word != end;) {
            const std::size_t colon = word.find(':');
            const std::string name = word.substr(0, colon);
            const std::string type = word.substr(colon + 1);
            const bool present = data.contains(name);
            known += present;
            if (!present && type.find('~') == std::string::npos) return AssertionFailure() << where << " lacks " << name << ": " << data;
            const AssertionResult result = Value(present ? data[name] : Json(), type, where + "." + name, !present);
            if (!result) return result;
        }
        if (known != data.size()) return AssertionFailure() << where << " has more fields than its shape: " << data;
        return AssertionSuccess();
    }

private:
    AssertionResult Value(const Json& value, const std::string& type, const std::string& where, bool absent) {
        const bool isSkipped = absent || (value.is_null() && type.find('?') != std::string::npos);
        const auto must = [&](bool fits) -> AssertionResult {
            return fits || isSkipped ? AssertionSuccess() : AssertionFailure() << where << " is not of type " << type << ": " << value;
        };
        if (type[0] == 's') return must(value.is_string());
        if (type[0] == 'n') return must(value.is_number());
        if (type[0] == 'b') return must(value.is_boolean());
        if (type.compare(0, 3, "[s]") == 0) {
            if (isSkipped) return AssertionSuccess();
            for (const Json& item : value) {
                if (!item.is_string()) return must(false);
            }
            return must(value.is_array());
        }
        const std::string end = type[0] == '{' ? "}" : "]";
        const std::string rest = Inside();
        if (isSkipped) return AssertionSuccess();
        if (end == "}") return Shape(rest).Object(value, where, "");
        if (!value.is_array()) return must(false);
        for (std::size_t i = 0; i < value.size(); ++i) {
            const AssertionResult result = Shape(rest).Object(value[i], where + "[" + std::to_string(i) + "]", "");
            if (!result) return result;
        }
        return AssertionSuccess();
    }

    // The words up to the bracket that closes this level.
    std::string Inside() {
        std::string inside;
        int depth = 1;
        for (std::string word; m_words >> word;) {
            const std::string type = word.substr(word.find(':') + 1);
            if (type != word && (type[0] == '{' || (type[0] == '[' && type[1] != 's'))) ++depth;
            if ((word == "]" || word == "}") && --depth == 0) break;
            inside += word + " ";
        }
        return inside;
    }

    std::istringstream m_words;
};

}  // namespace

std::string Cli::InFolder(std::string text) const {
    const std::string program = "@NAL@";
    for (std::size_t at = 0; (at = text.find(program, at)) != std::string::npos;) text.replace(at, program.size(), BinaryDir() + "/cli/nal");
    for (std::size_t at = 0; (at = text.find('@', at)) != std::string::npos;) {
        text.replace(at, 1, m_folder.Path());
        at += m_folder.Path().size();
    }
    return text;
}

ProcessResult Cli::Run(const std::string& command) const {
    const std::string line = "cd '" + m_folder.Path() + "' && nal() { '" + BinaryDir() + "/cli/nal' \"$@\"; } && nal-keycentre() { '" + BinaryDir() + "/keycentre/nal-keycentre' \"$@\"; } && " + InFolder(command);
    return RunProcess({"bash", "-c", line}, {"NAL_HOME=" + Path("home"), "NO_COLOR="});
}

void Cli::RunAll(const std::vector<CliCase>& cases) const {
    for (const CliCase& one : cases) {
        SCOPED_TRACE(one.command);
        const ProcessResult result = Run(one.command);
        EXPECT_EQ(result.exitCode, one.exitCode) << result.errors << result.output;
        if (one.errors.empty()) {
            EXPECT_EQ(result.errors, "");
        } else {
            EXPECT_NE(result.errors.find(InFolder(one.errors)), std::string::npos) << result.errors;
        }
        EXPECT_NE(result.output.find(InFolder(one.output)), std::string::npos) << result.output;
    }
}

Json Cli::RunJson(const std::string& command, int exitCode) const {
    const ProcessResult result = Run(command + " --json");
    EXPECT_EQ(result.exitCode, exitCode) << command << "\n" << result.errors;
    Json data = Json::parse(result.output, nullptr, false);
    EXPECT_FALSE(data.is_discarded()) << command << "\n" << result.output;
    return data;
}

::testing::AssertionResult HasShape(const Json& data, const std::string& shape) { return Shape(shape).Object(data, "result", ""); }

}  // namespace nal_test
