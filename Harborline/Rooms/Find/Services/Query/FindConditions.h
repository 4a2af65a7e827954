#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "Base/Timestamp.h"
#include "Rooms/Find/Services/Query/FindQuery.h"
#include "Rooms/Find/Services/Query/FindQueryTokens.h"

namespace tidyro {

/// Makes conditions of the words of one query: "report" asks for a text, "size:>1mb" for a size. It
/// counts what a query asks for, so that no query can ask for too much.
class FindConditions {
  public:
    explicit FindConditions(Timestamp now) : now_(now) {}

    /// The condition that a word stands for. A plain word may be in a folder; whether it does so
    /// beside the other words, its reader has to settle. A field whose value makes no sense is
    /// taken for an ordinary word. Nothing once the query has too many words.
    [[nodiscard]] std::optional<FindQueryNode> condition(const FindQueryToken& word);
    /// Why the first word that was misunderstood was misunderstood; one sentence for people.
    [[nodiscard]] const std::optional<std::string>& problem() const { return problem_; }

  private:
    [[nodiscard]] static FindQueryNode wordCondition(const FindQueryToken& word);
    [[nodiscard]] std::optional<FindQueryNode> fieldCondition(const FindQueryToken& word);
    /// Whether the query may ask for one more folder or regular expression. Notes the problem when
    /// it may not.
    [[nodiscard]] bool admitCostlyCondition();

    Timestamp now_;
    std::size_t wordCount_ = 0;
    std::size_t costlyCount_ = 0;
    std::optional<std::string> problem_;
};

} // namespace tidyro
