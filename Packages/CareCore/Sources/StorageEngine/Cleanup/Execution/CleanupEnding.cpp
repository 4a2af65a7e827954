#include "StorageEngine/Cleanup/Execution/CleanupEnding.h"

#include <utility>
#include <variant>

namespace tidyro {

std::expected<CleanupReceipt, CleanupExecutionError>
CleanupEnding::end(CleanupReceipt receipt, std::optional<CleanupExecutionError::Cases> stop) const {
    using Error = CleanupExecutionError;
    const auto stored = ledger.append(receipt);
    if (journal != nullptr) {
        if (!stored) static_cast<void>(journal->requireReceiptRecovery(receipt));
        const auto closed = journal->close(intentID, at);
        if (!closed && !stop) {
            stop = Error::JournalStopped{.error = closed.error(), .receipt = {}};
        }
    }
    if (!stored) stop = Error::ReceiptPersistenceFailed{}; // the most that a person has to know
    if (!stop) return receipt;
    std::visit(
        [&](auto& error) {
            if constexpr (requires { error.receipt; }) error.receipt = std::move(receipt);
            if constexpr (requires { error.mode; }) error.mode = mode;
            if constexpr (requires { error.isSomethingElsewhere; }) {
                error.isSomethingElsewhere = isSomethingElsewhere;
            }
        },
        *stop);
    return std::unexpected(Error{*std::move(stop)});
}

} // namespace tidyro
