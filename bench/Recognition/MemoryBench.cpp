// What the product's recognition child holds while it reads as many different screens as people
// show it in hours, and displays of many sizes. Prints private memory, descriptors and threads at
// intervals, and the slope over the latter half; exit status 1 when it still grows there.
//
//     bench-recognition-memory [SCREENS [SIZES]]

#include "Linux/Engines/EngineTextRecognizer.h"
#include "SampleTexts.h"
#include "Screens.h"

#include <QGuiApplication>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace mnemora;
using namespace mnemora::bench;

constexpr int intervals = 12;
constexpr double mostMebibytes = 450;
/// A screen every six seconds, as the program looks: 600 an hour.
constexpr double screensAnHour = 600;

struct Held {
    double mebibytes = 0;
    long descriptors = 0;
    long threads = 0;
};

Held heldBy(pid_t child) {
    const auto process = std::filesystem::path("/proc") / std::to_string(child);
    Held held;
    std::ifstream status(process / "status");
    for (std::string word; status >> word;)
        if (double kibibytes = 0; word == "RssAnon:" && status >> kibibytes)
            held.mebibytes = kibibytes / 1024;
    const auto count = [&](const char* folder) {
        return std::distance(std::filesystem::directory_iterator(process / folder), {});
    };
    held.descriptors = count("fd");
    held.threads = count("task");
    return held;
}

class Chance {
  public:
    int between(int least, int most) {
        // Not std::uniform_int_distribution, whose numbers differ between libraries.
        return least + static_cast<int>(numbers_() % static_cast<unsigned>(most - least + 1));
    }
    const std::string& of(const std::vector<std::string>& texts) {
        return texts[numbers_() % texts.size()];
    }

  private:
    std::mt19937 numbers_{20261123};
};

std::string words(Chance& chance) {
    const std::vector<std::string>* kinds[] = {&sentences(), &codeLines(), &terminalLines(),
                                               &people()};
    const auto& kind = *kinds[chance.between(0, 3)];
    std::string text = chance.of(kind);
    if (chance.between(0, 2) == 0)
        text += " " + chance.of(kind);
    return text.substr(0, static_cast<std::size_t>(chance.between(1, 160)));
}

/// Windows at random places, with a few to many lines of one font each.
ScreenPainter randomScreen(Chance& chance, int width, int height) {
    const char* families[] = {"DejaVu Sans", "DejaVu Sans Mono", "DejaVu Serif", "Nimbus Sans"};
    ScreenPainter screen(QColor::fromHsv(chance.between(0, 359), 60, 90), width, height);
    for (int window = chance.between(1, 4); window > 0; --window) {
        const bool isDark = chance.between(0, 1) == 0;
        const int left = chance.between(0, width / 2);
        const int top = chance.between(0, height / 2);
        screen.fill(left, top, width - left, height - top, isDark ? Qt::black : Qt::white);
        const int pixels = chance.between(9, 30);
        const auto font = screenFont(families[chance.between(0, 3)], pixels);
        for (int line = chance.between(1, 16); line > 0; --line)
            screen.write(left + 10, top + 10 + line * pixels * 3 / 2, words(chance), font,
                         isDark ? Qt::white : Qt::black);
    }
    return screen;
}

/// By least squares, for each step of x.
double slope(const std::vector<std::pair<double, double>>& points) {
    const auto count = static_cast<double>(points.size());
    double x = 0, y = 0, xx = 0, xy = 0;
    for (const auto& [atX, atY] : points) {
        x += atX / count;
        y += atY / count;
    }
    for (const auto& [atX, atY] : points) {
        xx += (atX - x) * (atX - x);
        xy += (atX - x) * (atY - y);
    }
    return xx > 0 ? xy / xx : 0;
}

struct Size {
    int width;
    int height;
};

/// False when what the child holds passes the limit or goes on growing.
template <class SizeOf>
bool read(const char* what, int count, double growthLimit, SizeOf sizeOf) {
    EngineTextRecognizer recognizer(EngineSettings::ofInstallation());
    Chance chance;
    std::vector<std::pair<double, double>> points;
    Held held;
    Held most; // of the first half
    for (int i = 1; i <= count; ++i) {
        const Size size = sizeOf(i);
        (void)recognizer.recognize(randomScreen(chance, size.width, size.height).image());
        if (!recognizer.child())
            return false;
        held = heldBy(*recognizer.child());
        if (i > count / 2)
            points.emplace_back(i, held.mebibytes);
        else
            most = {held.mebibytes, std::max(most.descriptors, held.descriptors),
                    std::max(most.threads, held.threads)};
        if (i % std::max(1, count / intervals) == 0) {
            std::printf("%5d %-8s %6.1f MiB private, %ld descriptors, %ld threads\n", i, what,
                        held.mebibytes, held.descriptors, held.threads);
            std::fflush(stdout);
        }
    }
    const double growth = slope(points) * screensAnHour;
    const bool isMet = growth <= growthLimit && held.mebibytes <= mostMebibytes &&
                       held.descriptors <= most.descriptors && held.threads <= most.threads;
    std::printf("latter half: %+.1f MiB in 600 %s  at most %.0f, %.0f in all %s\n\n", growth, what,
                growthLimit, mostMebibytes, isMet ? "" : "MISSED");
    return isMet;
}

int number(char** words, int count, int index, int otherwise) {
    return index < count ? std::max(2, std::atoi(words[index])) : otherwise;
}

} // namespace

int main(int count, char** words) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QGuiApplication application(count, words);
    const bool screens = read("screens", number(words, count, 1, 300), 6, [](int) {
        return Size{1920, 1080};
    });
    // As somebody drags the window of a virtual machine; more than anybody meets in a day.
    // The runtime keeps about half a megabyte for each, which nobody has found a way to limit; with
    // the code of each it was four and more.
    const bool sizes = read("sizes", number(words, count, 2, 60), 450, [](int i) {
        return Size{640 + i * 37 % 1200, 480 + i * 53 % 900};
    });
    return screens && sizes ? 0 : 1;
}
