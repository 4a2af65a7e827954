#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "Rooms/Find/Services/Matching/FindSubject.h"
#include "Rooms/Find/Services/Query/FindQuery.h"

namespace tidyro {

/// A pattern in which "*" stands for any text, "?" for one character of UTF-8, and every other byte
/// for itself. Matching takes at most time in proportion to the product of both lengths, since only
/// the last "*" is ever tried again.
class FindGlob {
  public:
    explicit FindGlob(std::string_view pattern);
    /// Whether the pattern matches the whole of `text`.
    [[nodiscard]] bool isMatchedBy(std::string_view text) const;

  private:
    std::string pattern_; ///< no "*" directly behind another
    std::size_t minBytes_ = 0;
};

/// Tests whether a name or path meets a term of a query. The term has to outlive it.
///
/// Rules for paths:
/// - A text that begins with the path of the root itself has to stand at the beginning of the path.
/// - A glob has to match from the beginning of a component to the end of the path.
/// - `exact` means the whole path below the root, with or without a "/" before and behind it.
/// - A regular expression sees the path without its first "/".
class FindTextTest {
  public:
    FindTextTest(const FindTextTerm& term, std::string_view rootPath);

    [[nodiscard]] bool isMetBy(const FindSubject& subject) const;

    /// The bytes that are looked for, folded unless case counts; the pattern of a glob.
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
