// A week of the desktop process on a virtual clock: a hundred thousand looks at a desktop whose
// windows change, with recordings, cards, nights asleep, a clock that is put right, a journey to
// another time zone and both zones' change of the hour. The store is real. What it holds at the
// end is compared with a second, plain account of the rules, row by row.

#include "Meetings/MeetingDesktop.h"
#include "Shell/AppDelegate.h"
#include "Store/HookedFileSystem.h"
#include "fakes/FakeShell.h"
#include "fakes/ScopedVariable.h"

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <random>
#include <unordered_map>

namespace mnemora::test {
namespace {

using namespace std::chrono_literals;

constexpr int ticksADay = 14'400;
constexpr double start =
    1'792'872'000;              // 2026-10-24T20:00Z; the clock goes back in Berlin at 01:00Z
constexpr int journey = 50'000; // to New York, where it goes back a week later

/// What is in front for a while.
struct Scene {
    bool isSomething = true; // false: the screen is locked
    const char* bundle = "";
    const char* name = "";
    std::string title;
    std::string text;
    bool isPrivate = false;
    bool isBrowser = false;
};

/// The rules of storing and of cards, told a second time without a database.
class Account {
  public:
    void store(const std::string& identity, double now) {
        auto& last = newest_.try_emplace(std::hash<std::string>()(identity), -1e18).first->second;
        if (last >= now - 90)
            return;
        last = std::max(last, now);
        rows.push_back(now);
    }
    void consider(double now) {
        const auto moment = static_cast<time_t>(now);
        tm local{};
        localtime_r(&moment, &local);
        const int today = (local.tm_year * 12 + local.tm_mon) * 31 + local.tm_mday;
        if (today != day_) {
            day_ = today;
            shownToday_ = 0;
        }
        const auto fresh = rows.size() - told_;
        if (shownToday_ == 3 || (lastCard_ > 0 && now - lastCard_ < 4 * 3600) || fresh < 30)
            return;
        cards.push_back(fresh);
        lastCard_ = now;
        told_ = rows.size();
        ++shownToday_;
    }
    /// What can't matter any more, so that this account doesn't grow.
    void forget(double now) {
        std::erase_if(newest_, [&](const auto& entry) { return entry.second < now - 2 * 3600; });
    }

    std::vector<double> rows;       // times of what is stored
    std::vector<std::size_t> cards; // the counts that they tell

  private:
    std::unordered_map<std::size_t, double> newest_;
    int day_ = 0;
    int shownToday_ = 0;
    double lastCard_ = 0;
    std::size_t told_ = 0;
};

/// What the process takes of the system.
struct Footprint {
    double memory = 0; // MiB of its own
    std::ptrdiff_t descriptors = 0;
    std::ptrdiff_t threads = 0;

    static Footprint now() {
        const auto count = [](const char* folder) {
            return std::distance(std::filesystem::directory_iterator(folder), {});
        };
        Footprint taken{.descriptors = count("/proc/self/fd"), .threads = count("/proc/self/task")};
        std::ifstream status("/proc/self/status");
        for (std::string word; status >> word;)
            if (word == "RssAnon:" && status >> taken.memory)
                taken.memory /= 1024;
        return taken;
    }
};

class VirtualWeekTest : public MeetingTest {
  protected:
    void SetUp() override {
        auto services = desktopServices();
        services.accessibility = accessibility_;
        services.screenCapture = std::make_shared<FakeScreenCapture>();
        services.textRecognizer = recognizer_;
        services.defaults = std::make_shared<FakeDefaults>();
        services.statusArea = area_;
        shell_ = std::make_unique<ScopedDesktopServices>(std::move(services));
    }

    void live(int ticks) {
        const CapturedStderr log;
        time.clock->moment = start;
        MnemoraStore& store = open();
        AppDelegate delegate(store, {});
        show(scene_);
        delegate.applicationDidFinishLaunching(); // which takes the first look
        loop->advance(0s);
        account_.store(identity(scene_), start);
        Footprint settled;
        for (int tick = 1; tick < ticks; ++tick) {
            turnTheClock(tick);
            changeTheScene();
            loop->advance(6s);
            look(tick);
            meet(tick);
            if (tick % 1000 == 0)
                watch();
            if (tick == ticksADay)
                settled = Footprint::now();
        }
        expectFlat(settled, Footprint::now());
        loop->runJobs();
    }

    void expectTheSameAsTheAccount() {
        const auto times = open().query("SELECT ts FROM events ORDER BY id;", {},
                                        [](const RowReader& row) { return row.real(0); });
        EXPECT_EQ(times.size(), account_.rows.size());
        EXPECT_TRUE(times == account_.rows);
        std::vector<std::size_t> told;
        for (const Card& card : panels->cards)
            if (std::size_t count = 0;
                std::sscanf(card.message.c_str(), "While you worked, I captured %zu new", &count))
                told.push_back(count);
        EXPECT_EQ(told, account_.cards);
        EXPECT_EQ(outside("SELECT count(*) FROM events e LEFT JOIN embeddings v "
                          "ON v.event_id = e.id WHERE v.event_id IS NULL;"),
                  std::vector<std::string>{"0"});
        EXPECT_EQ(outside("SELECT count(*) FROM events WHERE body LIKE '%secret%';"),
                  std::vector<std::string>{"0"});
        close();
        expectSound();
        std::printf("%zu observations, %d of meetings, %zu cards; log at most %.1f MiB\n",
                    times.size(), said_, told.size(), largestLog_ / 1048576.0);
    }

