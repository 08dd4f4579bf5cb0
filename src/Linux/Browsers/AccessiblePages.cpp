#include "Linux/Browsers/AccessiblePages.h"

#include "Linux/Browsers/AccessibleTree.h"
#include "Linux/Browsers/BrowserTable.h"
#include "Linux/Browsers/PageScript.h"
#include "Linux/Browsers/PeerProcess.h"
#include "Text/Characters.h"

#include <algorithm>
#include <array>
#include <atspi/atspi-constants.h>
#include <string_view>
#include <sys/syscall.h>
#include <unistd.h>

namespace mnemora::browsers {
namespace {

constexpr std::chrono::milliseconds patience{1300};
/// In bytes. The program keeps 6000 characters of a page, each of them four bytes at most as long
/// as it is a single code point.
constexpr std::size_t longestText = 24 << 10;
/// In characters, as from the extension: an address can hold a whole document.
constexpr long long longestAddress = 128 << 10;
/// A browser's own buttons and bars lie less deep than this above its page.
constexpr int deepestDocument = 24;
constexpr std::size_t mostObjectsInABar = 400;
constexpr int deepestText = 120;
constexpr std::string_view embeddedObject = "\xEF\xBF\xBC"; // U+FFFC

bool has(std::uint64_t states, AtspiStateType state) {
    return (states >> state & 1) != 0;
}

bool isEntry(std::uint32_t role) {
    constexpr std::array<std::uint32_t, 4> entries{ATSPI_ROLE_ENTRY, ATSPI_ROLE_PASSWORD_TEXT,
                                                   ATSPI_ROLE_SPIN_BUTTON, ATSPI_ROLE_EDITBAR};
    return std::find(entries.begin(), entries.end(), role) != entries.end();
}

void breakLine(std::string& text) {
    if (!text.empty() && text.back() != '\n')
        text += '\n';
}

/// Reads one page.
class PageReader {
  public:
    PageReader(AccessibleTree& tree, const std::string& bundleIdentifier)
        : tree_(tree), bundle_(bundleIdentifier) {}

    /// The page in the browser's active window; absent when there is none, or more than one
    /// window says that it is active.
    [[nodiscard]] std::optional<AccessibleObject> document() {
        std::vector<AccessibleObject> active;
        for (const auto& program : tree_.programs())
            if (bundleIdentifierOf(executableOf(tree_.processOf(program)).string()) == bundle_)
                for (auto& window : tree_.children(program))
                    if (has(tree_.states(window), ATSPI_STATE_ACTIVE))
                        active.push_back(std::move(window));
        return active.size() == 1 ? documentIn(active.front()) : std::nullopt;
    }

    [[nodiscard]] std::optional<std::string> address(const AccessibleObject& document) {
        for (const char* name : {"URI", "DocURL"}) // Chromium's and WebKit's
            if (const auto address = tree_.documentAttribute(document, name); !address.empty())
                return std::string(firstCharacters(address, longestAddress));
        return std::nullopt;
    }

    [[nodiscard]] std::optional<std::string> text(const AccessibleObject& document) {
        std::string text;
        append(document, text, 0);
        if (tree_.late())
            return std::nullopt;
        return text;
    }

  private:
    /// The one page that the window shows; absent when it shows several, one beside the other.
    /// Breadth first: the page lies beside long bars of buttons.
    std::optional<AccessibleObject> documentIn(const AccessibleObject& window) {
        std::vector<AccessibleObject> documents;
        std::vector<AccessibleObject> level = tree_.children(window);
        for (int depth = 0; depth < deepestDocument && !level.empty(); ++depth) {
            std::vector<AccessibleObject> next;
            for (const auto& object : level)
                if (isShownDocument(object, next))
                    documents.push_back(object);
            level.swap(next);
        }
        return documents.size() == 1 && !tree_.late() ? std::optional(documents.front())
                                                      : std::nullopt;
    }

    /// Otherwise appends the object's children to `next`, if some of them may be on screen.
    bool isShownDocument(const AccessibleObject& object, std::vector<AccessibleObject>& next) {
        const auto states = tree_.states(object);
        const bool shown = has(states, ATSPI_STATE_SHOWING);
        // GNOME Web has its pages in other processes. What stands between says nothing of itself.
        if (!shown && has(states, ATSPI_STATE_VISIBLE))
            return false;
        if (tree_.role(object) == ATSPI_ROLE_DOCUMENT_WEB)
            return shown;
        auto children = tree_.children(object);
        if (const auto plug = states == 0 && children.empty() ? tree_.plug(object) : std::nullopt)
            children.push_back(*plug);
        children.resize(std::min(children.size(), mostObjectsInABar));
        next.insert(next.end(), children.begin(), children.end());
        return false;
    }

