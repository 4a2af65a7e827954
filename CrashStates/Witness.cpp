#include "Witness.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>
#include <string_view>

#include <fmt/format.h>

#include "Base/PathText.h"
#include "Failure.h"
#include "Platform/Files/DurableFile.h"
#include "StorageEngine/Recovery/CleanupRecovery.h"
#include "StorageEngine/Recovery/FileCleanupIntentJournal.h"
#include "StorageEngine/Recovery/RecoveryLedger.h"

namespace tidyro::crash {

namespace {

namespace fs = std::filesystem;

std::string contents(const std::string& path) {
    return platform::readWholeFile(path, 1U << 24U).value_or("(unreadable)");
}

/// Every file, with its contents.
std::map<std::string, std::string> filesBelow(const std::string& folder) {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file() && !entry.path().string().ends_with("/reserve")) {
            files[entry.path().string()] = contents(entry.path().string());
        }
    }
    return files;
}

std::string_view kindOf(std::string_view path) {
    if (path.contains("/files/")) return "the Trash";
    return path.contains("/.tidyro-") ? "a private folder" : "a folder";
}

struct Witness {
    const Places& places;
    const std::vector<Acknowledged>& acknowledged;
    const std::function<void()>& settleAll;
    std::vector<Item> items = itemsIn(places);
    std::vector<std::string> faults = {};
    std::map<std::string, std::vector<std::string>> placesOf = {}; ///< by contents

    template <class... Values>
    void complain(fmt::format_string<Values...> text, Values&&... values) {
        faults.push_back(fmt::format(text, std::forward<Values>(values)...));
    }

    void look() {
        placesOf.clear();
        for (const auto& [path, text] : filesBelow(places.items)) placesOf[text].push_back(path);
        if (places.data.starts_with(places.items)) return;
        for (const auto& [path, text] : filesBelow(places.data)) placesOf[text].push_back(path);
    }

    [[nodiscard]] bool isAcknowledged(Acknowledged::What what, Cleanup cleanup) const {
        return std::ranges::any_of(acknowledged, [&](const Acknowledged& each) {
            return each.what == what && each.cleanup == cleanup;
        });
    }
    [[nodiscard]] std::size_t recordsAcknowledged(Cleanup cleanup) const {
        std::size_t count = 0;
        for (const Acknowledged& each : acknowledged) {
            const bool isOfRecords = each.what == Acknowledged::What::recorded ||
                                     each.what == Acknowledged::What::closed;
            if (isOfRecords && each.cleanup == cleanup) count = std::max(count, each.count);
        }
        return count;
    }

    /// The intent of a cleanup, as its two files have it.
    [[nodiscard]] std::optional<RecordedIntent> intent(Cleanup cleanup) {
        std::error_code none;
        for (const auto& each : fs::directory_iterator(places.intents(), none)) {
            const fs::path& path = each.path();
            if (path.extension() != ".json" || path.filename().string().starts_with('.')) continue;
            const fs::path log = fs::path(path).replace_extension(".outcomes");
            auto read = readIntent(contents(path.string()),
                                   fs::exists(log) ? contents(log.string()) : std::string());
            if (!read) {
                complain("an intent cannot be read");
            } else if (read->intent.planID == planOf(cleanup)) {
                return *std::move(read);
            }
        }
        return std::nullopt;
    }
    [[nodiscard]] const Item& itemOf(const CleanupIntentEntry& entry) const {
        const auto found = std::ranges::find(items, entry.sourceURL.path(), &Item::path);
        if (found == items.end()) throw Failure("an intent has an item that was never planned");
        return *found;
    }
    [[nodiscard]] bool mayBeBack(const Item& item) const {
        return &item < &items[putBackCount] &&
               isAcknowledged(Acknowledged::What::putBackBegins, Cleanup::trashing);
    }

    /// Whether a note beside an item in the Trash tells where it lay.
    [[nodiscard]] bool isNoted(const Item& item, const std::string& trashed) const {
        const fs::path at(trashed);
        const std::string base = at.parent_path().parent_path().string();
        const std::string note = contents(base + "/info/" + at.filename().string() + ".trashinfo");
        const std::string whole = FileURL::file(item.path).text().substr(7);
        const std::string told =
            base.ends_with("/Trash") ? whole : whole.substr(places.items.size() + 1);
        return note.starts_with("[Trash Info]\nPath=" + told + "\nDeletionDate=");
    }

    /// What was told to be done for good is done, before anybody repaired anything.
    void judgeWhatWasAcknowledged() {
        for (const Cleanup cleanup : allCleanups) {
            const auto recorded = intent(cleanup);
            if (isAcknowledged(Acknowledged::What::begun, cleanup) && !recorded) {
                complain("an intent was acknowledged and is gone");
            }
            if (!recorded) continue;
            if (isAcknowledged(Acknowledged::What::closed, cleanup) && recorded->intent.isOpen()) {
                complain("the end of a cleanup was acknowledged and is gone");
            }
            judgeWhatWasPutBack(cleanup, recorded->intent);
            std::size_t left = recordsAcknowledged(cleanup);
            for (const CleanupIntentEntry& entry : recorded->intent.entries) {
                if (left-- == 0) break;
                if (entry.outcome) {
                    judgeAcknowledged(itemOf(entry), *entry.outcome);
                } else {
                    complain("the record of {} was acknowledged and is gone", itemOf(entry).name);
                }
            }
        }
        for (std::size_t i = 0; i < putBackCount; ++i) {
            const bool hasToBeBack =
                std::ranges::any_of(acknowledged, [&](const Acknowledged& each) {
                    return each.what == Acknowledged::What::putBack && each.count > i;
                });
            if (hasToBeBack && contents(items[i].path) != items[i].contents) {
                complain("{} was acknowledged as put back and is not there", items[i].name);
            }
        }
        const auto wanted =
            std::ranges::count(acknowledged, Acknowledged::What::closed, &Acknowledged::what);
        if (wanted == 0) return;
        auto key = platform::readWholeFile(places.ledgerKey().path(), 64);
        if (!key) return complain("the key of the receipts is gone");
        auto ledger = JSONRecoveryLedger::open(places.ledger(), *std::move(key));
        if (!ledger) return complain("the key of the receipts is damaged");
        const auto receipts = ledger->storedReceipts();
        if (!receipts || std::ssize(*receipts) < wanted) {
            complain("a receipt was acknowledged and is gone");
        }
    }

