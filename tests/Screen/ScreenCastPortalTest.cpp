// The rules of asking for the screen, against a portal that misbehaves as told.

#include "Linux/Screen/ScreenCastPortal.h"

#include "Screen/FakePortal.h"
#include "fakes/BusService.h"
#include "fakes/CapturedStderr.h"
#include "fakes/Eventually.h"

#include <atomic>
#include <gtest/gtest.h>
#include <optional>
#include <thread>

namespace mnemora::portal {
namespace {

using namespace std::chrono_literals;
using test::FakePortal;

constexpr test::Eventually eventually{15s};

/// A cast without pictures; only its life matters here.
struct FakeStream final : FrameStream {
    Outcome<Image> picture(std::chrono::milliseconds,
                           std::chrono::steady_clock::time_point) override {
        return Failure{"none"};
    }
    [[nodiscard]] bool isAlive() const override { return lives; }
    std::atomic<bool> lives = true;
};

class ScreenCastPortalTest : public ::testing::Test {
  protected:
    /// A run of the program with the token that the last one kept.
    ScreenCastPortal& run(bool hasPipeWire = true) {
        cast_.emplace(thread_, ScreenCastPortal::Options{
                                   .token = token(),
                                   .keepToken = [this](const std::string& kept) { keep(kept); },
                                   .loadOpener =
                                       [this, hasPipeWire](std::string& reason) {
                                           reason = "no libpipewire";
                                           return hasPipeWire ? opener() : nullptr;
                                       },
                                   .isInFront = [this] { return !isLocked_; },
                                   .stepPatience = 700ms,
                                   .restorePatience = 300ms,
                                   .dialogPatience = 15s,
                                   .pause = 10ms,
                                   .maxPause = 50ms,
                                   .lockPatience = 200ms});
        (void)cast_->waitUntilKnown(15s);
        return *cast_;
    }
    [[nodiscard]] std::string token() {
        const std::lock_guard lock(mutex_);
        return token_;
    }
    void keep(const std::string& kept) {
        const std::lock_guard lock(mutex_);
        token_ = kept;
    }
    bool runs() {
        return eventually([&] { return cast_->stream(0ms) != nullptr; });
    }
    /// As the sampler does: it looks again and again.
    bool runsAfterLooks() {
        return eventually([&] { return cast_->isPermitted() && cast_->stream(0ms) != nullptr; });
    }
    bool isRefused() {
        return eventually([&] { return cast_->status().wasRefused; });
    }
    /// Many looks later the portal still hasn't been asked for another session.
    void expectNoFurtherStart() {
        const int before = portal_->count("CreateSession");
        for (int look = 0; look < 50; ++look, std::this_thread::sleep_for(2ms))
            EXPECT_FALSE(cast_->isPermitted());
        EXPECT_EQ(portal_->count("CreateSession"), before);
        EXPECT_EQ(token(), "");
    }

    /// Many looks later the portal still hasn't been asked for more sessions, but the consent
    /// stays.
    void expectNoStartBut(int before) {
        for (int look = 0; look < 50; ++look, std::this_thread::sleep_for(2ms))
            EXPECT_TRUE(cast_->isPermitted());
        EXPECT_EQ(portal_->count("CreateSession"), before);
    }

    test::PrivateBus bus_;
    std::optional<FakePortal> portal_{std::in_place};
    std::shared_ptr<FakeStream> stream_;
    std::atomic<bool> isLocked_ = false;

  private:
    FrameStreamOpener opener() {
        return [this](const CastSource& source, std::string&) {
            EXPECT_TRUE(source.remote);
            EXPECT_EQ(source.node, 7U);
            return stream_ = std::make_shared<FakeStream>();
        };
    }

