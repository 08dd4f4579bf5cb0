// Fuzz target: a desktop entry's text, and a window that claims to belong to it.

#include "Linux/Desktop/ApplicationCatalogue.h"
#include "Linux/Desktop/GLibHandles.h"
#include "Text/Encoding.h"
#include "fuzz/FuzzInput.h"

#include <gio/gdesktopappinfo.h>

namespace {

using namespace mnemora;
using namespace mnemora::desktop;

struct FreeKeyFile {
    void operator()(GKeyFile* file) const { g_key_file_unref(file); }
};

std::vector<DesktopEntry> entriesIn(std::string_view text) {
    const std::unique_ptr<GKeyFile, FreeKeyFile> file(g_key_file_new());
    if (g_key_file_load_from_data(file.get(), text.data(), text.size(), G_KEY_FILE_NONE, nullptr) ==
        FALSE)
        return {};
    const GRef<GDesktopAppInfo> info(g_desktop_app_info_new_from_keyfile(file.get()));
    return info ? std::vector{desktopEntryOf(info.get())} : std::vector<DesktopEntry>();
}

void checkText(const std::string& text) {
    fuzz::require(cleanText(text) == text);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::FuzzInput input(data, size);
    WindowIdentity window;
    window.desktopId = cleanText(input.text());
    window.windowClass = cleanText(input.text());
    window.instance = cleanText(input.text());
    window.process.program = cleanText(input.text());
    const auto entries = entriesIn(input.rest());
    for (const auto& entry : entries) {
        checkText(entry.name);
        checkText(entry.windowClass);
        checkText(entry.program);
    }
    const ApplicationCatalogue catalogue(std::make_shared<EntryIndex>(entries));
    const auto application = catalogue.application(window);
    checkText(application.name.value_or(""));
    checkText(application.bundleIdentifier.value_or(""));
    // No entry can talk a password manager out of its row.
    WindowIdentity vault = window;
    vault.process.program = "keepassxc";
    const auto* row = rowNamed({"keepassxc"});
    fuzz::require(catalogue.application(vault).bundleIdentifier == row->bundleIdentifier);
    return 0;
}
