#include "CareDomain/CleanupReceipt.h"

#include <algorithm>

#include "Base/Saturating.h"

namespace tidyro {

namespace {

std::uint64_t byteCount(const CleanupReceipt& receipt, CleanupMoveDisposition disposition) {
    std::uint64_t total = 0;
    for (const CleanupReceiptEntry& entry : receipt.entries) {
        if (entry.disposition == disposition) total = saturatingAdd(total, entry.byteCount);
    }
    return total;
}

} // namespace

std::uint64_t CleanupReceipt::movedToTrashByteCount() const {
    return byteCount(*this, CleanupMoveDisposition::movedToTrash);
}

std::uint64_t CleanupReceipt::permanentlyRemovedByteCount() const {
    return byteCount(*this, CleanupMoveDisposition::permanentlyRemoved);
}

std::uint64_t CleanupReceipt::simulatedByteCount() const {
    return byteCount(*this, CleanupMoveDisposition::simulated);
}

bool CleanupReceipt::isPermanent() const {
    return std::ranges::any_of(entries, [](const CleanupReceiptEntry& entry) {
        return entry.disposition == CleanupMoveDisposition::permanentlyRemoved;
    });
}

} // namespace tidyro
