#pragma once

#include <string_view>

#include "Base/Cancellation.h"
#include "Rooms/Find/Services/Index/FindEntrySet.h"
#include "Rooms/Find/Services/Index/FindIndexStorage.h"
#include "Rooms/Find/Services/Matching/FindNameScan.h"
#include "Rooms/Find/Services/Matching/FindSubject.h"
#include "Rooms/Find/Services/Matching/FindTextTest.h"
#include "Rooms/Find/Services/Query/FindQuery.h"

namespace tidyro {

/// Finds the entries in whose name or path a text stands as a term of a query asks. Whatever
/// matches holds certain literals (the text itself, what stands between the "*" of a glob, letters
/// of a regular expression): these are looked for in all names at once, and only what has them is
/// looked at one by one.
class FindTextScan {
  public:
    /// All outlive it.
    FindTextScan(const FindIndexStorage& storage, const FindNameScan& names,
                 const CancelToken& cancel)
        : storage_(storage), names_(names), cancel_(cancel), subjects_(storage) {}

    /// Takes out of `among` those in which the term does not hold. Some may stay when it is
    /// cancelled.
    void keepMatching(FindEntrySet& among, const FindTextTerm& term);

  private:
    void keepHoldingLiterals(FindEntrySet& among, const FindTextTerm& term,
                             const FindTextTest& test) const;
    void keepLiterals(FindEntrySet& among, const FindTextTerm& term) const;
    [[nodiscard]] FindEntrySet holding(std::string_view literal, const FindTextTerm& term,
                                       const FindTextTest& test) const;
    void keepByExpression(FindEntrySet& among, const FindTextTerm& term);

    const FindIndexStorage& storage_;
    const FindNameScan& names_;
    const CancelToken& cancel_;
    FindSubjects subjects_;
};

} // namespace tidyro
