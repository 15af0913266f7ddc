// crl, publish
#include "cli/describe.h"
#include "keycentre/program/commands.h"
#include "keycentre/service/publish.h"

namespace keycentre {
namespace {

struct Crl {
    CentreOption centre;
    unsigned days = Centre::kCrlDays;

    void Define(cli::Options& o) {
        o.Value("--days", days, "DAYS", "When the next ones are due")->check(CLI::Range(1U, 3650U));
        centre.Define(o, true);
        o.Note("Makes new CRLs of the centre's authorities, in its folder \"crl\". serve-folder and publish do so by themselves a day before the last ones run out.");
        o.Example("nal-keycentre crl --days 7 --password-file pw", "New CRLs for a week");
    }

    cli::Outcome Run(const cli::Globals&) {
        Centre opened = centre.Open();
        centre.OpenKeys(opened);
        return cli::About(centre.Folder(), [&] {
            const FolderLock lock = opened.Lock();
            opened.MakeCrls(days);
            cli::Outcome outcome;
            outcome.data = cli::Json::array();
            for (const AuthorityRecord& authority : opened.GetRecords().GetAuthorities()) {
                if (authority.crl.IsEmpty()) continue;
                const std::string file = authority.container.str();
                cli::Json json = {{"file", centre.Folder() + "/crl/" + file.substr(0, file.rfind('.')) + ".crl"}};
                json.update(cli::CrlJson(cli::DecodeCrl(authority.crl, file), 0));
                outcome.data.push_back(std::move(json));
            }
            return outcome;
        });
    }
};

struct PublishLists {
    CentreOption centre;
    std::string folder;

    void Define(cli::Options& o) {
        o.Path("DIR", folder, "The transport folder")->required();
        centre.Define(o, true);
        o.Note("Writes into d_station: the trust list <network>_trl.p7s (the authorities and their CRLs, signed), the users' list <network>_usr.p7b, and the root's CRL <network>_root.crl.");
        o.Note("Hosts take trust list and users' list up by themselves, and the root's CRL with nal crl import.");
        o.Example("nal-keycentre publish /var/lib/vpn/net --password-file pw", "After a revocation, or by night");
    }

    cli::Outcome Run(const cli::Globals&) {
        Centre opened = centre.Open();
        return cli::About(folder, [&] {
            const TransportFolder transport(folder);
            centre.OpenKeys(opened);
            const Published published = Publish(opened, transport);
            cli::Outcome outcome;
            outcome.data = {{"files", published.files}, {"number", published.number}, {"users", published.users}};
            return outcome;
        });
    }
};

}  // namespace

void AddListCommands(cli::Program& program) {
    program.Command<Crl>("", "crl", "Makes new CRLs");
    program.Command<PublishLists>("", "publish", "Writes the trust list, the users' list and the root's CRL");
}

}  // namespace keycentre
