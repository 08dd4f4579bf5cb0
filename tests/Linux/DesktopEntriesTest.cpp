// Folders of desktop entries that are large, odd and never at rest.

#include "Linux/Desktop/DesktopEntries.h"

#include "fakes/CapturedStderr.h"
#include "fakes/ProcessUse.h"
#include "fakes/ScopedVariable.h"
#include "fakes/TemporaryHome.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

namespace mnemora::desktop {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using Steady = std::chrono::steady_clock;

class DesktopEntriesTest : public testing::Test {
  protected:
    DesktopEntriesTest() { fs::create_directories(folder_); }
    void write(const std::string& identifier) const {
        std::ofstream(folder_ / (identifier + ".desktop"))
            << "[Desktop Entry]\nType=Application\nName=" << identifier << "\nExec=true\n";
    }
    [[nodiscard]] bool knows(const EntrySource& entries, const std::string& identifier) {
        WindowIdentity window;
        window.desktopId = identifier;
        return longest_([&] { return entries.find(window); }).has_value();
    }
    [[nodiscard]] bool comesToKnow(const EntrySource& entries, const std::string& identifier) {
        const auto bound = Steady::now() + 30s;
        while (!knows(entries, identifier) && Steady::now() < bound)
            std::this_thread::sleep_for(5ms);
        return knows(entries, identifier);
    }
    /// What the reading thread has used so far (proc(5), schedstat: nanoseconds on a processor).
    [[nodiscard]] static std::chrono::nanoseconds timeOfReading() {
        std::int64_t sum = 0;
        for (const auto& task : fs::directory_iterator("/proc/self/task")) {
            std::string name;
            std::getline(std::ifstream(task.path() / "comm") >> std::ws, name);
            std::int64_t ran = 0;
            std::ifstream(task.path() / "schedstat") >> ran;
            sum += name == "desktop-entries" ? ran : 0;
        }
        return std::chrono::nanoseconds(sum);
    }

    test::TemporaryHome home_;
    const test::ScopedVariable systemFolders_{"XDG_DATA_DIRS", home_.path().string()};
    const fs::path folder_ = home_.path() / "data" / "applications";
    test::LongestWait longest_;
};

TEST_F(DesktopEntriesTest, AFloodOfChangesKeepsNobodyWaitingAndIsReadInTheEnd) {
    constexpr int many = 2000;
    for (int i = 0; i < many; ++i)
        write("application-" + std::to_string(i));
    fs::create_directory(folder_ / "folder.desktop");
    fs::create_symlink("loop.desktop", folder_ / "loop.desktop");
    fs::create_symlink("nowhere", folder_ / "dangling.desktop");
    write("unreadable");
    fs::permissions(folder_ / "unreadable.desktop", fs::perms::none);
    const test::CapturedStderr log;
    GLibThread thread("test");
    const DesktopEntries entries(thread);
    ASSERT_TRUE(comesToKnow(entries, "application-1999"));
    EXPECT_FALSE(knows(entries, "folder"));

    const auto before = timeOfReading();
    std::atomic<bool> isOver = false;
    std::atomic<int> changes = 0;
    std::thread flood([&] {
        for (int i = 0; !isOver; ++i, ++changes) {
            write("flood-" + std::to_string(i % 300));
            fs::remove(folder_ / ("flood-" + std::to_string((i + 150) % 300) + ".desktop"));
        }
    });
    for (const auto end = Steady::now() + 4s; Steady::now() < end;) {
        EXPECT_TRUE(knows(entries, "application-1"));
        // Where the lock of the session is heard of, too.
        longest_([&] { thread.invokeAndWait([] {}); });
    }
    isOver = true;
    flood.join();
    const auto reading = timeOfReading() - before;
    EXPECT_GT(changes, 500);
    EXPECT_LT(reading, 1s) << "not after each change";
    EXPECT_LT(longest_.longest(), 200ms);
    RecordProperty("reading_ms", static_cast<int>(reading / 1ms));
    RecordProperty("longest_ms", static_cast<int>(longest_.longest() / 1ms));

    write("after-the-flood");
    EXPECT_TRUE(comesToKnow(entries, "after-the-flood"));

    // Two links that lead back are followed for ever by whoever follows links.
    for (const char* link : {"round", "about"})
        fs::create_directory_symlink(folder_, folder_ / link);
    write("in-a-circle");
    const auto refused = Steady::now() + 30s;
    while (log.text().find("stay unread because of") == std::string::npos &&
           Steady::now() < refused)
        std::this_thread::sleep_for(5ms);
    EXPECT_TRUE(knows(entries, "after-the-flood")) << "what was known stays";
    for (const char* link : {"round", "about"})
        fs::remove(folder_ / link);
    EXPECT_TRUE(comesToKnow(entries, "in-a-circle"));
}

} // namespace
} // namespace mnemora::desktop
