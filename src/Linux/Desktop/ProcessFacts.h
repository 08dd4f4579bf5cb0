#pragma once
// What /proc tells of a process that owns a window (proc(5)).

#include <string>

namespace mnemora::desktop {

/// Empty texts where nothing could be read: a process that is gone, or another user's.
struct ProcessFacts {
    /// 0 when unknown.
    int processIdentifier = 0;
    /// The full path of the executable as the process itself sees it.
    std::string executable;
    /// The program's name: the executable's, or the script's where an interpreter runs one.
    std::string program;
    /// The application's identifier inside a Flatpak, or the snap's name.
    std::string sandbox;
    /// True when it is a browser all of whose windows are private: its command line asks for it
    /// (GNOME Web runs its private windows in a process of their own, told apart by nothing else),
    /// or Firefox's settings do.
    bool keepsNothing = false;
    /// A Firefox: whether it keeps nothing may change.
    bool hasProfile = false;

    bool operator==(const ProcessFacts&) const = default;
};

/// Reads the facts afresh; a few small files, no other program involved. Any thread.
[[nodiscard]] ProcessFacts processFacts(int processIdentifier);

/// What was read before, brought up to date: a Firefox has no profile yet while it starts, and may
/// start anew in the same process with another setting. Any thread.
[[nodiscard]] ProcessFacts upToDate(ProcessFacts facts);

/// The number of the Flatpak instance that the process belongs to, as its sandbox states it; empty
/// outside one. The proxy that speaks for an instance on a message bus has the same.
[[nodiscard]] std::string sandboxInstance(int processIdentifier);

} // namespace mnemora::desktop
