#pragma once
// From a line's scores to its text: greedy decoding of connectionist temporal classification
// (Graves et al., ICML 2006).

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace mnemora::recognition {

/// The texts of the classes: the first is the blank that separates repetitions, then those of the
/// model, then the space, which the model's list leaves out.
class Alphabet {
  public:
    /// `characters` is the model's list, one a line.
    explicit Alphabet(std::string_view characters);

    [[nodiscard]] std::size_t size() const { return texts_.size(); }
    [[nodiscard]] const std::string& text(std::size_t index) const { return texts_[index]; }

  private:
    std::vector<std::string> texts_;
};

/// What was read in one box.
struct Reading {
    std::string text;
    /// Mean probability of the characters read, 0..1; 0 when there are none.
    float score = 0;

    bool operator==(const Reading&) const = default;
};

/// Takes the likeliest class of each step (`scores` holds steps of `alphabet.size()` values),
/// folds repetitions and leaves out blanks.
[[nodiscard]] Reading readGreedily(std::span<const float> scores, const Alphabet& alphabet);

} // namespace mnemora::recognition
