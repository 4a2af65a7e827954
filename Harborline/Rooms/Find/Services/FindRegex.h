#pragma once

#include <memory>
#include <string_view>

namespace tidyro {

/// A regular expression that a person typed. Matching takes time that grows with the text only, and
/// memory has a bound: nobody can stop a search by what they type. Any thread may match.
class FindRegex {
  public:
    /// Null for what is no expression, or makes one that is too large.
    [[nodiscard]] static std::shared_ptr<const FindRegex> compiled(std::string_view expression,
                                                                   bool matchesCase);
    FindRegex();
    ~FindRegex();
    FindRegex(const FindRegex&) = delete;
    FindRegex& operator=(const FindRegex&) = delete;

    /// Whether it matches somewhere in `text`. What is no UTF-8 in it counts as U+FFFD.
    [[nodiscard]] bool isIn(std::string_view text) const;

  private:
    struct Program;
    std::unique_ptr<Program> program_;
};

} // namespace tidyro
