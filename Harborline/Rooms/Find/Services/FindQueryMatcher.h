#pragma once

#include <cstdint>
#include <memory>

#include "Rooms/Find/Services/FindIndexStorage.h"
#include "Rooms/Find/Services/FindQuery.h"

namespace tidyro {

/// Says of single entries whether a query holds for them. What a query needs of an index once (the
/// folders it is bound to, compiled expressions) is found out when this is made. Used by one
/// thread; storage and query outlive it.
class FindQueryMatcher {
  public:
    FindQueryMatcher(const FindIndexStorage& storage, const FindQuery& query);
    ~FindQueryMatcher();
    FindQueryMatcher(const FindQueryMatcher&) = delete;
    FindQueryMatcher& operator=(const FindQueryMatcher&) = delete;

    [[nodiscard]] bool matches(std::uint32_t entry);

    /// How well an entry that matches fits what was typed, 0 the best: the whole name equals a word
    /// of the query, the name without its extension does, the name begins with it, a word in the
    /// name does (after a separator or a change of case), it stands anywhere. By the first word
    /// that stands for itself (not denied, in a name); 4 where there is none.
    [[nodiscard]] unsigned rank(std::uint32_t entry) const;

  private:
    struct Body;
    std::unique_ptr<Body> body_;
};

} // namespace tidyro
