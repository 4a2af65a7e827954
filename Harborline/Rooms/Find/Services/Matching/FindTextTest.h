#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "Rooms/Find/Services/Matching/FindSubject.h"
#include "Rooms/Find/Services/Query/FindQuery.h"

namespace tidyro {

/// A pattern in which "*" stands for any text and "?" for one character of UTF-8; everything else
/// for itself. It takes at most the product of both lengths, in practice their sum: only the last
/// "*" is ever tried again.
class FindGlob {
  public:
    explicit FindGlob(std::string_view pattern);
    /// Whether the pattern matches the whole of `text`.
    [[nodiscard]] bool doesMatch(std::string_view text) const;

  private:
    std::string pattern_; ///< no "*" directly behind another
    std::size_t minBytes_ = 0;
};

/// Whether a text stands in names or paths as a term of a query asks. The term outlives it.
///
/// In paths: a text that begins with the path of the root itself stands for the beginning of the
/// path below it; a glob has to match from the beginning of a component to the end; `exact` is the
/// whole path below the root, with or without a "/" around it; a regular expression sees the path
/// without the "/" before it.
class FindTextTest {
  public:
    FindTextTest(const FindTextTerm& term, std::string_view rootPath);

    [[nodiscard]] bool isMetBy(const FindSubject& subject) const;

    /// What is looked for, as it is compared; for a glob its pattern.
    [[nodiscard]] const std::string& needle() const { return needle_; }
    /// Whether they have to stand at the beginning of a path.
    [[nodiscard]] bool isAtBeginning() const { return isAtBeginning_; }

  private:
    void adaptToPaths(std::string_view root);
    [[nodiscard]] bool isIn(std::string_view text) const;
    [[nodiscard]] bool isWordIn(const FindSubject& subject, std::string_view text) const;

    const FindTextTerm& term_;
    std::string needle_;
    FindGlob glob_; ///< of the needle, when the mode is `glob`
    bool isAtBeginning_ = false;
};

} // namespace tidyro
