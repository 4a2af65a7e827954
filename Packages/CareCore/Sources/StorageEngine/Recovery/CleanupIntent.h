#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Base/FileURL.h"
#include "Base/Record.h"
#include "Base/Timestamp.h"
#include "Base/UUID.h"
#include "CareDomain/FileFingerprint.h"
#include "CareDomain/FileObservation.h"
#include "CareDomain/ProofCard.h"

namespace tidyro {

/// The cases of `CleanupIntentEntry::Outcome`.
namespace intent_outcome {

struct MovedToTrash {
    FileURL url; ///< where the Trash put it

    static constexpr std::string_view caseName = "movedToTrash";
    static constexpr auto fields() {
        return fieldList<MovedToTrash>(field("_0", &MovedToTrash::url));
    }
    bool operator==(const MovedToTrash&) const = default;
};

/// Recovery put it back.
struct RestoredFromTrash {
    FileURL url; ///< where it lies again

    static constexpr std::string_view caseName = "restoredFromTrash";
    static constexpr auto fields() {
        return fieldList<RestoredFromTrash>(field("_0", &RestoredFromTrash::url));
    }
    bool operator==(const RestoredFromTrash&) const = default;
};

/// Recovery found that the Trash does not hold it any more.
struct NoLongerInTrash {
    FileURL url; ///< where the Trash had it

    static constexpr std::string_view caseName = "noLongerInTrash";
    static constexpr auto fields() {
        return fieldList<NoLongerInTrash>(field("_0", &NoLongerInTrash::url));
    }
    bool operator==(const NoLongerInTrash&) const = default;
};

/// The operation failed, or a check refused the item.
struct Failed {
    std::string reason; ///< for people

    static constexpr std::string_view caseName = "failed";
    static constexpr auto fields() { return fieldList<Failed>(field("_0", &Failed::reason)); }
    bool operator==(const Failed&) const = default;
};

struct PermanentlyRemoved {
    static constexpr std::string_view caseName = "permanentlyRemoved";
    static constexpr auto fields() { return fieldList<PermanentlyRemoved>(); }
    bool operator==(const PermanentlyRemoved&) const = default;
};

/// A simulation dealt with it without touching the disk.
struct Simulated {
    static constexpr std::string_view caseName = "simulated";
    static constexpr auto fields() { return fieldList<Simulated>(); }
    bool operator==(const Simulated&) const = default;
};

} // namespace intent_outcome

/// One item of an intended cleanup, and what became of it.
struct CleanupIntentEntry {
    struct Outcome {
        using Cases = std::variant<intent_outcome::MovedToTrash, intent_outcome::RestoredFromTrash,
                                   intent_outcome::NoLongerInTrash, intent_outcome::Failed,
                                   intent_outcome::PermanentlyRemoved, intent_outcome::Simulated>;
        Cases value;
        bool operator==(const Outcome&) const = default;
    };

    LocalItemID candidateID;
    FileURL sourceURL;
    FileFingerprint fingerprint; ///< as planned
    /// None until the item was dealt with.
    std::optional<Outcome> outcome = std::nullopt;

    static constexpr auto fields() {
        using Self = CleanupIntentEntry;
        return fieldList<Self>(
            field("candidateID", &Self::candidateID), field("sourceURL", &Self::sourceURL),
            field("fingerprint", &Self::fingerprint), field("outcome", &Self::outcome));
    }
    bool operator==(const CleanupIntentEntry&) const = default;
};

/// What a cleanup is about to do, written down before it touches the first item.
/// `CleanupIntentJournaling` keeps it, together with what became of each item.
struct CleanupIntent {
    UUID id; ///< new for every execution
    UUID planID;
    Timestamp createdAt;
    CleanupExecutionMode mode;
    std::vector<CleanupIntentEntry> entries; ///< in the plan's order
    /// None while the cleanup runs, and for ever when it was cut short.
    std::optional<Timestamp> closedAt = std::nullopt;

    [[nodiscard]] bool isOpen() const { return !closedAt; }
    /// The entries without an outcome. They point into this intent.
    [[nodiscard]] std::vector<const CleanupIntentEntry*> unresolvedEntries() const;

    static constexpr auto fields() {
        using Self = CleanupIntent;
        return fieldList<Self>(field("id", &Self::id), field("planID", &Self::planID),
                               field("createdAt", &Self::createdAt), field("mode", &Self::mode),
                               field("entries", &Self::entries),
                               field("closedAt", &Self::closedAt));
    }
    bool operator==(const CleanupIntent&) const = default;
};

} // namespace tidyro
