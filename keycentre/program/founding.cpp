// init
#include "cli/describe.h"
#include "cli/interrupt.h"
#include "keycentre/program/commands.h"
#include "nal/fingerprint.h"

namespace keycentre {
namespace {

struct Init {
    CentreOption centre;
    std::string root;
    std::string issuing;
    std::string lists = "CN=Signer of trust lists";
    std::string network;
    std::string parameters;

    void Define(cli::Options& o) {
        o.Value("--root", root, "NAME", "The root's name")->required();
        o.Value("--network", network, "HEX", "Identifier of the network whose hosts it serves: four hexadecimal digits")->required();
        o.Value("--issuing", issuing, "NAME", "Name of a subordinate authority that issues in the root's place");
        o.Value("--lists", lists, "NAME", "Name of the signer of trust lists");
        o.Value("--params", parameters, "OID", "Parameter set of the keys: 1.2.643.2.2.35.1 (the usual one), .2 or .3");
        centre.Define(o, true);
        o.Note("Makes the folder of a new key centre: keys in containers under one password, the root's and the other authorities' certificates, and their first CRLs.");
        o.Note("Take root.cer and crl/root.crl of that folder to the hosts: nal trust add. Compare the fingerprint there with the one printed here.");
        o.Example("nal-keycentre init --root \"CN=Root, O=Works\" --network 12ab", "A centre whose root issues to users");
        o.Example("nal-keycentre init --root \"CN=Root\" --issuing \"CN=Users of Works\" --network 12ab --password-file pw", "One with a subordinate authority");
    }

    cli::Outcome Run(const cli::Globals&) {
        Centre::Founding founding;
        founding.folder = centre.Folder();
        founding.root = ParseName("--root", root);
        founding.lists = ParseName("--lists", lists);
        if (!issuing.empty()) founding.issuing = ParseName("--issuing", issuing);
        founding.network = ParseNetwork();
        founding.paramOid = parameters;
        if (founding.root == founding.lists || (founding.issuing && (*founding.issuing == founding.root || *founding.issuing == founding.lists))) {
            cli::UsageFault("the authorities need different names");
        }
        cli::Secret password;
        cli::GetNewPassword(centre.password, "Password for the key centre's keys", password);
        founding.password = password.c_str();
        cli::About(founding.folder.str(), [&] { Centre::Found(founding); });
        cli::RecordEffect("the key centre " + founding.folder.str());

        Centre made = centre.Open();
        cli::Outcome outcome;
        outcome.data = {{"centre", founding.folder.str()}, {"network", network}, {"authorities", cli::Json::array()}};
        for (const AuthorityRecord& authority : made.GetAuthorities()) {
            const std::string file = authority.container.str();
            cli::Json json = cli::CertificateSummary(cli::DecodeCertificate(authority.certificate, file));
            json["file"] = founding.folder.str() + "/" + file.substr(0, file.rfind('.')) + ".cer";
            json["fingerprint"] = NALGetFingerprint(authority.certificate).str();
            outcome.data["authorities"].push_back(std::move(json));
        }
        return outcome;
    }

private:
    std::uint16_t ParseNetwork() const {
        if (network.size() != 4 || network.find_first_not_of("0123456789abcdef") != std::string::npos || network == "0000") {
            cli::UsageFault("--network: '" + network + "' is no identifier of a network", "Give four digits 0-9 a-f, such as 12ab; 0000 means all networks.");
        }
        return static_cast<std::uint16_t>(std::stoul(network, nullptr, 16));
    }
};

}  // namespace

void AddFoundingCommands(cli::Program& program) { program.Command<Init>("", "init", "Makes a key centre"); }

}  // namespace keycentre
