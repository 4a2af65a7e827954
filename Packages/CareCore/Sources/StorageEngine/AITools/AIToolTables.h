#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "Base/SystemTexts.h"
#include "StorageEngine/AITools/AIToolLayout.h"

/// The form in which layouts are written down, and what turns these tables into layouts.
namespace tidyro::aitools {

/// What a row says beside its files.
enum Trait : std::uint8_t {
    plain = 0,
    trashOnly = 1,
    unticked = 2,
    namedLikeConversations = 4,
    containsConversationKeys = 8,
};

inline constexpr auto disposable = AIToolArtifactGroup::disposableCache;
inline constexpr auto generated = AIToolArtifactGroup::generatedWork;

struct RuleRow {
    std::string_view root; ///< the candidate root or the store
    std::string_view ruleID;
    std::string_view title;
    std::string_view pattern;    ///< components with "/" between them
    std::string_view extensions; ///< with a space between them; empty for any
    AIToolArtifactGroup group;
    CleanupCategory category;
    std::string_view consequence;
    int traits = plain;
};

/// A root without a row is one in which nothing is recognised.
struct RootRow {
    std::string_view path;
    std::string_view protectedChildren = {}; ///< patterns with a space between them
    std::string_view currentLink = {};       ///< see `AIToolCandidateRoot`
};

struct StoreRow {
    std::string_view path;
    std::string_view protectedChildren;
    std::string_view launcher = {};
};

using Names = std::span<const std::string_view>;

[[nodiscard]] AIToolRecognizer recognizer(const RuleRow& row);
[[nodiscard]] std::vector<AIToolCandidateRoot> roots(std::span<const RootRow> rows,
                                                     std::span<const RuleRow> rules);
[[nodiscard]] std::vector<AIToolExternalStore> stores(std::span<const StoreRow> rows,
                                                      std::span<const RuleRow> rules);
/// The version as it is on a system: what is known of Linux is told apart.
[[nodiscard]] std::string layoutVersion(std::string_view version, OperatingSystem system);

/// The words of a text, and the names of a list.
[[nodiscard]] std::vector<std::string> words(std::string_view text);
[[nodiscard]] std::vector<std::string> list(Names names);
[[nodiscard]] AIToolLayout::Names set(Names names);

/// The tools of the Electron family, which keep the same folders.
[[nodiscard]] AIToolLayout electron(AIToolID tool, OperatingSystem system);

} // namespace tidyro::aitools
