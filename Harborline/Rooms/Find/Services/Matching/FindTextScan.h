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

/// Finds the entries whose name or path meets a term of a query. Every match holds certain
/// literals: the text itself, the parts between the "*" of a glob, letters of a regular expression.
/// These are looked for in all names at once, and only entries that hold them are tested one by
/// one.
class FindTextScan {
  public:
    /// All three have to outlive it.
    FindTextScan(const FindIndexStorage& storage, const FindNameScan& names,
                 const CancelToken& cancel)
        : storage_(storage), names_(names), cancel_(cancel), subjects_(storage) {}

    /// Takes the entries that do not meet the term out of `among`. Once it was cancelled some of
    /// them may stay.
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
