#pragma once

#include <string>
#include <string_view>
#include <variant>

#include "Base/Cases.h"
#include "Base/Record.h"

namespace tidyro {

namespace copystate {

/// It must not be removed.
struct Held {
    std::string reason; ///< a sentence for people

    static constexpr std::string_view caseName = "held";
    static constexpr auto fields() { return fieldList<Held>(field("_0", &Held::reason)); }
    bool operator==(const Held&) const = default;
};
/// The one of its set that stays.
struct Kept {
    static constexpr std::string_view caseName = "kept";
    static constexpr auto fields() { return fieldList<Kept>(); }
    bool operator==(const Kept&) const = default;
};
/// In the cleanup queue, by itself or with a folder that it lies in.
struct Staged {
    static constexpr std::string_view caseName = "staged";
    static constexpr auto fields() { return fieldList<Staged>(); }
    bool operator==(const Staged&) const = default;
};
/// Removed since the search.
struct Gone {
    static constexpr std::string_view caseName = "gone";
    static constexpr auto fields() { return fieldList<Gone>(); }
    bool operator==(const Gone&) const = default;
};
/// It lies on the same blocks as the one that is kept: removing it would free nothing.
struct SharesStorage {
    static constexpr std::string_view caseName = "sharesStorage";
    static constexpr auto fields() { return fieldList<SharesStorage>(); }
    bool operator==(const SharesStorage&) const = default;
};
/// It may go.
struct Extra {
    static constexpr std::string_view caseName = "extra";
    static constexpr auto fields() { return fieldList<Extra>(); }
    bool operator==(const Extra&) const = default;
};

} // namespace copystate

/// What is to become of one copy of a set.
///
///     if (model.state(copy, group, staged) == CopyState{copystate::Extra{}}) offerToStage(copy);
struct CopyState {
    using Cases = std::variant<copystate::Held, copystate::Kept, copystate::Staged, copystate::Gone,
                               copystate::SharesStorage, copystate::Extra>;
    Cases value;
    bool operator==(const CopyState&) const = default;
};

} // namespace tidyro
