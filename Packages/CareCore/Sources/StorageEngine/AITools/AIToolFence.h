#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/SharedText.h"
#include "StorageEngine/AITools/AIToolHome.h"
#include "StorageEngine/AITools/AIToolVersionState.h"
#include "StorageEngine/Places/RootPathIndex.h"
#include "StorageEngine/Safety/ToolStateFence.h"

namespace tidyro {

/// Holds everything in the homes and stores of AI tools that no rule of the tool recognises by its
/// names, against all other rules and against picks.
///
///     LocalRuntimeSafetyContextProvider contexts(home, {.toolState = [home] {
///         return AIToolFence::find(AIToolHomeDiscovery::ofThisPerson(home));
///     }});
///
/// A home that was rejected is fenced as well, as a link where it is and where it leads to. Where
/// the environment or a person names a folder that may be anybody's (one that does not look like a
/// home, a project, the user's home), only what the tool's tables protect is held in it: what they
/// do not know need not be the tool's.
class AIToolFence final : public ToolStateFence {
  public:
    /// Looks at the disk. The homes that most people have are fenced even when the environment
    /// names others: an earlier one may be there still.
    [[nodiscard]] static std::shared_ptr<const AIToolFence>
    find(const AIToolHomeDiscovery& discovery);

    [[nodiscard]] bool isNear(std::string_view lowered) const override;
    [[nodiscard]] bool isBelow(std::string_view folder) const override;
    [[nodiscard]] std::optional<SharedText> reason(std::string_view path, Item item) const override;

  private:
    /// A home or a store.
    struct Ground {
        std::string folded; ///< its path
        std::size_t depth;  ///< components of the path
        AIToolID tool;
        AIToolLocation::Place place;
        bool isHeldWhole; ///< also what the tables do not know
        /// By the roots of a home; of a store there is one, by an empty path.
        std::map<std::string, AIToolVersionState, std::less<>> versions = {};
    };
    class Finder;

    [[nodiscard]] static std::optional<SharedText>
    reasonIn(const Ground& ground, std::vector<std::string> components, Item item);

    std::vector<Ground> grounds_;
    RootPathIndex lowered_;
    RootPathIndex folded_;
};

} // namespace tidyro
