// What happens at a terminal: prompts without echo, colours, Ctrl-C.
#include <fcntl.h>
#include <pty.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>

#include "cli_fixture.h"

namespace nal_test {
namespace {

// The program on a terminal of its own.
class OnTerminal {
public:
    OnTerminal(const std::string& home, const std::vector<std::string>& arguments, const char* noColour = nullptr) {
        m_child = ::forkpty(&m_master, nullptr, nullptr, nullptr);
        if (m_child != 0) return;
        ::setenv("NAL_HOME", home.c_str(), 1);
        ::setenv("TERM", "xterm", 1);
        ::unsetenv("NO_COLOR");
        if (noColour != nullptr) ::setenv("NO_COLOR", noColour, 1);
        std::vector<char*> pointers;
        std::vector<std::string> texts = arguments;
        texts.insert(texts.begin(), BinaryDir() + "/cli/nal");
        for (std::string& text : texts) pointers.push_back(text.data());
        pointers.push_back(nullptr);
        ::execv(pointers[0], pointers.data());
        ::_exit(126);
    }
    ~OnTerminal() {
        // Never kill(-1): that is everybody.
        if (m_child > 0) {
            ::kill(m_child, SIGKILL);
            ::waitpid(m_child, nullptr, 0);
        }
        ::close(m_master);
    }
    OnTerminal(const OnTerminal&) = delete;
    OnTerminal& operator=(const OnTerminal&) = delete;

