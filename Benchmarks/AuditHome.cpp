// Audits a made home of Codex, and compares what that takes with the least that it can cost.
//
//     AuditHome FOLDER [FILES [ROUNDS]]     200,000 and 7 when left out
//
// The home is made in FOLDER when it is not there. Each round reads it once barely (one thread,
// getdents64 and one statx an entry, nothing kept) and audits it once. Then each entry is
// classified alone, and the activity of all processes is read barely and captured, while some
// hundred processes hold files open. Printed are the best and the middle of the rounds, and
// ratios. The clock is set ahead, so files that were made a moment ago count as old.

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <linux/stat.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "StorageEngine/AITools/AIToolAuditor.h"
#include "StorageEngine/AITools/AIToolClassifier.h"

namespace {

using namespace tidyro;
namespace fs = std::filesystem;

constexpr double days = 86'400;

struct KernelEntry {
    std::uint64_t inode;
    std::int64_t offset;
    std::uint16_t length;
    unsigned char type;
    char name[1];
};

constexpr std::size_t bufferSize = 262'144;

std::size_t readBarely(int folder) {
    const auto buffer = std::make_unique_for_overwrite<std::byte[]>(bufferSize);
    std::vector<std::string> folders;
    std::size_t count = 0;
    for (;;) {
        const long got = ::syscall(SYS_getdents64, folder, buffer.get(), bufferSize);
        if (got <= 0) break;
        for (std::size_t at = 0; at < static_cast<std::size_t>(got);) {
            const auto& entry = *reinterpret_cast<const KernelEntry*>(buffer.get() + at);
            at += entry.length;
            const std::string_view name = entry.name;
            if (name == "." || name == "..") continue;
            struct statx status;
            if (::statx(folder, entry.name, AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS | STATX_BTIME,
                        &status) != 0) {
                continue;
            }
            ++count;
            if (S_ISDIR(status.stx_mode)) folders.emplace_back(name);
        }
    }
    for (const std::string& name : folders) {
        const int inside = ::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (inside < 0) continue;
        count += readBarely(inside);
        ::close(inside);
    }
    return count;
}

std::size_t readBarely(const std::string& path) {
    const int folder = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::size_t count = readBarely(folder);
    ::close(folder);
    return count;
}

/// Three parts of ten each of caches, scratch repositories and conversations, and one of images.
void makeHome(const std::string& home, std::size_t files) {
    const auto file = [&](const std::string& name) {
        const std::string path = home + "/" + name;
        const int opened = ::open(path.c_str(), O_WRONLY | O_CREAT, 0644);
        if (opened < 0) {
            fs::create_directories(fs::path(path).parent_path());
            std::ofstream(path).flush();
        } else {
            ::close(opened);
        }
    };
    file("config.toml");
    file("auth.json");
    for (std::size_t i = 0; i < files; ++i) {
        char name[200];
        const std::size_t part = i % 10;
        const std::size_t nth = i / 10;
        if (part < 3) {
            std::snprintf(name, sizeof name, "cache/codex_apps_tools/0c6f%08zx-tools.json", i);
        } else if (part < 6) { // as git spreads its objects, ten in a folder
            std::snprintf(name, sizeof name, ".tmp/git-%06zu/objects/%02zx/%036zx", nth / 853,
                          nth % 256, i);
        } else if (part < 9) {
            std::snprintf(name, sizeof name, "sessions/2026/%02zu/%02zu/rollout-%zu.jsonl",
                          nth % 12 + 1, nth / 12 % 28 + 1, i);
        } else {
            std::snprintf(name, sizeof name, "generated_images/%zu/image-%zu.png", nth / 20, i);
        }
        file(name);
    }
}

double seconds(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

struct Times {
    std::vector<double> all;
    [[nodiscard]] double best() const { return std::ranges::min(all); }
    [[nodiscard]] double middle() {
        std::ranges::sort(all);
        return all[all.size() / 2];
    }
};

void compare(const char* what, Times bare, Times own) {
    std::printf("%s: bare %.4f s (best %.4f), own %.4f s (best %.4f), ratio %.2f (best %.2f)\n",
                what, bare.middle(), bare.best(), own.middle(), own.best(),
                own.middle() / bare.middle(), own.best() / bare.best());
}

/// All volumes count as internal.
std::shared_ptr<const SafetyPolicyContext> context(const platform::Volumes& volumes) {
    SafetyPolicyFacts facts{.currentUserID = platform::currentUserID(),
                            .internalLocalVolumeIdentifiers = {},
                            .activeApplicationRoots = {},
                            .additionalProtectedRoots = {},
                            .activelyGrowingPaths = {},
                            .openByProcessPaths = {}};
    const auto mounted = volumes.mounted().value();
    for (const platform::Volume& volume : mounted) {
        facts.internalLocalVolumeIdentifiers.insert(volume.identifier);
    }
    return std::make_shared<const SafetyPolicyContext>(std::move(facts));
}

void classifyAll(const AIToolHome& home, const platform::Volumes& volumes) {
    struct Asked {
        FileObservation observation;
        AIToolLocation at;
        std::optional<Timestamp> changed;
        bool isLink;
    };
    std::vector<Asked> asked;
    AIToolWalkEntry::Around around{.folders = {}};
    const auto top = AIToolWalker::lstat(home.url.path());
    const auto mounted = volumes.mounted();
    if (!top || !mounted) return;
    if (const auto* volume = platform::volumeOf(*top, *mounted)) {
        around.volumeIdentifier = SharedText::made(volume->identifier);
    }
    const auto walked = AIToolWalker::walk(
        home.url,
        [&](const AIToolWalkEntry& entry) {
            asked.push_back({.observation = entry.observation(around),
                             .at = home.locate(entry.url).value(),
                             .changed = entry.statusChangeDate,
                             .isLink = entry.kind == AIToolWalkEntry::Kind::symbolicLink});
        },
        {});
    if (!walked) return;
    const AIToolClassifier classifier(
        {.minimumAge = days,
         .context = AIToolClassifier::context(home, *context(volumes)),
         .activity = {.openFilePaths = {home.url.path() + "/x"}},
         .now = Timestamp::now().adding(100 * days)});
    std::size_t eligible = 0;
    Times times;
    for (int round = 0; round < 5; ++round) {
        eligible = 0;
        times.all.push_back(seconds([&] {
            for (const Asked& each : asked) {
                eligible +=
                    classifier
                        .classify(each.observation, each.at,
                                  {.isSymbolicLink = each.isLink, .statusChangeDate = each.changed})
                        .candidate.has_value();
            }
        }));
    }
    Times rated; // as an audit asks
    AIToolClassifier::LastFolder last;
    for (int round = 0; round < 5; ++round) {
        std::size_t held = 0;
        rated.all.push_back(seconds([&] {
            for (const Asked& each : asked) {
                held += classifier
                            .rate(each.observation, each.at,
                                  {.isSymbolicLink = each.isLink,
                                   .statusChangeDate = each.changed,
                                   .lastFolder = &last})
                            .rule == nullptr;
            }
        }));
        if (held == asked.size()) return;
    }
    const auto count = static_cast<double>(asked.size());
    std::printf("rating: %.3f µs an entry (best %.3f)\n", rated.middle() / count * 1e6,
                rated.best() / count * 1e6);
    std::printf(
        "classification with candidates: %.3f µs an entry (best %.3f), %zu of %zu eligible\n",
        times.middle() / count * 1e6, times.best() / count * 1e6, eligible, asked.size());
}

/// Processes that hold files open until this goes.
class Holders {
  public:
    explicit Holders(const std::string& folder) {
        constexpr int processes = 300;
        constexpr int files = 40;
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder)) {
            names.push_back(entry.path());
            if (names.size() == files) break;
        }
        std::array<int, 2> ready{};
        if (::pipe(ready.data()) != 0) return;
        for (int i = 0; i < processes; ++i) {
            const pid_t child = ::fork();
            if (child == 0) {
                for (const std::string& name : names) {
                    if (::open(name.c_str(), O_RDONLY) < 0) ::_exit(1);
                }
                if (::write(ready[1], "x", 1) != 1) ::_exit(1);
                for (;;) ::pause();
            }
            if (child > 0) children_.push_back(child);
        }
        char one = 0;
        for (std::size_t i = 0; i < children_.size(); ++i) {
            if (::read(ready[0], &one, 1) != 1) break;
        }
    }
    Holders(const Holders&) = delete;
    Holders& operator=(const Holders&) = delete;
    ~Holders() {
        for (const pid_t child : children_) ::kill(child, SIGKILL);
        for (const pid_t child : children_) ::waitpid(child, nullptr, 0);
    }