  private:
    void turnTheClock(int tick) {
        double& moment = time.clock->moment;
        moment += 6;
        if (tick % ticksADay == 9000)
            moment += 2 * 3600; // asleep
        else if (tick % 20'000 == 7000)
            moment += 37; // put right
        else if (tick % 20'000 == 15'000)
            moment -= tick > 60'000 ? 3000 : 50;
        if (tick == journey)
            zone_.set("America/New_York");
    }

    void changeTheScene() {
        if (--staysFor_ > 0)
            return;
        staysFor_ = 1 + static_cast<int>(random_() % 40);
        switch (random_() % 12) {
        case 0:
            scene_.isSomething = false;
            break;
        case 1: // back to something seen before
            show(scene_ = earlier_);
            break;
        default:
            earlier_ = scene_;
            show(scene_ = another());
        }
        if (!scene_.isSomething)
            workspace->front.reset();
    }
    Scene another() {
        static constexpr std::pair<const char*, const char*> programs[] = {
            {"org.xterm", "XTerm"}, {"org.mail", "Mail"}, {"com.google.Chrome", "Chrome"}};
        const auto& [bundle, name] = programs[random_() % 3];
        const auto number = std::to_string(++scenes_);
        const bool isPrivate = random_() % 15 == 0;
        return {.bundle = bundle,
                .name = name,
                .title = (isPrivate ? "Password " : "Work ") + number,
                .text = isPrivate ? "secret " + number : "lines of " + number,
                .isPrivate = isPrivate,
                .isBrowser = std::string(name) == "Chrome"};
    }
    void show(const Scene& scene) {
        workspace->front = RunningApplication{
            .bundleIdentifier = scene.bundle, .localizedName = scene.name, .processIdentifier = 7};
        accessibility_->windows[7] = FocusedWindow{.title = scene.title};
        recognizer_->lines = {RecognizedLine{.bestCandidate = scene.text}};
    }
    static std::string identity(const Scene& scene) {
        const bool hasText = !scene.isPrivate && !scene.isBrowser;
        return std::string(scene.name) + "|" + scene.title + "|" + (hasText ? scene.text : "");
    }
    void look(int tick) {
        recognizer_->seen.clear();
        if (scene_.isSomething)
            account_.store(identity(scene_), time.clock->moment);
        if (tick % 200 == 0) // every twenty minutes
            account_.consider(time.clock->moment);
    }

    /// Twice a day half an hour of talk, an utterance every 18 seconds, now and then an echo.
    void meet(int tick) {
        const int at = tick % (ticksADay / 2);
        if (at == 3000) {
            ASSERT_TRUE(area_->choose("🔴  Record meeting"));
            loop->runJobs();
        }
        if (at > 3000 && at < 3300 && at % 3 == 0) {
            const auto text = "words " + std::to_string(++said_);
            at % 2 == 0 ? youSay(text) : theySay(text);
            account_.store("meeting " + text, time.clock->moment);
            if (said_ % 5 == 0)
                theySay(text); // as heard through the loudspeaker: dropped
        }
        if (at == 3300) {
            ASSERT_TRUE(area_->choose("⏹  Stop recording meeting"));
        }
    }

    void watch() {
        account_.forget(time.clock->moment);
        std::error_code ignored;
        const auto log = std::filesystem::file_size(MnemoraStore::dbPath() + "-wal", ignored);
        largestLog_ = std::max(largestLog_, ignored ? 0.0 : static_cast<double>(log));
        EXPECT_LT(largestLog_, 8.0 * 1048576);
    }
    static void expectFlat(const Footprint& first, const Footprint& last) {
        std::printf(
            "after a day %.1f MiB, %td descriptors, %td threads; at the end %.1f, %td, %td\n",
            first.memory, first.descriptors, first.threads, last.memory, last.descriptors,
            last.threads);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // which keep what was freed
        EXPECT_LT(last.memory, first.memory + 4);
#endif
        EXPECT_EQ(last.descriptors, first.descriptors);
        EXPECT_EQ(last.threads, first.threads);
    }

    // That what is written survives a loss of power is tested elsewhere; here it would take hours.
    HookedFileSystem disk_{[](const FileCall& call, const std::function<int()>& real) {
        return call.kind == FileCall::Kind::sync ? SQLITE_OK : real();
    }};
    std::shared_ptr<FakeAccessibility> accessibility_ = std::make_shared<FakeAccessibility>();
    std::shared_ptr<FakeTextRecognizer> recognizer_ = std::make_shared<FakeTextRecognizer>();
    std::shared_ptr<FakeStatusArea> area_ = std::make_shared<FakeStatusArea>();
    std::unique_ptr<ScopedDesktopServices> shell_;
    const ScopedVariable zone_{"TZ", "Europe/Berlin"};
    Account account_;
    Scene scene_{.bundle = "org.xterm", .name = "XTerm", .title = "Work 0", .text = "lines of 0"};
    Scene earlier_ = scene_;
    std::mt19937 random_{3};
    int staysFor_ = 5;
    int scenes_ = 0;
    int said_ = 0;
    double largestLog_ = 0;
};

TEST_F(VirtualWeekTest, HoldsWhatTheRulesSayAndTakesNoMoreThanADay) {
    live(7 * ticksADay);
    expectTheSameAsTheAccount();
}

} // namespace
} // namespace mnemora::test
