#include "cli/help.h"

#include <algorithm>

#include "cli/files.h"

namespace cli {
namespace {

constexpr std::size_t kWidth = 100;

// Breaks text at blanks into lines of at most `width`, each behind `indent` blanks.
std::string Wrap(const std::string& text, std::size_t indent, std::size_t width) {
    std::string out;
    std::string line;
    std::size_t at = 0;
    while (at < text.size()) {
        const std::size_t end = std::min(text.find(' ', at), text.size());
        const std::string word = text.substr(at, end - at);
        if (!line.empty() && indent + line.size() + 1 + word.size() > width) {
            out += std::string(indent, ' ') + line + "\n";
            line.clear();
        }
        line += (line.empty() ? "" : " ") + word;
        at = end + 1;
    }
    return out + std::string(indent, ' ') + line + "\n";
}

using Rows = std::vector<std::pair<std::string, std::string>>;

std::string TwoColumns(const Rows& rows, bool colour) {
    constexpr std::size_t kMost = 30;
    std::size_t left = 0;
    for (const auto& row : rows) left = std::max(left, std::min(row.first.size(), kMost));
    std::string out;
    for (const auto& [name, text] : rows) {
        std::string wrapped = Wrap(text, left + 4, kWidth);
        const std::string head = "  " + Coloured(name, Colour::Label, colour);
        if (name.size() > left) {
            out += head + "\n" + wrapped;
        } else {
            out += head + std::string(left + 2 - name.size(), ' ') + wrapped.substr(left + 4);
        }
    }
    return out;
}

struct OptionText {
    std::string names;  // "-o, --output OUT"
    std::string help;
    bool positional = false;
    bool required = false;
    bool repeated = false;
};

OptionText TextOf(const CLI::Option& option) {
    OptionText text;
    text.help = option.get_description();
    text.positional = option.get_positional();
    text.required = option.get_required();
    text.repeated = option.get_items_expected_max() > 1 || option.get_expected_max() > 1;
    if (text.positional) {
        text.names = option.get_name(true, false);
        return text;
    }
    for (const std::string& name : option.get_snames()) text.names += (text.names.empty() ? "-" : ", -") + name;
    for (const std::string& name : option.get_lnames()) text.names += (text.names.empty() ? "--" : ", --") + name;
    if (option.get_items_expected_max() != 0) text.names += " " + option.get_type_name();
    return text;
}

std::vector<OptionText> OptionsOf(const CLI::App& app) {
    std::vector<OptionText> all;
    for (const CLI::Option* option : app.get_options()) all.push_back(TextOf(*option));
    return all;
}

bool IsGlobal(const OptionText& option, const Program& program) {
    for (const OptionText& global : OptionsOf(program.GlobalOptions())) {
        if (global.names == option.names) return true;
    }
    return false;
}

std::string UsageOf(const CommandEntry& command, const Program& program) {
    std::string usage = program.Text().name + " " + command.Words();
    std::string positional;
    bool options = false;
    for (const OptionText& option : OptionsOf(*command.app)) {
        if (option.positional) {
            const std::string name = option.names + (option.repeated ? "..." : "");
            positional += option.required ? " " + name : " [" + name + "]";
        } else if (option.required) {
            usage += " " + option.names.substr(option.names.rfind("--"));
        } else {
            options |= !IsGlobal(option, program);
        }
    }
    return usage + (options ? " [OPTIONS]" : "") + positional;
}

std::string Title(const std::string& text, bool colour) { return "\n" + Coloured(text, Colour::Warning, colour) + "\n"; }

Rows CommandsOf(const Program& program, const std::string& family) {
    Rows rows;
    for (const CommandEntry& command : program.Commands()) {
        if (command.family == family) rows.emplace_back(command.Words(), command.summary);
    }
    return rows;
}

Rows OptionRows(const CommandEntry& command, const Program& program) {
    Rows rows;
    for (const OptionText& option : OptionsOf(*command.app)) {
        if (!IsGlobal(option, program)) rows.emplace_back(option.names, option.help);
    }
    return rows;
}

Rows GlobalRows(const Program& program) {
    Rows rows;
    for (const OptionText& option : OptionsOf(program.GlobalOptions())) rows.emplace_back(option.names, option.help);
    return rows;
}

const Rows kExitCodes = {
    {"0", "good"},
    {"1", "a check failed: a signature, a certificate, a store"},
    {"2", "the command line is wrong"},
    {"3", "an input is missing, damaged or of another kind"},
    {"4", "keys and passwords"},
    {"5", "the system: no room, no access, closed output"},
};

// roff: a line that begins with "." or "'" is a request, "\" an escape, "-" a hyphen
std::string Roff(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (c == '\\') {
            out += "\\e";
        } else if (c == '-') {
            out += "\\-";
        } else {
            out += c;
        }
    }
    if (!out.empty() && (out[0] == '.' || out[0] == '\'')) out = "\\&" + out;
    return out;
}

std::string RoffRows(const Rows& rows) {
    std::string out;
    for (const auto& [name, text] : rows) out += ".TP\n.B " + Roff(name) + "\n" + Roff(text) + "\n";
    return out;
}

std::string Paragraphs(const std::vector<std::string>& paragraphs) {
    std::string out;
    for (const std::string& paragraph : paragraphs) out += "\n" + Wrap(paragraph, 0, kWidth);
    return out;
}

std::string RoffHead(const std::string& page, const std::string& summary, const Program& program) {
    std::string upper = page;
    std::transform(upper.begin(), upper.end(), upper.begin(), [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
    return ".TH " + upper + " 1 \"\" \"" + program.Text().name + " " NAL_PROGRAM_VERSION "\" \"nal\"\n.SH NAME\n" + Roff(page) + " \\- " + Roff(summary) + "\n";
}

std::string RoffCommand(const CommandEntry& command, const Program& program) {
    std::string out = ".SS " + Roff(program.Text().name + " " + command.Words()) + "\n.nf\n.B " + Roff(UsageOf(command, program)) + "\n.fi\n.PP\n" +
                      Roff(command.summary) + ".\n";
    for (const std::string& note : command.documentation.notes) out += ".PP\n" + Roff(note) + "\n";
    out += RoffRows(OptionRows(command, program));
    if (!command.documentation.examples.empty()) out += ".PP\nExamples:\n";
    for (const auto& [line, what] : command.documentation.examples) out += ".TP\n" + Roff(what) + "\n.nf\n" + Roff(line) + "\n.fi\n";
    return out;
}

std::string RoffTail(const Program& program) {
    return ".SH OPTIONS OF EVERY COMMAND\n" + RoffRows(GlobalRows(program)) + ".SH EXIT STATUS\n" + RoffRows(kExitCodes);
}

std::string MainPage(const Program& program) {
    const ProgramText& text = program.Text();
    std::string out = RoffHead(text.name, text.summary, program);
    out += ".SH SYNOPSIS\n.B " + Roff(text.name) + "\n.I command\n[options] [arguments]\n.SH DESCRIPTION\n";
    for (const std::string& paragraph : text.description) out += Roff(paragraph) + "\n.PP\n";
    out += ".SH COMMANDS\n";
    for (const CommandEntry& command : program.Commands()) {
        if (command.family.empty()) out += RoffCommand(command, program);
    }
    Rows pages;
    for (const FamilyEntry& family : program.Families()) {
        pages.emplace_back(text.name + " " + family.name, family.summary + "; see " + text.name + "-" + family.name + "(1)");
    }
    return out + RoffRows(pages) + RoffTail(program) + ".SH ENVIRONMENT\n" + RoffRows(text.environment);
}

std::string FamilyPage(const FamilyEntry& family, const Program& program) {
    const std::string& name = program.Text().name;
    std::string out = RoffHead(name + "-" + family.name, family.summary, program);
    out += ".SH SYNOPSIS\n.B " + Roff(name + " " + family.name) + "\n.I command\n[options] [arguments]\n.SH DESCRIPTION\n" +
           Roff(family.note.empty() ? family.summary + "." : family.note) + "\n.SH COMMANDS\n";
    for (const CommandEntry& command : program.Commands()) {
        if (command.family == family.name) out += RoffCommand(command, program);
    }
    return out + RoffTail(program) + ".SH SEE ALSO\n.BR " + Roff(name) + " (1)\n";
}

const Program* g_program = nullptr;  // the one whose help is asked for; set once by AddHelpCommand

struct HelpCommand {
    std::vector<std::string> words;
    std::string man;
    std::string completion;

    void Define(Options& o) {
        o.Values("COMMAND", words, "COMMAND", "The command whose help is shown");
        o.Path("--man", man, "Writes the manual pages into this folder instead");
        o.Value("--completion", completion, "SHELL", "Prints the completion script for a shell (bash) instead");
        o.Example("source <(" + g_program->Text().name + " help --completion bash)", "Completion in this shell");
    }
    Outcome Run(const Globals&);
};

Outcome HelpCommand::Run(const Globals&) {
    const Program& all = *g_program;
    Outcome outcome;
    if (!man.empty()) {
        WriteManualPages(all, man);
        return outcome;
    }
    if (!completion.empty()) {
        if (completion != "bash") UsageFault("there is completion for bash only, not for '" + completion + "'");
        outcome.text = BashCompletion(all);
        outcome.data["script"] = outcome.text;
        return outcome;
    }
    const bool colour = UseColour(1);
    std::string joined;
    for (const std::string& word : words) joined += (joined.empty() ? "" : " ") + word;
    const auto& commands = all.Commands();
    const auto command = std::find_if(commands.begin(), commands.end(), [&](const CommandEntry& c) { return c.Words() == joined; });
    const auto& families = all.Families();
    if (command != commands.end()) {
        outcome.text = HelpOf(*command, all, colour);
    } else if (joined.empty() || std::any_of(families.begin(), families.end(), [&](const FamilyEntry& f) { return f.name == joined; })) {
        outcome.text = HelpOf(joined, all, colour);
    } else {
        UsageFault("there is no command '" + joined + "'");
    }
    outcome.data["help"] = outcome.text;
    return outcome;
}

}  // namespace

std::string HelpOf(const CommandEntry& command, const Program& program, bool colour) {
    std::string out = "Usage: " + UsageOf(command, program) + "\n\n" + Wrap(command.summary + ".", 0, kWidth);
    for (const std::string& note : command.documentation.notes) out += "\n" + Wrap(note, 0, kWidth);
    const Rows rows = OptionRows(command, program);
    if (!rows.empty()) out += Title("Options", colour) + TwoColumns(rows, colour);
    out += Title("Options of every command", colour) + TwoColumns(GlobalRows(program), colour);
    if (!command.documentation.examples.empty()) {
        out += Title("Examples", colour);
        for (const auto& [line, what] : command.documentation.examples) out += "  # " + what + "\n  " + line + "\n";
    }
    return out;
}

std::string HelpOf(const std::string& family, const Program& program, bool colour) {
    std::string out;
    if (!family.empty()) {
        const auto& all = program.Families();
        const auto found = std::find_if(all.begin(), all.end(), [&](const FamilyEntry& f) { return f.name == family; });
        out = "Usage: " + program.Text().name + " " + family + " COMMAND [OPTIONS] ...\n\n" + Wrap(found->summary + ".", 0, kWidth);
        if (!found->note.empty()) out += "\n" + Wrap(found->note, 0, kWidth);
        out += Title("Commands", colour) + TwoColumns(CommandsOf(program, family), colour);
        return out + "\nThe options of one: " + program.Text().name + " help " + family + " COMMAND\n";
    }
    out = "Usage: " + program.Text().name + " COMMAND [OPTIONS] ...\n" + Paragraphs(program.Text().description) + Title("Commands", colour);
    Rows rows = CommandsOf(program, "");
    for (const FamilyEntry& entry : program.Families()) {
        std::string names;
        for (const CommandEntry& command : program.Commands()) {
            if (command.family == entry.name) names += (names.empty() ? "" : ", ") + command.name;
        }
        rows.emplace_back(entry.name, entry.summary + ": " + names);
    }
    out += TwoColumns(rows, colour) + Title("Options of every command", colour) + TwoColumns(GlobalRows(program), colour);
    out += Title("Exit codes", colour) + TwoColumns(kExitCodes, colour);
    return out + "\nThe options of one command, with examples: " + program.Text().name + " help COMMAND\n";
}

void WriteManualPages(const Program& program, const std::string& folder) {
    CTOOFolder::MakeFolder(folder);
    const auto store = [&](const std::string& name, const std::string& text) {
        CTOOWholeFile::Store(folder + "/" + name, text.data(), text.size());
    };
    const std::string& name = program.Text().name;
    store(name + ".1", MainPage(program));
    for (const FamilyEntry& family : program.Families()) store(name + "-" + family.name + ".1", FamilyPage(family, program));
}

std::string BashCompletion(const Program& program) {
    std::string first;
    std::string seconds;
    std::string options;
    for (const FamilyEntry& family : program.Families()) {
        first += family.name + " ";
        std::string names;
        for (const CommandEntry& command : program.Commands()) {
            if (command.family == family.name) names += command.name + " ";
        }
        seconds += "        " + family.name + ") second=\"" + names + "\" ;;\n";
    }
    for (const CommandEntry& command : program.Commands()) {
        if (command.family.empty()) first += command.name + " ";
        std::string names;
        for (const CLI::Option* option : command.app->get_options()) {
            for (const std::string& name : option->get_lnames()) names += "--" + name + " ";
        }
        options += "        \"" + command.Words() + "\") options=\"" + names + "\" ;;\n";
    }
    const std::string& name = program.Text().name;
    std::string function = "_" + name;
    std::replace(function.begin(), function.end(), '-', '_');
    return "# bash completion for " + name + "; made by: " + name + " help --completion bash\n" + function + "() {\n"
           "    local word=${COMP_WORDS[COMP_CWORD]} second= options=\n"
           "    COMPREPLY=()\n"
           "    if [ \"$COMP_CWORD\" -eq 1 ]; then COMPREPLY=($(compgen -W \"" + first + "\" -- \"$word\")); return; fi\n"
           "    case ${COMP_WORDS[1]} in\n" + seconds + "    esac\n"
           "    if [ \"$COMP_CWORD\" -eq 2 ] && [ -n \"$second\" ]; then COMPREPLY=($(compgen -W \"$second\" -- \"$word\")); return; fi\n"
           "    local words=${COMP_WORDS[1]}\n"
           "    [ -z \"$second\" ] || words+=\" ${COMP_WORDS[2]}\"\n"
           "    case $words in\n" + options + "    esac\n"
           "    case $word in\n"
           "        -*) COMPREPLY=($(compgen -W \"$options\" -- \"$word\")) ;;\n"
           "        *) compopt -o filenames; mapfile -t COMPREPLY < <(compgen -f -- \"$word\") ;;\n"
           "    esac\n"
           "}\n"
           "complete -F " + function + " " + name + "\n";
}

void AddHelpCommand(Program& program) {
    g_program = &program;
    program.Command<HelpCommand>("", "help", "Shows help for commands");
}

}  // namespace cli