  private:
    std::vector<pid_t> children_;
};

/// What a capture reads of each process, by one thread and thrown away.
std::size_t readProcessesBarely() {
    std::size_t bytes = 0;
    std::array<char, 65'536> buffer;
    const auto link = [&](int folder, const char* name) {
        const auto got = ::readlinkat(folder, name, buffer.data(), buffer.size());
        if (got > 0) bytes += static_cast<std::size_t>(got);
    };
    DIR* table = ::opendir("/proc");
    const int processes = table != nullptr ? ::dirfd(table) : -1;
    if (processes < 0) return 0;
    while (const dirent* process = ::readdir(table)) { // NOLINT(concurrency-mt-unsafe)
        if (process->d_name[0] < '0' || process->d_name[0] > '9') continue;
        const int folder = ::openat(processes, process->d_name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (folder < 0) continue;
        link(folder, "exe");
        link(folder, "cwd");
        link(folder, "ns/mnt");
        const int maps = ::openat(folder, "maps", O_RDONLY | O_CLOEXEC);
        while (maps >= 0) {
            const auto got = ::read(maps, buffer.data(), buffer.size());
            if (got <= 0) break;
            bytes += static_cast<std::size_t>(got);
        }
        if (maps >= 0) ::close(maps);
        const int files = ::openat(folder, "fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (DIR* listed = files < 0 ? nullptr : ::fdopendir(files)) {
            while (const dirent* file = ::readdir(listed)) { // NOLINT(concurrency-mt-unsafe)
                if (file->d_name[0] != '.') link(files, file->d_name);
            }
            ::closedir(listed);
        }
        ::close(folder);
    }
    ::closedir(table);
    return bytes;
}

} // namespace

