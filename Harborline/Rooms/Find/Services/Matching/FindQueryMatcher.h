#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "Base/Cancellation.h"
#include "Rooms/Find/Services/Index/FindEntrySet.h"
#include "Rooms/Find/Services/Index/FindIndexStorage.h"
#include "Rooms/Find/Services/Matching/FindBlockFilter.h"
#include "Rooms/Find/Services/Matching/FindFolderWords.h"
#include "Rooms/Find/Services/Matching/FindNameRank.h"
#include "Rooms/Find/Services/Query/FindQuery.h"

namespace tidyro {

/// Finds the entries that meet a query. It goes condition by condition over whole sets of entries:
/// cheap conditions come first, costly ones look only at the entries that are left. One thread uses
/// a matcher; storage, query and filter have to outlive it.
///
///     const FindQuery query = parsedFindQuery("kind:image size:>1mb", now);
///     const FindEntrySet matches = FindQueryMatcher(*storage, query).matches(*mask);
///
/// - A text is looked for in the folded name, and a case-sensitive one in the bytes of the name.
///   Regular expressions see the name as it is, with U+FFFD for bytes that are not UTF-8.
/// - A path is the path below the root with a "/" before each component; see `FindTextTest`.
/// - An extension follows a full stop that does not begin the name: "a.tar.gz" has "gz" and
///   "tar.gz". Folders have extensions, too.
/// - A folder that holds only deleted entries is empty. A folder that was not read is not, because
///   nobody knows what it holds.
class FindQueryMatcher {
  public:
    /// Without a filter all names are read.
    FindQueryMatcher(const FindIndexStorage& storage, const FindQuery& query,
                     const FindBlockFilter* filter = nullptr, CancelToken cancel = {});
    ~FindQueryMatcher();
    FindQueryMatcher(const FindQueryMatcher&) = delete;
    FindQueryMatcher& operator=(const FindQueryMatcher&) = delete;

    /// The entries of `among` that meet the query. Neither the root nor anything deleted may be in
    /// `among`. The result means nothing once the search was cancelled.
    [[nodiscard]] FindEntrySet matches(FindEntrySet among) const;

    /// What `matches` found, in sets of which each has a fit that is no worse than that of any
    /// entry in it, the best first.
    [[nodiscard]] std::vector<FindFolderWords::Tier> tiers(FindEntrySet matches) const;

    /// How well a matching entry fits what was typed. The first plain text of the query counts: one
    /// that is looked for in names, is not denied, and is neither a glob nor a regular expression.
    /// When words stand in folders, the text counts that has the best rank in the name. Of several
    /// alternatives the best fit counts. A query without such a text is
    /// ranked by the last components of the texts in paths, and is `anywhere` when there are none.
    [[nodiscard]] FindFit fit(std::uint32_t entry) const;
    /// No worse than the fit of the entry, and known sooner. `best` is that of its tier.
    [[nodiscard]] FindFit bestPossibleFit(std::uint32_t entry, FindFit best) const;

  private:
    struct Body;
    std::unique_ptr<Body> body_;
};

} // namespace tidyro
