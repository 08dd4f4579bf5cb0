#include "Linux/Desktop/AddressOpener.h"

#include "Support/CoreFiles.h"
#include "fakes/CapturedStderr.h"
#include "fakes/Eventually.h"
#include "fakes/TemporaryHome.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace mnemora::desktop {
namespace {

std::string contents(const std::filesystem::path& file) {
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), {}};
}

std::string coreLimit() {
    std::ifstream limits("/proc/self/limits");
    std::string line;
    while (std::getline(limits, line) && line.find("core file") == std::string::npos) {
    }
    return line;
}

TEST(AddressOpener, StartsTheChosenProgramOrSaysNothingOfTheAddress) {
    const test::TemporaryHome home;
    const auto folder = home.path() / "data" / "applications";
    const auto report = home.path() / "report";
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "opener.desktop")
        << "[Desktop Entry]\nType=Application\nName=Opener\nExec=sh -c \"(grep 'core file' "
        << "/proc/self/limits; echo \\$0) >" << report.string() << "\" %u\n";
    std::ofstream(folder / "mimeapps.list")
        << "[Default Applications]\nx-scheme-handler/x-opened=opener.desktop\n";
    const auto limit = coreLimit();
    coreFiles::forbid();
    EXPECT_TRUE(openAddress("x-opened://host/page"));
    const auto expected = limit + "\nx-opened://host/page\n";
    EXPECT_TRUE(test::Eventually{std::chrono::seconds(20)}([&] {
        return contents(report) == expected;
    })) << contents(report);
    const test::CapturedStderr log;
    EXPECT_FALSE(openAddress("no scheme at all"));
    EXPECT_EQ(log.text(), "");
    EXPECT_FALSE(openAddress("x-nobody-opens-this://host/private?q=words"));
    EXPECT_EQ(log.text(), "[mnemora][error] no program here opens addresses of the kind "
                          "x-nobody-opens-this\n");
}

} // namespace
} // namespace mnemora::desktop
