#include "Linux/Desktop/QtMainLoop.h"
#include "fakes/CapturedStderr.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace mnemora::desktop {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

class MainLoopTest : public testing::Test {
  protected:
    /// Runs the loop until the condition holds; false when it doesn't within ten seconds.
    template <class Condition>
    bool runUntil(Condition holds) {
        const auto bound = Clock::now() + 10s;
        while (!holds() && Clock::now() < bound)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 20);
        return holds();
    }

    int argumentCount_ = 1;
    char name_[5] = "test";
    char* arguments_[2] = {name_, nullptr};
    QCoreApplication application_{argumentCount_, arguments_};
    QtMainLoop loop_;
};

TEST_F(MainLoopTest, RunsPostedJobsInOrderOnTheMainThreadAndSurvivesWhatTheyThrow) {
    std::vector<int> order;
    const auto mainThread = std::this_thread::get_id();
    std::thread([&] {
        for (int i = 0; i < 3; ++i)
            loop_.post([&, i] {
                EXPECT_EQ(std::this_thread::get_id(), mainThread);
                order.push_back(i);
                throw std::runtime_error("a job of the test");
            });
    }).join();
    EXPECT_TRUE(order.empty());
    EXPECT_TRUE(runUntil([&] { return order.size() == 3; }));
    EXPECT_EQ(order, (std::vector{0, 1, 2}));
}

TEST_F(MainLoopTest, RunsALateTimerOnceHoweverManyTurnsItMissed) {
    int turns = 0;
    const auto timer = loop_.every(20ms, [&] { ++turns; });
    ASSERT_TRUE(runUntil([&] { return turns > 0; }));
    turns = 0;
    std::this_thread::sleep_for(200ms); // the stall itself
    const auto resumed = Clock::now();
    ASSERT_TRUE(runUntil([&] { return Clock::now() - resumed > 50ms; }));
    EXPECT_GE(turns, 1);
    EXPECT_LE(turns, 5);
}

TEST_F(MainLoopTest, LetsATimerEndItselfOrBeEndedBeforeItsTurn) {
    int once = 0, repeated = 0, cancelled = 0;
    std::unique_ptr<Timer> self = loop_.every(1ms, [&] {
        ++repeated;
        self.reset();
    });
    auto never = loop_.after(1ms, [&] { ++cancelled; });
    never.reset();
    const auto single = loop_.after(1ms, [&] { ++once; });
    bool later = false;
    const auto end = loop_.after(60ms, [&] { later = true; });
    ASSERT_TRUE(runUntil([&] { return later; }));
    EXPECT_EQ(once, 1);
    EXPECT_EQ(repeated, 1);
    EXPECT_EQ(cancelled, 0);
}

TEST_F(MainLoopTest, RunsBackgroundJobsSideBySideAtLowPriorityAndBoundsTheEnd) {
    std::atomic<int> running = 0, polite = 0;
    std::atomic<bool> release = false;
    for (int i = 0; i < 3; ++i)
        loop_.background([&] {
            polite += getpriority(PRIO_PROCESS, static_cast<id_t>(gettid())) == 19 ? 1 : 0;
            ++running;
            while (!release)
                std::this_thread::yield();
            --running;
        });
    EXPECT_TRUE(runUntil([&] { return running == 3; }));
    EXPECT_EQ(polite, 3);
    const auto began = Clock::now();
    EXPECT_FALSE(loop_.finish(50ms));
    EXPECT_LT(Clock::now() - began, 5s);
    bool dropped = true;
    loop_.background([&] { dropped = false; });
    release = true;
    EXPECT_TRUE(runUntil([&] { return running == 0; }));
    EXPECT_TRUE(dropped);
}

TEST_F(MainLoopTest, DropsTheOldestWorkWithOneLineWhileAllWorkersHang) {
    std::atomic<int> running = 0;
    std::atomic<bool> release = false;
    for (int i = 0; i < 3; ++i)
        loop_.background([&] {
            ++running;
            while (!release)
                std::this_thread::yield();
        });
    ASSERT_TRUE(runUntil([&] { return running == 3; }));
    std::mutex mutex;
    std::set<int> done;
    std::string said;
    {
        const test::CapturedStderr output;
        for (int i = 0; i < 100; ++i)
            loop_.background([&, i] {
                const std::lock_guard lock(mutex);
                done.insert(i);
            });
        said = output.text();
    }
    release = true;
    const auto count = [&] {
        const std::lock_guard lock(mutex);
        return done.size();
    };
    EXPECT_TRUE(runUntil([&] { return count() == 32; }));
    EXPECT_TRUE(loop_.finish(5s));
    EXPECT_EQ(*done.begin(), 68);
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
}

} // namespace
} // namespace mnemora::desktop
