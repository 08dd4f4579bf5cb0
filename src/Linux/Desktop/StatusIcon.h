#pragma once
// The picture in the status area.

#include <QIcon>

namespace mnemora::desktop {

/// The mark in the colour of the user's panel texts, as far as the toolkit knows it, sharp at every
/// scale; with a red dot in the corner while sound is recorded. Needs the toolkit's application
/// object.
[[nodiscard]] QIcon statusIcon(int size, bool recording);

} // namespace mnemora::desktop
