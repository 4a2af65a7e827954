#pragma once

#include <cstdint>
#include <memory>

#include "Rooms/Find/Services/FindIndexStorage.h"
#include "Rooms/Find/Services/FindQuery.h"

namespace tidyro {

/// Says of single entries whether a query holds for them. What a query needs of an index once (the
/// folders it is bound to, what is empty, what is deleted) is found out when this is made. Used by
/// one thread; storage and query outlive it.
///
/// - A text is looked for in the folded name; `matchesCase` looks for its bytes in the bytes of the
///   name. Regular expressions see the name as it is, with U+FFFD for what is no UTF-8.
/// - In paths it is looked for in the path below the root, a "/" before each component; see
///   `FindTextTest`.
/// - `ext` is what follows a full stop that does not begin the name: "a.tar.gz" has "gz" and
///   "tar.gz". Folders have extensions, too.
/// - A folder that holds nothing but deleted entries is empty.
class FindQueryMatcher {
  public:
    FindQueryMatcher(const FindIndexStorage& storage, const FindQuery& query);
    ~FindQueryMatcher();
    FindQueryMatcher(const FindQueryMatcher&) = delete;
    FindQueryMatcher& operator=(const FindQueryMatcher&) = delete;

    /// Never for the root, nor for what is deleted or in something deleted.
    [[nodiscard]] bool matches(std::uint32_t entry);

    /// How well an entry that matches fits what was typed, as `FindNameRank` tells. By the first
    /// text that stands for itself: not denied, in a name, no glob or regular expression. Where it
    /// is one of several alternatives, by the best of their first ones. The worst where there is
    /// none.
    [[nodiscard]] unsigned rank(std::uint32_t entry) const;

  private:
    struct Body;
    std::unique_ptr<Body> body_;
};

} // namespace tidyro
