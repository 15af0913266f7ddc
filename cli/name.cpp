// nal name
#include "cli/commands.h"
#include "cli/describe.h"
#include "cli/files.h"
#include "cli/program.h"

namespace cli {
namespace {

struct Name {
    std::string text;
    std::string der;
    std::string output;
    bool order = false;
    bool force = false;

    void Define(Options& o) {
        CLI::Option* byText = o.Value("TEXT", text, "NAME", "The name as text: CN=Ivan Petrov, O=\"Horns, hooves\", C=RU");
        o.In("--der", der, "Reads the name's DER from a file instead")->excludes(byText);
        o.Out("-o,--output", output, "Writes the DER to a file");
        o.Flag("-f,--force", force, "Replaces a file that is there");
        o.Flag("--order", order, "Orders the elements as certificates have them, country first and common name last");
        o.Note("Shows what a distinguished name means: its elements, its text as nal prints it, and its encoding.");
        o.Example("nal name 'CN=Ivan Petrov, O=\"Horns, hooves\", C=RU' --order", "Checks a name before it goes into a request");
    }

    Outcome Run(const Globals&) {
        CNALX509Name name;
        if (!der.empty()) {
            name = ReadInput(der, 1 << 20);
        } else if (text.empty()) {
            UsageFault("a name is needed: TEXT or --der FILE");
        } else {
            try {
                name.SetBy(CNALString(text.c_str()).str(), CERT_NAME_STR_ENABLE_UTF8_UNICODE_FLAG, order);
            } catch (const XTOOStatus& status) {
                throw Fault(kInput, "not a name: " + status.GetText().str(), "Write it as TYPE=value, TYPE=value; quote values with commas.",
                            status.GetCode());
            }
        }
        Outcome outcome;
        std::list<std::list<CNALRDNAttr>> rdns;
        try {
            name.GetNameInfo(rdns);
        } catch (const XTOOStatus& status) {
            throw Fault(kInput, NameOf(der) + " does not hold the DER of a name", "", status.GetCode());
        }
        Json elements = Json::array();
        for (const auto& rdn : rdns) {
            for (const CNALRDNAttr& attribute : rdn) {
                // One attribute as a name of its own prints as the name would.
                const CNALX509Name one(std::list<std::list<CNALRDNAttr>>{{attribute}});
                const std::string printed = TextOf(one);
                const std::size_t equals = printed.find('=');
                elements.push_back({{"oid", attribute.m_oid.str()}, {"type", printed.substr(0, equals)}, {"value", printed.substr(equals + 1)}});
            }
        }
        if (!output.empty()) OutputFile(output, force).Write(name);
        outcome.data = {{"name", TextOf(name)}, {"elements", elements}, {"der", Hex(name)}};
        if (output == "-") outcome.data = nullptr;
        return outcome;
    }
};

}  // namespace

void AddNameCommand(Program& program) { program.Command<Name>("", "name", "Reads a distinguished name and shows what it means"); }

}  // namespace cli
