#include "cli/program.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "cli/files.h"
#include "cli/help.h"
#include "cli/interrupt.h"

namespace cli {
namespace {

// Type names by which the check of streams knows what "-" means.
constexpr char kIn[] = "FILE";
constexpr char kOut[] = "OUT";
constexpr char kPath[] = "PATH";
constexpr char kCert[] = "CERT";  // a file or an ID

std::string Join(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "'" : ", '") + word + "'";
    return text;
}

// Also keeps in mind what is read, for outputs that the command line does not name.
void RefuseBadPaths(const CLI::App& app, const Globals& globals) {
    unsigned inputs = 0;
    unsigned outputs = 0;
    for (const CLI::Option* option : app.get_options()) {
        const std::string type = option->get_type_name();
        const std::string name = option->get_name();
        const bool isDescriptor = name.size() > 3 && name.compare(name.size() - 3, 3, "-fd") == 0;
        if (isDescriptor && option->count() != 0) {
            const int descriptor = option->as<int>();
            // Else it could be one that the program opens.
            if (::fcntl(descriptor, F_GETFD) < 0) throw Fault(kKeys, name + ": descriptor " + std::to_string(descriptor) + " is not open");
            if (descriptor == STDIN_FILENO) ++inputs;
        }
        if (type != kIn && type != kOut && type != kPath && type != kCert) continue;
        for (const std::string& value : option->results()) {
            if (value.empty() && type != kCert) UsageFault(option->get_name() + ": the path is empty");
            if (type != kOut) NameInput(value);
            if (value != "-") continue;
            if (type == kPath) UsageFault(option->get_name() + ": must be a file, it cannot be standard input or output");
            if (type == kOut) RefuseJsonWith(value, globals);
            ++(type == kOut ? outputs : inputs);
        }
    }
    if (inputs > 1) UsageFault("standard input (\"-\") is named more than once", "It can be read only once; name a file for the others.");
    if (outputs > 1) UsageFault("standard output (\"-\") is named more than once");
}

std::string EffectLines() {
    std::string text;
    for (const std::string& effect : Effects()) text += "  " + Printable(effect) + "\n";
    return text;
}

}  // namespace

CLI::Option* Options::In(const std::string& name, std::string& value, const std::string& help) {
    return m_app.add_option(name, value, help)->type_name(kIn);
}

CLI::Option* Options::Ins(const std::string& name, std::vector<std::string>& values, const std::string& help) {
    return Values(name, values, kIn, help);
}

CLI::Option* Options::Out(const std::string& name, std::string& value, const std::string& help) {
    return m_app.add_option(name, value, help)->type_name(kOut);
}

CLI::Option* Options::Path(const std::string& name, std::string& value, const std::string& help) {
    return m_app.add_option(name, value, help)->type_name(kPath);
}

CLI::Option* Options::Paths(const std::string& name, std::vector<std::string>& values, const std::string& help) {
    return Values(name, values, kPath, help);
}

CLI::Option* Options::Values(const std::string& name, std::vector<std::string>& values, const std::string& type, const std::string& help) {
    CLI::Option* option = m_app.add_option(name, values, help)->type_name(type);
    // Otherwise the option would take every word that follows, the positional ones too.
    if (name[0] == '-') option->allow_extra_args(false);
    return option;
}

CLI::Option* Options::Flag(const std::string& name, bool& value, const std::string& help) { return m_app.add_flag(name, value, help); }

Program::Program(ProgramText text) : m_text(std::move(text)), m_words(m_text.name) { AddGlobalOptions(m_globalApp); }

void Program::AddGlobalOptions(CLI::App& app) {
    app.set_help_flag("-h,--help", "Shows this help");
    app.add_flag("--json", m_globals.json, "Prints the result as JSON");
    app.add_flag("-q,--quiet", m_globals.quiet, "Shows no progress and no remarks");
    app.add_option("--home", m_globals.home, "The folder under which everything is kept, in the place of NAL_HOME")->type_name("DIR");
    for (const ProgramText::Option& option : m_text.options) app.add_option(option.name, *option.value, option.help)->type_name(option.type);
}

