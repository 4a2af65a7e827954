// Proves what a crash at any moment leaves: cleanups run on disks that log every write and flush,
// states are made of the logs as a crash might leave them, and each is mounted, settled and judged.
//
//   CrashStates STATES SEED PLACE [volumes|logs]
//
// PLACE is an empty folder, which is empty again in the end. The last argument leaves flushes out:
// then there have to be faults, and it succeeds when there are. See scripts/crash-states.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <regex>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fmt/format.h>

#include "Interrupted.h"
#include "LoggedDisks.h"
#include "Witness.h"

namespace tidyro::crash {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t workerCount = 2;

struct Scenario {
    std::string type;
    std::size_t diskCount;
    Manner manner;

    [[nodiscard]] std::string name() const {
        return fmt::format("{}, {} disk{}, {}", type, diskCount, diskCount == 1 ? "" : "s",
                           manner.isSlow ? "folder by folder" : "whole volumes");
    }
};

/// Where the disks are mounted. All who mount them have a view of their own, so the paths that the
/// journal and the notes have are the same everywhere.
struct Stage {
    std::string folder;
    int itemsOfFolder = 5;

    [[nodiscard]] std::string top(std::size_t disk) const {
        return folder + "/top" + (disk == 0 ? std::string() : "/" + std::string(dataBelowItems));
    }
    [[nodiscard]] Places places() const {
        return {.items = top(0), .data = top(1), .itemsOfFolder = itemsOfFolder};
    }
};

struct Recording {
    Scenario scenario;
    std::vector<DiskImage> images = {}; ///< before anything that is logged
    std::vector<DiskRecord> log = {};
    std::size_t begin = 0; ///< the position at which everything was mounted
    std::vector<std::pair<std::size_t, Acknowledged>> acknowledged = {}; ///< with its position
};

/// Nobody else sees what is mounted, and it goes with the last process that does.
void seeAlone() {
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        failWithReason("mounts of our own");
    }
}

void run(const std::string& command) {
    if (std::system((command + " >/dev/null").c_str()) != 0) { // NOLINT(cert-env33-c)
        throw Failure("failed: " + command);
    }
}

DiskImage emptyDisk(const std::string& type, const std::string& file) {
    const std::map<std::string, std::pair<std::uintmax_t, std::string>> kinds{
        {"ext4", {64U << 20U, "mkfs.ext4 -q -F -N 512 -E nodiscard,lazy_itable_init=0"}},
        {"xfs", {304U << 20U, "mkfs.xfs -q -f -K"}}, // as small as it gets
        {"btrfs", {128U << 20U, "mkfs.btrfs -q -f -K"}}};
    const auto& [byteCount, command] = kinds.at(type);
    std::ofstream(file).close();
    fs::resize_file(file, byteCount);
    run(command + " " + file);
    return DiskImage::read(file);
}

/// The second disk lies on the first one, so they are unmounted backwards.
class MountedDisks {
  public:
    MountedDisks(const Stage& stage, const std::string& type,
                 const std::vector<std::string>& files) {
        for (const std::string& file : files) {
            const std::string top = stage.top(disks_.size());
            fs::create_directories(top);
            disks_.push_back(std::make_unique<MountedDisk>(file, type, top));
        }
    }
    ~MountedDisks() {
        while (!disks_.empty()) disks_.pop_back();
    }
    MountedDisks(const MountedDisks&) = delete;
    MountedDisks& operator=(const MountedDisks&) = delete;

  private:
    std::vector<std::unique_ptr<MountedDisk>> disks_;
};

// Recording -----------------------------------------------------------------------------------

/// In a process of its own: the one that answers for the disks must not wait for them.
int carryOutAsChild(const Stage& stage, const Scenario& scenario) {
    try {
        carryOut(stage.places(), scenario.manner, [](const Acknowledged& each) {
            std::printf("%d %d %zu\n", static_cast<int>(each.what), static_cast<int>(each.cleanup),
                        each.count);
            std::fflush(stdout);
            if (std::getchar() < 0) std::exit(1); // NOLINT(concurrency-mt-unsafe)
        });
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", scenario.name().c_str(), error.what());
        return 1;
    }
    return 0;
}

