#pragma once
// What the model's publisher's own software answers (see make_golden.py).

#include "fakes/TemporaryFolder.h"

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace mnemora::test {

struct GoldenCase {
    std::string text;
    std::vector<std::int64_t> ids;
    std::vector<double> vector;
};

inline std::vector<GoldenCase> goldenCases() {
    std::vector<GoldenCase> cases;
    for (const auto& entry : nlohmann::json::parse(contentOf(EMBEDDING_GOLDEN)))
        cases.push_back(
            {.text = entry.at("text"), .ids = entry.at("ids"), .vector = entry.at("vector")});
    return cases;
}

} // namespace mnemora::test
