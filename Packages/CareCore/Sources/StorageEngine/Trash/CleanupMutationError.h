#pragma once

#include <optional>
#include <string>

#include "Base/FileURL.h"

namespace tidyro {

/// Why one item was not moved or removed. Nothing else is affected by it.
struct CleanupMutationError {
    enum class Kind {
        moveFailed,
        removeFailed,
        sourceMissing,
        notARegularFile,
        identityChanged,
        outsideAuthorizedRoot,
    };
    Kind kind;
    /// For the first two, when it is known: the middle of a sentence, "it is locked".
    std::optional<std::string> reason = std::nullopt;
    /// Where an item lies by now that could not go back: the item itself, or another one that had
    /// its name in the moment of the move.
    std::optional<FileURL> displaced = std::nullopt;

    /// Whole sentences for people.
    [[nodiscard]] std::string description() const;
    /// The short form that receipts keep.
    [[nodiscard]] std::string receiptDescription() const;
    bool operator==(const CleanupMutationError&) const = default;
};

} // namespace tidyro
