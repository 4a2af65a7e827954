#pragma once

#include <cstdint>
#include <string>

#include "Base/PathText.h"
#include "Platform/Machine/RandomUUID.h"
#include "StorageEngine/Recovery/CleanupIntent.h"
#include "Support/TemporaryFolder.h"

namespace tidyro::testing {

inline LocalItemID itemID(std::string name) { return {.rawValue = std::move(name)}; }

inline CleanupIntentEntry::Outcome movedTo(std::string_view path) {
    return {intent_outcome::MovedToTrash{FileURL::file(path)}};
}

/// An intent with the entries "a", "b", ... for files of these names in a folder.
inline CleanupIntent sampleIntent(const std::string& folder, std::size_t count,
                                  double createdAt = 1'000) {
    CleanupIntent intent{.id = platform::randomUUID(),
                         .planID = platform::randomUUID(),
                         .createdAt = Timestamp::sinceReference(createdAt),
                         .mode = CleanupExecutionMode::recoverable,
                         .entries = {}};
    for (std::size_t i = 0; i < count; ++i) {
        std::string name = i < 26 ? std::string(1, static_cast<char>('a' + i)) : std::to_string(i);
        intent.entries.push_back({.candidateID = itemID(name),
                                  .sourceURL = FileURL::file(path::joined(folder, name)),
                                  .fingerprint = {.byteCount = i}});
    }
    return intent;
}

} // namespace tidyro::testing
