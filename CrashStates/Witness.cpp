#include "Witness.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>
#include <string_view>

#include <fmt/format.h>

#include "Base/PathText.h"
#include "LoggedDisks.h"
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
    if (path.contains("/.tidyro-")) return "a private folder";
    return path.contains("/home/") ? "its folder" : "some folder";
}

struct Witness {
    const Places& places;
    const std::vector<Acknowledged>& acknowledged;
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

    [[nodiscard]] bool isAcknowledged(Acknowledged::What what, std::size_t cleanup) const {
        return std::ranges::any_of(acknowledged, [&](const Acknowledged& each) {
            return each.what == what && each.cleanup == cleanup;
        });
    }
    [[nodiscard]] std::size_t recordsAcknowledged(std::size_t cleanup) const {
        std::size_t count = 0;
        for (const Acknowledged& each : acknowledged) {
            const bool isOfRecords = each.what == Acknowledged::What::recorded ||
                                     each.what == Acknowledged::What::closed;
            if (isOfRecords && each.cleanup == cleanup) count = std::max(count, each.count);
        }
        return count;
    }

    [[nodiscard]] std::optional<RecordedIntent> intent(std::size_t cleanup) {
        const std::string path = places.intents() + "/" + intentOf(cleanup).text();
        if (!fs::exists(path + ".json")) return std::nullopt;
        const std::string log = fs::exists(path + ".outcomes") ? contents(path + ".outcomes") : "";
        auto read = readIntent(contents(path + ".json"), log);
        if (read) return *std::move(read);
        complain("the intent of cleanup {} cannot be read", cleanup);
        return std::nullopt;
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
        for (const std::size_t cleanup : {trashing, removing}) {
            const auto recorded = intent(cleanup);
            if (isAcknowledged(Acknowledged::What::begun, cleanup) && !recorded) {
                complain("the intent of cleanup {} was acknowledged and is gone", cleanup);
            }
            if (!recorded) continue;
            if (isAcknowledged(Acknowledged::What::closed, cleanup) && recorded->intent.isOpen()) {
                complain("the end of cleanup {} was acknowledged and is gone", cleanup);
            }
            std::size_t left = recordsAcknowledged(cleanup);
            for (const CleanupIntentEntry& entry : recorded->intent.entries) {
                if (left-- == 0) break;
                if (!entry.outcome) {
                    complain("the record of {} was acknowledged and is gone",
                             entry.candidateID.rawValue);
                    break;
                }
                judgeAcknowledged(entry);
            }
        }
        if (!isAcknowledged(Acknowledged::What::receipt, trashing)) return;
        auto ledger =
            JSONRecoveryLedger::open(FileURL::file(places.ledger()), std::string(32, 'k'));
        const auto receipts = ledger->storedReceipts();
        const std::size_t wanted = isAcknowledged(Acknowledged::What::receipt, removing) ? 2 : 1;
        if (!receipts || receipts->size() < wanted) {
            complain("a receipt was acknowledged and is gone");
        }
    }

    void judgeAcknowledged(const CleanupIntentEntry& entry) {
        const auto item = std::ranges::find(items, entry.candidateID.rawValue, &Item::name);
        const auto index = static_cast<std::size_t>(item - items.begin());
        const bool mayBeBack =
            index < putBackCount && isAcknowledged(Acknowledged::What::putBackBegins, trashing);
        const bool hasToBeBack = std::ranges::any_of(acknowledged, [&](const Acknowledged& each) {
            return each.what == Acknowledged::What::putBack && each.count > index &&
                   item->cleanup == trashing;
        });
        const bool isThere = contents(item->fileAt(item->path)) == item->contents;
        if (isThere && !mayBeBack) {
            complain("{} was acknowledged as {} and is at its place", item->name,
                     item->cleanup == trashing ? "moved" : "removed");
        }
        if (hasToBeBack && !isThere) {
            complain("{} was acknowledged as put back and is not there", item->name);
        }
        const auto* moved = std::get_if<intent_outcome::MovedToTrash>(&entry.outcome->value);
        if (moved == nullptr || mayBeBack) return;
        if (contents(item->fileAt(moved->url.path())) != item->contents) {
            complain("{} was acknowledged as moved and is not in the Trash", item->name);
        } else if (!isNoted(*item, moved->url.path())) {
            complain("{} was acknowledged as moved and has no note", item->name);
        }
    }

    /// Nothing is lost, nothing is there twice, and the journal says what is so.
    void judgeItems() {
        look();
        for (const std::size_t cleanup : {trashing, removing}) {
            const auto recorded = intent(cleanup);
            for (std::size_t i = 0; i < items.size(); ++i) {
                if (items[i].cleanup != cleanup) continue;
                const CleanupIntentEntry* entry = nullptr;
                if (recorded) {
                    const auto& entries = recorded->intent.entries;
                    const auto found =
                        std::ranges::find(entries, items[i].name, [](const auto& each) {
                            return each.candidateID.rawValue;
                        });
                    if (found != entries.end()) entry = &*found;
                }
                judgeItem(items[i], entry,
                          i < putBackCount &&
                              isAcknowledged(Acknowledged::What::putBackBegins, trashing));
            }
        }
    }

    void judgeItem(const Item& item, const CleanupIntentEntry* entry, bool mayBeBack) {
        const std::vector<std::string>& at = placesOf[item.contents];
        const CleanupIntentEntry::Outcome* outcome =
            entry != nullptr && entry->outcome ? &*entry->outcome : nullptr;
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
                (has(intent_outcome::MovedToTrash{}) && !mayBeBack)) {
                complain("{} is at its place, and the journal says otherwise", item.name);
            }
        } else if (kindOf(at[0]) == "the Trash") {
            const std::string trashed = item.isFolder ? std::string(path::parent(at[0])) : at[0];
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
        settle(places);
        const auto once = filesBelow(places.items);
        const auto onceOfData = filesBelow(places.data);
        settle(places);
        if (once != filesBelow(places.items) || onceOfData != filesBelow(places.data)) {
            complain("settling for the second time changed something");
        }
        judgeItems();
        judgeReports();
    }
};

} // namespace

std::vector<std::string> judge(const Places& places,
                               const std::vector<Acknowledged>& acknowledged) {
    Witness witness{.places = places, .acknowledged = acknowledged};
    try {
        witness.run();
    } catch (const std::exception& error) {
        witness.complain("{}", error.what());
    }
    return witness.faults;
}

} // namespace tidyro::crash
