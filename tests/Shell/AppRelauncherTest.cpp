#include "Shell/AppRelauncher.h"

#include "Linux/Desktop/DesktopApplication.h"
#include "Platform/DesktopServices.h"
#include "Support/CoreFiles.h"
#include "fakes/Eventually.h"
#include "fakes/FakeShell.h"
#include "fakes/TemporaryHome.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace mnemora::test {
namespace {

namespace fs = std::filesystem;

std::string contents(const fs::path& file) {
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
}

/// What the program wrote, once its last line, "end", is there; empty when it never came.
std::string written(const fs::path& file) {
    std::string text;
    const auto isWhole = [&] { return (text = contents(file)).ends_with("end\n"); };
    return Eventually{std::chrono::seconds(20)}(isWhole) ? text : std::string();
}

fs::path script(const fs::path& file, const std::string& text) {
    fs::create_directories(file.parent_path());
    std::ofstream(file) << "#!/bin/sh\n" << text << "\n";
    fs::permissions(file, fs::perms::owner_all);
    return file;
}

TEST(ShellQuoted, IsOneWordForARealShell) {
    for (const std::string text :
         {"", "plain", "with blank", "it's", "''", "\"$HOME\"", "`id`", "$(id)", "a\nb\n", "\\",
          "-n", "*?[a]{b,c}~", "; exit 7 #", "\t\r\x01", "zwölf 山", "\xff\xfe"}) {
        const auto command = "printf '%s|' " + shellQuoted(text);
        const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
        ASSERT_NE(pipe, nullptr);
        char buffer[64];
        const size_t length = fread(buffer, 1, sizeof buffer, pipe.get());
        EXPECT_EQ(std::string(buffer, length), text + "|");
    }
}

TEST(AppRelauncher, StartsAShellThenEnds) {
    const auto application = std::make_shared<FakeApplication>();
    DesktopServices services;
    services.application = application;
    const ScopedDesktopServices installed(services);
    application->path = "/opt/it's/mnemora";
    AppRelauncher::relaunch();
    application->starts = false;
    AppRelauncher::relaunch();
    const std::string start = "/bin/sh|-c|sleep 1; exec '/opt/it'\\''s/mnemora'";
    EXPECT_THAT(application->calls, testing::ElementsAre(start, "terminate", start, "terminate"));
    application->path = "";
    application->calls.clear();
    AppRelauncher::relaunch();
    EXPECT_THAT(application->calls, testing::ElementsAre("terminate"));
}

TEST(DesktopApplication, StartsAProgramOfItsOwnSessionWithoutOurDescriptors) {
    const TemporaryHome home;
    const auto report = home.path() / "report";
    const auto program =
        script(home.path() / "a \"b\" $HOME `id` 'c'\nd" / "pro gram",
               "exec >\"$REPORT\"\nls /proc/self/fd | tr '\\n' ' '\necho\n"
               "sed 's/.*) //' /proc/$$/stat | cut -d' ' -f2-4\necho $$\ntr -d '\\0' "
               "</proc/$$/status | grep -E 'SigBlk|SigIgn'\n"
               "grep 'core file' /proc/$$/limits\necho end");
    setenv("REPORT", report.c_str(), 1);
    const auto formerPipe = std::signal(SIGPIPE, SIG_IGN); // as the program does
    sigset_t one;
    sigset_t formerMask;
    sigemptyset(&one);
    sigaddset(&one, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &one, &formerMask);
    const int leaked = open("/dev/null", O_RDONLY); // not close-on-exec
    ASSERT_GT(leaked, 2);
    const auto formerLimits = contents("/proc/self/limits");
    coreFiles::forbid();
    desktop::DesktopApplication application([] {});
    ASSERT_TRUE(
        application.startDetached("/bin/sh", {"-c", AppRelauncher::command(program.string())}));
    close(leaked);
    pthread_sigmask(SIG_SETMASK, &formerMask, nullptr);
    std::signal(SIGPIPE, formerPipe);
    std::istringstream lines(written(report));
    std::string descriptors;
    std::string family;
    std::string identifier;
    std::getline(lines, descriptors);
    std::getline(lines, family);
    std::getline(lines, identifier);
    std::string blocked;
    std::string ignored;
    std::getline(lines, blocked);
    std::getline(lines, ignored);
    // The listing itself holds one more, on the folder that it lists.
    EXPECT_EQ(descriptors, "0 1 2 3 ");
    int parent = 0;
    int group = 0;
    int session = 0;
    std::istringstream(family) >> parent >> group >> session;
    EXPECT_NE(parent, getpid());
    EXPECT_NE(session, getsid(0));
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1); // nobody is left for us to wait for
    EXPECT_EQ(blocked, "SigBlk:\t0000000000000000");
    const auto signals = std::stoull(ignored.substr(ignored.find('\t') + 1), nullptr, 16);
    EXPECT_EQ(signals & (1ULL << (SIGPIPE - 1)), 0U) << ignored;
    std::string limit;
    std::getline(lines, limit);
    EXPECT_THAT(formerLimits, testing::HasSubstr("\n" + limit + "\n"));
}

TEST(DesktopApplication, SaysWhenAProgramCannotBeStarted) {
    desktop::DesktopApplication application([] {});
    EXPECT_FALSE(application.startDetached("/nowhere/at all", {}));
    EXPECT_EQ(application.bundlePath(), fs::read_symlink("/proc/self/exe").string());
}

} // namespace
} // namespace mnemora::test
