#include "Linux/Desktop/ApplicationTable.h"

#include "Capture/Privacy.h"

#include <algorithm>
#include <unordered_map>

namespace mnemora::desktop {
namespace {

// Sources: Debian 12's desktop entries and binaries, Flathub's and the Snap Store's identifiers,
// and the window classes that the programs set. A password program without an identifier among
// the excluded prefixes gets one below the keychain's.
constexpr TableRow rows[] = {
    // Browsers that the rules know.
    {"com.google.Chrome", Browser::Chromium,
     "google-chrome|google-chrome-stable|google-chrome-beta|google-chrome-unstable|"
     "com.google.chrome|com.google.chromedev|com.google.chromebeta|chrome|chromium|"
     "chromium-browser|org.chromium.chromium|chromium-freeworld|ungoogled-chromium|"
     "io.github.ungoogled_software.ungoogled_chromium|chromium_chromium"},
    {"com.microsoft.edgemac", Browser::Chromium,
     "microsoft-edge|microsoft-edge-stable|microsoft-edge-beta|microsoft-edge-dev|"
     "microsoft-edge-canary|com.microsoft.edge|com.microsoft.edgedev|msedge"},
    {"com.brave.Browser", Browser::Chromium,
     "brave|brave-browser|brave-browser-stable|brave-browser-beta|brave-browser-nightly|"
     "brave-browser-dev|com.brave.browser|brave_brave"},
    {"com.apple.Safari", Browser::WebKit,
     "epiphany|epiphany-browser|org.gnome.epiphany|org.gnome.epiphany.devel|"
     "org.gnome.epiphany.canary|gnome web"},

    // Browsers that the rules take for ordinary applications; their private windows still count.
    {"", Browser::Firefox,
     "firefox|firefox-esr|firefox-bin|firefox-beta|firefox-developer-edition|firefox-nightly|"
     "firefoxdeveloperedition|firefox_firefox|org.mozilla.firefox|librewolf|"
     "io.gitlab.librewolf-community|librewolf-default|waterfox|net.waterfox.waterfox|floorp|"
     "one.ablaze.floorp|zen|zen-browser|app.zen_browser.zen|icecat|org.gnu.icecat|iceweasel|"
     "palemoon|pale moon|seamonkey|basilisk|icedove-browser"},
    {"", Browser::Chromium,
     "thorium-browser|thorium|iridium-browser|cromite|org.cromite.cromite|helium|"
     "net.imput.helium|supermium"},
    // Of Chromium's family, but with windows of their own making: nobody has established that
    // those name themselves as Chromium's do.
    {"", Browser::Unmarked,
     "vivaldi|vivaldi-stable|vivaldi-snapshot|vivaldi-bin|com.vivaldi.vivaldi|opera|opera-beta|"
     "opera-developer|opera-stable|com.opera.opera|yandex-browser|yandex_browser|"
     "yandex-browser-beta|ru.yandex.browser|naver-whale|naver-whale-stable|whale|slimjet|"
     "flashpeak-slimjet|browser360|wavebox|ghost-browser"},
    {"", Browser::Unmarked,
     "tor browser|tor-browser|torbrowser|torbrowser-launcher|org.torproject.torbrowser-launcher|"
     "mullvad browser|mullvad-browser|mullvadbrowser|net.mullvad.mullvadbrowser|qutebrowser|"
     "org.qutebrowser.qutebrowser|min|luakit|badwolf|nyxt|engineer.atlas.nyxt|surf|vimb|"
     "angelfish|org.kde.angelfish|falkon|org.kde.falkon|konqueror|org.kde.konqueror|konqbrowser|"
     "kfmclient_html|midori|"
     "org.midori_browser.midori|otter-browser|dooble|netsurf|netsurf-gtk|"
     "com.github.cassidyjames.ephemeral|io.github.ranfdev.ephemeral|gnome-ephemeral"},

    // Call applications.
    {"us.zoom.xos", Browser::None,
     "zoom|us.zoom.zoom|zoom-client|zoom_zoom|zoom-client_zoom-client|zoom workplace|"
     "zoomlauncher",
     "app.zoom.us|pwa.zoom.us|zoom.us"},
    {"com.microsoft.teams2", Browser::None,
     "teams-for-linux|com.github.ismaelmartinez.teams_for_linux|teams-for-linux_teams-for-linux|"
     "microsoft teams|microsoft teams (pwa)|portal for teams",
     "teams.microsoft.com|teams.live.com|teams.cloud.microsoft"},
    {"com.microsoft.teams", Browser::None,
     "teams|teams-insiders|com.microsoft.teams|microsoft teams - preview|"
     "microsoft teams - insiders"},
    {"com.cisco.webexmeetingsapp", Browser::None,
     "webex|webexmeetings|ciscocollabhost|ciscocollabhostcef|com.cisco.webex|com.webex.webex|"
     "cisco webex meetings|webex meetings",
     "webex.com"},
    {"com.hnc.Discord", Browser::None,
     "discord|discord-canary|discord-ptb|discordcanary|discordptb|com.discordapp.discord|"
     "com.discordapp.discordcanary|discord_discord|vesktop|dev.vencord.vesktop|webcord|"
     "io.github.spacingbat3.webcord|legcord|app.legcord.legcord|armcord|xyz.armcord.armcord|"
     "goofcord|io.github.milkshiift.goofcord|equibop|org.equicord.equibop",
     "discord.com"},
    {"com.tinyspeck.slackmacgap", Browser::None, "slack|com.slack.slack|slack_slack",
     "app.slack.com"},
    {"com.apple.FaceTime", Browser::None, "facetime", "facetime.apple.com"},

    // Password managers.
    {"com.1password.1password", Browser::None,
     "1password|1password-beta|com.onepassword.onepassword|com.1password.1password|"
     "1password_1password",
     "1password.com|1password.eu|1password.ca"},
    {"com.lastpass.LastPass", Browser::None, "lastpass|lastpass-cli|lastpass password manager",
     "lastpass.com"},
    {"com.paypal.PayPal", Browser::None, "paypal", "paypal.com"},
    {"com.apple.keychainaccess.keepassxc", Browser::None,
     "keepassxc|org.keepassxc.keepassxc|keepassxc-proxy|keepassxc_keepassxc|keepassx|"
     "keepassx2|org.keepassx.keepassx"},
    {"com.apple.keychainaccess.keepass", Browser::None,
     "keepass|keepass2|keepass.exe|keeweb|app.keeweb.keeweb|keeweb_keeweb|org.keepass.keepass2"},
    {"com.apple.keychainaccess.bitwarden", Browser::None,
     "bitwarden|com.bitwarden.desktop|bitwarden_bitwarden|bitwarden web vault|goldwarden|"
     "com.quexten.goldwarden|rbw|vaultwarden|bitwarden-desktop",
     "vault.bitwarden.com|vault.bitwarden.eu"},
    {"com.apple.keychainaccess.secrets", Browser::None,
     "org.gnome.world.secrets|org.gnome.passwordsafe|gnome-passwordsafe|secrets|passwordsafe|"
     "pwsafe|org.pwsafe.pwsafe|passwordsafe-debian"},
    {"com.apple.keychainaccess.protonpass", Browser::None,
     "proton-pass|proton pass|protonpass|me.proton.pass|com.proton.pass|me.proton.pass.electron",
     "pass.proton.me"},
    {"com.apple.keychainaccess.enpass", Browser::None, "enpass|io.enpass.enpass|io.enpass.app"},
    {"com.apple.keychainaccess.buttercup", Browser::None,
     "buttercup|buttercup-desktop|pw.buttercup.desktop|org.buttercup.buttercup|"
     "buttercup-desktop_buttercup-desktop"},
    {"com.apple.keychainaccess.pass", Browser::None,
     "qtpass|org.ijhack.qtpass|gopass|gopass-ui|gopassui|passmenu|rofi-pass|tessen|keycord|"
     "io.github.noobping.keycord|passuinstaller|pass-gui|upass|passwordstore|plasma-pass|"
     "wofi-pass|org.gnome.passwords"},
    {"com.apple.keychainaccess.other", Browser::None,
     "nordpass|nordpass_nordpass|com.nordpass.nordpass|dashlane|roboform|com.roboform.roboform|"
     "keeperpasswordmanager|keeper password manager|com.keepersecurity.passwordmanager|"
     "keeper-password-manager|authpass|app.authpass.authpass|authpass_authpass|passbolt|padloc|"
     "app.padloc.padloc|psono|keyguard|com.artemchep.keyguard|lesspass|spectre|masterpassword|"
     "com.lyndir.masterpassword|password-gorilla|password gorilla|gorilla|gorilla.tcl|pasaffe|"
     "revelation|info.olasagasti.revelation|figaro-password-manager2|fpm2|gpass|gringotts|"
     "kedpm|pwmanager|upm|impass|assword|universal password manager|myki|bitpass|passky|passit|"
     "password-manager-resources|clipperz|passman|pwman3|cpm|titan|encryptr|"
     "com.spideroak.encryptr|zoho vault|zohovault|rattic|ripasso|ripasso-gtk|"
     "sticky password|sticky-password|safe-in-cloud|safeincloud|pass-manager|passy|swifty|"
     "com.swiftyapp.swifty|pwclip|kpcli|keyspace|heylogin|kaspersky password manager|"
     "dev.mufeed.wordbook.passwords|de.leopoldluley.passwords|io.gitlab.persiangolf.passwords",
     "passwords.google.com|app.dashlane.com|app.nordpass.com|keepersecurity.com|keepersecurity.eu|"
     "vault.zoho.com|vault.zoho.eu|online.roboform.com|web.padloc.app|psono.pw|app.enpass.io"},

    // Keyrings and their prompts.
    {"com.apple.keychainaccess.keyring", Browser::None,
     "seahorse|org.gnome.seahorse.application|org.gnome.seahorse|gcr-prompter|gcr-viewer|"
     "gcr4-prompter|gcr-prompter4|gnome-keyring|gnome-keyring-prompt|gnome-keyring-daemon|"
     "org.gnome.keyring.systemprompter|mate-keyring-manager"},
    {"com.apple.keychainaccess.kwallet", Browser::None,
     "kwalletmanager|kwalletmanager5|kwalletmanager5-kwalletd|kwalletmanager6|org.kde."
     "kwalletmanager|"
     "org.kde.kwalletmanager5|org.kde.kwalletmanager6|kwalletd|kwalletd5|kwalletd6|"
     "org.kde.kwalletd5|org.kde.kwalletd6|org.kde.ksecretd|ksecretd|kwallet-query|kwalletaskpass"},

    // One-time codes.
    {"com.apple.keychainaccess.authenticator", Browser::None,
     "authenticator|com.belmoussaoui.authenticator|org.gnome.authenticator|gnome-authenticator|"
     "com.github.bilelmoussaoui.authenticator|otpclient|com.github.paolostivanin.otpclient|"
     "numberstation|org.postmarketos.numberstation|keysmith|org.kde.keysmith|yubioath-desktop|"
     "yubico authenticator|com.yubico.yubioath|com.yubico.authenticator|yubico-authenticator|"
     "yubioath|ykman-gui|yubikey-manager-qt|com.yubico.ykman-gui|yubikey-personalization-gui|"
     "com.yubico.yubikeymanager|io.ente.auth|enteauth|ente_auth|ente auth|ente-auth|"
     "proton-authenticator|proton authenticator|me.proton.authenticator|authy|authy desktop|"
     "authy_authy|winauth|gauth|mauborgne|twofactorauth|com.nitrokey.nitrokey-app2|nitrokey-app|"
     "nitrokey-app2|com.nitrokey.nitrokey-app|nitroauthenticator|nitrokey-authenticator|2fast|totp|"
     "goauthing"},

    // Prompts for passwords and pins.
    {"com.apple.keychainaccess.prompt", Browser::None,
     "pinentry|pinentry-gtk|pinentry-gtk2|pinentry-gtk-2|pinentry-gnome3|pinentry-qt|"
     "pinentry-qt4|pinentry-qt5|pinentry-qt6|pinentry-x11|pinentry-fltk|pinentry-efl|"
     "pinentry-tqt|pinentry-x2go|pinentry-bemenu|pinentry-rofi|org.gnupg.pinentry-qt|org.gnupg."
     "pinentry-qt5|"
     "ssh-askpass|x11-ssh-askpass|gcr-ssh-askpass|gnome-ssh-askpass|gnome-ssh-askpass2|gnome-ssh-"
     "askpass3|"
     "ssh-askpass-gnome|ssh-askpass-fullscreen|ksshaskpass|org.kde.ksshaskpass|seahorse-ssh-"
     "askpass|"
     "ssh-askpass-sudo|lxqt-openssh-askpass|lxqt-sudo|lxsudo|razor-openssh-askpass|"
     "git-gui--askpass|gksu|gksudo|kdesu|kdesudo|beesu|ktsuss|zensu|gpg-agent|"
     "systemd-gnome-ask-password-agent|cryptkeeper-prompt"},
    {"com.apple.keychainaccess.polkit", Browser::None,
     "polkit-gnome-authentication-agent-1|polkit-kde-authentication-agent-1|"
     "org.kde.polkit-kde-authentication-agent-1|polkit-mate-authentication-agent-1|"
     "mate-polkit|lxpolkit|lxqt-policykit|lxqt-policykit-agent|xfce-polkit|"
     "xfce-polkit-agent|ukui-polkit|io.elementary.desktop.agent-polkit|dde-polkit-agent|"
     "polkit-dumb-agent|cmd-polkit-agent|hyprpolkitagent|polkit-agent-helper-1|soteria"},

    // What covers a locked or not yet opened session.
    {"com.apple.keychainaccess.screenlock", Browser::None,
     "i3lock|i3lock-fancy|lxlock|slock|xscreensaver|xscreensaver-auth|xscreensaver-gfx|xsecurelock|"
     "auth_x11|xtrlock|pyxtrlock|sxlock|alock|xlock|light-locker|mate-screensaver|"
     "mate-screensaver-dialog|cinnamon-screensaver|cinnamon-screensaver-main|"
     "xfce4-screensaver|xfce4-screensaver-dialog|gnome-screensaver|gnome-screensaver-dialog|"
     "kscreenlocker_greet|kscreenlocker|ukui-screensaver|ukui-screensaver-dialog|dde-lock|"
     "betterlockscreen|swaylock|gtklock|waylock|hyprlock|lightdm-gtk-greeter|slick-greeter|"
     "sddm-greeter|sddm-greeter-qt6|lxdm-greeter-gtk|gtkgreet"},
};

template <class Visit>
void forEachPart(std::string_view list, Visit visit) {
    while (!list.empty()) {
        const auto end = std::min(list.find('|'), list.size());
        visit(list.substr(0, end));
        list.remove_prefix(std::min(end + 1, list.size()));
    }
}

using Index = std::unordered_map<std::string_view, const TableRow*>;

Index indexed(std::string_view TableRow::*list) {
    Index index;
    for (const TableRow& row : rows)
        forEachPart(row.*list, [&](std::string_view part) { index.emplace(part, &row); });
    return index;
}

} // namespace

std::span<const TableRow> applicationTable() {
    return rows;
}

bool isConcealed(const TableRow& row) {
    return Privacy::shouldRedact(std::string(row.bundleIdentifier), std::nullopt);
}

std::string foldedMark(std::string_view text) {
    std::string folded(text);
    for (char& letter : folded)
        if (letter >= 'A' && letter <= 'Z')
            letter = static_cast<char>(letter - 'A' + 'a');
    return folded;
}

const TableRow* rowNamed(const std::vector<std::string>& marks) {
    static const Index byName = indexed(&TableRow::names);
    const TableRow* first = nullptr;
    for (const std::string& mark : marks) {
        const auto found = byName.find(foldedMark(mark));
        if (found == byName.end())
            continue;
        if (isConcealed(*found->second))
            return found->second;
        if (first == nullptr)
            first = found->second;
    }
    return first;
}

const TableRow* rowAtHost(std::string_view host) {
    static const Index byHost = indexed(&TableRow::hosts);
    const std::string folded = foldedMark(host);
    for (std::string_view rest = folded; !rest.empty();) {
        if (const auto found = byHost.find(rest); found != byHost.end())
            return found->second;
        const auto dot = rest.find('.');
        rest = dot == std::string_view::npos ? std::string_view() : rest.substr(dot + 1);
    }
    return nullptr;
}

} // namespace mnemora::desktop
