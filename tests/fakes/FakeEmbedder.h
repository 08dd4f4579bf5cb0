#pragma once
// An embedder whose vectors a test can foresee.

#include "Store/Embedder.h"

#include <array>
#include <cstdint>
#include <functional>

namespace mnemora::test {

/// Eight dimensions, each the number of bytes of the text that fall into it: texts with the same
/// letters get the same vector. A text of blanks, and one that begins with "refused", has none.
struct FakeEmbedder : Embedder {
    [[nodiscard]] int dimension() const override { return 8; }
    [[nodiscard]] bool isAvailable() const override { return true; }
    [[nodiscard]] std::optional<std::vector<float>> embed(std::string_view text) override {
        if (text.find_first_not_of(" \n") == std::string_view::npos || text.starts_with("refused"))
            return std::nullopt;
        std::vector<float> vector(8);
        for (const char c : text)
            vector[static_cast<std::uint8_t>(c) % 8] += 1;
        return vector;
    }
};

/// No model at all.
struct NoEmbedder : Embedder {
    [[nodiscard]] int dimension() const override { return 0; }
    [[nodiscard]] bool isAvailable() const override { return false; }
    [[nodiscard]] std::optional<std::vector<float>> embed(std::string_view /*text*/) override {
        return std::nullopt;
    }
};

} // namespace mnemora::test
