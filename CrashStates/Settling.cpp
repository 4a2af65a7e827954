#include "Interrupted.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "Base/PathText.h"
#include "LoggedDisks.h"
#include "Platform/Files/DurableFile.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderFlushes.h"
#include "Platform/Folders/Trash.h"
#include "StorageEngine/Recovery/FileCleanupIntentJournal.h"

namespace tidyro::crash {

namespace {

namespace fs = std::filesystem;
using platform::FolderDescriptor;
using platform::FolderFlushes;

/// The few steps that these cleanups need after a crash, for each item that is not where the
/// journal has it.
struct Settler {
    const Places& places;
    platform::LiveFolderChanges changes = {};
    FolderFlushes flushes{changes};
    FileCleanupIntentJournal journal{
        FileURL::folder(places.intents()),
        {.flushChanges = [this] { return flushes.flush(); }, .reserveByteCount = 1U << 20U}};

    template <class Result>
    static void need(const Result& result, const char* what) {
        if (!result) throw Failure(std::string("settling failed: ") + what);
    }

    static bool isAt(const std::string& path, const CleanupIntentEntry& entry) {
        const auto seen = platform::fileMetadata(path);
        const std::string& planned = *entry.fingerprint.fileResourceIdentifier;
        return seen &&
               planned.substr(planned.rfind(':') + 1) == std::to_string(seen->identity.inode) &&
               seen->modified == entry.fingerprint.modificationDate;
    }

    /// The place of an item in one of the Trashes.
    [[nodiscard]] std::optional<std::string> inTrash(const CleanupIntentEntry& entry) const {
        for (const std::string& base : {places.data + "/Trash", places.items + "/.Trash-0"}) {
            std::error_code none;
            for (const auto& each : fs::directory_iterator(base + "/files", none)) {
                if (isAt(each.path().string(), entry)) return each.path().string();
            }
        }
        return std::nullopt;
    }

    void rename(const std::string& from, const std::string& to) {
        const auto source = FolderDescriptor::openRoot(std::string(path::parent(from)));
        const auto target = FolderDescriptor::openRoot(std::string(path::parent(to)));
        need(source && target, "folders");
        need(flushes.note(*source, FolderFlushes::Side::left), "note");
        need(flushes.note(*target, FolderFlushes::Side::entered), "note");
        need(platform::moveNeverReplacing(
                 changes, {.folder = *source, .name = std::string(path::lastComponent(from))},
                 {.folder = *target, .name = std::string(path::lastComponent(to))}),
             "rename");
    }
    void remove(const std::string& path) {
        const auto folder = FolderDescriptor::openRoot(std::string(path::parent(path)));
        need(folder, "folder");
        need(flushes.note(*folder, FolderFlushes::Side::left), "note");
        need(
            changes.removeFile({.folder = *folder, .name = std::string(path::lastComponent(path))}),
            "removal");
    }

    void writeNote(const std::string& trashed, const CleanupIntentEntry& entry) {
        const std::string base(path::parent(path::parent(trashed)));
        const std::string note =
            base + "/info/" + std::string(path::lastComponent(trashed)) + ".trashinfo";
        if (platform::readWholeFile(note, 1U << 16U).value_or("").contains("\nPath=")) return;
        const bool isHome = base.ends_with("/Trash");
        const std::string whole = entry.sourceURL.text().substr(7);
        std::string told = isHome ? whole : whole.substr(places.items.size() + 1);
        while (told.ends_with('/')) told.pop_back();
        need(platform::writeDurably(note, "[Trash Info]\nPath=" + told +
                                              "\nDeletionDate=2026-01-01T00:00:00\n"),
             "note");
    }

    void record(const CleanupIntent& intent, const CleanupIntentEntry& entry,
                const CleanupIntentEntry::Outcome& outcome) {
        if (entry.outcome == outcome) return;
        need(journal.recordOutcome(outcome, entry.candidateID, intent.id), "record");
    }

    void settle(const CleanupIntent& intent, const CleanupIntentEntry& entry) {
        const std::string place = entry.sourceURL.path();
        const std::string own = std::string(path::parent(place)) + "/" +
                                platform::PrivateFolder::nameFor(intent.id) + "/" +
                                std::string(path::lastComponent(place));
        const bool wasMoved = entry.outcome && std::holds_alternative<intent_outcome::Failed>(
                                                   entry.outcome->value) == false;
        bool isThere = isAt(place, entry);
        if (isAt(own, entry)) {
            if (isThere) {
                remove(own);
            } else {
                rename(own, place);
            }
            isThere = true;
        }
        const auto trashed = inTrash(entry);
        if (isThere && trashed) {
            remove(*trashed); // one file under both of its names
        }
        if (isThere) {
            if (wasMoved) record(intent, entry, {intent_outcome::Failed{"a crash undid it"}});
        } else if (trashed) {
            writeNote(*trashed, entry);
            const bool isFolder = entry.sourceURL.isFolder();
            record(intent, entry,
                   {intent_outcome::MovedToTrash{isFolder ? FileURL::folder(*trashed)
                                                          : FileURL::file(*trashed)}});
        }
    }

    void run() {
        const auto hold = journal.hold();
        need(hold, "lock");
        const auto open = journal.openIntents();
        need(open, "open intents");
        if (!open->unreadable.empty()) throw Failure("an intent cannot be read");
        for (const RecordedIntent& recorded : open->intents) {
            std::vector<std::string> folders;
            for (const CleanupIntentEntry& entry : recorded.intent.entries) {
                settle(recorded.intent, entry);
                folders.emplace_back(path::parent(entry.sourceURL.path()));
            }
            for (const std::string& folder : folders) {
                const auto opened = FolderDescriptor::openRoot(folder);
                if (!opened) continue;
                static_cast<void>(changes.removeFolder(
                    {.folder = *opened,
                     .name = platform::PrivateFolder::nameFor(recorded.intent.id)}));
            }
        }
        need(flushes.flush(), "flush");
    }
};

} // namespace

void settle(const Places& places) { Settler{.places = places}.run(); }

} // namespace tidyro::crash
