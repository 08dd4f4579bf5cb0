// Speech recognition through the child process: the real one with voices and people, and small
// scripts that misbehave in its place.

#include "Engines/SpeechSamples.h"
#include "Linux/Engines/EngineSpeechRecognizer.h"
#include "Meetings/SpeechStream.h"
#include "Tools/FileTranscriber.h"
#include "fakes/CapturedStderr.h"
#include "fakes/ProcessUse.h"
#include "fakes/TemporaryFolder.h"

#include <QCoreApplication>
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

namespace mnemora {
namespace {

using namespace std::chrono_literals;
using desktop::QtMainLoop;
using test::Voice;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::UnorderedElementsAre;

namespace fs = std::filesystem;

const Voice woman{Voice::Maker::flite, "slt"};
const Voice man{Voice::Maker::flite, "rms"};

bool eventually(const std::function<bool()>& condition) {
    return FileTranscriber::waitUntil(condition, 60s);
}

/// In lower case, without punctuation.
std::string plain(const std::string& text) {
    std::string letters;
    for (const char letter : text)
        if (std::isalpha(static_cast<unsigned char>(letter)) != 0 || letter == ' ')
            letters += static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    return letters;
}

class EngineSpeechTest : public ::testing::Test {
  protected:
    ~EngineSpeechTest() override {
        streams.clear();
        installed.reset();
        service.reset();
    }

    void useEngine() {
        service = std::make_shared<EngineSpeechService>(settings, loop);
        installed.emplace(DesktopServices{.mainLoop = loop, .speech = service});
    }

    /// A program in the child's place; its socket is descriptor 3.
    void useScript(const std::string& body) {
        settings.program = folder / "engine";
        std::ofstream(settings.program)
            << "#!/bin/sh\necho start >> " << (folder / "starts").string() << "\n"
            << body << "\n";
        fs::permissions(settings.program, fs::perms::owner_all);
        useEngine();
    }

    [[nodiscard]] int starts() const {
        std::ifstream file(folder / "starts");
        int count = 0;
        for (std::string text; std::getline(file, text);)
            ++count;
        return count;
    }

    std::shared_ptr<SpeechStream> stream(const std::string& label) {
        streams.push_back(std::make_shared<SpeechStream>(
            label, "en-US", [this](const std::string& speaker, const std::string& text) {
                segments.emplace_back(speaker + ": " + plain(text));
            }));
        streams.back()->start();
        return streams.back();
    }

    /// Opens a request whose errors are counted; it opens the next after each.
    void countErrors(const std::shared_ptr<SpeechRecognizer>& recognizer) {
        auto next = recognizer->recognize({}, [this, recognizer](const auto&, const auto& error) {
            errors += error ? 1 : 0;
            if (keepsOpening)
                countErrors(recognizer);
        });
        task = std::move(next);
    }

