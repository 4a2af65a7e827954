#include "App/CommandLineMode.h"

#include <algorithm>
#include <expected>
#include <ranges>

#include "Base/RoomText.h"
#include "Base/Stopwatch.h"
#include "Base/Timestamp.h"
#include "Platform/Folders/WellKnownFolders.h"
#include "Rooms/Activity/ActivityArchive.h"
#include "Rooms/Duplicates/Report/DuplicatesText.h"
#include "Rooms/Duplicates/Search/DuplicateEngine.h"
#include "Rooms/Find/Services/Building/FindIndexBuilder.h"
#include "Rooms/Find/Services/Index/FindIndex.h"
#include "Rooms/Find/Services/Search/FindSearchEngine.h"
#include "StorageEngine/DiskTree/DiskTreeScanner.h"
#include "StorageEngine/Sorting/DiskSorting.h"

namespace tidyro {

namespace {

constexpr std::int64_t maxLargest = 1'000;
constexpr std::size_t maxSetsShown = 20;

/// The result of a step. The error is the sentence after "Stopped: ".
template <class T>
using Step = std::expected<T, std::string>;

/// Carries out one request.
class RequestRun : private TextOutput {
  public:
    RequestRun(const CommandLineMode::Request& request, const TextOutput& output,
               const std::optional<FileURL>& snapshotDirectory)
        : TextOutput(output), request_(request), snapshotDirectory_(snapshotDirectory) {}

    [[nodiscard]] int operator()() const {
        if (!confirmFolder(request_.path)) return ExitStatus::noFolder;
        const Step<void> done = dispatch(FileURL::folder(request_.path));
        return done ? ExitStatus::succeeded : tellStop(done.error());
    }

  private:
    [[nodiscard]] Step<void> dispatch(const FileURL& folder) const {
        switch (request_.command) {
        case CommandLineMode::Command::scan: return scanAndList(folder);
        case CommandLineMode::Command::snapshot: return scanAndKeep(folder);
        case CommandLineMode::Command::duplicates: return duplicates(folder);
        case CommandLineMode::Command::index: index(folder); return {};
        }
        return {};
    }

    [[nodiscard]] Step<void> scanAndList(const FileURL& folder) const {
        const auto tree = scan(folder);
        if (!tree) return std::unexpected(tree.error());
        largest(*tree);
        groups(*tree);
        return {};
    }

    [[nodiscard]] Step<void> scanAndKeep(const FileURL& folder) const {
        const auto tree = scan(folder);
        if (!tree) return std::unexpected(tree.error());
        const FolderSnapshot snapshot = FolderSnapshot::take(*tree, {.onDisk = true});
        const ActivityArchive archive(
            snapshotDirectory_.value_or(ActivityArchive::defaultDirectory()));
        if (const auto saved = archive.save(snapshot); !saved) {
            return std::unexpected(ActivityArchive::description(saved.error()));
        }
        line("Kept a snapshot of {}, {} in all. Compare it with a later scan in Activity.",
             RoomText::counted(snapshot.folders.size(), "folder", "folders"),
             RoomText::bytes(snapshot.byteCount()));
        return {};
    }

    [[nodiscard]] Step<DiskTree> scan(const FileURL& folder) const {
        const Stopwatch watch;
        auto tree = DiskTreeScanner(std::nullopt, 0.1).scan(folder);
        const double seconds = watch.seconds();
        if (!tree) return std::unexpected(DiskTreeScanner::description(tree.error()));

        constexpr NodeNumber root = DiskTree::root;
        line("Read {}: {} in {}, {} on disk ({} of data), in {} s.", shown(tree->path(root)),
             RoomText::counted(tree->fileCount(root), "file", "files"),
             RoomText::counted(tree->folderCount(root), "folder", "folders"),
             RoomText::bytes(tree->size(root, {.onDisk = true})),
             RoomText::bytes(tree->size(root, {.onDisk = false})), decimal(seconds, 2));
        if (tree->deniedCount() > 0) {
            const auto denied = static_cast<std::uint64_t>(tree->deniedCount());
            line("{} closed to Tidyro and not measured.",
                 RoomText::counted(denied, "folder was", "folders were"));
        }
        tellVolumes(*tree);
        return *std::move(tree);
    }

    /// What is mounted inside is left out, and so are read-only snapshots.
    void tellVolumes(const DiskTree& tree) const {
        constexpr std::size_t maxNamed = 3;
        std::vector<std::string> paths;
        std::uint64_t count = 0;
        for (NodeNumber node = 1; node < tree.count(); ++node) {
            if (!tree.isDirectory(node)) continue;
            if (!tree.flags(node).contains(DiskTree::Flags::mountPoint)) continue;
            if (++count <= maxNamed) paths.push_back(shown(tree.path(node)));
        }
        if (count == 0) return;
        line("{} inside {} not read: {}{}.", RoomText::counted(count, "volume", "volumes"),
             count == 1 ? "was" : "were", fmt::join(paths, ", "),
             count > maxNamed ? " and others" : "");
    }

    [[nodiscard]] Step<void> duplicates(const FileURL& folder) const {
        const auto report = DuplicateEngine().run({.roots = {folder},
                                                   .minimumBytes = request_.minimumBytes,
                                                   .includeSystemVolumes = request_.includeSystem,
                                                   .home = platform::homeFolder()});
        if (!report) return std::unexpected(DuplicateEngine::description(report.error()));
        line("{}", filesLookedAtText(*report));
        line("{}", copiesFoundText(*report));
        for (const DuplicateGroup& group : report->groups | std::views::take(maxSetsShown)) {
            line("{:>9} × {}  {}", RoomText::bytes(group.bytesEach), group.copies.size(),
                 shown(group.name()));
        }
        return {};
    }

