// nal container, and the ways in which passwords come.
#include "cli_fixture.h"

namespace nal_test {
namespace {

using CliContainer = Cli;

TEST_F(CliContainer, LivesThroughAllCommands) {
    RunAll({
        {"printf 'first\\n' > pw; printf 'second\\r\\n' > pw2; printf wrong > bad; : > none; printf 'a\\nb\\n' > two; printf 'a\\0b' > zero; printf 1234 > pin; chmod 600 *", 0, ""},
        {"nal container list", 0, "", "no containers in @/home/csp"},
        {"exec setsid -w @NAL@ container create ivan", 4, "there is no terminal to ask at"},
        {"nal container create ivan --password-file none", 4, "the new password is empty"},
        {"nal container create ivan --password-file two", 4, "more than one line"},
        {"nal container create ivan --password-file zero", 4, "zero byte"},
        {"nal container create ivan --password-file nowhere", 4, "cannot read the password from nowhere"},
        {"nal container create ivan --password-file @", 4, "Is a directory"},
        {"nal container create ivan --password-fd 77", 4, "--password-fd: descriptor 77 is not open"},
        {"nal container create ivan --password-file pw --password-fd 0", 2, "excludes"},
        {"nal container create ivan --algorithm 1.2.3 --password-file pw", 3, "unknown algorithm or algorithm parameters"},
        {"nal container list", 0, "", "no containers in @/home/csp"},
        {"nal container create ivan --password-file pw", 0, "", "protection  password"},
        {"nal container create ivan --password-file pw", 4, "is there already"},
        {"nal container show ivan", 0, "", "key fingerprint"},
        {"nal container show nobody", 4, "nal container list shows"},
        {"nal container list", 0, "", "ivan"},
        {"nal container passwd ivan --password-file bad --new-password-file pw2", 4, "the password or PIN is wrong"},
        {"nal container passwd ivan --password-fd 3 --new-password-file pw2 3< pw", 0, "", "protection  password"},
        // A transfer keeps the password when none is given, and never drops it.
        {"nal container transfer ivan moved --password-file pw2", 0, "", "protection  password"},
        {"nal container show ivan", 4, "container ivan"},
        {"nal container passwd moved --password-file pw2 --new-password-file pw", 0, "", "password"},
        {"nal container transfer moved again --password-file pw --no-new-password", 0, "", "protection  -"},
        {"exec setsid -w @NAL@ container transfer again more", 4, "there is no terminal to ask at"},
        {"nal container transfer again more --new-password-file pw", 0, "", "protection  password"},
        {"nal container transfer more more --password-file pw", 4, "container more"},
        {"nal container transfer more @/moved.keys --password-file pw && nal container show @/moved.keys", 0, "", "moved.keys"},
        {"exec setsid -w @NAL@ container delete @/moved.keys", 2, "Give --yes to confirm it"},
        {"nal container delete @/moved.keys --yes", 0, "", "deleted"},
        {"nal container delete @/moved.keys --yes", 4, "moved.keys"},
        {"nal container create p --password-file pw --pin-file none", 4, "the new PIN is empty\n  Choose one."},
        {"nal container show p", 4, "container p"},
        {"nal container create p --password-file pw --pin-file pin", 0, "", "PIN"},
        {"nal container passwd p --password-file pw --pin-file bad --new-pin-file none", 4, "the password or PIN is wrong"},
        {"exec setsid -w @NAL@ container passwd p --password-file pw", 4, "a PIN is needed, and there is no terminal to ask at\n  Give it with --pin-file FILE or --pin-fd N."},
        // Both new secrets are there before one is changed.
        {"nal container passwd p --password-file pw --pin-file pin --new-password-file pw2 --new-pin-file none", 4,
         "the new PIN is empty\n  Choose one, or say that there is to be none: --no-new-pin."},
        {"nal container passwd p --password-file pw --pin-file pin --new-password-file pw2 --new-pin-file nowhere", 4, "cannot read the new PIN from nowhere"},
        {"nal container passwd p --password-file pw --pin-file pin --new-password-file none", 4, "--no-new-password"},
        {"nal container passwd p --password-file pw --pin-file pin --no-new-pin", 0, "", "protection  password\n"},
        {"nal container list --folder nowhere", 3, "nowhere is no folder"},
        // The result is lost, not what was done.
        {"nal container create lost --password-file pw > /dev/full", 5, "This was done before and stays:\n  container lost was made"},
        {"nal container passwd lost --password-file pw --new-pin-file pin --new-password-file pw2 > /dev/full", 5, "the PIN of container lost was changed"},
        {"nal container transfer lost found --password-file pw2 --pin-file pin > /dev/full", 5, "were moved into container found"},
        {"nal container delete found --yes > /dev/full", 5, "container found was deleted"},
        {"nal settings --set-flags 0 > /dev/full", 5, "the settings were changed"},
        {"chmod 644 pw; nal container create c --password-file pw", 0, "others may read the password file", "password"},
    });
    const std::string key = "type:s key:{? oid:s name:s bits:n parameters:s } key_fingerprint:s? created:s certificate:s?";
    EXPECT_TRUE(HasShape(RunJson("nal container show c"), "container:s path:s protection:[s] keys:[ " + key + " ]"));
    EXPECT_TRUE(HasShape(RunJson("nal container list"), "containers:[ container:s path:s protection:[s] keys:[ " + key + " ] error:s? ]"));
}

}  // namespace
}  // namespace nal_test
