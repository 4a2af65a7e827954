#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Platform/Machine/OperatingSystem.h"
#include "Platform/Testing/ForwardedFolderChanges.h"
#include "StorageEngine/Cleanup/Execution/ExecutionBench.h"
#include "StorageEngine/Cleanup/Settling/CleanupSettlement.h"

namespace tidyro {
namespace {

namespace fs = std::filesystem;
using namespace testing;
using platform::PrivateFolder;

constexpr std::size_t raceItemCount = 240;
constexpr std::size_t itemsOfFolder = 12;
constexpr std::size_t attackerCount = 2; // a thread and a process

/// Each of these is saved over and over by one attacker, as an editor does it.
bool isSaved(std::size_t item) { return item % 8 == 3; }
std::string nameOfItem(std::size_t item) {
    return fmt::format("f{}/item{}", item / itemsOfFolder, item);
}

/// What both processes see.
struct Arena {
    std::atomic<bool> isOver = false;
    std::atomic<std::size_t> current = 0; ///< the last item that the cleanup moved
    std::array<std::atomic<unsigned>, attackerCount> strangers = {};
    std::array<std::atomic<unsigned>, raceItemCount> versions = {}; ///< saved at an item's place
    std::array<std::atomic<bool>, raceItemCount> isWritten = {};    ///< the very item was
    std::atomic<unsigned> attacks = 0;
};

class SharedArena {
  public:
    SharedArena() {
        void* memory = ::mmap(nullptr, sizeof(Arena), PROT_READ | PROT_WRITE,
                              MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) throw std::bad_alloc();
        arena_ = new (memory) Arena;
    }
    ~SharedArena() { ::munmap(arena_, sizeof(Arena)); }
    SharedArena(const SharedArena&) = delete;
    SharedArena& operator=(const SharedArena&) = delete;
    [[nodiscard]] Arena& operator*() const { return *arena_; }

  private:
    Arena* arena_;
};

bool renamedTo(const std::string& from, const std::string& to, unsigned how,
               int folderOfTo = AT_FDCWD) {
#ifdef __APPLE__
    return ::renameatx_np(AT_FDCWD, from.c_str(), folderOfTo, to.c_str(), how) == 0;
#else
    return ::renameat2(AT_FDCWD, from.c_str(), folderOfTo, to.c_str(), how) == 0;
#endif
}
#ifdef __APPLE__
constexpr unsigned swapping = RENAME_SWAP;
constexpr unsigned neverReplacing = RENAME_EXCL;
#else
constexpr unsigned swapping = RENAME_EXCHANGE;
constexpr unsigned neverReplacing = RENAME_NOREPLACE;
#endif

/// Exchanges and takes things under the hands of a cleanup. It removes nothing, so that whatever is
/// gone afterwards was removed by others; it only saves new versions over older ones. It never puts
/// anything into a private folder: no system removes a name only while it is a certain file's, so
/// the same person's program could always slip one in there.
class Attacker {
  public:
    Attacker(std::string place, Arena& arena, std::size_t number, std::uint32_t seed)
        : place_(std::move(place)),
          stash_(place_ + fmt::format("/stash{}", number)),
          arena_(arena),
          number_(number),
          random_(seed) {}

    void run() {
        while (!arena_.isOver) {
            std::this_thread::sleep_for(std::chrono::microseconds(random_() % 600));
            attack();
            ++arena_.attacks;
        }
    }

  private:
    enum class Makes : std::uint8_t { file, link, folder };

    void attack() {
        const std::size_t item =
            std::min<std::size_t>(arena_.current + random_() % 3, raceItemCount - 1);
        const std::string path = at(nameOfItem(item));
        const std::string parent = fs::path(path).parent_path().string();
        // What is saved over is gone, so it has to be known what that can be.
        if (isSaved(item)) return number_ == 0 ? save(item) : look(path);
        switch (random_() % 16) {
        case 0:
        case 1:
        case 2: return replace(path);
        case 3:
        case 4: return replaceBriefly(path, stranger());
        case 5:
        case 6: return saveKeepingTheOld(path);
        case 7: return write(item, path);
        case 8: return look(path);
        case 9: return take(path);
        // Each of these folders has one attacker alone, which leaves it where it was.
        case 10:
        case 11:
            if (number_ == 1) return replaceBriefly(parent, decoy());
            return replaceBriefly(privateFolderIn(parent), decoy());
        case 12: return takeFromPrivate(parent);
        case 13:
            if (number_ == 0) return replaceBriefly(privateFolderIn(parent), decoy());
            return random_() % 4 == 0 ? replaceBriefly(trash("files"), decoy()) : look(path);
        case 14:
            if (number_ == 0) return takeFromPrivate(parent);
            return random_() % 4 == 0 ? replaceBriefly(trash("info"), decoy()) : look(path);
        default: return replaceBriefly(path, stranger());
        }
    }