/// Starts this program once more and stamps what it acknowledges with the position in the log.
void follow(Recording& recording, const Stage& stage, const LoggedDisks& disks) {
    std::array<int, 2> told{};
    std::array<int, 2> heard{};
    if (::pipe(told.data()) != 0 || ::pipe(heard.data()) != 0) failWithReason("pipes");
    const Scenario& scenario = recording.scenario;
    const std::string diskCount = std::to_string(scenario.diskCount);
    const std::string fault = std::to_string(static_cast<int>(scenario.manner.fault));
    const std::string itemsOfFolder = std::to_string(stage.itemsOfFolder);
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(heard[0], STDIN_FILENO);
        ::dup2(told[1], STDOUT_FILENO);
        for (const int fd : {told[0], told[1], heard[0], heard[1]}) ::close(fd);
        ::execl("/proc/self/exe", "CrashStates", "--carry-out", stage.folder.c_str(),
                scenario.type.c_str(), diskCount.c_str(), scenario.manner.isSlow ? "1" : "0",
                fault.c_str(), itemsOfFolder.c_str(), nullptr);
        ::_exit(127);
    }
    ::close(heard[0]);
    ::close(told[1]);
    FILE* lines = ::fdopen(told[0], "r");
    int what = 0;
    int cleanup = 0;
    std::size_t count = 0;
    while (std::fscanf(lines, "%d %d %zu", &what, &cleanup, &count) == 3) { // NOLINT
        recording.acknowledged.emplace_back(
            disks.position(), Acknowledged{.what = static_cast<Acknowledged::What>(what),
                                           .cleanup = static_cast<Cleanup>(cleanup),
                                           .count = count});
        if (::write(heard[1], "\n", 1) != 1) break;
    }
    std::fclose(lines);
    ::close(heard[1]);
    int status = 0;
    ::waitpid(child, &status, 0);
    if (status != 0) throw Failure("the run itself failed: " + scenario.name());
}

Recording record(const Stage& stage, const Scenario& scenario) {
    Recording recording{.scenario = scenario};
    std::vector<std::string> files;
    for (std::size_t disk = 0; disk < scenario.diskCount; ++disk) {
        files.push_back(fmt::format("{}/plain{}", stage.folder, disk));
        static_cast<void>(emptyDisk(scenario.type, files.back()));
    }
    {
        const MountedDisks disks(stage, scenario.type, files);
        prepare(stage.places());
    }
    for (const std::string& file : files) {
        recording.images.push_back(DiskImage::read(file));
        fs::remove(file);
    }
    LoggedDisks logged(recording.images, stage.folder);
    for (std::size_t disk = 0; disk < files.size(); ++disk) files[disk] = logged.file(disk);
    const MountedDisks disks(stage, scenario.type, files);
    recording.begin = logged.position();
    follow(recording, stage, logged);
    recording.log = logged.takeLog();
    return recording;
}

// States --------------------------------------------------------------------------------------

/// What arrived before a crash: everything up to the last flush, and of what came after it...
enum class Kept : std::uint8_t { none, all, some };

struct State {
    const Recording* recording;
    std::size_t position; ///< so many records had arrived
    Kept kept;
    std::uint32_t seed; ///< for `some`

    [[nodiscard]] std::string name() const {
        return fmt::format("{}, {} of {} records, {} since the last flush",
                           recording->scenario.name(), position, recording->log.size(),
                           kept == Kept::none  ? std::string("nothing")
                           : kept == Kept::all ? std::string("everything")
                                               : fmt::format("a part ({})", seed));
    }
};

std::vector<State> chooseStates(const std::vector<Recording>& recordings, std::size_t count,
                                std::uint32_t seed) {
    std::mt19937 random(seed);
    std::vector<State> states;
    for (std::size_t i = 0; i < recordings.size(); ++i) {
        const Recording& recording = recordings[i];
        const std::size_t share =
            count * (i + 1) / recordings.size() - count * i / recordings.size();
        // Spread over the whole run, each at some point of its stretch of it.
        const double stretch = static_cast<double>(recording.log.size() - recording.begin + 1) /
                               static_cast<double>(share);
        for (std::size_t state = 0; state < share; ++state) {
            const double within = std::uniform_real_distribution<double>(0, 1)(random);
            const auto after =
                static_cast<std::size_t>((static_cast<double>(state) + within) * stretch);
            constexpr std::array kinds{Kept::none, Kept::all, Kept::some, Kept::some};
            states.push_back({.recording = &recording,
                              .position = std::min(recording.begin + after, recording.log.size()),
                              .kept = kinds[random() % kinds.size()],
                              .seed = static_cast<std::uint32_t>(random())});
        }
    }
    return states;
}

std::vector<DiskImage> imagesOf(const State& state) {
    const Recording& recording = *state.recording;
    std::vector<DiskImage> images = recording.images;
    const std::span log(recording.log.data(), state.position);
    std::vector<std::size_t> lastFlush(images.size(), 0);
    for (std::size_t i = 0; i < log.size(); ++i) {
        if (log[i].isFlush()) lastFlush[log[i].disk] = i;
    }
    std::mt19937 random(state.seed);
    for (std::size_t i = 0; i < log.size(); ++i) {
        if (log[i].isFlush()) continue;
        const bool isDurable = i < lastFlush[log[i].disk];
        if (isDurable || state.kept == Kept::all ||
            (state.kept == Kept::some && random() % 2 == 0)) {
            images[log[i].disk].write(log[i].offset, log[i].bytes);
        }
    }
    return images;
}

std::vector<std::string> faultsOf(const State& state, const Stage& stage, std::size_t worker) {
    std::vector<std::string> files;
    std::vector<Acknowledged> acknowledged;
    for (const auto& [position, each] : state.recording->acknowledged) {
        if (position <= state.position) acknowledged.push_back(each);
    }
    try {
        for (const DiskImage& image : imagesOf(state)) {
            files.push_back(fmt::format("{}/state{}-{}", stage.folder, worker, files.size()));
            image.save(files.back());
        }
        const MountedDisks disks(stage, state.recording->scenario.type, files);
        const Places places = stage.places();
        platform::LiveFolderChanges changes;
        return judge(places, acknowledged, [&] { settle(places, changes); });
    } catch (const std::exception& error) {
        return {error.what()};
    }
}

