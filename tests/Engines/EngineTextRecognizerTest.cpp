// Text recognition through the child process: the real one, and small scripts that misbehave in
// its place.

#include "Linux/Engines/EngineTextRecognizer.h"

#include "Engines/RecognitionFrames.h"
#include "Engines/ScreenPainter.h"
#include "Linux/Engines/SealedPicture.h"
#include "Support/Installation.h"
#include "fakes/CapturedStderr.h"
#include "fakes/Eventually.h"
#include "fakes/ProcessUse.h"
#include "fakes/TemporaryFolder.h"
#include "fakes/TemporaryHome.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>
#include <thread>

namespace mnemora {
namespace {

using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

namespace fs = std::filesystem;

constexpr test::Eventually eventually{20s};

ScreenPainter painted(const std::string& text) {
    ScreenPainter screen(QColor(245, 245, 245), 640, 320);
    screen.write(40, 60, text, screenFont("DejaVu Sans", 14), Qt::black);
    screen.write(40, 160, "Second line of the letter", screenFont("DejaVu Sans", 14), Qt::black);
    return screen;
}

RecognizedLine line(const char* text) {
    return {.bestCandidate = text};
}

/// The state letter of a process, as proc(5) lists it.
char stateOf(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    std::getline(file, text);
    const auto end = text.rfind(") ");
    return end == std::string::npos ? '?' : text[end + 2];
}

/// What of a process's memory is its own (proc(5), RssAnon).
double privateMebibytes(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string word; status >> word;)
        if (double kibibytes = 0; word == "RssAnon:" && status >> kibibytes)
            return kibibytes / 1024;
    return 0;
}

class EngineTextRecognizerTest : public ::testing::Test {
  protected:
    /// A program in the child's place; its socket is descriptor 3.
    EngineSettings scripted(const std::string& body) {
        const auto path = folder_ / "engine";
        std::ofstream(path) << "#!/bin/sh\necho start >> " << (folder_ / "starts").string() << "\n"
                            << body << "\n";
        fs::permissions(path, fs::perms::owner_all);
        auto settings = EngineSettings::ofInstallation();
        settings.program = path;
        return settings;
    }

    [[nodiscard]] int starts() const {
        std::ifstream file(folder_ / "starts");
        int count = 0;
        for (std::string text; std::getline(file, text);)
            ++count;
        return count;
    }

