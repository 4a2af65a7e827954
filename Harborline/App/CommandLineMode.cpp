#include "App/CommandLineMode.h"

#include <cstdlib>
#include <expected>
#include <filesystem>
#include <ranges>
#include <system_error>

#include <fmt/format.h>

#include "App/Stopwatch.h"
#include "App/TextOutput.h"
#include "Base/RoomText.h"
#include "Base/Timestamp.h"
#include "Platform/Folders/WellKnownFolders.h"
#include "Platform/Terminal/OutputLines.h"
#include "Platform/Terminal/StandardStreams.h"
#include "Rooms/Activity/ActivityArchive.h"
#include "Rooms/Duplicates/Search/DuplicateEngine.h"
#include "Rooms/Find/Services/Building/FindIndexBuilder.h"
#include "Rooms/Find/Services/Index/FindIndex.h"
#include "Rooms/Find/Services/Search/FindSearchEngine.h"
#include "StorageEngine/DiskTree/DiskTreeScanner.h"
#include "StorageEngine/Sorting/DiskSorting.h"

namespace tidyro {

namespace {

/// What a step gives when an error ends the request: the sentence after "Stopped: ".
template <class T>
using Step = std::expected<T, std::string>;

/// One request while it is carried out.
class Run : private TextOutput {
  public:
    Run(const CommandLineMode::Request& request, const CommandLineMode::Surroundings& surroundings)
        : TextOutput(surroundings.write, surroundings.escapesNames),
          request_(request),
          surroundings_(surroundings) {}

    [[nodiscard]] int operator()() const {
        std::error_code failed;
        if (!std::filesystem::is_directory(request_.path, failed)) {
            line("No folder at {}.", shown(request_.path));
            return CommandLineMode::noFolder;
        }
        const Step<void> done = dispatch(FileURL::folder(request_.path));
        if (done) return CommandLineMode::succeeded;
        line("Stopped: {}", shown(done.error()));
        return CommandLineMode::stopped;
    }

  private:
    [[nodiscard]] Step<void> dispatch(const FileURL& folder) const {
        switch (request_.command) {
        case CommandLineMode::Command::scan: return listed(folder);
        case CommandLineMode::Command::snapshot: return kept(folder);
        case CommandLineMode::Command::duplicates: return duplicates(folder);
        case CommandLineMode::Command::index: index(folder); return {};
        }
        return {};
    }

    [[nodiscard]] Step<void> listed(const FileURL& folder) const {
        const auto tree = scan(folder);
        if (!tree) return std::unexpected(tree.error());
        largest(*tree);
        groups(*tree);
        return {};
    }

    [[nodiscard]] Step<void> kept(const FileURL& folder) const {
        const auto tree = scan(folder);
        if (!tree) return std::unexpected(tree.error());
        const FolderSnapshot snapshot = FolderSnapshot::of(*tree, {.onDisk = true});
        const ActivityArchive archive(
            surroundings_.snapshotDirectory.value_or(ActivityArchive::defaultDirectory()));
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
        return *std::move(tree);
    }

    [[nodiscard]] Step<void> duplicates(const FileURL& folder) const {
        constexpr std::size_t most = 20; // groups that are listed
        const auto report = DuplicateEngine().run({.roots = {folder},
                                                   .minimumBytes = request_.minimumBytes,
                                                   .includeSystemVolumes = request_.includeSystem,
                                                   .home = platform::homeFolder()});
        if (!report) return std::unexpected(DuplicateEngine::description(report.error()));
        line("Looked at {} of {} or more{}.",
             RoomText::counted(static_cast<std::uint64_t>(report->filesLookedAt), "file", "files"),
             RoomText::bytes(report->minimumBytes),
             report->includedSystemVolumes ? ", system volumes included" : "");
        line("{} of copies, {} taken by the extra copies, in {} s.",
             RoomText::counted(report->groups.size(), "set", "sets"),
             RoomText::bytes(report->wastedBytes()), decimal(report->duration, 2));
        for (const DuplicateGroup& group : report->groups | std::views::take(most)) {
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
        // What an engine remembers of one query must not shorten the time of the next.
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
    const CommandLineMode::Surroundings& surroundings_;
};

} // namespace

int CommandLineMode::run(const Request& request, const Surroundings& surroundings) {
    return Run(request, surroundings)();
}

void CommandLineMode::runIfRequested(std::span<const std::string> arguments) {
    const ParseResult parsed = parse(arguments, platform::homeFolder().path());
    if (std::holds_alternative<NotRequested>(parsed)) return;
    int status = malformed;
    platform::OutputLines lines;
    if (const auto* request = std::get_if<Request>(&parsed)) {
        status = lines.ending(
            run(*request, {.write = [&](std::string_view text) { lines.write(text); },
                           .escapesNames = platform::isTerminal(platform::Stream::output)}));
    } else {
        static_cast<void>(
            platform::writeAll(platform::Stream::error, fmt::format("{}\n", usageText)));
    }
    // No thread of ours runs by now.
    std::exit(status); // NOLINT(concurrency-mt-unsafe)
}

} // namespace tidyro
