#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "Base/SharedText.h"

namespace tidyro {

/// Holds what some tools keep of a person's work in places that also hold caches: conversations,
/// credentials, databases, the version in use. Whoever knows such a tool says so here; every policy
/// asks, so that no rule, no pick and no choice of copies reaches it. What the tool's own rules let
/// go they authorize themselves.
///
/// Made anew with each context. It looks at the text of paths; absolute, standardised ones, written
/// or real. Any thread may ask.
class ToolStateFence {
  public:
    enum class Item : std::uint8_t { file, folder };

    ToolStateFence() = default;
    ToolStateFence(const ToolStateFence&) = delete;
    ToolStateFence& operator=(const ToolStateFence&) = delete;
    virtual ~ToolStateFence() = default;

    /// Whether the path, in lower case, is or lies in a place that is fenced. Nearly none does, and
    /// of the others nothing is held. Takes a handful of comparisons.
    [[nodiscard]] virtual bool isNear(std::string_view lowered) const = 0;
    /// Whether such a place lies below the folder.
    [[nodiscard]] virtual bool isBelow(std::string_view folder) const = 0;
    /// Why the item at the path stays, for people; none when the fence does not hold it. A folder
    /// that is not held itself may hold what is.
    [[nodiscard]] virtual std::optional<SharedText> reason(std::string_view path,
                                                           Item item) const = 0;
};

} // namespace tidyro
