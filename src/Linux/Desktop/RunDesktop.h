#pragma once
// The one entry of the desktop module.

namespace mnemora {
class MnemoraStore;
}

/// Runs the desktop application until it is asked to quit (menu, SIGTERM, SIGINT, SIGHUP) and
/// returns the process's exit status. Without a display it writes one error line and returns 0,
/// before any object of the toolkit exists. Main thread, once.
extern "C" int runDesktop(mnemora::MnemoraStore& store, int argc, char** argv);
