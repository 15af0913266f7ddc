// nal container
#include "cli/commands.h"
#include "cli/describe.h"
#include "cli/interrupt.h"
#include "cli/program.h"
#include "cli/user.h"

namespace cli {
namespace {

Json ContainerJson(const CNALUserContainerInfo& info) {
    Json keys = Json::array();
    for (const CNALUserKeyInfo& key : info.m_keys) keys.push_back(ContainerKeyJson(key));
    return {{"container", info.m_name.str()},
            {"path", info.m_path.str()},
            {"protection", ProtectionJson(info.m_protection)},
            {"keys", keys},
            {"error", info.m_status == TOO_OK ? Json() : Json(StatusText(info.m_status, ""))}};
}

struct List {
    std::string folder;

    void Define(Options& o) {
        o.Path("--folder", folder, "A folder with containers, in the place of the provider's own");
        o.Note("Needs no password: names, public keys and certificates of a container may be read by whoever may read its file.");
        o.Example("nal container list", "The containers of this user");
    }

    Outcome Run(const Globals&) {
        std::list<CNALUserContainerInfo> list;
        int status = 0;
        CTOOString text;
        if (!folder.empty() && !CTOOFolder::Exists(folder)) throw Fault(kInput, folder + " is no folder", "Check the path.", TOO_E_NOT_A_FOLDER);
        if (!NALGetContainerList(folder, list, &status, &text) && status != TOO_E_FILE_NOT_FOUND) throw FaultOf(status, text, folder);
        Outcome outcome;
        outcome.data = {{"containers", Json::array()}};
        Table table({"CONTAINER", "PROTECTION", "KEYS", "CERTIFICATES"});
        for (const CNALUserContainerInfo& info : list) {
            Json json = ContainerJson(info);
            std::string protection;
            for (const Json& word : json["protection"]) protection += (protection.empty() ? "" : ", ") + word.get<std::string>();
            std::string subjects;
            for (const Json& key : json["keys"]) {
                if (!key["certificate"].is_null()) subjects += (subjects.empty() ? "" : "; ") + key["certificate"]["subject"].get<std::string>();
            }
            if (!json["error"].is_null()) subjects = json["error"];
            table.Row({info.m_name.str(), protection.empty() ? "none" : protection, std::to_string(info.m_keys.size()), subjects});
            outcome.data["containers"].push_back(std::move(json));
        }
        outcome.text = table.Empty() ? "no containers in " + Printable(folder.empty() ? GetTarnCSPPath().str() : folder) + "\n" : table.Text(UseColour(1));
        return outcome;
    }
};

struct Show {
    std::string container;

    void Define(Options& o) {
        o.Value("CONTAINER", container, "CONTAINER", "A container's name, or the path of its file")->required();
        o.Example("nal container show ivan", "The keys of a container, their certificates and fingerprints");
    }

    Outcome Run(const Globals&) {
        Outcome outcome;
        outcome.data = ContainerJson(ContainerInfo(container));
        outcome.data.erase("error");
        return outcome;
    }
};

struct Create {
    UserOption user;
    std::string algorithm = c_NAL_OID_KEY_GOST2001;
    std::string parameters;

    void Define(Options& o) {
        o.Value("CONTAINER", user.container, "CONTAINER", "The new container's name, or the path of its file")->required();
        user.password.Define(o, "password", true);
        user.pin.Define(o, "pin");
        o.Value("-a,--algorithm", algorithm, "OID", "Of its first key: 1.2.643.2.2.19, GOST R 34.10-2001 (unless given), 1.2.643.2.2.20, GOST R 34.10-94, ...");
        o.Value("--parameters", parameters, "OID", "The parameter set of that key; the algorithm's usual one unless given");
        o.Note("The container gets its first key pair with it: protection begins with the first key. nal request new makes a container too, with the key that the certificate is asked for, which is what most people want.");
        o.Example("nal container create ivan", "Makes a container and asks for its password");
    }

    Outcome Run(const Globals&) {
        Secret password;
        Secret pin;
        CNALUserContainerInfo info;
        int status = 0;
        if (NALGetContainerInfo(user.container, info, &status, nullptr)) {
            throw Fault(kKeys, "container " + user.container + " is there already", "Choose another name.", TOO_E_CONTAINER_EXISTS);
        }
        GetNewPassword(user.password, "New password of container " + user.container, password);
        if (user.pin.IsGiven()) GetNewPassword(user.pin, "New PIN", pin);
        ThrowIfInterrupted();
        CNALUser owner;
        status = owner.LogInUser(user.container.c_str(), password.c_str(), pin.c_str(), true);
        if (status != TOO_OK) throw FaultOf(status, "making it", "container " + user.container);
        CTOOString text;
        if (!owner.CreateNewKeys(algorithm, parameters, &status, &text)) {
            owner.Reset();
            NALDeleteContainer(user.container, nullptr, nullptr);  // nothing is in it
            throw FaultOf(status, text, "container " + user.container);
        }
        RecordEffect("container " + user.container + " was made, with a key pair");
        owner.Reset();
        Outcome outcome;
        outcome.data = ContainerJson(ContainerInfo(user.container));
        outcome.data.erase("error");
        return outcome;
    }
};

struct Passwd {
    UserOption user;
    PasswordSource newPassword;
    PasswordSource newPin;

