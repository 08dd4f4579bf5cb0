#include "Screens.h"

#include "SampleTexts.h"

namespace mnemora::bench {
namespace {

const QColor white(255, 255, 255);
const QColor paper(246, 246, 244);
const QColor ink(32, 33, 36);
const QColor grey(95, 99, 104);
const QColor night(30, 30, 30);
const QColor dusk(43, 45, 52);
const QColor chalk(212, 212, 212);
const QColor ash(154, 160, 166);

constexpr const char* sans = "DejaVu Sans";
constexpr const char* mono = "DejaVu Sans Mono";
constexpr const char* serif = "DejaVu Serif";
constexpr const char* grotesque = "Nimbus Sans";

const std::string& nth(const std::vector<std::string>& texts, int index) {
    return texts[static_cast<std::size_t>(index) % texts.size()];
}

struct Colours {
    QColor background;
    QColor panel;
    QColor text;
    QColor faint;
};

const Colours light{white, paper, ink, grey};
const Colours dark{night, dusk, chalk, ash};

void titleBar(ScreenPainter& screen, const std::string& title, const Colours& colours) {
    screen.fill(0, 0, 1920, 28, colours.panel);
    screen.write(12, 6, title, screenFont(sans, 12, true), colours.text);
    screen.write(1840, 6, "14:32", screenFont(sans, 12), colours.text);
}

ScreenPainter editor(const Colours& colours, int pixels, int first) {
    ScreenPainter screen(colours.background);
    titleBar(screen, "warehouse.cpp - Source Editor", colours);
    screen.fill(0, 28, 260, 1052, colours.panel);
    const auto& files = people();
    for (int i = 0; i < 12; ++i) {
        auto name = nth(files, i);
        name = name.substr(0, name.find(' ')) + "_report.cpp";
        screen.write(24, 44 + i * 22, name, screenFont(sans, 12), colours.faint);
    }
    const int step = pixels * 3 / 2;
    const auto font = screenFont(mono, pixels);
    for (int i = 0; i < 1000 / step; ++i) {
        const auto& line = nth(codeLines(), i + first);
        const auto indent = line.find_first_not_of(' ');
        screen.write(280, 44 + i * step, std::to_string(i + 101), font, colours.faint);
        screen.write(330 + static_cast<int>(indent) * pixels * 6 / 10, 44 + i * step,
                     line.substr(indent), font, colours.text);
    }
    return screen;
}

ScreenPainter terminal(const Colours& colours, int pixels) {
    ScreenPainter screen(colours.background);
    titleBar(screen, "anna@workstation: ~/projects", colours);
    const int step = pixels * 13 / 10 + 1;
    for (int i = 0; i < 1020 / step; ++i)
        screen.write(8, 36 + i * step, nth(terminalLines(), i), screenFont(mono, pixels),
                     colours.text);
    return screen;
}

ScreenPainter mail(const Colours& colours, const char* family, int pixels) {
    ScreenPainter screen(colours.background);
    titleBar(screen, "Inbox (17) - Mail", colours);
    screen.fill(0, 28, 560, 1052, colours.panel);
    for (int i = 0; i < 19; ++i) {
        const int top = 44 + i * 54;
        screen.write(20, top, nth(people(), i), screenFont(family, pixels, true), colours.text);
        screen.write(470, top, std::to_string(8 + i / 2) + ":" + std::to_string(10 + i * 2),
                     screenFont(family, pixels), colours.faint);
        screen.write(20, top + 20, nth(sentences(), i + 9).substr(0, 52),
                     screenFont(family, pixels), colours.faint);
    }
    screen.write(600, 50, "Minutes of the planning meeting", screenFont(family, 18, true),
                 colours.text);
    screen.write(600, 84, "From: Priya Raman <priya.raman@example.org>", screenFont(family, pixels),
                 colours.faint);
    for (int i = 0; i < 32; ++i)
        screen.write(600, 124 + i * (pixels + 14), nth(sentences(), i), screenFont(family, pixels),
                     colours.text);
    return screen;
}

ScreenPainter chat(const Colours& colours, int pixels) {
    ScreenPainter screen(colours.background);
    titleBar(screen, "# planning - Team Chat", colours);
    screen.fill(0, 28, 240, 1052, colours.panel);
    for (int i = 0; i < 12; ++i)
        screen.write(20, 50 + i * 26, nth(people(), i), screenFont(sans, pixels), colours.faint);
    for (int i = 0; i < 18; ++i) {
        const int top = 44 + i * 56;
        screen.write(300, top, nth(people(), i * 5), screenFont(sans, pixels, true), colours.text);
        screen.write(520, top, "11:" + std::to_string(10 + i * 2), screenFont(sans, 10),
                     colours.faint);
        screen.write(300, top + 22, nth(sentences(), i * 3 + 1), screenFont(sans, pixels),
                     colours.text);
    }
    return screen;
}

ScreenPainter table(const Colours& colours, const char* family, int pixels) {
    ScreenPainter screen(colours.background);
    titleBar(screen, "budget.ods - Spreadsheet", colours);
    const char* heads[] = {"Customer", "Region", "Order", "Amount", "Status", "Due date"};
    const char* regions[] = {"North", "South", "East", "West", "Central"};
    const char* states[] = {"paid", "open", "overdue", "cancelled"};
    for (int column = 0; column < 6; ++column)
        screen.write(40 + column * 300, 44, heads[column], screenFont(family, pixels, true),
                     colours.text);
    for (int row = 0; row < 36; ++row) {
        const std::string cells[] = {nth(people(), row * 7),
                                     regions[row % 5],
                                     "A-" + std::to_string(10417 + row * 37),
                                     std::to_string(120 + row * 83) + ".50",
                                     states[row % 4],
                                     "2024-0" + std::to_string(1 + row % 9) + "-" +
                                         std::to_string(10 + row % 18)};
        if (row % 2 == 0)
            screen.fill(20, 66 + row * 27, 1880, 27, colours.panel);
        for (int column = 0; column < 6; ++column)
            screen.write(40 + column * 300, 72 + row * 27, cells[column],
                         screenFont(family, pixels), colours.text);
    }
    return screen;
}

ScreenPainter article(const Colours& colours, const char* family, int pixels) {
    ScreenPainter screen(colours.background);
    screen.write(420, 40, "A short history of the harbour", screenFont(family, 28, true),
                 colours.text);
    for (int i = 0; i < 38; ++i)
        screen.write(420, 100 + i * (pixels * 2),
                     nth(sentences(), i * 5) + " " + nth(sentences(), i * 7 + 2),
                     screenFont(family, pixels), colours.text);
    return screen;
}

// A slide has letters taller than any other text on a screen.
ScreenPainter slide() {
    ScreenPainter screen(QColor(18, 52, 86));
    screen.write(140, 120, "Harbour project", screenFont(sans, 150, true), white);
    screen.write(140, 420, "Results of the second quarter", screenFont(sans, 64), white);
    for (int i = 0; i < 4; ++i)
        screen.write(180, 580 + i * 90, nth(sentences(), i * 4 + 3), screenFont(sans, 36), white);
    return screen;
}

ScreenPainter nearlyEmpty() {
    ScreenPainter screen(QColor(60, 110, 113));
    screen.write(24, 30, "Documents", screenFont(sans, 12), white);
    screen.write(24, 120, "Trash", screenFont(sans, 12), white);
    screen.write(1780, 1050, "Friday 17 May", screenFont(sans, 12), white);
    return screen;
}

ScreenPainter blank() {
    ScreenPainter screen(QColor(36, 41, 46));
    for (int y = 0; y < 1080; ++y)
        screen.fill(0, y, 1920, 1, QColor(20 + y / 12, 60 + y / 20, 110 + y / 15));
    return screen;
}

} // namespace

std::vector<Screen> renderedScreens() {
    return {
        {"editor dark 13", editor(dark, 13, 0)},
        {"editor light 12", editor(light, 12, 11)},
        {"editor dark 11", editor(dark, 11, 23)},
        {"terminal dark 13", terminal(dark, 13)},
        {"terminal light 10", terminal(light, 10)},
        {"mail light 13", mail(light, sans, 13)},
        {"mail dark 12", mail(dark, grotesque, 12)},
        {"chat dark 13", chat(dark, 13)},
        {"chat light 11", chat(light, 11)},
        {"table light 12", table(light, sans, 12)},
        {"table dark 11", table(dark, grotesque, 11)},
        {"article light 13", article(light, serif, 13)},
        {"article dark 12", article(dark, sans, 12)},
        {"slide", slide()},
        {"nearly empty", nearlyEmpty()},
        {"blank", blank()},
    };
}

ScreenPainter editorScreen(int firstChanged, int changed) {
    ScreenPainter screen(dark.background);
    for (int i = 0; i < editorLines; ++i) {
        const bool isChanged = i >= firstChanged && i < firstChanged + changed;
        screen.write(60, 30 + i * 20, nth(sentences(), isChanged ? i + 13 : i),
                     screenFont(mono, 13), dark.text);
    }
    return screen;
}

} // namespace mnemora::bench