int main(int count, char** arguments) {
    if (count < 2) return 64;
    const std::string place = fs::absolute(arguments[1]).string();
    const std::size_t files = count > 2 ? std::strtoul(arguments[2], nullptr, 10) : 200'000;
    const std::size_t rounds = count > 3 ? std::strtoul(arguments[3], nullptr, 10) : 7;
    const std::string path = place + "/.codex";
    if (!fs::exists(path)) makeHome(path, files);
    const AIToolHomeDiscovery discovery{.userHome = FileURL::folder(place)};
    const auto home = discovery.validate(FileURL::folder(path), AIToolID::codex,
                                         AIToolHome::Source::conventional);
    if (!home) return std::fprintf(stderr, "%s: not taken for a home\n", path.c_str()), 1;
    const platform::LiveVolumes volumes;
    StaticToolActivityProvider activity{{}};
    const AIToolAuditor auditor({.activityProvider = activity,
                                 .volumes = volumes,
                                 .freshContext = [&] { return context(volumes); }});
    const Timestamp later = Timestamp::now().adding(100 * days);
    Times bare;
    Times own;
    for (std::size_t round = 0; round <= rounds; ++round) {
        std::size_t entries = 0;
        const double first = seconds([&] { entries = readBarely(path); });
        std::size_t eligible = 0;
        std::size_t audited = 0;
        const double second = seconds([&] {
            const auto report = auditor.audit(*home, later);
            if (!report) return;
            audited = report->fileCount + report->directoryCount;
            for (const auto& finding : report->ruleFindings) eligible += finding.artifacts.size();
        });
        if (round == 0) {
            std::printf("%zu entries, %zu audited, %zu eligible\n", entries, audited, eligible);
            continue; // it made the disk's cache warm
        }
        bare.all.push_back(first);
        own.all.push_back(second);
    }
    compare("audit", bare, own);
    classifyAll(*home, volumes);

    const Holders holders(path + "/cache/codex_apps_tools");
    const platform::LiveRunningProcesses processes;
    const LiveToolActivityProvider live(processes);
    Times bareProcesses;
    Times captures;
    for (std::size_t round = 0; round <= rounds; ++round) {
        std::size_t seen = 0;
        const double first = seconds([&] { seen = readProcessesBarely(); });
        const double second = seconds([&] { seen += live.capture().openFilePaths.size(); });
        if (round == 0 || seen == 0) continue;
        bareProcesses.all.push_back(first);
        captures.all.push_back(second);
    }
    compare("activity", bareProcesses, captures);
    return 0;
}
