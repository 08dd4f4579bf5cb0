#include "Linux/Wayland/WindowMerge.h"

#include <gtest/gtest.h>

namespace mnemora::wayland {
namespace {

using atspi::AccessibleProgram;
using atspi::WindowReading;
using desktop::DesktopEntry;

/// A program on the accessibility bus; the name that begins with '*' is the active window's.
AccessibleProgram program(int process, const std::string& executable,
                          std::vector<std::string> names) {
    AccessibleProgram made{{.processIdentifier = process,
                            .executable = "/usr/bin/" + executable,
                            .program = executable,
                            .sandbox = {}},
                           {.areAllNamesKnown = true}};
    for (std::string& name : names) {
        if (name.starts_with('*')) {
            name.erase(0, 1);
            made.reading.name = name;
            made.reading.isCertain = true;
        }
        made.reading.names.push_back(name);
    }
    return made;
}

class WindowMergeTest : public testing::Test {
  protected:
    struct Front {
        int process = -1; // none
        std::string title;
        bool operator==(const Front&) const = default;
    };
    [[nodiscard]] Front front(const SessionFacts& facts) const {
        const auto found = merge_.front(facts);
        return found ? Front{found->identity.process.processIdentifier, found->title.value_or("")}
                     : Front{};
    }

    const desktop::ApplicationCatalogue catalogue_{
        std::make_shared<desktop::EntryIndex>(std::vector<DesktopEntry>{
            {.identifier = "org.gnome.TextEditor",
             .name = "Text Editor",
             .program = "gnome-text-editor"},
            {.identifier = "org.kde.kate", .name = "Kate", .program = "kate"}})};
    const WindowMerge merge_{catalogue_};
};

TEST_F(WindowMergeTest, GivesAListedWindowTheProcessThatFitsAndNoOther) {
    const auto editor = program(10, "gnome-text-editor", {"*Draft"});
    const auto other = program(11, "gnome-text-editor", {"Draft"});
    const auto kate = program(12, "kate", {"*Kate"});
    const ListedWindow draft{
        .number = 1, .title = "Draft", .applicationId = "org.gnome.TextEditor", .isActive = true};
    const ListedWindow terminal{.number = 2, .title = "Draft", .applicationId = "foot"};
    auto changed = draft;
    changed.title = "Draft, page 2";
    auto inFront = terminal;
    inFront.isActive = true;
    inFront.title = "~";
    struct Case {
        SessionFacts facts;
        Front front;
    };
    const std::vector<Case> cases = {
        {{{{draft, terminal}}, {}, {editor, kate}}, {10, "Draft"}},
        {{{{draft}}, {}, {editor, other}}, {10, "Draft"}},          // the active one of two
        {{{{changed}}, {}, {editor, kate}}, {10, "Draft, page 2"}}, // the name comes later
        {{{{inFront}}, {}, {editor, kate}}, {0, "~"}},              // not on the bus
        {{{{draft, inFront}}, {}, {editor}}, {}},                   // two seats
        {{{{terminal}}, {}, {editor}}, {}},                         // a locker has the focus
    };
    for (std::size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(front(cases[i].facts), cases[i].front) << i;
}

TEST_F(WindowMergeTest, KnowsWithoutAListOnlyTheOneThatCallsItselfActive) {
    const auto editor = program(10, "gnome-text-editor", {"*Draft", "Second"});
    const auto kate = program(12, "kate", {"*Kate"});
    const auto idle = program(13, "kate", {"Kate"});
    const auto shell = program(14, "gnome-shell", {"*Main stage"});
    desktop::DisplayState server;
    server.front = {7, {"", "XTerm", "xterm", program(20, "xterm", {}).process}, "terminal"};
    EXPECT_EQ(front({{}, {}, {editor, idle, shell}}), (Front{10, "Draft"}));
    EXPECT_EQ(front({{}, {}, {editor, kate}}), Front{}) << "one of them hangs";
    EXPECT_EQ(front({{}, {}, {idle}}), Front{}) << "a program that isn't on the bus";
    EXPECT_EQ(front({{}, server, {idle}}), (Front{20, "terminal"}));
    server.front = {8, {{}, {}, {}, shell.process}, {}};
    EXPECT_EQ(front({{}, server, {editor, shell}}), (Front{10, "Draft"})) << "the shell holds it";
}

TEST_F(WindowMergeTest, StacksEveryWindowThatMayShowAndNoneInPart) {
    const auto editor = program(10, "gnome-text-editor", {"*Draft", "Second"});
    auto silent = program(12, "kate", {});
    silent.reading.areAllNamesKnown = false;
    const auto stack = merge_.stack({{}, {}, {editor}});
    ASSERT_TRUE(stack);
    EXPECT_FALSE(stack->arePlacesKnown);
    ASSERT_EQ(stack->windows.size(), 2U);
    EXPECT_EQ(stack->windows[1].front.title, "Second");
    EXPECT_EQ(merge_.stack({{}, {}, {editor, silent}}), std::nullopt);

    const ListedWindow shown{.number = 1, .title = "Shown", .applicationId = "foot"};
    const ListedWindow hidden{.number = 2, .title = "Hidden", .isMinimized = true};
    desktop::DisplayState server;
    server.stack = desktop::WindowStack{{{{0, {}, "a menu"}, {}, {}}, {{9, {}, "Shown"}, {}, {}}}};
    const auto listed = merge_.stack({{{shown, hidden}}, server, {editor, silent}});
    ASSERT_TRUE(listed);
    ASSERT_EQ(listed->windows.size(), 2U);
    EXPECT_EQ(listed->windows[0].front.title, "Shown");
    EXPECT_EQ(listed->windows[1].front.title, "a menu");
}

TEST_F(WindowMergeTest, MarksWindowsAsTheXServerWould) {
    const auto call = identityOf("chrome-teams.microsoft.com__v2_-Default", "Chat", {});
    const auto application = catalogue_.application(call);
    EXPECT_EQ(application.browser, desktop::Browser::Chromium);
    EXPECT_EQ(application.bundleIdentifier, "com.microsoft.teams2");
    EXPECT_EQ(identityOf("firefox-esr", "A page — Mozilla Firefox", {}).instance, "Navigator");
    EXPECT_EQ(identityOf("firefox-esr", "Picture-in-Picture", {}).instance, "");
    EXPECT_EQ(identityOf("foot", "vim — Firefox", {}).instance, "");
}

} // namespace
} // namespace mnemora::wayland