    void Define(Options& o) {
        o.Value("CONTAINER", user.container, "CONTAINER", "A container's name, or the path of its file")->required();
        user.DefineSecrets(o);
        newPassword.Define(o, "new-password", true);
        newPin.Define(o, "new-pin", true);
        o.Note("The change is on the disk, whole, when the command ends; a failure leaves the old password. With an option of the PIN alone, the PIN is changed; with both, the password comes first, and it stays changed should the PIN then fail.");
        o.Example("nal container passwd ivan", "Asks for the old password and, twice, for the new one");
    }

    Outcome Run(const Globals&) {
        CNALUser owner;
        Secret oldPassword;
        Secret oldPin;
        OpenUser(owner, user, oldPassword, oldPin);
        const std::string name = "container " + user.container;
        int status = 0;
        const bool pinAlone = newPin.IsGiven() && !newPassword.IsGiven();
        Secret freshPassword;
        Secret freshPin;
        if (!pinAlone) GetNewPassword(newPassword, "New password of " + name, freshPassword);
        if (newPin.IsGiven()) GetNewPassword(newPin, "New PIN of " + name, freshPin);
        ThrowIfInterrupted();
        if (!pinAlone) {
            if (!owner.ChangePassword(freshPassword.c_str(), &status)) throw FaultOf(status, "changing the password", name);
            RecordEffect("the password of " + name + " was changed");
        }
        if (newPin.IsGiven()) {
            if (!owner.ChangePIN(freshPin.c_str(), &status)) throw FaultOf(status, "changing the PIN", name);
            RecordEffect("the PIN of " + name + " was changed");
        }
        owner.Reset();
        Outcome outcome;
        outcome.data = ContainerJson(ContainerInfo(user.container));
        outcome.data.erase("keys");
        outcome.data.erase("error");
        return outcome;
    }
};

struct Transfer {
    UserOption user;
    std::string target;
    PasswordSource newPassword;
    PasswordSource newPin;

    void Define(Options& o) {
        o.Value("CONTAINER", user.container, "CONTAINER", "The container's name, or the path of its file")->required();
        o.Value("NEW", target, "NEW", "The new container: a name or path that no container has")->required();
        user.DefineSecrets(o);
        newPassword.Define(o, "new-password", true);
        newPin.Define(o, "new-pin", true);
        o.Note("Moves all keys and certificates into a new container and deletes the old one. The new container keeps the password and PIN of the old one unless others are given; keys are never written without that protection. One without a password gets one, unless --no-new-password says that there is to be none.");
        o.Example("nal container transfer ivan /media/token/ivan.keys", "Moves the keys to another disk");
    }

    Outcome Run(const Globals&) {
        CNALUser owner;
        Secret password;
        Secret pin;
        OpenUser(owner, user, password, pin);
        if (newPassword.IsGiven() || password.empty()) GetNewPassword(newPassword, "New password of container " + target, password);
        if (newPin.IsGiven()) GetNewPassword(newPin, "New PIN of container " + target, pin);
        ThrowIfInterrupted();
        int status = 0;
        CTOOString text;
        if (!owner.TransferKeys(target, password.c_str(), pin.c_str(), 0, &status, &text)) throw FaultOf(status, text, "container " + target);
        RecordEffect("the keys of container " + user.container + " were moved into container " + target);
        owner.Reset();
        Outcome outcome;
        outcome.data = ContainerJson(ContainerInfo(target));
        outcome.data.erase("error");
        return outcome;
    }
};

struct Delete {
    std::string container;
    bool yes = false;

    void Define(Options& o) {
        o.Value("CONTAINER", container, "CONTAINER", "A container's name, or the path of its file")->required();
        o.Flag("-y,--yes", yes, "Does not ask");
        o.Note("The keys are gone for good: nothing that was encrypted for them can be read any more.");
        o.Example("nal container delete ivan", "Deletes a container after it was confirmed");
    }

    Outcome Run(const Globals&) {
        const CNALUserContainerInfo info = ContainerInfo(container);
        const std::string question = "Delete container " + container + " with " + std::to_string(info.m_keys.size()) + " key(s) for good?";
        if (!yes && !Confirm(question, "--yes")) throw Fault(kUsage, "nothing was deleted", "It was not confirmed.");
        int status = 0;
        CTOOString text;
        if (!NALDeleteContainer(container, &status, &text)) throw FaultOf(status, text, "container " + container);
        RecordEffect("container " + container + " was deleted");
        Outcome outcome;
        outcome.data = {{"deleted", container}, {"keys", info.m_keys.size()}};
        return outcome;
    }
};

}  // namespace

void AddContainerCommands(Program& program) {
    program.Family("container", "Key containers", "A container is one file with key pairs and their certificates, encrypted under a password and perhaps a PIN. A bare name lies in the provider's directory (nal settings shows it), a path lies where it says.");
    program.Command<List>("container", "list", "Lists containers");
    program.Command<Create>("container", "create", "Makes a container with a key pair");
    program.Command<Show>("container", "show", "Shows what a container holds");
    program.Command<Passwd>("container", "passwd", "Changes the password or PIN of a container");
    program.Command<Transfer>("container", "transfer", "Moves the keys of a container into a new one");
    program.Command<Delete>("container", "delete", "Deletes a container");
}

}  // namespace cli
