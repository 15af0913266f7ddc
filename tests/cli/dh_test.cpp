// nal dh.
#include "cli_fixture.h"

namespace nal_test {
namespace {

using CliDh = Cli;

TEST_F(CliDh, Records) {
    RunAll({
        {"nal dh list", 0, "", "no records in @/home/CERTSEND.DAT"},
        {"nal dh list --file nowhere", 3, "nowhere"},
        {"nal dh add --peer 1A02:0000BEEF --key 0440AB12 --file r.dat", 0, "", "sent"},
        {"nal dh add --peer 1A02:0000BEEF --key 0550AB12 --file r.dat --received", 0, "", "received"},
        {"nal dh add --peer 1A02 --key 0440AB12 --file r.dat", 2, "is not NETWORK:HOST"},
        {"nal dh add --peer 1A02:0000BEEF --key zz --file r.dat", 2, "is not a key number"},
        {"nal dh add --peer 1A02:0000BEEF --key 04 --file-name 1234567890123456 --file r.dat", 2, "longer than 15"},
        {"nal dh list --waiting --file r.dat", 0, "", "0440AB12"},
        {"nal dh mark --peer 1A02:0000BEEF --key 0440AB12 --file r.dat", 2, "a mark is needed"},
        {"nal dh mark --peer 1A02:0000BEEF --key 0440AB12 --acknowledged --rejected --file r.dat", 2, "excludes"},
        {"nal dh mark --peer 1A02:0000BEEF --key 07 --acknowledged --file r.dat", 3, "there is no record"},
        {"nal dh mark --peer 1A02:0000BEEF --key 0440AB12 --acknowledged --file r.dat", 0, "", "marked  1"},
        {"nal dh list --waiting --file r.dat", 0, "", "no records"},
        {"nal dh mark --peer 1A02:0000BEEF --key 0550AB12 --actual --received --file r.dat", 0, "", "marked  1"},
        {"nal dh list --peer 1A02:0000BEEF --file r.dat", 0, "", "actual"},
        {"nal dh list --peer 1A03:0000BEEF --file r.dat", 0, "", "no records"},
        {"echo nonsense > bad.dat; nal dh list --file bad.dat", 3, "bad.dat"},
    });
    EXPECT_TRUE(HasShape(RunJson("nal dh list --file r.dat"),
                         "file:s records:[ index:n direction:s own_type:s peer:s key_number:s sent:s? received:s? file_name:s marks:[s] ]"));
}

}  // namespace
}  // namespace nal_test
