#pragma once
// The colours of the program's own.

namespace mnemora {

/// sRGB, each part from 0 to 1.
struct BrandColor {
    double red = 0;
    double green = 0;
    double blue = 0;
    double opacity = 1;
};

/// Namespace-like holder without state.
struct Brand {
    Brand() = delete;

    /// The accent of the setup window.
    static constexpr BrandColor terracotta{226.0 / 255, 104.0 / 255, 63.0 / 255, 1.0};
};

} // namespace mnemora
