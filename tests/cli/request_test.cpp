// nal request: from the first request to the renewed certificate, with the key centre at the other end of the transport folder.
#include "cli_fixture.h"

namespace nal_test {
namespace {

using CliRequest = Cli;

TEST_F(CliRequest, FromTheFirstRequestToTheRenewedKey) {
    RunAll({
        {"printf secret > pw; printf centre > cpw; printf other > bad; chmod 600 *; mkdir -p net/d_station/o_users net/d_station/e_users; seq 1000 > doc", 0, ""},
        {"nal request list", 2, "no transport folder is set"},
        {"nal settings --set-transport net", 0, "", "@/net"},
        {"nal request list", 0, "", "no requests in @/net"},
        {"nal request install", 0, "", "nothing to install"},
        {"nal request status 5A", 3, "there is no request 5A"},
        {"nal request install 5A", 3, "there is no request 5A"},
        {"nal request new -k ivan --subject Nonsense --password-file pw", 3, "not a name"},
        {"nal request new -k ivan --subject CN=Ivan --usage fly --password-file pw", 2, "neither sign nor encrypt"},
        {"nal request new -k ivan --subject CN=Ivan --algorithm 1.2.3 --password-file pw", 3, "is not the OID of a key algorithm"},
        {"exec setsid -w @NAL@ request new -k ivan --subject CN=Ivan", 4, "no terminal to ask at"},
        {"nal container list", 0, "", "no containers"},
        {"nal-keycentre init --root CN=Root --network 12ab --centre c --password-file cpw > init; nal-keycentre publish net --centre c --password-file cpw > published", 0, ""},
        {"nal trust add c/root.cer --crl c/crl/root.crl --yes", 0, "", "trusted"},

        // Nothing is made whose request cannot be written.
        {"echo > there; nal request new -k ivan --subject CN=Ivan --password-file pw -o there", 3, "there is there already"},
        {"nal request new -k ivan --subject CN=Ivan --password-file pw -o nowhere/x", 3, "there is no folder nowhere"},
        {"nal request list; nal container list", 0, "", "no containers"},
        {"cp -r net net2; nal request new -k full --subject CN=Full --password-file pw -o - --home @/home2 --transport net2 > /dev/full", 5,
         "This was done before and stays:\n  request "},
        {"nal request list --home @/home2 --transport net2", 0, "", "cn=Full"},

        {"nal request new -k ivan --subject CN=Ivan --password-file pw -o ivan.p10", 0, "", "status       made"},
        {"nal cert show ivan.p10", 3, "ivan.p10 is a certification request, not a certificate"},
        {"nal request list", 0, "", "made"},
        {"nal request renew -k ivan --password-file pw", 4, "has no certificate"},
        {"nal-keycentre issue net/d_station/o_users/*.req --entitled --centre c --password-file cpw --fingerprint \"$(nal request list --json | sed -n 's/.*\"id\": \"\\(.*\\)\".*/\\1/p' "
         "| xargs @NAL@ request status --json | sed -n 's/.*\"key_fingerprint\": \"\\(.*\\)\".*/\\1/p')\" > issued 2>&1", 0, ""},
        {"nal request install --password-file bad", 4, "the password or PIN is wrong"},
        // What cannot be read, or taken, is said.
        {"cp -r net net3; rm -r net3/d_station/o_users; echo > net3/d_station/o_users; nal request install --transport net3", 3, "o_users"},
        {"mkdir -p net4/d_station/tmp; echo junk > net4/d_station/tmp/own_input.cer; nal request install --transport net4", 1, "", "cannot be read as a store"},
        {"nal request install --password-file pw", 0, "", "installed"},
        {"nal request install --password-file pw", 0, "", "nothing to install"},
        {"nal container show ivan", 0, "", "cn=Ivan"},
        {"nal cert find --with-key", 0, "", "cn=Ivan"},
        {"nal sign doc -k ivan --password-file pw && nal verify doc.p7s", 0, "", "all signatures are valid"},

        // A user who is entitled vouches for another, whose request needs no operator then.
        {"nal request new -k olga -s CN=Olga --password-file pw --signer ivan --signer-password-file bad", 4, "the password or PIN is wrong"},
        {"nal request new -k olga -s CN=Olga --password-file pw --signer ivan --signer-password-file pw --signer-cert nobody", 4, "has no certificate that matches 'nobody'"},
        {"nal container show olga", 4, "container olga"},
        {"nal request new -k olga -s CN=Olga --password-file pw --signer ivan --signer-password-file pw --signer-cert Ivan", 0, "", "another user"},
        {"nal-keycentre serve-folder net --centre c --password-file cpw", 0, "", "answered: "},
        {"nal request install --password-file pw", 0, "", "cn=Olga"},

        // Renewed with another algorithm; a repeat shows the request and makes no key.
        {"nal request renew -k ivan --password-file pw --algorithm 1.2.643.2.2.98", 0, "", "1.2.643.2.2.98"},
        {"nal request renew -k ivan --password-file pw -o again.p10", 0, "", "no new key was made"},
        {"nal request renew -k ivan --password-file pw -o - | cmp - again.p10", 0, "note: this request was made before and waits for its answer; no new key was made"},
        {"nal request renew -k ivan --password-file pw -o - -q | cmp - again.p10", 0},
        {"nal request renew -k ivan --password-file pw --algorithm 1.2.643.2.2.19", 3, "waits for its answer, for a key of another algorithm"},
        {"nal container show ivan --json | grep -c '\"created\"'", 0, "", "2"},
        {"nal-keycentre serve-folder net --centre c --password-file cpw > served; nal request install --password-file pw", 0, "", "installed"},
        {"nal cert list", 0, "", "cn=Ivan"},

        // One container that cannot be opened keeps no other from its certificate.
        {"nal request new -k petr --subject CN=Petr --password-file pw > petr; nal-keycentre issue net/d_station/o_users/*.req --centre c --password-file cpw "
         "--fingerprint \"$(sed -n 's/.*key fingerprint *//p' petr)\" > issued 2>&1", 0, ""},
        {"nal request renew -k ivan --password-file pw --cert $(nal container show ivan --json | sed -n 's/.*\"key_id\": \"\\(.*\\)\".*/\\1/p' | tail -1) > renewed; "
         "nal-keycentre serve-folder net --centre c --password-file cpw > served; mv home/csp/petr away; nal request install --password-file pw", 4,
         "container @/home/csp/petr: no such key container", "subject    cn=Ivan"},
        // Nor does it hide the report of an answer that was refused.
        {"cp -r net net5; mkdir -p net5/d_station/tmp; echo junk > net5/d_station/tmp/own_input.cer; nal request install --transport net5", 4,
         "container @/home/csp/petr: no such key container", "cannot be read as a store"},
        {"mv away home/csp/petr; nal request install --password-file pw", 0, "", "subject    cn=Petr"},
        {"nal container transfer ivan moved --password-file pw && nal sign doc -k moved --password-file pw --cert $(nal container show moved --json | "
         "sed -n 's/.*\"key_id\": \"\\(.*\\)\".*/\\1/p' | head -1) -o moved.p7s", 0, "", "moved"},
    });
    const std::string request = "id:s status:s for:s subject:s container:s? made:s";
    const Json list = RunJson("nal request list");
    EXPECT_TRUE(HasShape(list, "transport:s requests:[ " + request + " ]"));
    EXPECT_TRUE(HasShape(RunJson("nal request status " + list["requests"][0]["id"].get<std::string>()),
                         request + " request:{ subject:s key:{ oid:s name:s bits:n parameters:s } usage:[s]? signed_by:{~ issuer:s serial:s key_id:s } key_fingerprint:s } "
                                   "history:[ status:s time:s ] certificate:{? subject:s issuer:s serial:s not_before:s not_after:s key_id:s } storage:s"));
}

}  // namespace
}  // namespace nal_test
