#pragma once

#include <cstdint>
#include <string_view>

#include "Base/RawValues.h"

namespace tidyro {

enum class AIToolArtifactGroup : std::uint8_t {
    disposableCache,
    generatedWork,
    protectedState,
    unknownOrUnavailable,
};

constexpr RawValueTable<AIToolArtifactGroup, 4> rawValues(RawValueTag<AIToolArtifactGroup>) {
    using enum AIToolArtifactGroup;
    return {{{{disposableCache, "disposableCache"},
              {generatedWork, "generatedWork"},
              {protectedState, "protectedState"},
              {unknownOrUnavailable, "unknownOrUnavailable"}}}};
}

[[nodiscard]] std::string_view title(AIToolArtifactGroup group);

/// Why an item of an AI tool's home has its group. Only the first two may ever be cleaned.
enum class AIToolDecision : std::uint8_t {
    eligibleDisposable,
    eligibleForReview,
    namedProtectedState,
    database,
    lockOrStaging,
    currentRuntime,
    conversationOrHistory,
    outsideAllowlist,
    unrecognizedInsideAllowedRoot,
    tooRecent,
    futureTimestamp,
    inUseByProcess,
    hardLinked,
    symbolicLink,
    notARegularFile,
    unreadable,
    generalPolicy,
    inaccessible,
};

constexpr RawValueTable<AIToolDecision, 18> rawValues(RawValueTag<AIToolDecision>) {
    using enum AIToolDecision;
    return {{{{eligibleDisposable, "eligibleDisposable"},
              {eligibleForReview, "eligibleForReview"},
              {namedProtectedState, "namedProtectedState"},
              {database, "database"},
              {lockOrStaging, "lockOrStaging"},
              {currentRuntime, "currentRuntime"},
              {conversationOrHistory, "conversationOrHistory"},
              {outsideAllowlist, "outsideAllowlist"},
              {unrecognizedInsideAllowedRoot, "unrecognizedInsideAllowedRoot"},
              {tooRecent, "tooRecent"},
              {futureTimestamp, "futureTimestamp"},
              {inUseByProcess, "inUseByProcess"},
              {hardLinked, "hardLinked"},
              {symbolicLink, "symbolicLink"},
              {notARegularFile, "notARegularFile"},
              {unreadable, "unreadable"},
              {generalPolicy, "generalPolicy"},
              {inaccessible, "inaccessible"}}}};
}

/// What people are told.
[[nodiscard]] std::string_view explanation(AIToolDecision decision);

/// Whether the item may become eligible later although nothing about the rules changes.
[[nodiscard]] constexpr bool isTemporaryHold(AIToolDecision decision) {
    using enum AIToolDecision;
    return decision == tooRecent || decision == futureTimestamp || decision == inUseByProcess;
}

} // namespace tidyro
