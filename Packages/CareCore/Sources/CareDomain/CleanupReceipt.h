#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Base/FileURL.h"
#include "Base/RawValues.h"
#include "Base/Record.h"
#include "Base/Timestamp.h"
#include "Base/UUID.h"
#include "CareDomain/FileObservation.h"

namespace tidyro {

/// What became of one entry of a plan.
enum class CleanupMoveDisposition {
    movedToTrash,
    permanentlyRemoved,
    simulated,
    failed,  ///< the file operation itself failed
    refused, ///< a check stopped it before it was touched
};

constexpr RawValueTable<CleanupMoveDisposition, 5> rawValues(RawValueTag<CleanupMoveDisposition>) {
    using enum CleanupMoveDisposition;
    return {{{{movedToTrash, "movedToTrash"},
              {permanentlyRemoved, "permanentlyRemoved"},
              {simulated, "simulated"},
              {failed, "failed"},
              {refused, "refused"}}}};
}

/// What became of one entry of a plan.
struct CleanupReceiptEntry {
    LocalItemID candidateID;
    FileURL originalURL;
    std::optional<FileURL> resultingTrashURL = std::nullopt; ///< only for what was moved there
    std::uint64_t byteCount;                                 ///< as planned
    CleanupMoveDisposition disposition;
    std::optional<std::string> failureDescription = std::nullopt; ///< for failed and refused ones

    static constexpr auto fields() {
        using Self = CleanupReceiptEntry;
        return fieldList<Self>(
            field("candidateID", &Self::candidateID), field("originalURL", &Self::originalURL),
            field("resultingTrashURL", &Self::resultingTrashURL),
            field("byteCount", &Self::byteCount), field("disposition", &Self::disposition),
            field("failureDescription", &Self::failureDescription));
    }
    bool operator==(const CleanupReceiptEntry&) const = default;
};

/// What one execution of a plan did, item by item.
struct CleanupReceipt {
    UUID id; ///< new for every execution
    UUID planID;
    std::vector<CleanupReceiptEntry> entries; ///< in the plan's order
    Timestamp createdAt;
    Timestamp retainUntil;
    std::optional<std::uint64_t> actuallyReclaimedByteCount = std::nullopt; ///< when known

    /// The planned bytes of the entries with one outcome, saturating.
    [[nodiscard]] std::uint64_t movedToTrashByteCount() const;
    [[nodiscard]] std::uint64_t permanentlyRemovedByteCount() const;
    [[nodiscard]] std::uint64_t simulatedByteCount() const;
    /// Whether anything was removed for good. When every entry of a permanent plan failed, nothing
    /// was.
    [[nodiscard]] bool isPermanent() const;
    /// Whether the receipt is still kept at a moment. At `retainUntil` it is not any more.
    [[nodiscard]] bool isRetained(Timestamp at) const { return at < retainUntil; }

    static constexpr auto fields() {
        using Self = CleanupReceipt;
        return fieldList<Self>(
            field("id", &Self::id), field("planID", &Self::planID),
            field("entries", &Self::entries), field("createdAt", &Self::createdAt),
            field("retainUntil", &Self::retainUntil),
            field("actuallyReclaimedByteCount", &Self::actuallyReclaimedByteCount));
    }
    bool operator==(const CleanupReceipt&) const = default;
};

} // namespace tidyro
