// Fuzz target: path data of any kind becomes a path whose bounds, where it has any, hold its
// points' own.

#include "Shell/Branding.h"
#include "fuzz/FuzzInput.h"

#include <cmath>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using mnemora::fuzz::require;
    const auto path = mnemora::Branding::parsePath({reinterpret_cast<const char*>(data), size});
    require(path.size() <= size);
    const auto bounds = mnemora::Branding::tightBounds(path);
    if (path.empty())
        require(!bounds);
    if (bounds && std::isfinite(bounds->width) && std::isfinite(bounds->height))
        require(bounds->width >= 0 && bounds->height >= 0);
    return 0;
}
