// Drives a whole cleanup of a home through CleanupSession and prints what it tells at each step:
//
//     CleanHome HOME simulation|trash|permanent     cleans what is safe
//     CleanHome HOME history | interrupted | settle
//     CleanHome HOME undo RECEIPT
//     CleanHome HOME empty                          removes for good what cleanups put in the Trash
//
// It asks nobody, so give it a home that was made for it. Journal, ledger and Trash lie in that
// home.

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <string_view>

#include "Base/RoomText.h"
#include "StorageEngine/Cleanup/Session/CleanupSession.h"

namespace {

using namespace tidyro;

void say(const std::string& text) { std::printf("%s\n", text.c_str()); }

void tell(const CleanupReceipt& receipt) {
    struct Tally {
        std::uint64_t count = 0;
        std::uint64_t bytes = 0;
    };
    std::map<std::string, Tally> tallies;
    for (const CleanupReceiptEntry& entry : receipt.entries) {
        const std::string what(rawValue(entry.disposition));
        Tally& tally =
            tallies[entry.failureDescription ? what + ": " + *entry.failureDescription : what];
        ++tally.count;
        tally.bytes += entry.byteCount;
    }
    say("receipt " + receipt.id.text());
    for (const auto& [what, tally] : tallies) {
        say("  " + RoomText::counted(tally.count, "item", "items") + ", " +
            RoomText::bytes(tally.bytes) + " " + what);
    }
    if (receipt.actuallyReclaimedByteCount) {
        say("  freed: " + RoomText::bytes(*receipt.actuallyReclaimedByteCount));
    }
}

int clean(CleanupSession& session, CleanupExecutionMode mode) {
    const auto found = session.suggest();
    if (!found) {
        say(SmartCleanupScan::description(found.error()));
        return 1;
    }
    for (const SmartCleanupGroup& group : found->groups) {
        if (group.candidates.empty()) continue;
        say("suggested: " + group.title + ", " +
            RoomText::counted(group.safe.itemCount, "safe item", "safe items") + " (" +
            RoomText::bytes(group.safe.freedByteCount) + "), " +
            RoomText::counted(group.review.itemCount, "item to review", "items to review"));
    }
    const auto prepared = session.plan({.candidates = found->candidates(), .mode = mode});
    if (!prepared) {
        say(std::string(description(prepared.error())));
        return 1;
    }
    say("planned: " + RoomText::counted(prepared->plan.entries.size(), "item", "items") + ", " +
        RoomText::bytes(prepared->plan.potentiallyReclaimableByteCount()) + ", digest " +
        prepared->digest);
    const auto begun = std::chrono::steady_clock::now();
    const auto receipt =
        session.carryOut(*prepared, CleanupSession::approve(*prepared, {}, Timestamp::now()));
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begun;
    if (!receipt) say(receipt.error().description());
    const CleanupReceipt* told = receipt ? &*receipt : receipt.error().receipt();
    if (told != nullptr) tell(*told);
    std::printf("carried out in %.2f s\n", took.count());
    return receipt ? 0 : 1;
}

int undo(CleanupSession& session, const UUID& receipt) {
    const auto back = session.putBack(receipt);
    if (!back) {
        say(back.error().description());
        return 1;
    }
    std::map<std::string, std::uint64_t> outcomes;
    for (const CleanupSession::PutBack& item : *back) {
        ++outcomes[item.done ? "put back" : item.done.error().description()];
    }
    for (const auto& [what, count] : outcomes) {
        say(RoomText::counted(count, "item: ", "items: ") + what);
    }
    return 0;
}

int empty(CleanupSession& session) {
    const auto plan = session.planEmptying();
    if (!plan) {
        say(plan.error().description());
        return 1;
    }
    say("in the Trash: " + RoomText::counted(plan->entries.size(), "item", "items") + ", " +
        RoomText::bytes(plan->byteCount()));
    if (plan->entries.empty()) return 0;
    const auto receipt =
        session.emptyTrash(*plan, {.planID = plan->id,
                                   .itemCount = static_cast<std::int64_t>(plan->entries.size()),
                                   .byteCount = plan->byteCount(),
                                   .acknowledgedAt = Timestamp::now()});
    if (!receipt) {
        say(receipt.error().description());
        return 1;
    }
    tell(*receipt);
    return 0;
}

int tellHistory(CleanupSession& session) {
    const auto history = session.history();
    if (!history) {
        say(history.error().description());
        return 1;
    }
    for (const CleanupHistoryLine& line : history->lines) {
        say(line.id.text() + " " + std::string(rawValue(line.kind)) + ": " +
            RoomText::counted(line.movedToTrash.count, "item", "items") + " to the Trash, " +
            RoomText::counted(line.permanentlyRemoved.count, "item", "items") + " removed, " +
            RoomText::counted(line.failed.count, "item", "items") + " left");
    }
    return 0;
}

int tellInterrupted(const CleanupSession::Result<CleanupSettlement::Report>& report) {
    if (!report) {
        say(report.error().description());
        return 1;
    }
    say(RoomText::counted(report->cleanups.size(), "interrupted cleanup", "interrupted cleanups"));
    for (const SettledCleanup& cleanup : report->cleanups) {
        say(cleanup.intentID.text() + (cleanup.isAccountedFor
                                           ? ": every item is accounted for"
                                           : ": not every item is accounted for"));
    }
    return 0;
}

} // namespace

int main(int count, char** arguments) {
    if (count < 3) return 64;
    const FileURL home = FileURL::folder(arguments[1]);
    const std::string_view what = arguments[2];
    CleanupSession::Options options;
    options.home = home;
    options.support = home.appendingFolder(".local/share/Harborline");
    options.ageFloor = CleanupAgeFloor::everything; // what was made for it is new
    options.machine.trashHome = home.appendingFolder(".local/share/Trash");
    CleanupSession session(options);
    if (what == "simulation") return clean(session, CleanupExecutionMode::simulation);
    if (what == "trash") return clean(session, CleanupExecutionMode::recoverable);
    if (what == "permanent") return clean(session, CleanupExecutionMode::permanent);
    if (what == "history") return tellHistory(session);
    if (what == "interrupted") return tellInterrupted(session.interrupted());
    if (what == "settle") return tellInterrupted(session.settle());
    if (what == "empty") return empty(session);
    const auto receipt = what == "undo" && count > 3 ? UUID::fromText(arguments[3]) : std::nullopt;
    return receipt ? undo(session, *receipt) : 64;
}
