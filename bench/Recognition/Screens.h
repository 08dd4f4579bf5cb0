#pragma once
// The rendered set: screens as people have them in front of them all day, with known text.

#include "Engines/ScreenPainter.h"

#include <string>
#include <vector>

namespace mnemora::bench {

struct Screen {
    std::string name;
    ScreenPainter painter;
};

/// The whole set, always the same.
[[nodiscard]] std::vector<Screen> renderedScreens();

/// An editor whose lines from `firstChanged` on, `changed` in number, differ from those of a call
/// with `changed` 0.
[[nodiscard]] ScreenPainter editorScreen(int firstChanged, int changed);

/// Lines that editorScreen writes.
inline constexpr int editorLines = 50;

} // namespace mnemora::bench
