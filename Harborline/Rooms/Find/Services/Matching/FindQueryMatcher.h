#pragma once

#include <cstdint>
#include <memory>

#include "Base/Cancellation.h"
#include "Rooms/Find/Services/Index/FindEntrySet.h"
#include "Rooms/Find/Services/Index/FindIndexStorage.h"
#include "Rooms/Find/Services/Matching/FindBlockFilter.h"
#include "Rooms/Find/Services/Matching/FindNameRank.h"
#include "Rooms/Find/Services/Query/FindQuery.h"

namespace tidyro {

/// Finds the entries for which a query holds, condition by condition over whole sets: what is cheap
/// to find out comes first, and what costs more is asked only of what is left. Used by one thread;
/// storage, query and filter outlive it.
///
/// - A text is looked for in the folded name; `matchesCase` looks for its bytes in the bytes of the
///   name. Regular expressions see the name as it is, with U+FFFD for what is no UTF-8.
/// - In paths it is looked for in the path below the root, a "/" before each component; see
///   `FindTextTest`.
/// - `ext` is what follows a full stop that does not begin the name: "a.tar.gz" has "gz" and
///   "tar.gz". Folders have extensions, too.
/// - A folder that holds nothing but deleted entries is empty. One that was not read is not: it was
///   closed, lies on another volume or was to be left out.
class FindQueryMatcher {
  public:
    /// The filter may be null.
    FindQueryMatcher(const FindIndexStorage& storage, const FindQuery& query,
                     const FindBlockFilter* filter = nullptr, CancelToken cancel = {});
    ~FindQueryMatcher();
    FindQueryMatcher(const FindQueryMatcher&) = delete;
    FindQueryMatcher& operator=(const FindQueryMatcher&) = delete;

    /// Those of `among` for which it holds; `among` is without the root and what is deleted. When
    /// it was cancelled meanwhile they mean nothing.
    [[nodiscard]] FindEntrySet matches(FindEntrySet among) const;

    /// How well an entry that matches fits what was typed. By the first text that stands for
    /// itself: not denied, in a name, no glob or regular expression. Where it is one of several
    /// alternatives, by the best of their first ones. The worst where there is none.
    [[nodiscard]] FindNameRank rank(std::uint32_t entry) const;
    /// The best that `rank` can say of it, found out at once.
    [[nodiscard]] FindNameRank bestPossibleRank(std::uint32_t entry) const;

  private:
    struct Body;
    std::unique_ptr<Body> body_;
};

} // namespace tidyro