CommandEntry& Program::Add(const std::string& family, const std::string& name, const std::string& summary) {
    m_commands.emplace_back();
    CommandEntry& entry = m_commands.back();
    entry.family = family;
    entry.name = name;
    entry.summary = summary;
    entry.app = std::make_unique<CLI::App>(summary, name);
    AddGlobalOptions(*entry.app);
    return entry;
}

void RefuseJsonWith(const std::string& output, const Globals& globals) {
    if (globals.json && output == "-") UsageFault("--json and the output cannot both go to standard output", "Name a file for the output.");
}

void UsageFault(const std::string& message, const std::string& hint) { throw Fault(kUsage, message, hint); }

void Program::Tell(const Fault& fault) const {
    std::string text;
    if (!fault.Message().empty()) text = Coloured(m_words + ":", Colour::Bad, UseColour(STDERR_FILENO)) + " " + Printable(fault.Message()) + "\n";
    for (const std::string& line : fault.Details()) text += "  " + Printable(line) + "\n";
    if (!fault.Hint().empty()) text += "  " + Printable(fault.Hint()) + "\n";
    WriteAll(STDERR_FILENO, text);
}

int Program::ReportFault(const Fault& given) const {
    const bool seeHelp = given.Hint().empty() && given.Exit() == kUsage;
    const std::string hint = seeHelp ? "See: " + m_text.name + " help" + m_words.substr(m_text.name.size()) : given.Hint();
    const Fault fault(given.Exit(), given.Message(), hint, given.Status(), given.Details());
    Tell(fault);
    TellEffects();
    if (m_globals.json && !fault.Message().empty()) {
        Outcome outcome;
        std::string message = fault.Message();
        for (const std::string& line : fault.Details()) message += "\n  " + line;
        Json& error = outcome.data["error"] = {{"exit", fault.Exit()}, {"status", fault.Status()}, {"message", message}, {"hint", hint}};
        if (!Effects().empty()) error["done"] = Effects();
        outcome.exit = fault.Exit();
        return Print(outcome, true) == kSystem ? kSystem : fault.Exit();
    }
    return fault.Exit();
}

int Program::ReportStop() const {
    std::string text = m_words + ": stopped; ";
    if (Effects().empty()) {
        text += "nothing was left behind\n";
    } else {
        text += "this was done before and stays:\n" + EffectLines();
    }
    WriteAll(STDERR_FILENO, text);
    EndBySignal();
}

void Program::TellEffects() {
    if (!Effects().empty()) WriteAll(STDERR_FILENO, "This was done before and stays:\n" + EffectLines());
}

int Program::Print(const Outcome& outcome, bool effectsTold) const {
    std::string text = outcome.text;
    if (m_globals.json) {
        text = PrintableJson(outcome.data.dump(2, ' ', false, Json::error_handler_t::replace)) + "\n";
    } else if (text.empty() && !outcome.data.empty()) {
        text = RenderText(outcome.data, UseColour(STDOUT_FILENO));
    }
    const int error = WriteUnlessStopped(STDOUT_FILENO, text);
    for (const Fault& fault : outcome.faults) Tell(fault);
    if (error == 0) return outcome.faults.empty() ? outcome.exit : outcome.faults.front().Exit();
    // A reader that has seen enough (head, less) is no reason for words, nor is what the operator stopped.
    if (error == EPIPE || error == EINTR) return kSystem;
    WriteAll(STDERR_FILENO, m_words + ": cannot write to standard output: " + std::strerror(error) + "\n");
    if (!effectsTold) TellEffects();
    return kSystem;
}

