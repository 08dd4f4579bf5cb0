#pragma once
// A picture in a memory file that nobody can change any more, to be handed to another process.

#include "Platform/ScreenCapture.h"
#include "Support/FileDescriptor.h"

namespace mnemora {

/// The rows of the picture, sealed against writing and resizing; no descriptor when there is no
/// memory for it.
[[nodiscard]] FileDescriptor sealedPicture(const Image& image);

} // namespace mnemora
