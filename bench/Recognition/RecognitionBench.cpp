// Quality and cost of text recognition, with the product's own adapter and child process, on
// rendered screens whose text is known. Prints a table and the targets; exit status 1 when one is
// missed. Costs are processor seconds of the child: wall time says nothing about a process of the
// idle scheduling class.

#include "Linux/Engines/EngineTextRecognizer.h"
#include "Screens.h"
#include "WordScore.h"

#include <QGuiApplication>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <string>

namespace {

using namespace mnemora;
using namespace mnemora::bench;

struct Measured {
    std::string text;
    double seconds = 0;
    double mebibytes = 0;
};

double childSeconds(const EngineTextRecognizer& recognizer) {
    const auto child = recognizer.child();
    const auto time = child ? engines::processorTime(*child) : std::nullopt;
    return time ? std::chrono::duration<double>(*time).count() : 0;
}

/// The most memory that the child has had resident so far.
double childMebibytes(const EngineTextRecognizer& recognizer) {
    std::ifstream status("/proc/" + std::to_string(recognizer.child().value_or(0)) + "/status");
    for (std::string word; status >> word;)
        if (double kibibytes = 0; word == "VmHWM:" && status >> kibibytes)
            return kibibytes / 1024;
    return 0;
}

Measured measure(EngineTextRecognizer& recognizer, const ScreenPainter& screen) {
    Measured measured;
    const double before = childSeconds(recognizer);
    for (const auto& line : recognizer.recognize(screen.image()))
        if (line.bestCandidate)
            measured.text += *line.bestCandidate + "\n";
    measured.seconds = childSeconds(recognizer) - before;
    measured.mebibytes = childMebibytes(recognizer);
    return measured;
}

/// A child that is running, with nothing on the screens to come read before.
std::unique_ptr<EngineTextRecognizer> warmRecognizer(double* coldSeconds = nullptr) {
    auto recognizer = std::make_unique<EngineTextRecognizer>(EngineSettings::ofInstallation());
    ScreenPainter other(QColor(250, 244, 230));
    const auto font = screenFont("DejaVu Serif", 17);
    for (int i = 0; i < 40; ++i)
        other.write(30, 20 + i * 26, std::string(static_cast<std::size_t>(4 + i * 3), 'm'), font,
                    QColor(60, 50, 40));
    const auto measured = measure(*recognizer, other);
    if (coldSeconds != nullptr)
        *coldSeconds = measured.seconds;
    return recognizer;
}

bool allMet = true;

void target(const char* what, double value, bool met, const char* limit) {
    std::printf("%-42s %9.4f  %s %s\n", what, value, limit, met ? "" : "MISSED");
    allMet = allMet && met;
}

void atMost(const char* what, double value, double most) {
    target(what, value, value <= most, ("at most " + std::to_string(most).substr(0, 6)).c_str());
}

void atLeast(const char* what, double value, double least) {
    target(what, value, value >= least, ("at least " + std::to_string(least).substr(0, 6)).c_str());
}

void fullScreens() {
    double recall = 0, precision = 0, pairs = 0, seconds = 0;
    double worstRecall = 1, worstSeconds = 0, mebibytes = 0, cold = 0;
    int blankWords = 0, written = 0, count = 0;
    std::printf("%-18s %6s %7s %9s %6s %8s %6s\n", "screen", "words", "recall", "precision",
                "pairs", "seconds", "MiB");
    for (const auto& screen : renderedScreens()) {
        const auto recognizer = warmRecognizer(&cold);
        const auto measured = measure(*recognizer, screen.painter);
        const auto score = scoreWords(screen.painter.lines(), measured.text);
        std::printf("%-18s %6d %7.3f %9.3f %6.3f %8.2f %6.0f\n", screen.name.c_str(), score.words,
                    score.recall, score.precision, score.pairs, measured.seconds,
                    measured.mebibytes);
        ++count;
        seconds += measured.seconds;
        worstSeconds = std::max(worstSeconds, measured.seconds);
        mebibytes = std::max(mebibytes, measured.mebibytes);
        if (score.words == 0) {
            blankWords += score.found;
            continue;
        }
        ++written;
        recall += score.recall;
        precision += score.precision;
        pairs += score.pairs;
        worstRecall = std::min(worstRecall, score.recall);
    }
    std::printf("\n");
    atLeast("word recall, mean", recall / written, 0.985);
    atLeast("word recall, worst screen", worstRecall, 0.95);
    atLeast("word precision, mean", precision / written, 0.97);
    atLeast("neighbouring pairs kept, mean", pairs / written, 0.97);
    atMost("words on the blank screen", blankWords, 0);
    atMost("CPU seconds, full new screen, mean", seconds / count, 1.8);
    atMost("CPU seconds, full new screen, worst", worstSeconds, 4);
    atMost("child's peak memory, MiB", mebibytes, 450);
    std::printf("%-42s %9.4f  (start, model and a first screen)\n", "CPU seconds, cold", cold);
}

void changedScreens() {
    const auto recognizer = warmRecognizer();
    double worst = 0;
    for (const int first : {0, 10, 22, 31, 45}) {
        (void)measure(*recognizer, editorScreen(0, 0));
        // Other pixels each time, so that nothing is remembered from the time before.
        auto changed = editorScreen(first, editorLines / 10);
        worst = std::max(worst, measure(*recognizer, changed).seconds);
    }
    atMost("CPU seconds, a tenth of the lines changed", worst, 0.6);
}

double threadSeconds() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

void unchangedScreen() {
    constexpr int times = 20;
    const auto recognizer = warmRecognizer();
    const auto image = editorScreen(0, 0).image();
    (void)recognizer->recognize(image);
    const double before = threadSeconds() + childSeconds(*recognizer);
    for (int i = 0; i < times; ++i)
        (void)recognizer->recognize(image);
    const double after = threadSeconds() + childSeconds(*recognizer);
    atMost("CPU milliseconds, unchanged screen", (after - before) * 1000 / times, 5);
}

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QGuiApplication application(argc, argv);
    fullScreens();
    changedScreens();
    unchangedScreen();
    return allMet ? 0 : 1;
}
