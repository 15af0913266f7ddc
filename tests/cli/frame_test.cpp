// Command lines, inputs and outputs that every command shares.
#include "cli_fixture.h"

namespace nal_test {
namespace {

TEST_F(Cli, CommandLines) {
    RunAll({
        {"nal", 2, "Usage: nal COMMAND"},
        {"nal help", 0, "", "Commands"},
        {"nal --help", 0, "", "Commands"},
        {"nal --version", 0, "", "nal 0."},
        {"nal help cert", 0, "", "cert import"},
        {"nal cert --help", 0, "", "cert import"},
        {"nal help cert show", 0, "", "Usage: nal cert show FILE..."},
        {"nal cert show -h", 0, "", "Usage: nal cert show FILE..."},
        {"nal help nonsense", 2, "there is no command 'nonsense'"},
        {"nal nonsense", 2, "unknown command 'nonsense'"},
        {"nal cert", 2, "a command is needed after 'cert'"},
        {"nal cert nonsense", 2, "unknown command 'cert nonsense'"},
        {"nal --nonsense", 2, "a command is needed"},
        {"nal hash", 2, "FILE is required"},
        {"nal hash a --nonsense", 2, "unknown option '--nonsense'"},
        {"nal cert list more", 2, "too many arguments: 'more'"},
        {"nal hash ''", 2, "the path is empty"},
        {"nal hash - -", 2, "standard input (\"-\") is named more than once"},
        {"nal sign - -k ivan --password-fd 0", 2, "standard input (\"-\") is named more than once"},
        {"nal encrypt - --to -", 2, "standard input (\"-\") is named more than once"},
        {"nal cert list --store -", 2, "cannot be standard input"},
        // A file may be called like a command, and may begin like a list.
        {"echo x > verify; nal hash verify", 0, "", "  verify"},
        {"echo x > '[a,b]'; nal hash '[a,b]'", 0, "", "[a,b]"},
        {"echo x > a; nal hash '[a]'", 3, "cannot read ./[a]"},
        {"nal name CN=A -o '[n]' && ls '[n]'", 0, "", "[n]"},
        {"echo x > -- ; nal hash -- --", 0, "", "  --"},
        {"nal --quiet --home @/home hash verify --json", 0, "", "\"hash\""},
    });
}

TEST_F(Cli, Inputs) {
    RunAll({
        {"nal hash nowhere", 3, "cannot read nowhere: No such file or directory\n  Check the path."},
        {"nal hash @", 3, "Is a directory"},
        {"nal cert show nowhere", 3, "cannot read nowhere"},
        {"nal cert show @", 3, "Is a directory"},
        {": > empty; nal cert show empty", 3, "empty is empty"},
        {"truncate -s 5G huge; nal cert show huge", 3, "huge is larger than 256 MiB"},
        {"head -c 100 /dev/zero > zeros; nal cert show zeros", 3, "not a certificate"},
        {"echo text | nal cert show -", 3, "standard input is text, not a certificate"},
        {"printf -- '-----BEGIN CERTIFICATE-----\\nAAAA' > cut; nal cert show cut", 3, "cut is damaged: its PEM text has no end"},
        {"printf -- '-----BEGIN CERTIFICATE-----\\n?\\n-----END CERTIFICATE-----\\n' | nal cert show -", 3, "is not base64"},
        {"printf abc | nal hash -", 0, "", "B285056DBF18D7392D7677369524DD14747459ED8143997E163B2986F92FD42C  -"},
        {"printf abc > abc; nal hash - < abc", 0, "", "B285056DBF18D739"},
        {"nal hash <(printf abc)", 0, "", "B285056DBF18D739"},
        {"nal hash -a 1.2.643.2.2.19 abc", 2, "is not the OID of a hash"},
        {"cp abc $'a\\e[31mb'; nal hash $'a\\e[31mb'", 0, "", "a\\x1B[31mb"},
        {"nal hash $'no\\e[31m\\xC2\\x9B'", 3, "no\\x1B[31m\\u{009B}"},
    });
}

TEST_F(Cli, Outputs) {
    RunAll({
        {"nal help > /dev/full", 5, "cannot write to standard output: No space left on device"},
        {"nal help --man @/man && ls @/man", 0, "", "nal-cert.1"},
        {"command -v man >/dev/null || exit 0; for page in man/*; do man --warnings -E UTF-8 -l -Tutf8 -Z $page 2>&1 >/dev/null; done > warnings; [ ! -s warnings ]", 0, ""},
        {"nal help --completion bash | bash -n", 0, ""},
        {"eval \"$(nal help --completion bash)\"; COMP_WORDS=(nal cert im) COMP_CWORD=2; _nal; echo ${COMPREPLY[*]}", 0, "", "import"},
        {"eval \"$(nal help --completion bash)\"; COMP_WORDS=(nal cert show --js) COMP_CWORD=3; _nal; echo ${COMPREPLY[*]}", 0, "", "--json"},
        // A reader that has seen enough is no reason for words.
        {"exec 3> >(:); wait $!; nal help >&3; echo $? >&2", 0, "5"},
        {"exec 3> >(:); wait $!; nal name CN=A -o - >&3; echo $?", 0, "", "5"},
        // Closed from outside, they are nobody else's, and their use fails.
        {"nal help >&-", 5, "cannot write to standard output: Bad file descriptor"},
        {"nal hash - <&-", 3, "cannot read standard input: Bad file descriptor"},
        {"nal trust list; nal name CN=A -o n.der <&- >&- 2>&-; nal name --der n.der", 0, "", "cn=A"},
        {"nal name CN=A -o n.der", 3, "n.der is there already\n  Name another file, or replace it with --force."},
        {"nal name CN=B -o n.der --force && nal name --der n.der", 0, "", "cn=B"},
        {"nal name --der n.der -o n.der -f", 2, "the output n.der is a file that is read"},
        {"ln -s nowhere l; nal name CN=B -o l", 3, "l is there already"},
        {"nal name CN=B -o @", 3, "is a folder"},
        {"nal name CN=B -o /sys/n.der", 5, "/sys/n.der"},
    });
    for (const char* command : {"name CN=A", "cert export x", "request new -k i -s CN=I", "request renew -k i", "sign d -k i", "unsign d", "encrypt d -t i", "decrypt d -k i",
                                "signatures extract d 1", "signatures delete d 1", "signatures merge d e"}) {
        RunAll({{"nal " + std::string(command) + " --json -o -", 2, "--json and the output cannot both go to standard output"}});
    }
    RunAll({{"nal cert export x --json", 2, "cannot both go to standard output"}, {"nal decrypt - -k i --json", 2, "cannot both go to standard output"}});
    EXPECT_TRUE(HasShape(RunJson("nal hash nowhere", 3), "error:{ exit:n status:n message:s hint:s }"));
    EXPECT_TRUE(HasShape(RunJson("nal nonsense", 2), "error:{ exit:n status:n message:s hint:s }"));
    EXPECT_TRUE(HasShape(RunJson("nal settings"), "version:s home:s settings:s store:s containers:s trust:s transport:s? flags:s"));
}

TEST_F(Cli, Names) {
    RunAll({
        {"nal name 'CN=Ivan, O=\"Horns, hooves\", C=RU' --order", 0, "", "c=RU,o=\"Horns, hooves\",cn=Ivan"},
        {"nal name 'Nonsense'", 3, "not a name"},
        {"nal name", 2, "a name is needed"},
        {"nal name 'CN=Иван' -o name.der && nal name --der name.der", 0, "", "cn=Иван"},
        {"printf '\\x30\\x05' | nal name --der -", 3, "does not hold the DER of a name"},
    });
    EXPECT_TRUE(HasShape(RunJson("nal name CN=A"), "name:s elements:[ oid:s type:s value:s ] der:s"));
}

TEST_F(Cli, Settings) {
    RunAll({
        {"nal settings --set-transport nowhere", 3, "nowhere is no folder"},
        {"mkdir t; nal settings --set-transport t", 0, "", "transport   @/t"},
        {"nal settings", 0, "", "transport   @/t"},
        {"nal settings --set-flags 0x20000001", 0, "", "0x20000001"},
        {"nal settings --set-flags -1", 2, "is not a number"},
        {"nal settings --set-transport ''", 0, "", "transport   -"},
        {"nal settings --home /sys/nal --set-flags 1", 5, "cannot make the folder \"/sys/nal\""},
        {"printf '[nal]\\nflags=zz\\n' > home/nal.conf; nal cert list", 3, "\"flags\" is no number: zz\n  Set them anew: nal settings --set-flags 0"},
        {"nal help cert", 0, "", "cert import"},
        {"nal settings", 0, "the flags were no number (zz)", "flags       0x0"},
        {"nal settings --set-flags 1 && nal cert list", 0, "", "0x1"},
    });
}

}  // namespace
}  // namespace nal_test
