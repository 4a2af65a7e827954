#include "Interrupted.h"

#include "Failure.h"
#include "Platform/Folders/FolderFlushes.h"
#include "StorageEngine/Cleanup/Settling/CleanupSettlement.h"

namespace tidyro::crash {

void settle(const Places& places, platform::FolderChanges& changes, platform::ChangeGate& gate) {
    platform::FolderFlushes flushes(changes);
    FileCleanupIntentJournal journal(
        FileURL::folder(places.intents()),
        {.flushChanges = [&] { return flushes.flush(); }, .reserveByteCount = 0, .gate = &gate});
    const auto key = recoveryLedgerKey(places.ledgerKey(), places.ledger(), gate);
    if (!key) throw Failure(key.error().description());
    auto ledger = JSONRecoveryLedger::open(places.ledger(), *key, {.gate = &gate});
    const auto volumes = places.volumes();
    CleanupSettlement settlement({.journal = &journal,
                                  .ledger = &*ledger,
                                  .changes = &changes,
                                  .flushes = &flushes,
                                  .gate = &gate,
                                  .volumes = &volumes,
                                  .trashHome = places.trash()});
    const auto report = settlement.settle();
    if (!report) throw Failure(report.error().description());
    if (!report->unreadable.empty()) throw Failure("an intent cannot be read");
    for (const SettledCleanup& cleanup : report->cleanups) {
        if (!cleanup.isAccountedFor) throw Failure("the settlement leaves items unaccounted for");
        if (!cleanup.troubles.empty()) throw Failure(cleanup.troubles[0]);
        if (!cleanup.strangers.empty()) throw Failure("the settlement tells of a stranger");
    }
}

} // namespace tidyro::crash