    SpeechEngineSettings settings = SpeechEngineSettings::ofInstallation();
    std::shared_ptr<QtMainLoop> loop = std::make_shared<QtMainLoop>();
    std::shared_ptr<EngineSpeechService> service;
    std::optional<ScopedDesktopServices> installed;
    std::vector<std::shared_ptr<SpeechStream>> streams;
    std::vector<std::string> segments;
    std::unique_ptr<SpeechTask> task;
    int errors = 0;
    bool keepsOpening = true;
    test::TemporaryFolder folder;
};

constexpr auto* ready = R"(printf '\000\000\000\000\001\000\000\000' >&3)";

/// One buffer's worth, as a microphone's; false when there is no more.
bool feedPart(SpeechStream& stream, const PcmBuffer& sound, std::size_t part) {
    const auto step = static_cast<std::size_t>(2048 * sound.channels);
    const auto begin = std::min(part * step, sound.samples.size());
    const auto end = std::min(begin + step, sound.samples.size());
    stream.append({.sampleRate = sound.sampleRate,
                   .channels = sound.channels,
                   .samples = {sound.samples.begin() + static_cast<std::ptrdiff_t>(begin),
                               sound.samples.begin() + static_cast<std::ptrdiff_t>(end)}});
    return begin < end;
}

void feed(SpeechStream& stream, const PcmBuffer& sound) {
    for (std::size_t part = 0; feedPart(stream, sound, part); ++part) {
    }
}

TEST_F(EngineSpeechTest, HearsTwoStreamsAtOnceInALockedInChild) {
    useEngine();
    const auto you = stream("You");
    const auto them = stream("Them");
    auto mine = test::speak(woman, "please send me the report on thursday");
    auto theirs = test::speak(man, "the customer asked for a lower price");
    ASSERT_TRUE(mine && theirs);
    test::append(*mine, test::silence(2, mine->sampleRate));
    test::append(*theirs, test::silence(2, theirs->sampleRate));
    const auto stereo = test::inChannels(*theirs, 2);
    bool isMore = true;
    for (std::size_t part = 0; isMore; ++part) {
        isMore = feedPart(*you, *mine, part);
        isMore = feedPart(*them, stereo, part) || isMore;
    }
    ASSERT_TRUE(eventually([&] { return segments.size() >= 2; }));
    EXPECT_THAT(segments, UnorderedElementsAre("You: please send me the report on thursday",
                                               "Them: the customer asked for a lower price"));

    const auto child = service->child();
    ASSERT_TRUE(child);
    EXPECT_EQ(getpriority(PRIO_PROCESS, static_cast<id_t>(*child)), 5);
    std::ifstream status("/proc/" + std::to_string(*child) + "/status");
    std::vector<std::string> facts;
    for (std::string text; std::getline(status, text);)
        facts.push_back(text);
    EXPECT_THAT(facts, AllOf(Contains("Seccomp:\t2"), Contains("NoNewPrivs:\t1")));
}

TEST_F(EngineSpeechTest, LosesAndRepeatsNothingAcrossRequests) {
    const auto people = test::peopleReading();
    ASSERT_FALSE(people.empty());
    useEngine();
    const auto you = stream("You");
    for (const auto& person : people) {
        feed(*you, person.sound);
        feed(*you, test::silence(0.8));
    }
    const auto words = [&] {
        std::string all;
        for (const auto& segment : segments)
            all += segment.substr(4);
        return all;
    };
    ASSERT_TRUE(eventually([&] { return words().find("made amiable himself") != words().npos; }))
        << words();
    EXPECT_GE(segments.size(), people.size());
    for (const char* once : {"leisure to consider", "young man", "rather selfish",
                             "a more amiable woman", "respectable than he was"}) {
        EXPECT_NE(words().find(once), std::string::npos) << once << " in " << words();
        EXPECT_EQ(words().find(once), words().rfind(once)) << once;
    }
}

TEST_F(EngineSpeechTest, CompletesWhatWasSaidWhenTheStreamStops) {
    useEngine();
    const auto you = stream("You");
    const auto sound = test::speak(woman, "we meet again on monday");
    ASSERT_TRUE(sound);
    feed(*you, *sound);
    you->stop();
    ASSERT_TRUE(eventually([&] { return !segments.empty(); }));
    EXPECT_THAT(segments, ElementsAre("You: we meet again on monday"));
}

TEST_F(EngineSpeechTest, HearsOnAfterTheChildWasKilledInTheMiddleOfASentence) {
    useEngine();
    const auto you = stream("You");
    const auto sound = test::speak(woman, "this sentence is lost in the middle");
    const auto next = test::speak(woman, "please remember to book the tickets");
    ASSERT_TRUE(sound && next);
    ASSERT_TRUE(eventually([&] { return service->child().has_value(); }));
    const auto first = *service->child();
    auto half = *sound;
    half.samples.resize(half.samples.size() / 2);
    feed(*you, half);
    kill(first, SIGKILL);
    ASSERT_TRUE(eventually([&] { return service->child() && *service->child() != first; }));
    feed(*you, *next);
    feed(*you, test::silence(1, next->sampleRate));
    ASSERT_TRUE(eventually([&] { return !segments.empty(); }));
    EXPECT_THAT(segments, ElementsAre("You: please remember to book the tickets"));
}

TEST_F(EngineSpeechTest, LetsTheWeightsGoAfterTheLastRecording) {
    settings.idle = 20ms;
    useEngine();
    const auto you = stream("You");
    EXPECT_TRUE(eventually([&] { return service->child().has_value(); }));
    you->stop();
    EXPECT_TRUE(eventually([&] { return !service->child(); }));
    you->start();
    EXPECT_TRUE(eventually([&] { return service->child().has_value(); })) << "never came back";
}

TEST_F(EngineSpeechTest, IsUnavailableWithoutItsParts) {
    const auto whole = settings;
    for (auto* part : {&settings.program, &settings.model, &settings.runtime}) {
        settings = whole;
        *part = folder / "absent";
        useEngine();
        EXPECT_FALSE(service->recognizer("en-US")->isAvailable()) << part - &settings.program;
        EXPECT_FALSE(service->child());
    }
    settings = whole;
    useEngine();
    EXPECT_TRUE(service->recognizer("en-US")->isAvailable());
    EXPECT_EQ(service->recognizer("de-DE"), nullptr);
}

TEST_F(EngineSpeechTest, NeedsNoRuntimeButItsOwn) {
    const auto libraries = settings.runtime.parent_path();
    fs::create_directories(folder / "libexec/mnemora");
    fs::create_directories(folder / "lib/mnemora/runtime");
    fs::copy(settings.program, folder / "libexec/mnemora/mnemora-engines");
    settings.program = folder / "libexec/mnemora/mnemora-engines";
    const std::string engine = "libmnemora-speech-engine.so";
    fs::create_symlink(libraries / engine, folder / "lib/mnemora" / engine);
    test::CapturedStderr captured;
    useEngine();
    const auto without = stream("You");
    EXPECT_TRUE(eventually([&] { return !captured.text().empty(); }));
    EXPECT_THAT(captured.text(), HasSubstr("unavailable: libsherpa-onnx-c-api.so: cannot open"));
    streams.clear();
    for (const char* library : {"libsherpa-onnx-c-api.so", "libonnxruntime.so"})
        fs::create_symlink(libraries / "runtime" / library,
                           folder / "lib/mnemora/runtime" / library);
    useEngine(); // without the text engine and its runtime
    const auto with = stream("You");
    EXPECT_TRUE(eventually([&] { return service->child().has_value(); })) << captured.text();
}

TEST_F(EngineSpeechTest, FindsADamagedFileWhenAskedForPermission) {
    fs::copy(settings.model, folder / "model");
    settings.model = folder / "model";
    const auto tokens = settings.model / "tokens.txt";
    std::fstream(tokens, std::ios::in | std::ios::out) << "??";
    test::CapturedStderr captured;
    useEngine();
    EXPECT_TRUE(service->recognizer("en-US")->isAvailable()) << "sizes alone can't tell";
    std::atomic<bool> isAsked = false;
    service->requestAuthorization([&](bool authorized) { isAsked = authorized; });
    ASSERT_TRUE(eventually([&] { return isAsked.load(); }));
    EXPECT_FALSE(service->recognizer("en-US")->isAvailable());
    EXPECT_THAT(captured.text(), HasSubstr("a file of the model is missing or damaged"));
}

TEST_F(EngineSpeechTest, AChildThatRefusesMakesItUnavailableAndIsntAskedAgainAtOnce) {
    useScript(R"(printf '\012\000\000\000\002\000\000\000too hungry' >&3)");
    test::CapturedStderr captured;
    const auto recognizer = service->recognizer("en-US");
    EXPECT_TRUE(recognizer->isAvailable());
    countErrors(recognizer);
    ASSERT_TRUE(eventually([&] { return errors > 0; }));
    EXPECT_FALSE(recognizer->isAvailable());
    EXPECT_EQ(starts(), 1);
    EXPECT_THAT(captured.text(), HasSubstr("speech recognition is unavailable: too hungry"));
    keepsOpening = false;
    task.reset();
}

TEST_F(EngineSpeechTest, ChildrenThatMisbehaveCostErrorsOnly) {
    settings.pause = 1h;
    settings.stuck = 200ms;
    const std::vector<std::pair<const char*, std::string>> children{
        {"ends at once", "exit 1"},
        {"says nothing", "exec sleep 60"},
        {"talks nonsense", std::string(ready) + "; printf 'nonsense-nonsense' >&3; sleep 60"},
        {"promises gigabytes",
         std::string(ready) + R"(; printf '\377\377\377\377\011\000\000\000' >&3; sleep 60)"},
        {"takes no sound", std::string(ready) + "; exec sleep 60"}};
    const PcmBuffer second = test::silence(1, 48000);
    for (const auto& [name, body] : children) {
        errors = 0;
        useScript(body);
        countErrors(service->recognizer("en-US"));
        EXPECT_TRUE(eventually([&] {
            task->append(second);
            return errors > 0;
        })) << name;
        keepsOpening = false;
        task.reset();
        keepsOpening = true;
    }
}

TEST_F(EngineSpeechTest, AChildThatTalksWithoutEndIsEndedAndNothingStaysBehind) {
    auto before = test::ProcessUse::now();
    settings.pause = 1h;
    const auto frames = (folder / "frames").string();
    // In stream 1 somebody begins to speak, thousands of times at once.
    useScript("f=" + frames + "\n" + ready + R"(
printf '\004\000\000\000\010\000\000\000\001\000\000\000' > $f
for i in 1 2 3 4 5 6 7 8 9 10 11 12; do cat $f $f > $f.two; mv $f.two $f; done
while cat $f >&3; do :; done)");
    const test::CapturedStderr captured;
    before.descriptors += 2; // those of `captured`
    countErrors(service->recognizer("en-US"));
    const auto bound = std::chrono::steady_clock::now() + 30s;
    while (captured.text().empty() && std::chrono::steady_clock::now() < bound)
        std::this_thread::yield(); // and the main loop stands still
    EXPECT_THAT(captured.text(), HasSubstr("speech recognition is unavailable"));
    EXPECT_TRUE(eventually([&] { return errors > 0; }));
    keepsOpening = false;
    task.reset();
    installed.reset();
    service.reset();
    EXPECT_TRUE(before.comesBack()) << before << " before, " << test::ProcessUse::now() << " after";
}

} // namespace
} // namespace mnemora

int main(int count, char** words) {
    const QCoreApplication application(count, words);
    ::testing::InitGoogleTest(&count, words);
    return RUN_ALL_TESTS();
}