/// Judges every n-th state in a process of its own, which writes a line for each fault.
pid_t startWorker(std::size_t worker, const std::vector<State>& states, const Stage& stage) {
    const pid_t child = ::fork();
    if (child != 0) return child;
    int result = 0;
    try {
        seeAlone();
        std::ofstream found(fmt::format("{}/found{}", stage.folder, worker));
        for (std::size_t i = worker; i < states.size(); i += workerCount) {
            for (const std::string& fault : faultsOf(states[i], stage, worker)) {
                found << i << ' ' << fault << std::endl;
            }
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        result = 1;
    }
    ::_exit(result);
}

/// The faults of each state, by its number.
std::map<std::size_t, std::vector<std::string>> judgeAll(const std::vector<State>& states,
                                                         const Stage& stage) {
    std::vector<pid_t> workers;
    for (std::size_t i = 0; i < workerCount; ++i) workers.push_back(startWorker(i, states, stage));
    for (const pid_t worker : workers) {
        int status = 0;
        ::waitpid(worker, &status, 0);
        if (status != 0) throw Failure("a worker ended before its states were judged");
    }
    std::map<std::size_t, std::vector<std::string>> faults;
    for (std::size_t i = 0; i < workerCount; ++i) {
        std::ifstream found(fmt::format("{}/found{}", stage.folder, i));
        std::string line;
        std::size_t state = 0;
        while (found >> state && std::getline(found, line)) faults[state].push_back(line);
    }
    return faults;
}

int proveStates(std::size_t count, std::uint32_t seed, const Stage& stage, Fault fault) {
    seeAlone();
    if (::mount("states", stage.folder.c_str(), "tmpfs", 0, nullptr) != 0) {
        failWithReason(stage.folder);
    }
    fs::create_directory(stage.top(0));
    std::vector<Recording> recordings;
    for (const std::string type : {"ext4", "xfs", "btrfs"}) {
        for (const std::size_t diskCount : {1U, 2U}) {
            for (const bool isSlow : {false, true}) {
                recordings.push_back(record(stage, {.type = type,
                                                    .diskCount = diskCount,
                                                    .manner = {.isSlow = isSlow, .fault = fault}}));
            }
        }
    }
    const auto states = chooseStates(recordings, count, seed);
    const auto faults = judgeAll(states, stage);
    std::size_t records = 0;
    for (const Recording& recording : recordings) records += recording.log.size();
    std::map<std::string, std::size_t> byScenario;
    std::map<std::string, std::size_t> byKind;
    std::size_t shown = 0;
    for (const auto& [number, found] : faults) {
        ++byScenario[states[number].recording->scenario.name()];
        for (const std::string& each : found) {
            ++byKind[std::regex_replace(each, std::regex("[a-z]*[0-9]+( %)?"), "...")];
        }
        if (constexpr std::size_t maxShown = 30; ++shown > maxShown) continue;
        fmt::print("{}:\n", states[number].name());
        for (const std::string& each : found) fmt::print("   {}\n", each);
    }
    for (const auto& [scenario, number] : byScenario) fmt::print("{} in {}\n", number, scenario);
    for (const auto& [kind, number] : byKind) fmt::print("{} times: {}\n", number, kind);
    fmt::print("{} states of {} runs with {} writes and flushes, seed {}: {} with faults\n",
               states.size(), recordings.size(), records, seed, faults.size());
    return faults.empty() == (fault == Fault::none) ? 0 : 1;
}

int start(std::span<char*> arguments) {
    const auto number = [&](std::size_t at) {
        return static_cast<unsigned>(std::strtoul(arguments[at], nullptr, 10));
    };
    if (arguments.size() == 8 && std::string_view(arguments[1]) == "--carry-out") {
        return carryOutAsChild(
            {.folder = arguments[2], .itemsOfFolder = static_cast<int>(number(7))},
            {.type = arguments[3],
             .diskCount = number(4),
             .manner = {.isSlow = number(5) != 0, .fault = static_cast<Fault>(number(6))}});
    }
    if (arguments.size() < 4 || number(1) == 0) {
        std::fputs("usage: CrashStates STATES SEED PLACE [volumes|logs]\n", stderr);
        return 2;
    }
    const std::string_view fault = arguments.size() > 4 ? arguments[4] : "";
    return proveStates(number(1), number(2), {.folder = arguments[3]},
                       fault == "volumes" ? Fault::volumesNotFlushed
                       : fault == "logs"  ? Fault::logsNotFlushed
                                          : Fault::none);
}

} // namespace
} // namespace tidyro::crash

int main(int count, char** arguments) {
    try {
        return tidyro::crash::start({arguments, static_cast<std::size_t>(count)});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