const CommandEntry* Program::Choose(std::vector<std::string>& arguments) {
    // Options of every command may stand before its words.
    std::size_t at = 0;
    while (at < arguments.size() && arguments[at].size() > 1 && arguments[at][0] == '-') {
        const CLI::Option* option = m_globalApp.get_option_no_throw(arguments[at]);
        at += option != nullptr && option->get_items_expected_max() != 0 ? 2 : 1;
    }
    if (at >= arguments.size()) return nullptr;
    const std::string first = arguments[at];
    const auto take = [&](std::size_t words, const CommandEntry& command) {
        m_words = m_text.name + " " + command.Words();
        arguments.erase(arguments.begin() + static_cast<std::ptrdiff_t>(at), arguments.begin() + static_cast<std::ptrdiff_t>(at + words));
        return &command;
    };
    for (const CommandEntry& command : m_commands) {
        if (command.family.empty() && command.name == first) return take(1, command);
    }
    const bool isFamily = std::any_of(m_families.begin(), m_families.end(), [&](const FamilyEntry& f) { return f.name == first; });
    if (!isFamily) UsageFault("unknown command '" + first + "'");
    m_words = m_text.name + " " + first;
    const bool hasSecond = at + 1 < arguments.size();
    if (!hasSecond || arguments[at + 1] == "-h" || arguments[at + 1] == "--help") {
        arguments = {first};
        if (hasSecond) return nullptr;
        UsageFault("a command is needed after '" + first + "'");
    }
    for (const CommandEntry& command : m_commands) {
        if (command.family == first && command.name == arguments[at + 1]) return take(2, command);
    }
    UsageFault("unknown command '" + first + " " + arguments[at + 1] + "'");
}

int Program::RunCommand(const CommandEntry& command, std::vector<std::string> arguments) {
    const auto takesMany = [](const CLI::Option* option) { return option->get_positional() && option->get_allow_extra_args(); };
    if (!command.app->get_options(takesMany).empty()) {
        for (std::string& argument : arguments) {
            // The parser would take it for a list of files.
            if (argument.size() > 1 && argument.front() == '[' && argument.back() == ']') argument = "./" + argument;
        }
    }
    std::reverse(arguments.begin(), arguments.end());  // as CLI11 takes them
    try {
        command.app->parse(arguments);
    } catch (const CLI::CallForHelp&) {
        Outcome outcome;
        outcome.text = HelpOf(command, *this, UseColour(STDOUT_FILENO));
        m_globals.json = false;
        return Print(outcome);
    } catch (const CLI::ExtrasError&) {
        const std::vector<std::string> extras = command.app->remaining();
        for (const std::string& extra : extras) {
            if (extra.size() > 1 && extra[0] == '-') UsageFault("unknown option '" + extra + "'");
        }
        UsageFault("too many arguments: " + Join(extras));
    } catch (const CLI::ParseError& error) {
        UsageFault(error.what());
    }
    RefuseBadPaths(*command.app, m_globals);
    if (!m_globals.home.empty()) ::setenv("NAL_HOME", m_globals.home.c_str(), 1);
    if (m_text.prepare) m_text.prepare(command.Words());
    const int exit = Print(command.run(m_globals));
    if (Interrupted()) {
        WriteAll(STDERR_FILENO, m_words + ": the work was done already when it was asked to stop\n");
        EndBySignal();
    }
    return exit;
}

int Program::Run(const std::vector<std::string>& given) try {
    GuardStandardDescriptors();
    InstallSignalHandlers();
    // Errors are data too when data are asked for, those of the command line included.
    m_globals.json = std::find(given.begin(), given.end(), "--json") != given.end();
    std::vector<std::string> arguments = given;
    const CommandEntry* command = Choose(arguments);
    if (command != nullptr) return RunCommand(*command, std::move(arguments));

    Outcome outcome;
    const std::string word = arguments.empty() ? "" : arguments.front();
    if (word == "--version") {
        outcome.text = m_text.name + " " NAL_PROGRAM_VERSION "\n";
    } else if (word.empty() || word[0] != '-' || word == "-h" || word == "--help") {
        outcome.text = HelpOf(word.empty() || word[0] == '-' ? "" : word, *this, UseColour(STDOUT_FILENO));
    } else {
        UsageFault("a command is needed");
    }
    m_globals.json = false;
    if (!word.empty()) return Print(outcome);
    WriteAll(STDERR_FILENO, outcome.text);
    return kUsage;
} catch (const Stopped&) {
    return ReportStop();
} catch (const Fault& fault) {
    return ReportFault(fault);
} catch (const XTOOStatus& status) {
    try {
        return ReportFault(FaultOf(status, {}));
    } catch (const Stopped&) {
        return ReportStop();
    }
} catch (const std::bad_alloc&) {
    return ReportFault(Fault(kSystem, "there is not enough memory"));
} catch (const std::exception& error) {
    return ReportFault(Fault(kSystem, std::string("failed: ") + error.what()));
}

}  // namespace cli