    void judgeWhatWasPutBack(Cleanup cleanup, const CleanupIntent& intent) {
        if (!isAcknowledged(Acknowledged::What::putBackRecorded, cleanup)) return;
        for (std::size_t i = 0; i < putBackCount; ++i) {
            const auto& outcome = intent.entries[i].outcome;
            if (!outcome ||
                !std::holds_alternative<intent_outcome::RestoredFromTrash>(outcome->value)) {
                complain("that {} was put back was acknowledged and is not known", items[i].name);
            }
        }
    }

    void judgeAcknowledged(const Item& item, const CleanupIntentEntry::Outcome& outcome) {
        if (mayBeBack(item)) return;
        if (contents(item.fileAt(item.path)) == item.contents) {
            complain("{} was acknowledged as gone and is at its place", item.name);
        }
        const auto* moved = std::get_if<intent_outcome::MovedToTrash>(&outcome.value);
        if (moved == nullptr) return;
        if (contents(item.fileAt(moved->url.path())) != item.contents) {
            complain("{} was acknowledged as moved and is not in the Trash", item.name);
        } else if (!isNoted(item, moved->url.path())) {
            complain("{} was acknowledged as moved and has no note", item.name);
        }
    }

    /// Nothing is lost, nothing is there twice, and the journal says what is so.
    void judgeItems() {
        look();
        for (const Cleanup cleanup : allCleanups) {
            const auto recorded = intent(cleanup);
            for (const Item& item : items) {
                if (item.cleanup != cleanup) continue;
                const CleanupIntentEntry::Outcome* outcome = nullptr;
                if (recorded) {
                    for (const CleanupIntentEntry& entry : recorded->intent.entries) {
                        if (&itemOf(entry) == &item && entry.outcome) outcome = &*entry.outcome;
                    }
                }
                judgeItem(item, outcome);
            }
        }
    }

    void judgeItem(const Item& item, const CleanupIntentEntry::Outcome* outcome) {
        const std::vector<std::string>& at = placesOf[item.contents];
        const auto has = [&]<class Case>(Case) {
            return outcome != nullptr && std::holds_alternative<Case>(outcome->value);
        };
        if (at.size() > 1) {
            complain("{} is there twice: in {} and {}", item.name, kindOf(at[0]), kindOf(at[1]));
        } else if (at.empty()) {
            if (outcome == nullptr) {
                complain("{} is unaccounted for", item.name);
            } else if (!has(intent_outcome::PermanentlyRemoved{})) {
                complain("{} is nowhere", item.name);
            }
        } else if (at[0] == item.fileAt(item.path)) {
            if (has(intent_outcome::PermanentlyRemoved{}) ||
                (has(intent_outcome::MovedToTrash{}) && !mayBeBack(item))) {
                complain("{} is at its place, and the journal says otherwise", item.name);
            }
        } else if (kindOf(at[0]) == "the Trash") {
            const std::string trashed =
                item.cleanup == Cleanup::picking ? std::string(path::parent(at[0])) : at[0];
            if (!isNoted(item, trashed)) complain("{} is in the Trash without a note", item.name);
            const auto* moved = outcome == nullptr
                                    ? nullptr
                                    : std::get_if<intent_outcome::MovedToTrash>(&outcome->value);
            if (moved == nullptr || moved->url.path() != trashed) {
                complain("{} is in the Trash, and the journal does not say so", item.name);
            }
        } else {
            complain("{} was left in {}", item.name, kindOf(at[0]));
        }
    }

    void judgeReports() {
        FileCleanupIntentJournal journal(FileURL::folder(places.intents()),
                                         {.reserveByteCount = 0});
        const auto reports = CleanupRecoveryReconciler{.journal = &journal}.pendingReports();
        if (!reports) return complain("the interrupted cleanups cannot be told");
        for (const InterruptedCleanupReport& report : *reports) {
            if (!report.unaccountedFor.empty()) {
                complain("the report has {} unaccounted for", report.unaccountedFor.size());
            }
            for (const auto& moved : report.movedItems) {
                if (!fs::exists(moved.trashURL.path())) {
                    complain("the report offers {}, which is not in the Trash",
                             moved.trashURL.path());
                }
            }
        }
    }

    void run() {
        judgeWhatWasAcknowledged();
        settleAll();
        const auto once = filesBelow(places.items);
        const auto onceOfData = filesBelow(places.data);
        settleAll();
        if (once != filesBelow(places.items) || onceOfData != filesBelow(places.data)) {
            complain("settling for the second time changed something");
        }
        judgeItems();
        judgeReports();
    }
};

} // namespace

std::vector<std::string> judge(const Places& places, const std::vector<Acknowledged>& acknowledged,
                               const std::function<void()>& settleAll) {
    Witness witness{.places = places, .acknowledged = acknowledged, .settleAll = settleAll};
    try {
        witness.run();
    } catch (const std::exception& error) {
        witness.complain("{}", error.what());
    }
    return witness.faults;
}

} // namespace tidyro::crash
