// The whole program in a desktop session as one of several processes on one file.

#include "Store/Crowd.h"

#include <csignal>

namespace mnemora::test {
namespace {

/// The program that observes takes a writer's place. Each of its starts begins with a look at the
/// front window, whose title never stays.
class DesktopCrowdTest : public CrowdTest {
  protected:
    // It lasts minutes, and the pauses keep the file small: a check of it among the others' work
    // has to be done before they give up waiting.
    DesktopCrowdTest() : CrowdTest(1, 1000) {}

    void startOther() override {
        desktop_ = std::make_unique<ChildProcess>(
            std::vector{(installation::prefix() / "bin/mnemora").string()},
            ChildProcess::Errors::dropped);
    }
    /// Half of the times once it has kept something, and soon after; else wherever it is by now,
    /// which may be anywhere in its start.
    void endOther(std::vector<std::string>& reported) override {
        if (random_() % 2 == 0) {
            awaitLook();
            usleep(static_cast<useconds_t>(random_() % 300'000));
        }
        const auto kept = newLooks();
        desktop_->kill();
        desktop_->finish();
        EXPECT_TRUE(WIFSIGNALED(desktop_->status()) && WTERMSIG(desktop_->status()) == SIGKILL)
            << "the program ended by itself with status " << desktop_->status();
        for (const auto& row : kept) {
            const auto bar = row.find('|');
            last_ = row.substr(0, bar);
            reported.push_back(row.substr(bar + 1));
        }
        known_ += kept.size();
        ++killed_;
    }

    int killed_ = 0;
    std::size_t known_ = 0; // looks that were seen in the file before a kill

  private:
    [[nodiscard]] std::vector<std::string> newLooks() const {
        return outside("SELECT id, title FROM events WHERE title LIKE 'Look %' AND id > " + last_ +
                       " ORDER BY id;");
    }
    void awaitLook() const {
        for (int i = 0; i < 3000 && newLooks().empty(); ++i)
            usleep(10'000);
        EXPECT_FALSE(newLooks().empty()) << "kept nothing within half a minute";
    }

    const ChildProcess window_{
        {"/usr/bin/xterm", "-xrm", "*utf8Title: true", "-e", "sh", "-c",
         R"(while i=$((i + 1)); do printf '\033]2;Look %d\007Line %d\n' $i $i; sleep 0.1; done)"}};
    std::unique_ptr<ChildProcess> desktop_;
    std::string last_ = "0"; // the last look that was seen
};

TEST_F(DesktopCrowdTest, LosesNothingWhenAnyOfThemIsKilledAgainAndAgain) {
    killAtRandom(200);
    EXPECT_GE(killed_, 30);
    EXPECT_GE(known_, 15U);
    std::printf("%d kills of the desktop process, which had kept %zu looks\n", killed_, known_);
}

} // namespace
} // namespace mnemora::test
