#include "Interrupted.h"

#include <algorithm>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include <fmt/format.h>

#include "Base/PathText.h"
#include "Failure.h"
#include "Platform/Files/DurableFile.h"
#include "Platform/Testing/ForwardedFolderChanges.h"
#include "StorageEngine/Cleanup/Execution/ExecutionBench.h"
#include "StorageEngine/Trash/TrashRestorer.h"

namespace tidyro::crash {

namespace {

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
    FaultyGate(platform::ChangeGate& next, Fault fault) : next_(next), fault_(fault) {}
    Done perform(platform::DiskChange kind, const std::function<Done()>& change) override {
        return next_.perform(kind, change);
    }
    Done performFlush(const platform::FlushTarget& target,
                      const std::function<Done()>& flush) override {
        return fault_ == Fault::logsNotFlushed ? Done() : next_.performFlush(target, flush);
    }

  private:
    platform::ChangeGate& next_;
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

/// Tells what the journal has promised, in the moment in which it does.
class TellingJournal final : public CleanupIntentJournaling {
  public:
    using Tell = std::function<void(Acknowledged::What, std::size_t records)>;

    FileCleanupIntentJournal& journal;
    const Places& places;
    Tell tell;
    bool isFlushed = false; ///< set by whoever sees a flush
    std::size_t records = 0;
    UUID lastIntent = {};

    TellingJournal(FileCleanupIntentJournal& next, const Places& at, Tell teller)
        : journal(next), places(at), tell(std::move(teller)) {}

    Result<void> begin(const CleanupIntent& intent) override {
        records = 0;
        lastIntent = intent.id;
        return told(journal.begin(intent), Acknowledged::What::begun);
    }
    Result<void> recordOutcome(const CleanupIntentEntry::Outcome& outcome,
                               const LocalItemID& candidateID, const UUID& intentID) override {
        isFlushed = false;
        auto done = journal.recordOutcome(outcome, candidateID, intentID);
        if (!done) return done;
        ++records;
        if (isFlushed) done = told(std::move(done), Acknowledged::What::recorded);
        if (records % 4 == 0) saveNeighbour(places, records);
        return done;
    }
    Result<void> flushRecords(const UUID& intentID) override {
        return told(journal.flushRecords(intentID), Acknowledged::What::recorded);
    }
    Result<void> close(const UUID& intentID, Timestamp at) override {
        return told(journal.close(intentID, at), Acknowledged::What::closed);
    }
    Result<void> requireReceiptRecovery(const CleanupReceipt& receipt) override {
        return journal.requireReceiptRecovery(receipt);
    }
    Result<OpenIntents> openIntents() override { return journal.openIntents(); }
    Result<void> recordRestoreOutcomes(const RestoreOutcomes& outcomes) override {
        return journal.recordRestoreOutcomes(outcomes);
    }
    Result<void> forget(const UUID& intentID) override { return journal.forget(intentID); }

  private:
    Result<void> told(Result<void> done, Acknowledged::What what) const {
        if (done) tell(what, records);
        return done;
    }
};

/// One run, with all that its parts share.
struct Cleaner {
    const Places& places;
    const std::function<void(const Acknowledged&)>& tell;
    testing::TemporaryFolder top{places.items};
    testing::ExecutionBench bench{&top, {}};
    platform::LiveFolderChanges live = {};
    FaultyChanges changes;
    FaultyGate gate;
    double now = 0;
    FolderFlushes flushes;
    FileCleanupIntentJournal files;
    Cleanup current = Cleanup::trashing;
    TellingJournal journal;
    JSONRecoveryLedger ledger;

    Cleaner(const Places& at, const Manner& manner,
            const std::function<void(const Acknowledged&)>& teller)
        : places(at),
          tell(teller),
          changes(manner.changes != nullptr ? *manner.changes : live, manner.fault),
          gate(*manner.gate, manner.fault),
          // The clocks go on with each question, so that some records are flushed together.
          flushes(changes, [this, step = manner.isSlow ? 2.0 : 0.0] { return now += step; }),
          files(FileURL::folder(at.intents()), {.flushChanges =
                                                    [this] {
                                                        journal.isFlushed = true;
                                                        return flushes.flush();
                                                    },
                                                .reserveByteCount = 1U << 20U,
                                                .gate = &gate,
                                                .steadySeconds = [this] { return now += 0.3; }}),
          journal(files, at,
                  [this](Acknowledged::What what, std::size_t records) {
                      tell({what, current, records});
                  }),
          ledger(need(JSONRecoveryLedger::open(
                          at.ledger(),
                          need(recoveryLedgerKey(at.ledgerKey(), at.ledger(), gate), "key"),
                          {.gate = &gate}),
                      "ledger")) {
        bench.volumes = places.volumes();
    }

