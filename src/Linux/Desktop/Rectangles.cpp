#include "Linux/Desktop/Rectangles.h"

#include <algorithm>

namespace mnemora::desktop {

Rectangle intersection(const Rectangle& one, const Rectangle& other) {
    const int left = std::max(one.left, other.left);
    const int top = std::max(one.top, other.top);
    const int right = std::min(one.left + one.width, other.left + other.width);
    const int bottom = std::min(one.top + one.height, other.top + other.height);
    return {left, top, std::max(right - left, 0), std::max(bottom - top, 0)};
}

Area without(const Area& area, const Rectangle& cover) {
    Area rest;
    for (const Rectangle& piece : area) {
        const Rectangle hidden = intersection(piece, cover);
        if (hidden.isEmpty()) {
            rest.push_back(piece);
            continue;
        }
        const int right = hidden.left + hidden.width;
        const int bottom = hidden.top + hidden.height;
        for (const Rectangle& side :
             {Rectangle{piece.left, piece.top, piece.width, hidden.top - piece.top},
              Rectangle{piece.left, bottom, piece.width, piece.top + piece.height - bottom},
              Rectangle{piece.left, hidden.top, hidden.left - piece.left, hidden.height},
              Rectangle{right, hidden.top, piece.left + piece.width - right, hidden.height}})
            if (!side.isEmpty())
                rest.push_back(side);
    }
    return rest.size() > maxPieces ? area : rest;
}

} // namespace mnemora::desktop
