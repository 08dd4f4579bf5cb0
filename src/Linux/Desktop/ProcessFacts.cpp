#include "Linux/Desktop/ProcessFacts.h"

#include "Linux/Desktop/FirefoxProfile.h"
#include "Text/Encoding.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace mnemora::desktop {
namespace {

constexpr std::size_t maxFileBytes = 16384;

std::string procPath(int pid, std::string_view name) {
    return "/proc/" + std::to_string(pid) + "/" + std::string(name);
}

std::string readStart(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string bytes(maxFileBytes, '\0');
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<std::size_t>(file.gcount()));
    return bytes;
}

std::string linkTarget(const std::string& path) {
    std::array<char, 4096> target{};
    const ssize_t length = readlink(path.c_str(), target.data(), target.size());
    std::string text(target.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
    // An update replaced the file under a running program.
    constexpr std::string_view replaced = " (deleted)";
    if (text.ends_with(replaced))
        text.resize(text.size() - replaced.size());
    return cleanText(text);
}

std::string baseName(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

std::vector<std::string> arguments(int pid) {
    std::istringstream bytes(readStart(procPath(pid, "cmdline")));
    std::vector<std::string> result;
    for (std::string argument; std::getline(bytes, argument, '\0');)
        result.push_back(cleanText(argument));
    return result;
}

bool isInterpreter(const std::string& program) {
    for (const std::string_view name :
         {"python", "perl", "ruby", "gjs", "mono", "java", "node", "wish", "sh", "bash", "dash"})
        if (program.starts_with(name) &&
            program.find_first_not_of("0123456789.-cosle", name.size()) == std::string::npos)
            return true;
    return false;
}

std::string programName(const std::string& executable, const std::vector<std::string>& command) {
    const std::string program = baseName(executable);
    if (!isInterpreter(program))
        return program;
    for (std::size_t i = 1; i < command.size(); ++i)
        if (!command[i].empty() && command[i].front() != '-')
            return baseName(command[i]);
    return program;
}

bool asksForPrivacy(const std::vector<std::string>& command) {
    constexpr std::string_view options[] = {"--incognito-mode", "-i", "--private-instance",
                                            "--automation-mode"};
    return !command.empty() && baseName(command.front()).starts_with("epiphany") &&
           std::find_first_of(command.begin(), command.end(), std::begin(options),
                              std::end(options)) != command.end();
}

/// The value of `key` in Flatpak's description of the sandbox (flatpak-metadata(5)).
std::string flatpakValue(int pid, std::string_view key) {
    std::istringstream lines(readStart(procPath(pid, "root/.flatpak-info")));
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with(key) && line.size() > key.size() && line[key.size()] == '=')
            return cleanText(line.substr(key.size() + 1));
    return {};
}

std::string sandboxName(int pid, const std::string& executable) {
    constexpr std::string_view snaps = "/snap/";
    if (executable.starts_with(snaps))
        return executable.substr(snaps.size(), executable.find('/', snaps.size()) - snaps.size());
    return flatpakValue(pid, "name");
}

} // namespace

ProcessFacts processFacts(int processIdentifier) {
    ProcessFacts facts;
    if (processIdentifier <= 0)
        return facts;
    facts.processIdentifier = processIdentifier;
    facts.executable = linkTarget(procPath(processIdentifier, "exe"));
    const auto command = arguments(processIdentifier);
    facts.program = programName(facts.executable, command);
    facts.sandbox = sandboxName(processIdentifier, facts.executable);
    const auto neverRemembers = neverRemembersHistory(processIdentifier);
    facts.hasProfile = neverRemembers.has_value();
    facts.keepsNothing = asksForPrivacy(command) || neverRemembers.value_or(false);
    return facts;
}

ProcessFacts upToDate(ProcessFacts facts) {
    if (facts.hasProfile)
        facts.keepsNothing = neverRemembersHistory(facts.processIdentifier).value_or(true);
    return facts;
}

std::string sandboxInstance(int processIdentifier) {
    return processIdentifier > 0 ? flatpakValue(processIdentifier, "instance-id") : std::string();
}

} // namespace mnemora::desktop