    CleanupReceipt clean(Cleanup cleanup) {
        current = cleanup;
        std::vector<std::string> names;
        for (const Item& item : itemsIn(places)) {
            if (item.cleanup == cleanup) names.push_back(item.name);
        }
        if (cleanup == Cleanup::picking) {
            bench.planItems(names);
        } else {
            bench.planThese(names, cleanup == Cleanup::removing
                                       ? CleanupExecutionMode::permanent
                                       : CleanupExecutionMode::recoverable);
        }
        bench.plan.id = planOf(cleanup);
        bench.setPlan(bench.plan);
        CleanupExecutor::Options options{.home = bench.home(),
                                         .sessionRoots = bench.opened,
                                         .ledger = ledger,
                                         .journal = &journal,
                                         .flushes = &flushes};
        CleanupExecutor::Machine machine{.volumes = bench.volumes,
                                         .applications = bench.applications,
                                         .freshContext = [this] { return bench.context(); },
                                         .changes = changes,
                                         .gate = &gate,
                                         .trashHome = places.trash(),
                                         .steadySeconds = [this] { return now += 0.1; }};
        auto executor = cleanup == Cleanup::removing
                            ? CleanupExecutor::permanent(options, machine)
                            : CleanupExecutor::recoverable(options, machine);
        auto receipt = executor.execute({.plan = bench.plan,
                                         .sheet = &bench.sheet,
                                         .approval = bench.approval,
                                         .acknowledgement = bench.acknowledgement,
                                         .at = bench.now});
        if (!receipt) throw Failure("the cleanup failed: " + receipt.error().description());
        for (const CleanupReceiptEntry& entry : receipt->entries) {
            if (entry.failureDescription) throw Failure(*entry.failureDescription);
        }
        return *std::move(receipt);
    }

    void putBack(const CleanupReceipt& receipt) {
        tell({Acknowledged::What::putBackBegins, current});
        CleanupIntentJournaling::RestoreOutcomes outcomes;
        const TrashRestorer restorer(&changes, nullptr, &bench.volumes);
        for (std::size_t i = 0; i < putBackCount; ++i) {
            const CleanupReceiptEntry& entry = receipt.entries[i];
            need(restorer.putBack({.trashURL = entry.resultingTrashURL.value(),
                                   .originalURL = entry.originalURL,
                                   .fingerprint = bench.plan.entries[i].fingerprint}),
                 "putting back");
            tell({Acknowledged::What::putBack, current, i + 1});
            outcomes.restored.push_back({.originalURL = entry.originalURL,
                                         .trashURL = *entry.resultingTrashURL,
                                         .intentID = journal.lastIntent,
                                         .candidateID = entry.candidateID});
        }
        need(journal.recordRestoreOutcomes(outcomes), "record what was put back");
        tell({Acknowledged::What::putBackRecorded, current, putBackCount});
    }
};

} // namespace

platform::testing::FakeVolumes Places::volumes() const {
    platform::testing::FakeVolumes ours;
    const auto all = need(platform::LiveVolumes().mounted(), "volumes");
    for (platform::Volume volume : all) {
        if (!path::isInsideOrEqual(volume.mountPath, items)) continue;
        volume.identifier = volume.mountPath == items ? "inside" : "data";
        volume.isInternalLocal = true;
        ours.answer->push_back(std::move(volume));
    }
    if (ours.answer->empty()) return platform::testing::FakeVolumes::withOneAt(items);
    return ours;
}

UUID planOf(Cleanup cleanup) {
    return *UUID::fromText(
        fmt::format("00000000-0000-4000-8000-{:012}", static_cast<int>(cleanup)));
}

std::vector<Item> itemsIn(const Places& places) {
    std::vector<Item> items;
    const auto add = [&](Cleanup cleanup, std::string name) {
        const std::string below =
            cleanup == Cleanup::picking ? name : testing::ExecutionBench::cached(name);
        items.push_back({.name = name,
                         .path = path::joined(places.items, below),
                         .contents = "the contents of " + name,
                         .cleanup = cleanup});
    };
    const int each = places.itemsOfFolder;
    for (int i = 0; i < 3 * each; ++i) {
        add(Cleanup::trashing, fmt::format("trashed{}/t{} %", i / each, i));
    }
    for (int i = 0; i < each; ++i) add(Cleanup::picking, fmt::format("opened/picked{} %", i));
    for (int i = 0; i < 3 * each - 1; ++i) {
        add(Cleanup::removing, fmt::format("removed{}/r{} %", i / each, i));
    }
    return items;
}

bool mayBePlanned(const std::string& folder) {
    return !path::isInsideOrEqual(folder, "/dev") && !path::isInsideOrEqual(folder, "/proc") &&
           !path::isInsideOrEqual(folder, "/run") && !path::isInsideOrEqual(folder, "/sys");
}

void prepare(const Places& places) {
    const testing::TemporaryFolder top(places.items);
    for (const Item& item : itemsIn(places)) {
        top.file(std::string(path::below(item.fileAt(item.path), places.items)), item.contents);
    }
    const testing::ExecutionBench bench(&top, {}); // its folders
}

void carryOut(const Places& places, const Manner& manner,
              const std::function<void(const Acknowledged&)>& tell) {
    Cleaner cleaner(places, manner, tell);
    const CleanupReceipt trashed = cleaner.clean(Cleanup::trashing);
    cleaner.putBack(trashed);
    cleaner.clean(Cleanup::picking);
    cleaner.clean(Cleanup::removing);
}

} // namespace tidyro::crash
