#include "Shell/Branding.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <utility>

namespace mnemora {
namespace {

bool isSeparator(char character) {
    return character == ' ' || character == ',' || character == '\n' || character == '\r';
}

/// Everything beyond ASCII counts as a letter: it is no command that draws.
bool isLetter(char character) {
    return (character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z') ||
           static_cast<unsigned char>(character) >= 0x80;
}

class PathReader {
  public:
    explicit PathReader(std::string_view data) : data_(data) {}

    VectorPath read() {
        while (position_ < data_.size())
            step();
        return std::move(path_);
    }

  private:
    void step() {
        const char character = data_[position_];
        if (isLetter(character)) {
            command_ = character;
            ++position_;
            carryOut(command_);
        } else if (isSeparator(character)) {
            ++position_;
        } else {
            const auto before = position_;
            carryOut(command_ == 'M' ? 'L' : command_ == 'Z' || command_ == 'z' ? ' ' : command_);
            if (position_ == before && !skipNumber())
                ++position_;
        }
    }

    void carryOut(char command) {
        switch (command) {
        case 'M':
            return move();
        case 'L':
            return line(numbers(2));
        case 'H':
            if (const auto x = numbers(1); x.size() == 1)
                line(std::vector{x[0], current_.y});
            return;
        case 'V':
            if (const auto y = numbers(1); y.size() == 1)
                line(std::vector{current_.x, y[0]});
            return;
        case 'C':
            return curve();
        case 'Z':
        case 'z':
            path_.push_back({.kind = PathElement::Kind::close});
            current_ = start_;
            return;
        default:
            return;
        }
    }

    void move() {
        const auto to = numbers(2);
        if (to.size() < 2)
            return;
        current_ = start_ = {to[0], to[1]};
        path_.push_back({.kind = PathElement::Kind::move, .end = current_});
    }

    void line(const std::vector<double>& to) {
        if (to.size() < 2)
            return;
        current_ = {to[0], to[1]};
        path_.push_back({.kind = PathElement::Kind::line, .end = current_});
    }

    void curve() {
        const auto to = numbers(6);
        if (to.size() < 6)
            return;
        current_ = {to[4], to[5]};
        path_.push_back({.kind = PathElement::Kind::curve,
                         .end = current_,
                         .control1 = {to[0], to[1]},
                         .control2 = {to[2], to[3]}});
    }

    std::vector<double> numbers(std::size_t count) {
        std::vector<double> found;
        while (found.size() < count && position_ < data_.size()) {
            while (position_ < data_.size() && isSeparator(data_[position_]))
                ++position_;
            const auto number = valueOf(token());
            if (!number)
                break;
            found.push_back(*number);
        }
        return found;
    }

    /// Takes an optional sign and the digits and points behind it.
    std::string_view token() {
        const auto begin = position_;
        if (position_ < data_.size() && (data_[position_] == '-' || data_[position_] == '+'))
            ++position_;
        const auto end = data_.find_first_not_of("0123456789.", position_);
        position_ = std::min(end, data_.size());
        return data_.substr(begin, position_ - begin);
    }

    bool skipNumber() { return !token().empty(); }

    static std::optional<double> valueOf(std::string_view token) {
        if (token.starts_with('+'))
            token.remove_prefix(1);
        double value = 0;
        const auto end = token.data() + token.size();
        const auto result = std::from_chars(token.data(), end, value, std::chars_format::fixed);
        return result.ec == std::errc() && result.ptr == end ? std::optional(value) : std::nullopt;
    }

    std::string_view data_;
    std::size_t position_ = 0;
    char command_ = ' '; // none
    PathPoint current_;
    PathPoint start_; // of the current subpath
    VectorPath path_;
};

/// Grows by points and by the extremes of curves.
class Extent {
  public:
    void add(const PathPoint& point) {
        x_.add(point.x);
        y_.add(point.y);
    }
    void addCurve(const PathPoint& from, const PathElement& curve) {
        add(curve.end);
        x_.addCurve(from.x, curve.control1.x, curve.control2.x, curve.end.x);
        y_.addCurve(from.y, curve.control1.y, curve.control2.y, curve.end.y);
    }
    [[nodiscard]] std::optional<PathBounds> bounds() const {
        if (x_.low > x_.high)
            return std::nullopt;
        return PathBounds{x_.low, y_.low, x_.high - x_.low, y_.high - y_.low};
    }

  private:
    struct Axis {
        double low = HUGE_VAL;
        double high = -HUGE_VAL;

        void add(double value) {
            low = std::min(low, value);
            high = std::max(high, value);
        }
        /// A cubic's extremes lie where its derivative, a quadratic in t, is zero.
        void addCurve(double p0, double p1, double p2, double p3) {
            const double a = p3 - 3 * p2 + 3 * p1 - p0;
            const double b = 2 * (p2 - 2 * p1 + p0);
            const double c = p1 - p0;
            const double root = std::sqrt(b * b - 4 * a * c); // not a number: no extreme
            for (const double t : {(-b + root) / (2 * a), (-b - root) / (2 * a), -c / b}) {
                const double s = 1 - t;
                if (t > 0 && t < 1)
                    add(s * s * s * p0 + 3 * s * s * t * p1 + 3 * s * t * t * p2 + t * t * t * p3);
            }
        }
    };

    Axis x_;
    Axis y_;
};

template <class Map>
VectorPath mapped(const VectorPath& path, Map map) {
    VectorPath result = path;
    for (PathElement& element : result) {
        element.end = map(element.end);
        element.control1 = map(element.control1);
        element.control2 = map(element.control2);
    }
    return result;
}

} // namespace

VectorPath Branding::parsePath(std::string_view data) {
    return PathReader(data).read();
}

const VectorPath& Branding::mnemoraPath() {
    static const VectorPath path = parsePath(markPathData);
    return path;
}

std::optional<PathBounds> Branding::tightBounds(const VectorPath& path) {
    Extent extent;
    PathPoint current;
    for (const PathElement& element : path) {
        if (element.kind == PathElement::Kind::close)
            continue;
        if (element.kind == PathElement::Kind::curve)
            extent.addCurve(current, element);
        else
            extent.add(element.end);
        current = element.end;
    }
    return extent.bounds();
}

VectorPath Branding::menuBarPath(double size) {
    const VectorPath& path = mnemoraPath();
    const auto bounds = tightBounds(path);
    const double margin = size * 0.06;
    const double available = size - 2 * margin;
    const double scale = bounds ? available / std::max(bounds->width, bounds->height) : 0;
    if (!std::isfinite(scale) || scale <= 0)
        return path;
    return mapped(path, [&](const PathPoint& point) {
        return PathPoint{scale * (point.x - bounds->left) + margin +
                             (available - bounds->width * scale) / 2,
                         size - (margin + (available - bounds->height * scale) / 2) -
                             scale * (point.y - bounds->top)};
    });
}

} // namespace mnemora
