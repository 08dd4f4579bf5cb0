#!/usr/bin/python3
"""Writes the table of private-window markers from the browsers' own language packs.

Usage: collect.py > ../../src/Linux/Desktop/PrivateWindowMarkerTable.cpp

Needs Debian's packages chromium, chromium-l10n, firefox-esr and firefox-esr-l10n-all. Run it when
a browser's new release words a marker differently; the program reads Chromium's packs at run time
besides, so the table only has to cover what can't be read there.
"""
import glob
import re
import struct
import subprocess
import unicodedata
import zipfile

CHROMIUM = "/usr/lib/chromium/locales"
FIREFOX = "/usr/lib/firefox-esr"
# Windows that keep nothing: private ones, a guest's, and those that an administrator isolates.
PRIVATE = ("$1 (Incognito)", "$1 (Guest)", "$1 (Isolated)")
TITLE = "browser-main-private-window-title"


def pack_strings(path):
    """The strings of a Chromium language pack, version 5 of the format, by number."""
    with open(path, "rb") as file:
        data = file.read()
    version, encoding, count = struct.unpack_from("<IBxxxH", data)
    assert version == 5 and encoding == 1, path
    entries = [struct.unpack_from("<HI", data, 12 + 6 * i) for i in range(count + 1)]
    return {number: data[at:end].decode(errors="replace") for (number, at), (_, end) in zip(entries, entries[1:])}


def chromium_formats():
    english = pack_strings(f"{CHROMIUM}/en-US.pak")
    numbers = [n for n, text in english.items() if text in PRIVATE]
    packs = [pack_strings(path) for path in glob.glob(f"{CHROMIUM}/*.pak")]
    texts = {pack.get(number) for pack in packs for number in numbers}
    return sorted(tuple(clean(text).split("$1")) for text in texts if text)


def clean(text):
    text = unicodedata.normalize("NFC", text)
    return "".join(c for c in text if c not in "\u200e\u200f\u202a\u202b\u202c\u202d\u202e")


def messages():
    """The text of TITLE in each language, as Fluent writes it for this platform."""
    sources = [(path, "browser/localization/") for path in
               glob.glob(f"{FIREFOX}/browser/extensions/langpack-*.xpi")]
    for path, folder in sources + [(f"{FIREFOX}/browser/omni.ja", "localization/")]:
        # Mozilla's archives begin with their directory, which Python's reader refuses.
        if path.endswith(".ja"):
            text = subprocess.run(["unzip", "-qq", "-p", path, "localization/*/browser/browser.ftl"],
                                  capture_output=True, check=False).stdout.decode()
            yield text
            continue
        with zipfile.ZipFile(path) as archive:
            for name in archive.namelist():
                if name.startswith(folder) and name.endswith("/browser/browser.ftl"):
                    yield archive.read(name).decode()


def firefox_markers():
    markers = set()
    for text in messages():
        found = re.search(rf"(?m)^{TITLE} =(.*(?:\n(?:[ \t].*)?)*)", text)
        if not found:
            continue
        other = re.search(r"\*\[other\](.*)", found.group(1))
        value = other.group(1) if other else found.group(1)
        marker = clean(re.sub(r"\{[^}]*\}", "", value)).strip(" \n—–-:()（）«»")
        if len(marker) > 2:
            markers.add(marker)
    return sorted(markers)


def main():
    formats, markers = chromium_formats(), firefox_markers()
    print("// Made by packaging/private-window-markers/collect.py; change that and run it again.\n")
    print('#include "Linux/Desktop/PrivateWindowMarkers.h"\n')
    print("namespace mnemora::desktop {\n")
    print("std::span<const TitleFormat> chromiumFormats() {")
    print("    static const TitleFormat formats[] = {")
    for before, after in formats:
        print(f'        {{"{before}", "{after}"}},')
    print("    };\n    return formats;\n}\n")
    print("std::span<const std::string_view> firefoxMarkers() {")
    print("    static constexpr std::string_view markers[] = {")
    for marker in markers:
        print(f'        "{marker}",')
    print("    };\n    return markers;\n}\n")
    print("} // namespace mnemora::desktop")


main()
