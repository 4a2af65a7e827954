#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Rooms/Find/Services/Matching/FindSubject.h"
#include "Rooms/Find/Services/Query/FindQuery.h"

namespace tidyro {

/// A pattern in which "*" stands for any text, "?" for one character of UTF-8, a set such as
/// "[a-z]" for one of its characters, and every other byte for itself. Matching takes at most time
/// in proportion to the product of both lengths, since only the last "*" is ever tried again.
class FindGlob {
  public:
    enum class Sets : std::uint8_t { none, inBrackets };
    FindGlob(std::string_view pattern, Sets sets);
    /// Whether the pattern matches the whole of `text`.
    [[nodiscard]] bool isMatchedBy(std::string_view text) const;

  private:
    [[nodiscard]] std::size_t setEnd(std::size_t at) const {
        return sets_ == Sets::none ? 0 : globSetEnd(pattern_, at);
    }

    std::string pattern_; ///< no "*" directly behind another
    Sets sets_;
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