    void append(const AccessibleObject& object, std::string& text, int depth) {
        if (text.size() >= longestText || depth > deepestText || tree_.late())
            return;
        const auto own = tree_.text(object);
        if (!own.empty())
            return appendHypertext(object, own, text, depth);
        for (const auto& child : tree_.children(object))
            appendEmbedded(child, text, depth);
    }

    void appendHypertext(const AccessibleObject& object, std::string_view own, std::string& text,
                         int depth) {
        for (int number = 0; text.size() < longestText && !tree_.late(); ++number) {
            const auto end = own.find(embeddedObject);
            text += own.substr(0, end);
            if (end == std::string_view::npos)
                return;
            if (const auto embedded = tree_.embedded(object, number))
                appendEmbedded(*embedded, text, depth);
            own.remove_prefix(end + embeddedObject.size());
        }
    }

    /// A field to type in: also one that offers a list, which has the role of one to choose from.
    bool isTypedInto(const AccessibleObject& object, std::uint32_t role) {
        return isEntry(role) ||
               (role == ATSPI_ROLE_COMBO_BOX && has(tree_.states(object), ATSPI_STATE_EDITABLE));
    }

    void appendEmbedded(const AccessibleObject& object, std::string& text, int depth) {
        const auto role = tree_.role(object);
        if (isTypedInto(object, role))
            return;
        const bool inLine = role == ATSPI_ROLE_LINK || role == ATSPI_ROLE_STATIC;
        if (!inLine)
            breakLine(text);
        append(object, text, depth + 1);
        if (!inLine)
            breakLine(text);
    }

    AccessibleTree& tree_;
    const std::string& bundle_;
};

class AccessiblePageScript : public Script {
  public:
    AccessiblePageScript(std::shared_ptr<const AccessiblePages::Options> options, PageScript script)
        : options_(std::move(options)), script_(std::move(script)) {}

    [[nodiscard]] ScriptResult execute() override {
        const bool onMainThread = syscall(SYS_gettid) == getpid();
        if (onMainThread || !mayBeRead())
            return {.failed = true, .text = std::nullopt};
        const auto before = changes();
        auto text = read();
        // Looked at again: what was read may be of a window that came to the front meanwhile, also
        // of one that has gone again.
        if (!text || !mayBeRead() || changes() != before)
            return {.failed = true, .text = std::nullopt};
        return {.failed = false, .text = std::move(text)};
    }

  private:
    [[nodiscard]] std::uint64_t changes() const {
        return options_->windowChanges ? options_->windowChanges() : 0;
    }

    [[nodiscard]] bool mayBeRead() const {
        return options_->frontmostApplication() == script_.bundleIdentifier && options_->guard &&
               options_->guard->contentMayBeRead();
    }

    [[nodiscard]] std::optional<std::string> read() const {
        auto tree = AccessibleTree::connect(std::chrono::steady_clock::now() + patience);
        if (!tree)
            return std::nullopt;
        PageReader reader(*tree, script_.bundleIdentifier);
        const auto document = reader.document();
        if (!document)
            return std::nullopt;
        auto address = reader.address(*document);
        if (script_.question == PageQuestion::address)
            return address;
        if (!address || !hasReadableText(*address))
            return std::nullopt;
        auto text = reader.text(*document);
        // The same object shows another page after a click on a link.
        return reader.address(*document) == address ? text : std::nullopt;
    }

    [[nodiscard]] bool hasReadableText(const std::string& address) const {
        constexpr std::array<std::string_view, 3> readable{"http://", "https://", "file://"};
        return std::any_of(readable.begin(), readable.end(),
                           [&](std::string_view scheme) { return address.starts_with(scheme); }) &&
               !(options_->conceals && options_->conceals(address));
    }

    std::shared_ptr<const AccessiblePages::Options> options_;
    PageScript script_;
};

} // namespace

AccessiblePages::AccessiblePages(Options options)
    : options_(std::make_shared<const Options>(std::move(options))) {}

std::unique_ptr<Script> AccessiblePages::compile(const std::string& text) {
    auto script = parsePageScript(text);
    if (!script)
        return nullptr;
    return std::make_unique<AccessiblePageScript>(options_, std::move(*script));
}

} // namespace mnemora::browsers
