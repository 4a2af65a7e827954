#pragma once

#include <string>
#include <string_view>

namespace tidyro {

/// A pattern in which "*" stands for any text and "?" for one character of UTF-8; everything else
/// for itself. It takes at most the product of both lengths, in practice their sum: only the last
/// "*" is ever tried again.
class FindGlob {
  public:
    explicit FindGlob(std::string_view pattern);
    /// Whether it is all of `text`.
    [[nodiscard]] bool matches(std::string_view text) const;

  private:
    std::string pattern_; ///< no "*" directly behind another
    std::size_t leastBytes_ = 0;
};

} // namespace tidyro
