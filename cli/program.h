// The frame of the programs: families of commands, their options and help, and what every command shares.
//
// A command is a struct with its options as members:
//
//   struct CertShow {
//       std::vector<std::string> files;
//       void Define(Options& o) { o.Ins("FILE", files, "certificates"); o.Example("nal cert show a.cer", "Shows one"); }
//       Outcome Run(const Globals&);
//   };
//   program.Command<CertShow>("cert", "show", "Shows certificates");
//
// Help, manual pages and completion are made of these definitions and nothing else.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "cli/outcome.h"

namespace cli {

/// Options of every command.
struct Globals {
    bool json = false;
    bool quiet = false;
    std::string home;  ///< empty: NAL_HOME or its default
};

/// What makes one program another one.
struct ProgramText {
    /// One more option of every command; it takes a value.
    struct Option {
        std::string name;
        std::string type;
        std::string help;
        std::string* value;
    };

    std::string name;                                          ///< as it is typed
    std::string summary;                                       ///< a line for the manual's index
    std::vector<std::string> description;                      ///< paragraphs
    std::vector<std::pair<std::string, std::string>> environment;
    std::vector<Option> options;
    /// Called with a command's words before it runs; --home counts already.
    std::function<void(const std::string& words)> prepare;
};

/// What is known of a command beside its options.
struct Documentation {
    std::vector<std::string> notes;                             ///< paragraphs
    std::vector<std::pair<std::string, std::string>> examples;  ///< command line, what it does
};

/// Defines the options of one command. Names without a dash are positional.
class Options {
public:
    Options(CLI::App& app, Documentation& documentation) : m_app(app), m_documentation(documentation) {}

    /// A file to be read, or "-" for standard input.
    CLI::Option* In(const std::string& name, std::string& value, const std::string& help);
    CLI::Option* Ins(const std::string& name, std::vector<std::string>& values, const std::string& help);
    /// A file to be written, or "-" for standard output.
    CLI::Option* Out(const std::string& name, std::string& value, const std::string& help);
    /// A file or folder that is no stream.
    CLI::Option* Path(const std::string& name, std::string& value, const std::string& help);
    CLI::Option* Paths(const std::string& name, std::vector<std::string>& values, const std::string& help);
    /// Anything else; `type` is its word in the help.
    template <class T>
    CLI::Option* Value(const std::string& name, T& value, const std::string& type, const std::string& help) {
        return m_app.add_option(name, value, help)->type_name(type);
    }
    /// An option that may be given several times, one value each time.
    CLI::Option* Values(const std::string& name, std::vector<std::string>& values, const std::string& type, const std::string& help);
    CLI::Option* Flag(const std::string& name, bool& value, const std::string& help);

    /// A paragraph of the help.
    void Note(const std::string& paragraph) { m_documentation.notes.push_back(paragraph); }
    void Example(const std::string& command, const std::string& what) { m_documentation.examples.emplace_back(command, what); }

private:
    CLI::App& m_app;
    Documentation& m_documentation;
};

/// One command. Its options are parsed by an application of its own, so that a file called "verify" is never taken for a command.
struct CommandEntry {
    std::string family;  ///< empty for a command of the program itself
    std::string name;
    std::string summary;
    Documentation documentation;
    std::unique_ptr<CLI::App> app;
    std::function<Outcome(const Globals&)> run;

    std::string Words() const { return family.empty() ? name : family + " " + name; }
};

struct FamilyEntry {
    std::string name;
    std::string summary;
    std::string note;
};

class Program {
public:
    explicit Program(ProgramText text);

    /// Adds a family of commands.
    void Family(const std::string& name, const std::string& summary, const std::string& note = {}) {
        m_families.push_back({name, summary, note});
    }

    /// Adds a command to a family, or to the program itself when `family` is empty.
    template <class T>
    void Command(const std::string& family, const std::string& name, const std::string& summary) {
        auto command = std::make_shared<T>();
        CommandEntry& entry = Add(family, name, summary);
        Options options(*entry.app, entry.documentation);
        command->Define(options);
        entry.run = [command](const Globals& globals) { return command->Run(globals); };
    }

    /// Parses, runs, prints. @return the exit code
    int Run(const std::vector<std::string>& arguments);

    // What help is made of.
    const std::vector<CommandEntry>& Commands() const { return m_commands; }
    const std::vector<FamilyEntry>& Families() const { return m_families; }
    const CLI::App& GlobalOptions() const { return m_globalApp; }
    const ProgramText& Text() const { return m_text; }

private:
    CommandEntry& Add(const std::string& family, const std::string& name, const std::string& summary);
    void AddGlobalOptions(CLI::App& app);
    /// Takes the words of a command out of the arguments. @throws Fault for words that lead to none
    const CommandEntry* Choose(std::vector<std::string>& arguments);
    int RunCommand(const CommandEntry& command, std::vector<std::string> arguments);
    void Tell(const Fault& fault) const;
    int ReportFault(const Fault& fault) const;
    int ReportStop() const;
    static void TellEffects();
    int Print(const Outcome& outcome, bool effectsTold = false) const;

    ProgramText m_text;
    Globals m_globals;
    CLI::App m_globalApp;
    std::vector<FamilyEntry> m_families;
    std::vector<CommandEntry> m_commands;
    std::string m_words;  // of the command that runs, for errors
};

/// Refuses --json together with an output that is standard output.
void RefuseJsonWith(const std::string& output, const Globals& globals);

/// Throws the fault for a wrong command line.
[[noreturn]] void UsageFault(const std::string& message, const std::string& hint = {});

}  // namespace cli
