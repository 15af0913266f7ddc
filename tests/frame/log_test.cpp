#include "frame/log.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "too/last_error.h"

namespace {

void LogTwo() {
    SetLastError(42);
    nal::LogError(NAL_HERE("source/signed_data_helper"), "a text\nof two lines");
    nal::LogErrorCode({"BOOL CNALUser::PutCertificate(const CNALCertContext&, int*, CTOOString*)", "PutCertificate",
                       "source/win32/cnaluser", 877},
                      156);
    if (GetLastError() != 42) std::abort();
}

/// What a process of its own writes to standard error under a setting of NAL_LOG: the level is read once a process.
std::string LoggedUnder(const char* setting) {
    int ends[2];
    if (pipe(ends) != 0) return "no pipe";
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDERR_FILENO);
        close(ends[0]);
        close(ends[1]);
        setenv("NAL_LOG", setting, 1);
        LogTwo();
        _exit(0);
    }
    close(ends[1]);
    std::string text;
    char buffer[4096];
    for (ssize_t count; (count = read(ends[0], buffer, sizeof(buffer))) > 0;) text.append(buffer, count);
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return status == 0 ? text : "the process failed";
}

TEST(Log, FailuresAreOneLineEachAndOnlyAboveLevelZero) {
    EXPECT_EQ("", LoggedUnder("0"));
    const std::string text = LoggedUnder("1");
    EXPECT_EQ(2, std::count(text.begin(), text.end(), '\n')) << text;
    for (const char* part : {"Error: a text", "source/signed_data_helper", "Error Code: 156", "source/win32/cnaluser", "877",
                             "CNALUser::PutCertificate"}) {
        EXPECT_NE(std::string::npos, text.find(part)) << part << " in " << text;
    }
}

}  // namespace
