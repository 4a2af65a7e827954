#include "Interrupted.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include <fmt/format.h>

#include "Base/PathText.h"
#include "CareDomain/CleanupReceipt.h"
#include "LoggedDisks.h"
#include "Platform/Files/DurableFile.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderFiles.h"
#include "Platform/Folders/FolderFlushes.h"
#include "Platform/Folders/Trash.h"
#include "Platform/Testing/ForwardedFolderChanges.h"
#include "StorageEngine/Recovery/CleanupRecovery.h"
#include "StorageEngine/Recovery/FileCleanupIntentJournal.h"
#include "StorageEngine/Recovery/RecoveryLedger.h"
#include "StorageEngine/Trash/TrashRestorer.h"
#include "Support/TemporaryFolder.h"

namespace tidyro::crash {

namespace {

namespace fs = std::filesystem;
using platform::FolderDescriptor;
using platform::FolderFlushes;

template <class Result>
decltype(auto) need(Result&& result, const char* what) {
    if (!result) throw Failure(std::string("the run itself failed: ") + what);
    if constexpr (!std::is_void_v<typename std::remove_cvref_t<Result>::value_type>) {
        return *std::forward<Result>(result);
    }
}

/// The changes and flushes of the run, without those that a fault leaves out.
class FaultyChanges final : public testing::ForwardedFolderChanges {
  public:
    FaultyChanges(platform::FolderChanges& next, Fault fault)
        : ForwardedFolderChanges(next), fault_(fault) {}
    Changed flush(const FolderDescriptor& folder) override {
        return fault_ == Fault::volumesNotFlushed ? Changed() : next().flush(folder);
    }
    Changed flushVolume(const FolderDescriptor& folder) override {
        return fault_ == Fault::volumesNotFlushed ? Changed() : next().flushVolume(folder);
    }

  private:
    Fault fault_;
};

class FaultyGate final : public platform::ChangeGate {
  public:
    explicit FaultyGate(Fault fault) : fault_(fault) {}
    Done perform(platform::DiskChange kind, const std::function<Done()>& change) override {
        const bool isLeftOut =
            fault_ == Fault::logsNotFlushed && kind == platform::DiskChange::flush;
        return isLeftOut ? Done() : change();
    }

