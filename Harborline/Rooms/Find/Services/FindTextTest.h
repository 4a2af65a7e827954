#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Rooms/Find/Services/FindGlob.h"
#include "Rooms/Find/Services/FindIndexStorage.h"
#include "Rooms/Find/Services/FindQuery.h"
#include "Rooms/Find/Services/FindSubject.h"

namespace tidyro {

/// Whether a text stands in names or paths as a term of a query asks. Used by one thread; the term
/// outlives it.
///
/// In paths: a text that begins with the path of the root itself stands for the beginning of the
/// path below it; a glob has to match from the beginning of a component to the end; `exact` is the
/// whole path below the root, with or without a "/" around it; a regular expression sees the path
/// without the "/" before it.
class FindTextTest {
  public:
    FindTextTest(const FindTextTerm& term, std::string_view rootPath);

    [[nodiscard]] bool holds(const FindSubject& subject);

  private:
    void adaptToPaths(std::string_view root);
    [[nodiscard]] bool standsIn(const FindSubject& subject, std::string_view text);
    [[nodiscard]] bool standsAsWord(const FindSubject& subject, std::string_view text) const;

    const FindTextTerm& term_;
    std::string needle_;
    FindGlob glob_; ///< of the needle, when the mode is `glob`
    bool standsAtBeginning_ = false;
    // What was last found out about a folder, for the entries that it holds.
    std::uint32_t folder_ = FindIndexStorage::none;
    bool standsInFolder_ = false;
};

} // namespace tidyro