    // Reads until a text was shown, or the program is gone. @return whether it was shown
    bool WaitFor(const std::string& text) {
        while (m_shown.find(text) == std::string::npos) {
            char buffer[512];
            const ssize_t got = ::read(m_master, buffer, sizeof buffer);
            if (got <= 0) return false;
            m_shown.append(buffer, static_cast<std::size_t>(got));
        }
        return true;
    }
    void Type(const std::string& text) const { EXPECT_EQ(::write(m_master, text.data(), text.size()), static_cast<ssize_t>(text.size())); }
    bool Echoes() const {
        termios state{};
        return ::tcgetattr(m_master, &state) == 0 && (state.c_lflag & ECHO) != 0;
    }
    // Waits until what is typed is not shown, for at most ten seconds.
    bool WaitForQuiet() const {
        for (int i = 0; i < 1000 && Echoes(); ++i) ::usleep(10000);
        return !Echoes();
    }
    void Signal(int number) const { ::kill(m_child, number); }
    // Waits for at most ten seconds. @return whether the program was suspended, not ended
    bool WaitForStop() const {
        int status = 0;
        pid_t got = 0;
        for (int i = 0; i < 1000 && (got = ::waitpid(m_child, &status, WUNTRACED | WNOHANG)) == 0; ++i) ::usleep(10000);
        return got == m_child && WIFSTOPPED(status);
    }
    void Forget() { m_shown.clear(); }
    // Reads to the end. @return the status of waitpid
    int End() {
        WaitFor("\x01 never");
        int status = 0;
        ::waitpid(m_child, &status, 0);
        m_child = -1;
        return status;
    }
    const std::string& Shown() const { return m_shown; }

private:
    pid_t m_child = -1;
    int m_master = -1;
    std::string m_shown;
};

TEST_F(Cli, PasswordsAreTypedUnseen) {
    OnTerminal program(Path("home"), {"container", "create", "ivan"});
    ASSERT_TRUE(program.WaitFor("New password of container ivan: ")) << program.Shown();
    EXPECT_FALSE(program.Echoes());
    program.Type("secret\n");
    ASSERT_TRUE(program.WaitFor("again: ")) << program.Shown();
    program.Type("secret\n");
    const int status = program.End();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << program.Shown();
    EXPECT_EQ(program.Shown().find("secret"), std::string::npos) << program.Shown();
    EXPECT_NE(program.Shown().find("\x1B[36mprotection"), std::string::npos) << program.Shown();
    RunAll({{"printf secret > pw; chmod 600 pw; nal container passwd ivan --password-file pw --new-password-file pw", 0, "", "password"}});
}

TEST_F(Cli, APasswordFromADescriptorThatIsTheTerminalIsTypedUnseen) {
    OnTerminal program(Path("home"), {"container", "create", "ivan", "--password-fd", "0"});
    ASSERT_TRUE(program.WaitForQuiet());
    program.Type("secret\n");
    const int status = program.End();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << program.Shown();
    EXPECT_EQ(program.Shown().find("secret"), std::string::npos) << program.Shown();
}

TEST_F(Cli, ASuspendedPromptGivesTheTerminalBack) {
    OnTerminal program(Path("home"), {"container", "create", "ivan"});
    ASSERT_TRUE(program.WaitFor("New password of container ivan: "));
    EXPECT_FALSE(program.Echoes());
    program.Forget();
    program.Type("\x1A");
    ASSERT_TRUE(program.WaitForStop());
    EXPECT_TRUE(program.Echoes());
    program.Signal(SIGCONT);
    ASSERT_TRUE(program.WaitFor("New password of container ivan: "));
    EXPECT_FALSE(program.Echoes());
    program.Type("\n");
    EXPECT_TRUE(program.WaitFor("the new password is empty"));
}

TEST_F(Cli, NothingIsColouredWithNoColor) {
    OnTerminal program(Path("home"), {"settings"}, "1");
    const int status = program.End();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_NE(program.Shown().find("home"), std::string::npos);
    EXPECT_EQ(program.Shown().find('\x1B'), std::string::npos) << program.Shown();
}

TEST_F(Cli, PasswordsThatDifferMakeNothing) {
    OnTerminal program(Path("home"), {"container", "create", "ivan"});
    ASSERT_TRUE(program.WaitFor("ivan: "));
    program.Type("one\n");
    ASSERT_TRUE(program.WaitFor("again: "));
    program.Type("two\n");
    const int status = program.End();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 4) << program.Shown();
    RunAll({{"nal container show ivan", 4, "container ivan"}});
}

TEST_F(Cli, CtrlCAtAPromptGivesTheTerminalBack) {
    OnTerminal program(Path("home"), {"container", "create", "ivan"});
    ASSERT_TRUE(program.WaitFor("ivan: "));
    EXPECT_FALSE(program.Echoes());
    program.Type("sec\x03");
    ASSERT_TRUE(program.WaitFor("stopped; nothing was left behind")) << program.Shown();
    EXPECT_TRUE(program.Echoes());
    const int status = program.End();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << program.Shown();
    RunAll({{"nal container show ivan", 4, "container ivan"}});
}

TEST_F(Cli, ASignalEndsLongWork) {
    const std::string fifo = Path("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    for (const int number : {SIGINT, SIGQUIT, SIGTERM, SIGHUP}) {
        SCOPED_TRACE(number);
        OnTerminal program(Path("home"), {"hash", fifo});
        const int writer = ::open(fifo.c_str(), O_WRONLY);  // waits for the program to open it
        if (number == SIGINT) program.Type("\x03");
        else program.Signal(number);
        EXPECT_TRUE(program.WaitFor("stopped; nothing was left behind")) << program.Shown();
        const int status = program.End();
        ::close(writer);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == number) << program.Shown();
    }
}

TEST_F(Cli, ConfirmationIsAskedFor) {
    RunAll({{"printf secret > pw; chmod 600 pw; nal container create ivan --password-file pw", 0, "", "password"}});
    OnTerminal no(Path("home"), {"container", "delete", "ivan"});
    ASSERT_TRUE(no.WaitFor("for good? [y/N] "));
    no.Type("\n");
    EXPECT_TRUE(no.WaitFor("nothing was deleted"));
    OnTerminal yes(Path("home"), {"container", "delete", "ivan"});
    ASSERT_TRUE(yes.WaitFor("for good? [y/N] "));
    yes.Type("y\n");
    EXPECT_TRUE(yes.WaitFor("deleted"));
    yes.End();
    RunAll({{"nal container show ivan", 4, "container ivan"}});
}

}  // namespace
}  // namespace nal_test