    void index(const FileURL& folder) const {
        const Stopwatch watch;
        auto storage = FindIndexBuilder({.rootPath = folder.path()}).run();
        const double seconds = watch.seconds();
        if (!storage) return line("The index could not be built.");
        FindIndex built;
        const Timestamp now = Timestamp::now();
        built.replace(*std::move(storage), {.builtAt = now, .savedAt = now});
        line("Indexed {} in {} s.",
             RoomText::counted(static_cast<std::uint64_t>(built.summary().itemCount), "name",
                               "names"),
             decimal(seconds, 2));
        for (const std::string& query : request_.queries) answer(query, built);
    }

    void answer(const std::string& query, const FindIndex& index) const {
        const Stopwatch watch;
        // A new engine for each query, since what it remembers would shorten the next one's time.
        const FindSearchResult found =
            FindSearchEngine().search(query, {.in = index, .limit = 500, .now = Timestamp::now()});
        const double milliseconds = watch.milliseconds();
        const std::string first =
            found.hits.empty() ? "" : ", first " + shown(index.storage()->path(found.hits.front()));
        line("  \"{}\": {} in {} ms{}", shown(query),
             RoomText::counted(found.matchCount, "match", "matches"), decimal(milliseconds, 1),
             first);
    }

    void largest(const DiskTree& tree) const {
        const Stopwatch watch;
        const auto found = tree.largestFiles({.limit = request_.largest, .onDisk = true});
        line("Largest {}, ranked in {} s:", found.size(), decimal(watch.seconds(), 3));
        std::size_t rank = 0;
        for (const NodeNumber node : found) {
            line("{:>3}  {:>9}  {}", ++rank, RoomText::bytes(tree.size(node, {.onDisk = true})),
                 shown(tree.path(node)));
        }
    }

    void groups(const DiskTree& tree) const {
        const DiskSorting sorting(tree, ProjectFolderJudge::live(),
                                  DiskSorting::Options::current());
        bool isFirst = true;
        for (const DiskGroup group : allCases<DiskGroup>()) {
            const std::size_t count = sorting.items(group).size();
            if (count == 0) continue;
            if (isFirst) line("Cleanup groups:");
            isFirst = false;
            line("  {:<30} {:>12}  {:>9}", title(group), RoomText::counted(count, "item", "items"),
                 RoomText::bytes(sorting.bytes(group)));
        }
        if (isFirst) line("Cleanup groups: nothing in this folder belongs to one.");
    }

    const CommandLineMode::Request& request_;
    const std::optional<FileURL>& snapshotDirectory_;
};

} // namespace

const std::string_view CommandLineMode::usageText =
    "Usage: Tidyro --cli <command> <folder> [options]\n"
    "  scan <folder> [--largest N]           Read a folder, time it, list the largest items and "
    "Cleanup's groups\n"
    "  duplicates <folder> [--min-size BYTES] [--include-system]\n"
    "                                        Find byte-identical copies\n"
    "  index <folder> [--query TEXT]...      Build Find's index of names and time each query\n"
    "  snapshot <folder>                     Scan and keep the result in Activity's snapshots\n"
    "Nothing is moved or deleted.";

CommandLineMode::ParseResult CommandLineMode::parse(ArgumentReader::Arguments arguments,
                                                    std::string_view home) {
    auto reader = ArgumentReader::behind({"--cli"}, arguments);
    if (!reader) return CommandLineNotRequested{};
    const auto command = fromRawValue<Command>(reader->next().value_or(""));
    if (!command) return CommandLineUsage{usageText};

    Request request{.command = *command, .path = {}};
    while (const auto argument = reader->next()) {
        bool isWellFormed = true;
        if (*argument == "--include-system") {
            request.includeSystem = true;
        } else if (*argument == "--largest") {
            const auto number = reader->nextNumber<std::int64_t>();
            isWellFormed = number && *number > 0;
            request.largest = std::min(number.value_or(0), maxLargest);
        } else if (*argument == "--min-size") {
            const auto bytes = reader->nextMinimumBytes();
            isWellFormed = bytes.has_value();
            request.minimumBytes = bytes.value_or(0);
        } else if (*argument == "--query") {
            const auto query = reader->next();
            isWellFormed = query.has_value();
            request.queries.push_back(query.value_or(""));
        } else if (argument->starts_with('-')) {
            reader->skipValue();
        } else {
            isWellFormed = request.path.empty();
            request.path = *argument;
        }
        if (!isWellFormed) return CommandLineUsage{usageText};
    }
    if (request.path.empty()) return CommandLineUsage{usageText};
    request.path = folderArgument(request.path, home);
    return request;
}

int CommandLineMode::run(const Request& request, const TextOutput& output,
                         const std::optional<FileURL>& snapshotDirectory) {
    return RequestRun(request, output, snapshotDirectory)();
}

void CommandLineMode::runIfRequested(ArgumentReader::Arguments arguments) {
    runAndExit(
        parse(arguments, platform::homeFolder().path()),
        [](const Request& request, const TextOutput& output) { return run(request, output); });
}

} // namespace tidyro
