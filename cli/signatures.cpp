// nal signatures
#include "cli/commands.h"
#include "cli/describe.h"
#include "cli/message.h"
#include "cli/progress.h"
#include "cli/program.h"

namespace cli {
namespace {

std::vector<CNALMessageSignerInfo> InfosOf(const MessageFile& message) {
    std::vector<CNALMessageSignerInfo> infos;
    About(message.File().Name(), [&] {
        for (const IdentObj& encoded : message.Message().signerInfos) {
            infos.emplace_back();
            infos.back().ReadData(encoded.GetData(), encoded.GetSize(), nullptr);
        }
    });
    return infos;
}

Json SignaturesJson(const MessageFile& message) {
    Json list = Json::array();
    for (const CNALMessageSignerInfo& info : InfosOf(message)) list.push_back(SignatureJson(info, list.size() + 1));
    return list;
}

struct List {
    std::string file;

    void Define(Options& o) {
        o.In("MESSAGE", file, "The signed message, PEM or DER")->required();
        o.Note("Shows what signatures say of themselves; nal verify tells whether it is true.");
        o.Example("nal signatures list report.pdf.p7s", "Who says to have signed, and when");
    }

    Outcome Run(const Globals&) {
        const MessageFile message(file);
        Outcome outcome;
        outcome.data = {{"message", file},
                        {"attached", message.IsAttached()},
                        {"certificates", message.Message().certificates.size()},
                        {"crls", message.Message().crls.size()},
                        {"signatures", SignaturesJson(message)}};
        return outcome;
    }
};

// What extracting and deleting share.
struct EditOptions {
    std::string file;
    unsigned number = 0;
    std::string output;
    bool force = false;

    void Define(Options& o) {
        o.In("MESSAGE", file, "The signed message, PEM or DER")->required();
        o.Value("NUMBER", number, "NUMBER", "Which signature, as nal signatures list counts them")->required();
        o.Out("-o,--output", output, "Where the new message goes")->required();
        o.Flag("-f,--force", force, "Replaces a file that is there");
    }

    template <class Edit>
    Outcome Run(const Globals& globals, Edit edit) const {
        MessageFile message(file);
        const std::size_t count = message.Message().signerInfos.size();
        if (number < 1 || number > count) {
            throw Fault(kInput, message.File().Name() + " has no signature " + std::to_string(number) + "; it has " + std::to_string(count),
                        "See: nal signatures list", TOO_E_RANGE);
        }
        OutputFile target(output, force, message.PemLabel());
        CNALSignData out;
        const Progress progress("writing " + target.Name(), globals);
        About(message.File().Name(), [&] { edit(message.Message(), static_cast<int>(number) - 1, out); });
        WriteMessage(out, target);
        Outcome outcome;
        if (output != "-") outcome.data = {{"output", output}, {"signatures", out.signerInfos.size()}};
        return outcome;
    }
};

struct Extract : EditOptions {
    void Define(Options& o) {
        EditOptions::Define(o);
        o.Example("nal signatures extract report.p7s 2 -o petr.p7s", "The message with Petr's signature alone");
    }
    Outcome Run(const Globals& globals) const { return EditOptions::Run(globals, SignedDataHelper::ExtractSignature); }
};

struct Delete : EditOptions {
    void Define(Options& o) {
        EditOptions::Define(o);
        o.Example("nal signatures delete report.p7s 2 -o ivan.p7s", "The message without the second signature");
    }
    Outcome Run(const Globals& globals) const { return EditOptions::Run(globals, SignedDataHelper::DeleteSignature); }
};

struct Merge {
    std::vector<std::string> files;
    std::string output;
    bool force = false;

    void Define(Options& o) {
        o.Ins("MESSAGE", files, "Signed messages over the same content, PEM or DER")->required();
        o.Out("-o,--output", output, "Where the new message goes")->required();
        o.Flag("-f,--force", force, "Replaces a file that is there");
        o.Example("nal signatures merge ivan.p7s petr.p7s -o both.p7s", "One message with the signatures of both");
    }

    Outcome Run(const Globals& globals) {
        if (files.size() < 2) UsageFault("two messages are needed at least");
        OutputFile target(output, force);
        std::vector<std::unique_ptr<MessageFile>> messages;
        for (const std::string& path : files) messages.push_back(std::make_unique<MessageFile>(path));
        CNALSignData merged = messages.front()->Message();
        const Progress progress("merging into " + target.Name(), globals);
        for (std::size_t i = 1; i < messages.size(); ++i) {
            try {
                SignedDataHelper::Merge(merged, messages[i]->Message(), merged);
            } catch (const XTOOStatus& status) {
                if (status.GetCode() != 131) throw FaultOf(status, messages[i]->File().Name());
                throw Fault(kInput, messages[i]->File().Name() + " is not about the same content as " + messages.front()->File().Name(), "", status.GetCode());
            }
        }
        WriteMessage(merged, target);
        Outcome outcome;
        if (output != "-") outcome.data = {{"output", output}, {"signatures", merged.signerInfos.size()}};
        return outcome;
    }
};

}  // namespace

void AddSignaturesCommands(Program& program) {
    program.Family("signatures", "The signatures of a message", "Signatures can be taken out of a message and put together anew without breaking any; none is made or checked by these commands.");
    program.Command<List>("signatures", "list", "Lists the signatures of a message");
    program.Command<Extract>("signatures", "extract", "Makes a message with one signature alone");
    program.Command<Delete>("signatures", "delete", "Makes a message without one signature");
    program.Command<Merge>("signatures", "merge", "Makes one message of several about the same content");
}

}  // namespace cli
