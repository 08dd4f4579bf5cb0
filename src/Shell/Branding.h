#pragma once
// The program's mark as a vector path, read from path data that the program holds itself. Whoever
// draws it (see Linux/Desktop/BrandImages) fills the path by the even-odd rule.

#include <optional>
#include <string_view>
#include <vector>

namespace mnemora {

/// A point; y grows downwards in path data, upwards in Branding::menuBarPath.
struct PathPoint {
    double x = 0;
    double y = 0;

    bool operator==(const PathPoint&) const = default;
};

/// One step of a path. A close has no point of its own.
struct PathElement {
    enum class Kind { move, line, curve, close };

    Kind kind = Kind::move;
    PathPoint end = {};
    PathPoint control1 = {}; // of a cubic curve only
    PathPoint control2 = {};

    bool operator==(const PathElement&) const = default;
};

using VectorPath = std::vector<PathElement>;

/// The smallest rectangle around what a path draws: curves, not their control points.
struct PathBounds {
    double left = 0;
    double top = 0;
    double width = 0;
    double height = 0;
};

/// Namespace without state but the cached path. Any thread.
struct Branding {
    Branding() = delete;

    /// The mark's path data, made by packaging/brand/make_mark.py.
    static const std::string_view markPathData;

    /// Reads path data (https://www.w3.org/TR/SVG11/paths.html#PathData), of which it draws the
    /// absolute commands M, L, H, V, C and Z. Safe on any text: other commands and their numbers
    /// draw nothing, and a command that finds too few numbers draws nothing either.
    [[nodiscard]] static VectorPath parsePath(std::string_view data);

    /// The mark; parsed on first use.
    [[nodiscard]] static const VectorPath& mnemoraPath();

    /// Absent for a path without a point.
    [[nodiscard]] static std::optional<PathBounds> tightBounds(const VectorPath& path);

    /// The mark fitted into a square with sides of `size`, centred inside a margin of 6 percent, y
    /// growing upwards. The mark as it is where that size can't be reached (0, infinite).
    [[nodiscard]] static VectorPath menuBarPath(double size);
};

} // namespace mnemora