    std::mutex mutex_;
    std::string token_; // guarded by mutex_
    desktop::GLibThread thread_{"test-listener"};
    std::optional<ScreenCastPortal> cast_;
};

TEST_F(ScreenCastPortalTest, AsksOnlyWhenTold) {
    auto& cast = run();
    EXPECT_EQ(cast.presence(), ScreenCastPortal::Presence::present);
    expectNoFurtherStart();
    cast.ask();
    ASSERT_TRUE(runs());
    EXPECT_TRUE(cast.isPermitted());
    EXPECT_EQ(token(), "new");
    const auto first = portal_->calls().front();
    EXPECT_EQ(first.member, "Register") << "before any other word";
    EXPECT_NE(first.arguments.find("app.mnemora.Mnemora"), std::string::npos);
    const auto wanted = portal_->last("SelectSources");
    for (const char* option : {"'persist_mode': <uint32 2>", "'types': <uint32 1>",
                               "'multiple': <false>", "'cursor_mode': <uint32 1>"})
        EXPECT_NE(wanted.find(option), std::string::npos) << option << " in " << wanted;
    EXPECT_EQ(wanted.find("restore_token"), std::string::npos);
}

TEST_F(ScreenCastPortalTest, GoesOnByTheTokenAndKeepsTheNextOne) {
    keep("old");
    auto& cast = run();
    EXPECT_TRUE(cast.isPermitted()) << "from the start";
    ASSERT_TRUE(runs());
    EXPECT_NE(portal_->last("SelectSources").find("'restore_token': <'old'>"), std::string::npos);
    EXPECT_EQ(token(), "new");
    EXPECT_EQ(portal_->count("Start"), 1) << "one session for the whole run";
    cast.withdraw();
    ASSERT_TRUE(eventually([&] { return portal_->count("CloseSession") == 1; }));
    expectNoFurtherStart();
}

TEST_F(ScreenCastPortalTest, WithdrawsADialogThatATokenBringsUp) {
    keep("of a monitor that is gone");
    portal_->behave([](auto& behaviour) { behaviour.hangsAt = "Start"; });
    auto& cast = run();
    ASSERT_TRUE(isRefused());
    EXPECT_TRUE(eventually([&] { return portal_->count("CloseRequest") == 1; }));
    expectNoFurtherStart();
    portal_->behave([](auto& behaviour) { behaviour.hangsAt = ""; });
    cast.ask();
    EXPECT_TRUE(runs());
    EXPECT_EQ(token(), "new");
}

TEST_F(ScreenCastPortalTest, TakesARefusalForAnAnswer) {
    struct Case {
        const char* step;
        unsigned response;
        bool hasToken;
    };
    for (const auto& [step, response, hasToken] :
         {Case{"Start", 1, false}, Case{"Start", 1, true}, Case{"Start", 2, true},
          Case{"SelectSources", 2, true}}) {
        SCOPED_TRACE(step + std::to_string(response));
        portal_->behave([&](auto& behaviour) {
            behaviour.refusesAt = step;
            behaviour.response = response;
        });
        keep(hasToken ? "unwanted" : "");
        auto& cast = run();
        if (!hasToken)
            cast.ask();
        ASSERT_TRUE(isRefused());
        expectNoFurtherStart();
        portal_->behave([](auto& behaviour) { behaviour.refusesAt = ""; });
        cast.ask();
        EXPECT_TRUE(runs()) << "a later grant needs no restart";
    }
}

TEST_F(ScreenCastPortalTest, EndsWhenTheUserStopsIt) {
    keep("old");
    auto& cast = run();
    ASSERT_TRUE(runs());
    test::CapturedStderr log;
    portal_->closeSession();
    ASSERT_TRUE(isRefused());
    EXPECT_EQ(cast.stream(0ms), nullptr);
    expectNoFurtherStart();
    EXPECT_EQ(log.text(), "[mnemora][error] screen cast: the desktop ended it\n");
    cast.ask();
    EXPECT_TRUE(runs());
}

// GNOME's shell ends all casts when it locks.
TEST_F(ScreenCastPortalTest, RestsWhileTheSessionIsLocked) {
    keep("old");
    auto& cast = run();
    for (const bool saysSoFirst : {true, false}) {
        ASSERT_TRUE(runs());
        const int before = portal_->count("CreateSession");
        test::CapturedStderr log;
        isLocked_ = saysSoFirst;
        portal_->closeSession();
        EXPECT_TRUE(eventually([&] { return cast.stream(0ms) == nullptr; }));
        isLocked_ = true;
        EXPECT_TRUE(eventually([&] { return log.text().find("rests") != std::string::npos; }));
        expectNoStartBut(before);
        isLocked_ = false;
        ASSERT_TRUE(runsAfterLooks());
        EXPECT_FALSE(cast.status().wasRefused);
    }
}

TEST_F(ScreenCastPortalTest, StartsWithTheFirstUnlockedLook) {
    keep("old");
    isLocked_ = true;
    (void)run();
    expectNoStartBut(0);
    isLocked_ = false;
    EXPECT_TRUE(runsAfterLooks());
}

TEST_F(ScreenCastPortalTest, GoesOnAfterThePortalWasKilled) {
    keep("old");
    auto& cast = run();
    ASSERT_TRUE(runs());
    keep("");
    portal_.reset();
    ASSERT_TRUE(eventually([&] { return !cast.isPermitted(); }));
    EXPECT_EQ(cast.stream(0ms), nullptr);
    portal_.emplace();
    ASSERT_TRUE(runsAfterLooks());
    EXPECT_NE(portal_->last("SelectSources").find("'restore_token': <'new'>"), std::string::npos);
    EXPECT_EQ(portal_->calls().front().member, "Register");
}

TEST_F(ScreenCastPortalTest, FindsAPortalThatComesLater) {
    portal_.reset();
    keep("old");
    auto& cast = run();
    EXPECT_EQ(cast.presence(), ScreenCastPortal::Presence::absent);
    EXPECT_FALSE(cast.isPermitted());
    portal_.emplace();
    EXPECT_TRUE(runsAfterLooks());
}

TEST_F(ScreenCastPortalTest, StartsAnewWhenTheCastHasEndedByItself) {
    keep("old");
    auto& cast = run();
    ASSERT_TRUE(runs());
    stream_->lives = false;
    EXPECT_TRUE(eventually([&] { return cast.isPermitted() && portal_->count("Start") == 2; }));
    EXPECT_EQ(portal_->count("CloseSession"), 1) << "the former one";
}

TEST_F(ScreenCastPortalTest, WaitsForNobody) {
    portal_->freeze();
    keep("old");
    const auto begin = std::chrono::steady_clock::now();
    auto& hung = run();
    EXPECT_EQ(hung.presence(), ScreenCastPortal::Presence::absent);
    EXPECT_FALSE(hung.isPermitted());
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
    EXPECT_EQ(token(), "old") << "which was never handed over";
    portal_->thaw();
    portal_->behave([](auto& behaviour) { behaviour.hangsAt = "SelectSources"; });
    auto& cast = run();
    ASSERT_TRUE(eventually([&] { return cast.status().lastFailed; }));
    EXPECT_EQ(token(), "old");
    portal_->behave([](auto& behaviour) { behaviour.hangsAt = ""; });
    EXPECT_TRUE(runsAfterLooks());
}

TEST_F(ScreenCastPortalTest, LooksAgainForAPortalThatIsStillStarting) {
    portal_->freeze();
    keep("old");
    auto& cast = run();
    EXPECT_EQ(cast.presence(), ScreenCastPortal::Presence::absent);
    portal_->thaw();
    EXPECT_TRUE(runs());
}

// Each coming used to add a look, and each look that isn't answered one more every while.
TEST_F(ScreenCastPortalTest, AsksAPortalThatComesAndGoesWithoutEndNoMoreThanOnceAtATime) {
    portal_.reset();
    keep("old");
    auto& cast = run();
    std::optional<test::BusService> silent("org.freedesktop.portal.Desktop");
    for (int coming = 0; coming < 200; ++coming) {
        silent->leaveName();
        silent->takeName();
    }
    EXPECT_TRUE(eventually([&] { return silent->calls() >= 3; })) << "it may be starting";
    EXPECT_LT(silent->calls(), 20);
    silent.reset();
    portal_.emplace();
    EXPECT_TRUE(runsAfterLooks());
    EXPECT_TRUE(cast.isPermitted());
}

TEST_F(ScreenCastPortalTest, SurvivesGarbage) {
    const std::vector<std::function<void(FakePortal::Behaviour&)>> kinds = {
        [](auto& behaviour) { behaviour.created = "@a{sv} {}"; },
        [](auto& behaviour) { behaviour.created = "{'session_handle': <'not a path'>}"; },
        [](auto& behaviour) { behaviour.created = "{'session_handle': <uint32 3>}"; },
        [](auto& behaviour) { behaviour.created = "'a text'"; },
        [](auto& behaviour) { behaviour.started = "@a{sv} {}"; },
        [](auto& behaviour) { behaviour.started = "{'streams': <@a(ua{sv}) []>}"; },
        [](auto& behaviour) { behaviour.started = "{'streams': <'7'>, 'restore_token': <7>}"; },
        [](auto& behaviour) {
            behaviour.started = "{'restore_token': <'" + std::string(100'000, 'x') + "'>}";
        },
        [](auto& behaviour) { behaviour.opensRemote = false; }};
    for (const auto& kind : kinds) {
        portal_->behave([&](auto& behaviour) { kind(behaviour = {}); });
        auto& cast = run();
        cast.ask();
        EXPECT_TRUE(eventually([&] { return cast.status().lastFailed; }));
        EXPECT_EQ(cast.stream(0ms), nullptr);
        EXPECT_LT(token().size(), 100'000U);
        keep("");
    }
}

TEST_F(ScreenCastPortalTest, IsAbsentWhereNothingCanBeCast) {
    test::CapturedStderr log;
    EXPECT_EQ(run(false).presence(), ScreenCastPortal::Presence::absent);
    EXPECT_EQ(log.text(), "[mnemora][error] PipeWire is missing: no libpipewire\n");
    portal_->behave([](auto& behaviour) { behaviour.sources = 2; });
    EXPECT_EQ(run().presence(), ScreenCastPortal::Presence::absent) << "windows only";
    portal_->behave([](auto& behaviour) {
        behaviour.sources = 1;
        behaviour.knowsApplications = false;
    });
    EXPECT_EQ(run().presence(), ScreenCastPortal::Presence::present) << "an older portal";
}

} // namespace
} // namespace mnemora::portal