    test::TemporaryFolder folder_;
};

constexpr auto* ready = R"(printf '\000\000\000\000\001\000\000\000' >&3)";

TEST_F(EngineTextRecognizerTest, ReadsAPictureInALockedInChild) {
    EngineTextRecognizer recognizer(EngineSettings::ofInstallation());
    EXPECT_FALSE(recognizer.child()) << "started before there was a need";
    const auto lines = recognizer.recognize(painted("Dear Marco, the parcel is here").image());
    EXPECT_EQ(lines, (std::vector{line("Dear Marco, the parcel is here"),
                                  line("Second line of the letter")}));

    const auto child = recognizer.child();
    ASSERT_TRUE(child);
    EXPECT_EQ(sched_getscheduler(*child), SCHED_IDLE);
    const fs::path process = "/proc/" + std::to_string(*child);
    int threads = 0;
    for (const auto& task : fs::directory_iterator(process / "task")) {
        std::ifstream status(task.path() / "status");
        std::vector<std::string> facts;
        for (std::string text; std::getline(status, text);)
            facts.push_back(text);
        EXPECT_THAT(facts, Contains("Seccomp:\t2"));
        EXPECT_THAT(facts, Contains("NoNewPrivs:\t1"));
        ++threads;
    }
    EXPECT_GE(threads, 1);
}

TEST_F(EngineTextRecognizerTest, AnswersAnUnchangedPictureWithoutTheChild) {
    EngineTextRecognizer recognizer(EngineSettings::ofInstallation());
    const auto image = painted("Meeting moved to Monday").image();
    const auto first = recognizer.recognize(image);
    ASSERT_THAT(first, Contains(line("Meeting moved to Monday")));
    kill(*recognizer.child(), SIGSTOP); // whatever it were asked now, it couldn't answer
    EXPECT_EQ(recognizer.recognize(painted("Meeting moved to Monday").image()), first);
}

TEST_F(EngineTextRecognizerTest, LosesOnePictureWhenTheChildDiesInMidAnswer) {
    EngineTextRecognizer recognizer(EngineSettings::ofInstallation());
    ASSERT_THAT(recognizer.recognize(painted("first").image()), Contains(line("first")));
    const pid_t child = *recognizer.child();
    kill(child, SIGSTOP);
    auto answer = std::async(std::launch::async,
                             [&] { return recognizer.recognize(painted("second").image()); });
    auto waiting = std::async(std::launch::async, [&] {
        EXPECT_TRUE(eventually([&] { return stateOf(child) == 'T'; }));
        kill(child, SIGKILL);
    });
    EXPECT_THAT(answer.get(), IsEmpty());
    EXPECT_THAT(recognizer.recognize(painted("third").image()), Contains(line("third")));
    EXPECT_NE(recognizer.child(), child);
}

TEST_F(EngineTextRecognizerTest, TakesNoThirdPictureWhileOneRunsAndOneWaits) {
    EngineTextRecognizer recognizer(EngineSettings::ofInstallation());
    (void)recognizer.recognize(painted("first").image());
    const pid_t child = *recognizer.child();
    kill(child, SIGSTOP);
    EXPECT_TRUE(recognizer.hasRoom());
    auto running = std::async(std::launch::async,
                              [&] { return recognizer.recognize(painted("running").image()); });
    auto waiting = std::async(std::launch::async,
                              [&] { return recognizer.recognize(painted("waiting").image()); });
    ASSERT_TRUE(eventually([&] { return !recognizer.hasRoom(); }));
    EXPECT_THAT(recognizer.recognize(painted("third").image()), IsEmpty());
    kill(child, SIGCONT);
    EXPECT_THAT(running.get(), Contains(line("running")));
    EXPECT_THAT(waiting.get(), Contains(line("waiting")));
    EXPECT_TRUE(recognizer.hasRoom());
}

TEST_F(EngineTextRecognizerTest, EndsTheIdleChildAndStartsItAtTheNextNeed) {
    auto settings = EngineSettings::ofInstallation();
    settings.idle = 20ms;
    EngineTextRecognizer recognizer(settings);
    ASSERT_THAT(recognizer.recognize(painted("first").image()), Contains(line("first")));
    EXPECT_TRUE(eventually([&] { return !recognizer.child(); }));
    EXPECT_THAT(recognizer.recognize(painted("second").image()), Contains(line("second")));
}

TEST_F(EngineTextRecognizerTest, SaysOnceWhyItIsUnavailable) {
    const auto model = EngineSettings::ofInstallation().model;
    const auto copy = folder_ / "model";
    fs::create_directory(copy);
    for (const auto& file : fs::directory_iterator(model))
        fs::copy_file(fs::canonical(file.path()), copy / file.path().filename());
    {
        std::fstream damaged(copy / "PP-OCRv6_rec_small.onnx",
                             std::ios::binary | std::ios::in | std::ios::out);
        damaged.seekp(5'000'000);
        damaged.put('\x55');
    }
    struct {
        fs::path program, model;
        const char* reason;
    } const cases[] = {
        {EngineSettings::ofInstallation().program, copy, "PP-OCRv6_rec_small.onnx is damaged"},
        {EngineSettings::ofInstallation().program, folder_ / "none",
         "the model's manifest is missing or damaged"},
        {folder_ / "no-program", model, "its program can't be started"},
        {"/bin/true", model, "its program ended at once"},
    };
    for (const auto& c : cases) {
        auto settings = EngineSettings::ofInstallation();
        settings.program = c.program;
        settings.model = c.model;
        settings.pause = 0ms;
        test::CapturedStderr log;
        EngineTextRecognizer recognizer(settings);
        for (const auto* text : {"a", "b", "c"})
            EXPECT_THAT(recognizer.recognize(painted(text).image()), IsEmpty());
        EXPECT_EQ(log.text(), "[mnemora][error] text recognition is unavailable: " +
                                  std::string(c.reason) + "\n");
    }
}

TEST_F(EngineTextRecognizerTest, PausesInsteadOfStartingOverAndOver) {
    auto settings = scripted(std::string(ready) + "; head -c 1 <&3 >/dev/null");
    settings.pause = 1h;
    settings.maxPause = 1h;
    EngineTextRecognizer recognizer(settings);
    for (const auto* text : {"a", "b", "c", "d", "e"})
        EXPECT_THAT(recognizer.recognize(painted(text).image()), IsEmpty());
    EXPECT_EQ(starts(), 2);
}

TEST_F(EngineTextRecognizerTest, TakesNoGarbageForAnAnswer) {
    const char* const garbage[] = {
        R"(printf 'GARBAGE and more of it' >&3; sleep 60)",
        // After a proper start: a length beyond all bounds, a kind that isn't expected, a list
        // that is cut short.
        R"(printf '\000\000\000\000\001\000\000\000' >&3; printf '\377\377\377\377\004\000\000\000' >&3; sleep 60)",
        R"(printf '\000\000\000\000\001\000\000\000' >&3; printf '\000\000\000\000\011\000\000\000' >&3; sleep 60)",
        R"(printf '\000\000\000\000\001\000\000\000' >&3; printf '\010\000\000\000\004\000\000\000\144\000\000\000abcd' >&3; sleep 60)",
    };
    for (const auto* script : garbage) {
        EngineTextRecognizer recognizer(scripted(script));
        EXPECT_THAT(recognizer.recognize(painted("text").image()), IsEmpty()) << script;
        EXPECT_TRUE(eventually([&] { return !recognizer.child(); })) << script;
    }
}

TEST_F(EngineTextRecognizerTest, TakesNoAnswerForAnotherPicture) {
    // Two answers to the first picture; the next child gives one.
    const std::string answer = R"(printf '\005\000\000\000\004\000\000\000\001\000\000\000%s' )";
    EngineTextRecognizer recognizer(
        scripted(std::string(ready) + "; head -c 9 <&3 >/dev/null; if [ $(wc -l < " +
                 (folder_ / "starts").string() + ") = 1 ]; then " + answer + "a >&3; " + answer +
                 "b >&3; echo >> " + (folder_ / "said").string() + "; sleep 60; else " + answer +
                 "c >&3; sleep 60; fi"));
    EXPECT_THAT(recognizer.recognize(painted("first").image()), Contains(line("a")));
    EXPECT_TRUE(eventually([&] { return fs::exists(folder_ / "said"); }));
    EXPECT_THAT(recognizer.recognize(painted("second").image()), Contains(line("c")));
}

TEST_F(EngineTextRecognizerTest, LeavesNothingBehindWhateverTheChildDoes) {
    auto before = test::ProcessUse::now();
    const char* const children[] = {"exit 0", "exec sleep 60", "exec cat /dev/zero >&3",
                                    "kill -STOP $$", "exec cat <&3 >&3"};
    for (const auto* child : children)
        for (const auto& start : {std::string(ready) + "; ", std::string()}) {
            auto settings = scripted(start + child);
            settings.patience = 100ms;
            settings.stuck = 100ms;
            EngineTextRecognizer recognizer(settings);
            EXPECT_THAT(recognizer.recognize(painted("a").image()), IsEmpty()) << child;
            EXPECT_THAT(recognizer.recognize(painted("b").image()), IsEmpty()) << child;
        }
    EXPECT_TRUE(before.comesBack()) << before << " before, " << test::ProcessUse::now() << " after";
}

// A display takes many sizes while the window of a virtual machine is dragged, and the runtime
// compiles code of several megabytes for each.
TEST_F(EngineTextRecognizerTest, KeepsNoCodeForEverySizeOfADisplay) {
    EngineTextRecognizer recognizer(EngineSettings::ofInstallation());
    const auto readSizes = [&](int from, int to) {
        for (int i = from; i < to; ++i) { // the largest first: its working memory serves the others
            ScreenPainter screen(Qt::white, 960 - i * 32, 480 - i * 37 % 224);
            screen.write(20, 40, "Size " + std::to_string(i), screenFont("DejaVu Sans", 14),
                         Qt::black);
            EXPECT_THAT(recognizer.recognize(screen.image()), Not(IsEmpty())) << i;
        }
        return privateMebibytes(*recognizer.child());
    };
    const double before = readSizes(0, 6);
    EXPECT_LT(readSizes(6, 24) - before, 45);
}

TEST_F(EngineTextRecognizerTest, RepairsTextThatIsNoUtf8) {
    EngineTextRecognizer recognizer(scripted(
        std::string(ready) +
        R"(; printf '\006\000\000\000\004\000\000\000\002\000\000\000a\377' >&3; sleep 60)"));
    EXPECT_THAT(recognizer.recognize(painted("text").image()), Contains(line("a\xEF\xBF\xBD")));
}

TEST_F(EngineTextRecognizerTest, WaitsForASilentChildOnlySoLong) {
    auto settings = scripted(std::string(ready) + "; exec sleep 60");
    settings.patience = 50ms;
    settings.stuck = 1h;
    {
        EngineTextRecognizer recognizer(settings);
        EXPECT_THAT(recognizer.recognize(painted("text").image()), IsEmpty());
        EXPECT_TRUE(recognizer.child()) << "it may still answer";
    } // and the end of the recogniser waits for nobody
    settings.stuck = 100ms;
    EngineTextRecognizer recognizer(settings);
    EXPECT_THAT(recognizer.recognize(painted("text").image()), IsEmpty());
    EXPECT_TRUE(eventually([&] { return !recognizer.child(); }));
}

TEST_F(EngineTextRecognizerTest, RefusesPicturesThatAreNone) {
    EngineTextRecognizer recognizer(EngineSettings::ofInstallation());
    const auto pixels = std::make_shared<const std::vector<std::uint8_t>>(400);
    const Image pictures[] = {
        {},
        {.width = 10, .height = 10, .stride = 40, .pixels = nullptr},
        {.width = 10, .height = 11, .stride = 40, .pixels = pixels},
        {.width = 10, .height = 10, .stride = 36, .pixels = pixels},
        {.width = -10, .height = 10, .stride = 40, .pixels = pixels},
        {.width = 1 << 30, .height = 1 << 30, .stride = std::size_t{1} << 33, .pixels = pixels},
    };
    for (const auto& picture : pictures)
        EXPECT_THAT(recognizer.recognize(picture), IsEmpty());
    EXPECT_FALSE(recognizer.child());
}

TEST_F(EngineTextRecognizerTest, TheChildRefusesAPictureThatCouldChange) {
    // Started on a thread of its own, as the child ends with it.
    const auto settings = EngineSettings::ofInstallation();
    auto engine =
        engines::EngineProcess::start(settings.program, {"recognition", settings.model.string()});
    ASSERT_TRUE(engine);
    const auto deadline = std::chrono::steady_clock::now() + 30s;
    const auto greeting = engines::receiveFrame(engine->socket(), deadline);
    ASSERT_TRUE(greeting);
    ASSERT_EQ(greeting->kind, engines::FrameKind::ready);
    const FileDescriptor open(memfd_create("unsealed", MFD_CLOEXEC));
    ASSERT_TRUE(writeAll(open.get(), std::string(400, 'x')));
    ASSERT_TRUE(engines::sendFrame(engine->socket(), engines::FrameKind::picture,
                                   engines::encodeShape({10, 10, 40}), open.get(), deadline));
    EXPECT_FALSE(engines::receiveFrame(engine->socket(), deadline));
    EXPECT_LT(std::chrono::steady_clock::now(), deadline) << "it answered nothing, but lives";
}

TEST_F(EngineTextRecognizerTest, TheChildEndsWithTheThreadThatStartedIt) {
    const auto settings = EngineSettings::ofInstallation();
    std::optional<engines::EngineProcess> engine;
    const auto deadline = std::chrono::steady_clock::now() + 30s;
    std::thread([&] {
        auto started = engines::EngineProcess::start(settings.program,
                                                     {"recognition", settings.model.string()});
        ASSERT_TRUE(started);
        engine.emplace(std::move(*started));
        EXPECT_TRUE(engines::receiveFrame(engine->socket(), deadline));
    }).join();
    ASSERT_TRUE(engine);
    EXPECT_TRUE(eventually([&] { return stateOf(engine->pid()) == 'Z'; }));
}

} // namespace
} // namespace mnemora