    [[nodiscard]] std::string at(const std::string& name) const {
        return place_ + "/" + ExecutionBench::cached(name);
    }
    [[nodiscard]] std::string trash(const std::string& name) const {
        return place_ + "/home/.local/share/Trash/" + name;
    }
    std::string free() { return fmt::format("{}/{}", stash_, names_++); }

    static void makeFile(const std::string& path, const std::string& text) {
        const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd < 0 || ::write(fd, text.data(), text.size()) < 0) std::abort();
        ::close(fd);
    }
    std::string stranger() {
        const std::string text = fmt::format("stranger {}.{}", number_, arena_.strangers[number_]);
        ++arena_.strangers[number_];
        std::string path = free();
        switch (static_cast<Makes>(random_() % 4 % 3)) {
        case Makes::file: makeFile(path, text); break;
        case Makes::link: fs::create_symlink(text, path); break;
        case Makes::folder:
            fs::create_directory(path);
            makeFile(path + "/inside", text);
            break;
        }
        return path;
    }
    /// In place of a folder: an empty one, or a link to one.
    std::string decoy() {
        std::string path = free();
        fs::create_directory(path);
        if (random_() % 2 == 0) return path;
        const std::string link = free();
        fs::create_symlink(path, link);
        return link;
    }

    void replace(const std::string& path) {
        const std::string mine = stranger();
        if (!renamedTo(mine, path, swapping)) renamedTo(mine, path, neverReplacing);
    }
    void take(const std::string& path) { renamedTo(path, free(), neverReplacing); }
    void replaceBriefly(const fs::path& path, const std::string& mine) {
        // By the open folder, which may be exchanged for another one meanwhile.
        const int folder = ::open(path.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        const std::string name = path.filename().string();
        if (folder < 0 || name.empty()) return;
        if (renamedTo(mine, name, swapping, folder)) {
            const auto end =
                std::chrono::steady_clock::now() + std::chrono::microseconds(random_() % 150);
            while (std::chrono::steady_clock::now() < end) std::this_thread::yield();
            if (!renamedTo(mine, name, swapping, folder)) {
                renamedTo(mine, name, neverReplacing, folder);
            }
        }
        ::close(folder);
    }
    /// Writes beside and renames over, and so removes whatever has the name.
    void save(std::size_t item) {
        const std::string beside = free();
        const unsigned version = arena_.versions[item] + 1;
        makeFile(beside, fmt::format("version {} of item{}", version, item));
        if (std::rename(beside.c_str(), at(nameOfItem(item)).c_str()) == 0) {
            arena_.versions[item] = version;
        }
    }
    /// The same to all who look, and nothing is removed.
    void saveKeepingTheOld(const std::string& path) {
        const std::string text = fmt::format("stranger {}.{}", number_, arena_.strangers[number_]);
        ++arena_.strangers[number_];
        const std::string beside = free();
        makeFile(beside, text);
        if (!renamedTo(beside, path, swapping)) renamedTo(beside, path, neverReplacing);
    }
    /// Adds a line to whatever is there.
    void write(std::size_t item, const std::string& path) {
        const int fd =
            ::open(path.c_str(), O_RDWR | O_APPEND | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
        if (fd < 0) return;
        const std::string own = "contents of " + nameOfItem(item);
        std::string there(own.size(), '\0');
        const bool isItem =
            ::pread(fd, there.data(), there.size(), 0) == static_cast<ssize_t>(there.size()) &&
            there == own;
        if (::write(fd, "\nadded", 6) == 6 && isItem) arena_.isWritten[item] = true;
        ::close(fd);
    }
    void look(const std::string& path) {
        const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
        std::this_thread::sleep_for(std::chrono::microseconds(random_() % 100));
        if (fd >= 0) ::close(fd);
    }
    static std::string privateFolderIn(const std::string& parent) {
        std::error_code none;
        for (const auto& entry : fs::directory_iterator(parent, none)) {
            if (PrivateFolder::isName(entry.path().filename().string())) return entry.path();
        }
        return {};
    }
    void takeFromPrivate(const std::string& parent) {
        const std::string folder = privateFolderIn(parent);
        if (folder.empty()) return;
        std::error_code none;
        for (const auto& entry : fs::directory_iterator(folder, none)) return take(entry.path());
    }

    std::string place_;
    std::string stash_;
    Arena& arena_;
    std::size_t number_;
    std::mt19937 random_;
    std::size_t names_ = 0;
};

/// Makes each rename and removal slow enough for somebody to come between.
class HesitantChanges final : public ForwardedFolderChanges {
  public:
    HesitantChanges(platform::FolderChanges& next, Arena& arena, std::uint32_t seed)
        : ForwardedFolderChanges(next), arena_(arena), random_(seed) {}
    std::size_t renames = 0;

    Changed renameNeverReplacing(const EntryName& from, const EntryName& to) override {
        if (from.name.starts_with("item")) {
            arena_.current = std::strtoul(from.name.c_str() + 4, nullptr, 10);
        }
        hesitate();
        Changed changed = next().renameNeverReplacing(from, to);
        if (changed) ++renames;
        hesitate();
        return changed;
    }
    Changed removeFile(const EntryName& at) override {
        hesitate();
        return next().removeFile(at);
    }

  private:
    void hesitate() {
        const auto end =
            std::chrono::steady_clock::now() + std::chrono::microseconds(random_() % 120);
        while (std::chrono::steady_clock::now() < end) {}
    }
    Arena& arena_;
    std::mt19937 random_;
};

/// What all rounds together saw.
struct Races {
    std::size_t rounds = 0, items = 0, attacks = 0, moved = 0, removed = 0, refused = 0, failed = 0,
                putBack = 0, displaced = 0, settled = 0;
    [[nodiscard]] std::string told() const {
        return fmt::format("{} rounds, {} items, {} attacks: {} moved, {} removed, {} refused, {} "
                           "failed; {} renamed back, {} told of that could not go back, {} settled",
                           rounds, items, attacks, moved, removed, refused, failed, putBack,
                           displaced, settled);
    }
};

/// One cleanup under attack, and what is on the disk afterwards.
struct Race {
    const CleanupExecutionMode mode;
    const std::uint32_t seed;
    SharedArena shared = {};
    Arena& arena = *shared;
    ExecutionBench bench = {};
    ScheduledFolderChanges counted{bench.schedule, ScheduledFolderChanges::ExclusiveRename::known,
                                   Flushes::counted};
    ScheduledChangeGate gate{bench.schedule, Flushes::counted};
    HesitantChanges changes{counted, arena, seed + 17};
    platform::FolderFlushes flushes{changes};
    FileCleanupIntentJournal journal{
        FileURL::folder(bench.place / "home/.local/share/Harborline/intents"),
        {.flushChanges = [this] { return flushes.flush(); }, .reserveByteCount = 0, .gate = &gate}};
    std::vector<std::string> faults = {};
    std::map<std::string, std::vector<std::string>> placesOf = {}; ///< by the first line in it
    CleanupReceipt receipt = {};
    CleanupSettlement::Report settled = {};

    template <class... Values>
    void complain(fmt::format_string<Values...> text, Values&&... values) {
        faults.push_back(fmt::format(text, std::forward<Values>(values)...));
    }

    void prepare() {
        std::vector<std::string> names;
        for (std::size_t i = 0; i < raceItemCount; ++i) names.push_back(nameOfItem(i));
        bench.planFiles(names, mode);
        for (std::size_t i = 0; i < attackerCount; ++i) {
            bench.place.folder(fmt::format("stash{}", i));
        }
        bench.place.folder("home/.local/share/Trash/files");
        bench.place.folder("home/.local/share/Trash/info");
        for (const char* name : {"", "/files", "/info"}) {
            bench.place.permissions(std::string("home/.local/share/Trash") + name, 0700);
        }
    }

    void carryOut() {
        const pid_t process = ::fork();
        ASSERT_GE(process, 0);
        if (process == 0) {
            Attacker(bench.place.path(), arena, 1, seed + 1).run();
            ::_exit(0);
        }
        std::thread thread([&] { Attacker(bench.place.path(), arena, 0, seed).run(); });
        auto executor = [&] {
            CleanupExecutor::Options options{.home = bench.home(),
                                             .sessionRoots = bench.opened,
                                             .ledger = bench.memory,
                                             .journal = &journal,
                                             .flushes = &flushes};
            CleanupExecutor::Machine machine{
                .volumes = bench.volumes,
                .applications = bench.applications,
                .freshContext = [this] { return bench.context(); },
                .changes = changes,
                .gate = &gate,
                .trashHome = FileURL::folder(bench.place / "home/.local/share/Trash")};
            return mode == CleanupExecutionMode::permanent
                       ? CleanupExecutor::permanent(options, machine)
                       : CleanupExecutor::recoverable(options, machine);
        }();
        const auto done = executor.execute({.plan = bench.plan,
                                            .sheet = &bench.sheet,
                                            .approval = bench.approval,
                                            .acknowledgement = bench.acknowledgement,
                                            .at = bench.now});
        arena.isOver = true;
        thread.join();
        int status = 0;
        ::waitpid(process, &status, 0);
        EXPECT_EQ(status, 0);
        if (done) {
            receipt = *done;
        } else {
            complain("the cleanup failed: {}", done.error().description());
            if (const CleanupReceipt* partial = done.error().receipt()) receipt = *partial;
        }
    }

    void settle() {
        CleanupSettlement settlement(
            {.journal = &journal,
             .ledger = &bench.memory,
             .changes = &changes,
             .flushes = &flushes,
             .gate = &gate,
             .volumes = &bench.volumes,
             .trashHome = FileURL::folder(bench.place / "home/.local/share/Trash")});
        auto report = settlement.settle(CleanupSettlement::Depth::everything);
        if (!report) return complain("settling failed: {}", report.error().description());
        settled = *std::move(report);
        for (const SettledCleanup& cleanup : settled.cleanups) {
            for (const std::string& trouble : cleanup.troubles) complain("trouble: {}", trouble);
            if (!cleanup.isAccountedFor) complain("not every item is accounted for");
        }
    }

    void look() {
        for (const auto& entry : fs::recursive_directory_iterator(bench.place.path())) {
            const std::string path = entry.path().string();
            if (path.contains("/Harborline/")) continue;
            std::string line;
            if (entry.is_symlink()) {
                line = fs::read_symlink(path).string();
            } else if (entry.is_regular_file()) {
                std::ifstream file(path);
                std::getline(file, line);
            }
            if (!line.empty()) placesOf[line].push_back(path);
        }
    }

    /// The name that something has in the Trash or in a private folder; none elsewhere.
    [[nodiscard]] std::string nameInsideOurs(const std::string& path) const {
        bool isNext = false;
        for (const fs::path& part : fs::path(path)) {
            const std::string name = part.string();
            if (isNext) return name;
            isNext = PrivateFolder::isName(name) || name == "files";
        }
        return {};
    }
    [[nodiscard]] bool isTold(const std::string& name) const {
        const auto isOfText = [&](const CleanupReceiptEntry& entry) {
            return entry.failureDescription &&
                   entry.failureDescription->ends_with("/" + name + ".");
        };
        if (std::ranges::any_of(receipt.entries, isOfText)) return true;
        const auto isHere = [&](const auto& each) {
            return each.url && each.url->lastComponent() == name;
        };
        return std::ranges::any_of(settled.cleanups, [&](const SettledCleanup& cleanup) {
            return std::ranges::any_of(cleanup.strangers, isHere) ||
                   std::ranges::any_of(cleanup.items, isHere);
        });
    }
    void judgePlace(const std::string& what, const std::string& path, const std::string& toldAs) {
        const std::string name = nameInsideOurs(path);
        if (name.empty()) return;
        if (name != toldAs && !isTold(name)) complain("{} was moved, and nobody tells it", what);
        if (path.contains("/files/") &&
            !bench.isThere("home/.local/share/Trash/info/" + name + ".trashinfo")) {
            // A note is also where an attacker had the folder of notes in that moment.
            bool isNoted = false;
            for (const auto& entry : fs::recursive_directory_iterator(bench.place.path())) {
                isNoted = isNoted || entry.path().filename() == name + ".trashinfo";
            }
            if (!isNoted) complain("{} is in the Trash without a note", what);
        }
    }

    void judgeItem(std::size_t i, const CleanupReceiptEntry& entry) {
        const std::string what = "contents of " + nameOfItem(i);
        const auto& found = placesOf[what];
        const unsigned version = arena.versions[i];
        const bool isRemoved = entry.disposition == CleanupMoveDisposition::permanentlyRemoved;
        const bool isMoved = entry.disposition == CleanupMoveDisposition::movedToTrash;
        if (found.size() > 1) complain("{} is there twice", what);
        if (found.empty()) {
            if (!isRemoved && version == 0) {
                complain("{} is lost: {} {}", what, rawValue(entry.disposition),
                         entry.failureDescription.value_or(""));
            }
            if (isRemoved && arena.isWritten[i]) complain("{} was removed, changed", what);
            if (isMoved) complain("{} was told as moved and is nowhere", what);
        } else {
            const std::string trashed(
                entry.resultingTrashURL ? entry.resultingTrashURL->lastComponent() : "");
            if (isRemoved) complain("{} was told as removed and is at {}", what, found[0]);
            if (isMoved && fs::path(found[0]).filename() != trashed) {
                complain("{} was told as moved and is at {}", what, found[0]);
            }
            judgePlace(what, found[0], trashed);
        }
        // The saver removes its own older versions, but nobody may remove the last.
        for (unsigned each = 1; each <= version; ++each) {
            const std::string saved = fmt::format("version {} of item{}", each, i);
            const auto& at = placesOf[saved];
            if (at.empty() && each == version) complain("{} is lost", saved);
            for (const std::string& path : at) judgePlace(saved, path, {});
        }
    }

    void judge() {
        look();
        if (receipt.entries.size() != raceItemCount) return complain("entries are missing");
        for (std::size_t i = 0; i < raceItemCount; ++i) judgeItem(i, receipt.entries[i]);
        for (std::size_t number = 0; number < attackerCount; ++number) {
            for (unsigned each = 0; each < arena.strangers[number]; ++each) {
                const std::string what = fmt::format("stranger {}.{}", number, each);
                const auto& found = placesOf[what];
                if (found.empty()) complain("{} is lost", what);
                if (found.size() > 1) complain("{} is there twice", what);
                for (const std::string& path : found) judgePlace(what, path, {});
            }
        }
    }

    void addTo(Races& races) {
        ++races.rounds;
        races.items += raceItemCount;
        races.attacks += arena.attacks;
        std::size_t kept = 0;
        for (const CleanupReceiptEntry& entry : receipt.entries) {
            using enum CleanupMoveDisposition;
            const bool isDisplaced =
                entry.failureDescription &&
                entry.failureDescription->contains("could not go back and lies at");
            if (isDisplaced) ++races.displaced;
            if (entry.disposition == movedToTrash) ++races.moved;
            if (entry.disposition == permanentlyRemoved) ++races.removed;
            if (entry.disposition == refused) ++races.refused;
            if (entry.disposition == failed) ++races.failed;
            if (entry.disposition == movedToTrash || entry.disposition == permanentlyRemoved) {
                ++kept;
            }
        }
        races.putBack += (changes.renames - std::min(changes.renames, kept)) / 2;
        for (const SettledCleanup& cleanup : settled.cleanups) {
            races.settled += cleanup.strangers.size() + cleanup.items.size();
        }
    }
};

/// Races are rare, so a machine that has the time goes on for minutes.
double secondsOfRaces() {
    const char* wanted = std::getenv("TIDYRO_RACE_SECONDS"); // NOLINT(concurrency-mt-unsafe)
    return wanted != nullptr ? std::strtod(wanted, nullptr) : 5;
}

TEST(CleanupRace, LosesNothingWhileOthersExchangeWhatItMoves) {
    if (platform::operatingSystem() == OperatingSystem::macOS) {
        GTEST_SKIP() << "the system's own Trash is no place for thousands of files";
    }
    const auto start = std::chrono::steady_clock::now();
    const auto passed = [&] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    std::random_device source;
    Races races;
    std::size_t faults = 0;
    while (passed() < secondsOfRaces() && faults < 10) {
        Race race{.mode = races.rounds % 2 == 0 ? CleanupExecutionMode::recoverable
                                                : CleanupExecutionMode::permanent,
                  .seed = source()};
        race.prepare();
        race.carryOut();
        race.settle();
        race.judge();
        race.addTo(races);
        for (const std::string& fault : race.faults) {
            ADD_FAILURE() << "round " << races.rounds << ", " << rawValue(race.mode) << ", seed "
                          << race.seed << ": " << fault;
        }
        faults += race.faults.size();
    }
    RecordProperty("races", races.told());
    std::printf("%s\n", races.told().c_str());
    EXPECT_GT(races.moved + races.removed, 0U);
    EXPECT_GT(races.putBack, 0U) << "nobody came between";
}

} // namespace
} // namespace tidyro