  private:
    Fault fault_;
};

/// Another program that saves a file: its flush brings some of what others changed to the disk.
void saveNeighbour(const Places& places, std::size_t number) {
    const int fd = ::open((places.items + "/neighbour").c_str(),
                          O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    const std::string line = fmt::format("line {}\n", number);
    if (fd < 0 || ::write(fd, line.data(), line.size()) < 0 || ::fsync(fd) != 0) {
        failWithReason("the neighbour's file");
    }
    ::close(fd);
}

/// One run, with all that its parts share.
struct Cleaner {
    const Places& places;
    const std::function<void(const Acknowledged&)>& tell;
    platform::LiveFolderChanges live = {};
    FaultyChanges changes;
    FaultyGate gate;
    double now = 0;
    FolderFlushes flushes;
    bool isFlushed = false;
    FileCleanupIntentJournal journal;
    platform::Trash trash;
    std::vector<CleanupIntent> intents = {};
    std::vector<CleanupReceiptEntry> done = {};

    Cleaner(const Places& at, const Manner& manner,
            const std::function<void(const Acknowledged&)>& teller)
        : places(at),
          tell(teller),
          changes(live, manner.fault),
          gate(manner.fault),
          // The clocks go on with each question, so that some records are flushed together.
          flushes(changes, [this, step = manner.isSlow ? 2.0 : 0.0] { return now += step; }),
          journal(FileURL::folder(at.intents()), {.flushChanges =
                                                      [this] {
                                                          isFlushed = true;
                                                          return flushes.flush();
                                                      },
                                                  .reserveByteCount = 1U << 20U,
                                                  .gate = &gate,
                                                  .steadySeconds = [this] { return now += 0.3; }}),
          trash({.changes = &changes,
                 .gate = &gate,
                 .flushes = &flushes,
                 .home = FileURL::folder(at.data + "/Trash")}) {}

    void begin(std::size_t cleanup) {
        CleanupIntent intent{.id = intentOf(cleanup),
                             .planID = intentOf(cleanup + 8),
                             .createdAt = Timestamp::now(),
                             .mode = cleanup == trashing ? CleanupExecutionMode::recoverable
                                                         : CleanupExecutionMode::permanent,
                             .entries = {}};
        for (const Item& item : itemsIn(places)) {
            if (item.cleanup != cleanup) continue;
            const auto seen = need(platform::fileMetadata(item.path), "an item is not there");
            intent.entries.push_back(
                {.candidateID = {item.name},
                 .sourceURL = item.isFolder ? FileURL::folder(item.path) : FileURL::file(item.path),
                 .fingerprint = {.byteCount = seen.byteCount,
                                 .modificationDate = seen.modified,
                                 .fileResourceIdentifier = fmt::format(
                                     "{}:{}", seen.identity.device, seen.identity.inode)}});
        }
        need(journal.begin(intent), "begin");
        intents.push_back(std::move(intent));
        done.clear();
        tell({Acknowledged::What::begun, cleanup});
    }

    void record(std::size_t cleanup, const CleanupIntentEntry& entry,
                const CleanupIntentEntry::Outcome& outcome) {
        isFlushed = false;
        need(journal.recordOutcome(outcome, entry.candidateID, intents[cleanup].id), "record");
        const auto* moved = std::get_if<intent_outcome::MovedToTrash>(&outcome.value);
        done.push_back(
            {.candidateID = entry.candidateID,
             .originalURL = entry.sourceURL,
             .resultingTrashURL = moved != nullptr ? std::optional(moved->url) : std::nullopt,
             .byteCount = entry.fingerprint.byteCount,
             .disposition = moved != nullptr ? CleanupMoveDisposition::movedToTrash
                                             : CleanupMoveDisposition::permanentlyRemoved});
        if (isFlushed) tell({Acknowledged::What::recorded, cleanup, done.size()});
        if (done.size() % 4 == 0) saveNeighbour(places, done.size());
    }

    void close(std::size_t cleanup) {
        need(trash.flush(), "flush");
        // The data folder is there since the journal's was made.
        need(platform::makePrivateFolder(std::string(path::parent(places.ledger())), gate), "data");
        auto ledger =
            need(JSONRecoveryLedger::open(FileURL::file(places.ledger()), std::string(32, 'k')),
                 "ledger");
        need(ledger.append({.id = intentOf(cleanup + 16),
                            .planID = intents[cleanup].planID,
                            .entries = done,
                            .createdAt = Timestamp::now(),
                            .retainUntil = Timestamp::now()}),
             "receipt");
        tell({Acknowledged::What::receipt, cleanup, done.size()});
        need(journal.close(intents[cleanup].id, Timestamp::now()), "close");
        tell({Acknowledged::What::closed, cleanup, done.size()});
    }

    void moveToTrash() {
        begin(trashing);
        for (const CleanupIntentEntry& entry : intents[trashing].entries) {
            const std::string path = entry.sourceURL.path();
            const auto parent =
                need(FolderDescriptor::openRoot(std::string(path::parent(path))), "parent");
            const std::string name(entry.sourceURL.lastComponent());
            auto slot = need(trash.reserve({.folder = parent,
                                            .name = name,
                                            .path = path,
                                            .seen = need(platform::fileMetadata(path), "item"),
                                            .byteCount = 10}),
                             "no place in the Trash");
            need(slot.move(), "move");
            record(trashing, entry, {intent_outcome::MovedToTrash{slot.url()}});
        }
        close(trashing);
    }

    void putBack() {
        tell({Acknowledged::What::putBackBegins, trashing});
        CleanupIntentJournaling::RestoreOutcomes outcomes;
        const TrashRestorer restorer(&changes);
        for (std::size_t i = 0; i < putBackCount; ++i) {
            const CleanupIntentEntry& entry = intents[trashing].entries[i];
            const auto moved =
                std::ranges::find(done, entry.candidateID, &CleanupReceiptEntry::candidateID);
            need(restorer.putBack({.trashURL = moved->resultingTrashURL.value(),
                                   .originalURL = entry.sourceURL,
                                   .fingerprint = entry.fingerprint}),
                 "putting back");
            tell({Acknowledged::What::putBack, trashing, i + 1});
            outcomes.restored.push_back({.originalURL = entry.sourceURL,
                                         .trashURL = *moved->resultingTrashURL,
                                         .intentID = intents[trashing].id,
                                         .candidateID = entry.candidateID});
        }
        need(journal.recordRestoreOutcomes(outcomes), "record what was put back");
    }

    void removeForGood() {
        begin(removing);
        std::string lastParent;
        FolderDescriptor parent;
        std::optional<platform::PrivateFolder> mine;
        const std::string privateName = platform::PrivateFolder::nameFor(intents[removing].id);
        // What is removed before its record is flushed is nowhere after a crash, and nobody knows
        // why. So an item waits in the private folder until its record is on the disk.
        std::vector<std::string> waiting;
        const auto removeWaiting = [&] {
            need(flushes.note(mine->folder(), FolderFlushes::Side::left), "note");
            for (const std::string& name : waiting) {
                need(changes.removeFile({.folder = mine->folder(), .name = name}), "removal");
            }
            waiting.clear();
        };
        const auto leave = [&] {
            if (!mine) return;
            mine.reset();
            need(changes.removeFolder({.folder = parent, .name = privateName}), "private folder");
        };
        const auto& entries = intents[removing].entries;
        for (std::size_t i = 0; i < entries.size(); ++i) {
            const CleanupIntentEntry& entry = entries[i];
            const std::string path = entry.sourceURL.path();
            const std::string name(entry.sourceURL.lastComponent());
            if (const std::string above(path::parent(path)); above != lastParent) {
                leave();
                lastParent = above;
                parent = need(FolderDescriptor::openRoot(above), "parent");
                mine.emplace(need(platform::PrivateFolder::make(changes, parent, privateName),
                                  "private folder"));
            }
            need(flushes.note(parent, FolderFlushes::Side::left), "note");
            need(flushes.note(mine->folder(), FolderFlushes::Side::left), "note");
            const platform::EntryName there{.folder = mine->folder(), .name = name};
            need(platform::moveNeverReplacing(changes, {.folder = parent, .name = name}, there),
                 "move");
            waiting.push_back(name);
            const bool isLast = i + 1 == entries.size() ||
                                path::parent(entries[i + 1].sourceURL.path()) != lastParent;
            if (isLast) now += FileCleanupIntentJournal::maxSecondsBetweenFlushes;
            record(removing, entry, {intent_outcome::PermanentlyRemoved{}});
            if (isFlushed) removeWaiting();
        }
        leave();
        close(removing);
    }
};

} // namespace

UUID intentOf(std::size_t cleanup) {
    return *UUID::fromText(fmt::format("00000000-0000-4000-8000-{:012}", cleanup));
}

std::vector<Item> itemsIn(const Places& places) {
    std::vector<Item> items;
    const auto add = [&](std::size_t cleanup, const char* folder, int number, bool isFolder) {
        std::string name = fmt::format("{}{} %", folder, number);
        items.push_back(
            {.name = name,
             .path = fmt::format("{}/home/{}{}/{}", places.items, folder, number % 3, name),
             .contents = fmt::format("the contents of {}", name),
             .cleanup = cleanup,
             .isFolder = isFolder});
    };
    for (int i = 0; i < 20; ++i) add(trashing, "trashed", i, i % 5 == 4);
    for (int i = 0; i < 14; ++i) add(removing, "removed", i, false);
    // Each folder's items one after another, as plans have them.
    std::ranges::stable_sort(items, {}, [](const Item& item) {
        return std::pair(item.cleanup, std::string(path::parent(item.path)));
    });
    return items;
}

void prepare(const Places& places) {
    const testing::TemporaryFolder top(places.items);
    for (const Item& item : itemsIn(places)) {
        top.file(std::string(path::below(item.fileAt(item.path), places.items)), item.contents);
    }
}

void carryOut(const Places& places, const Manner& manner,
              const std::function<void(const Acknowledged&)>& tell) {
    Cleaner cleaner(places, manner, tell);
    cleaner.moveToTrash();
    cleaner.putBack();
    cleaner.removeForGood();
}

} // namespace tidyro::crash
