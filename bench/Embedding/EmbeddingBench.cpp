// Time per text of 10, 64 and 256 tokens, the model loaded.

#include "Linux/Embedding/LazySentenceModel.h"

#include <benchmark/benchmark.h>

namespace {

/// "word" is one token; the model's own two stand around it.
std::string textOfTokens(std::int64_t tokens) {
    std::string text;
    for (std::int64_t i = 2; i < tokens; ++i)
        text += "word ";
    return text;
}

void embedText(benchmark::State& state) {
    static const auto model = mnemora::makeSentenceModel("en");
    const auto text = textOfTokens(state.range(0));
    if (!model || !model->vector(text)) {
        state.SkipWithError("no model");
        return;
    }
    for (auto _ : state)
        benchmark::DoNotOptimize(model->vector(text));
}

BENCHMARK(embedText)->Arg(10)->Arg(64)->Arg(256)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
