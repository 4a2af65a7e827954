#include "App/ScanDiagnostics.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <ranges>
#include <system_error>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "App/CommandLineMode.h"
#include "App/Stopwatch.h"
#include "App/TextOutput.h"
#include "Base/ArgumentText.h"
#include "Base/RoomText.h"
#include "Base/Timestamp.h"
#include "Platform/Folders/WellKnownFolders.h"
#include "Platform/Terminal/OutputLines.h"
#include "Platform/Terminal/StandardStreams.h"
#include "Rooms/Activity/FolderSnapshot.h"
#include "Rooms/Duplicates/Search/DuplicateEngine.h"
#include "Rooms/Find/Services/Building/FindIndexBuilder.h"
#include "Rooms/Find/Services/Index/FindIndex.h"
#include "Rooms/Find/Services/Saving/FindIndexPersistence.h"
#include "Rooms/Find/Services/Search/FindSearchEngine.h"
#include "StorageEngine/DiskTree/DiskTreeScanner.h"
#include "StorageEngine/Sorting/DiskSorting.h"

namespace tidyro {

namespace {

using Subject = ScanDiagnostics::Subject;

constexpr std::array<std::pair<std::string_view, Subject>, 3> switches{
    {{"--diagnose-scan", Subject::scan},
     {"--diagnose-find", Subject::find},
     {"--diagnose-duplicates", Subject::duplicates}}};

constexpr std::size_t hitsShown = 5;

/// One request while it is carried out.
class DiagnosticRun : private TextOutput {
  public:
    DiagnosticRun(const ScanDiagnostics::Request& request,
                  const ScanDiagnostics::Surroundings& surroundings)
        : TextOutput(surroundings.write, surroundings.escapesNames),
          folder_(FileURL::folder(request.folder)),
          subject_(request.subject),
          surroundings_(surroundings) {}

    [[nodiscard]] int operator()() const {
        std::error_code failed;
        if (!std::filesystem::is_directory(folder_.path(), failed)) {
            line("No folder at {}.", shown(folder_.path()));
            return CommandLineMode::noFolder;
        }
        switch (subject_) {
        case Subject::scan: return scan();
        case Subject::find: return find();
        case Subject::duplicates: return duplicates();
        }
        return CommandLineMode::succeeded;
    }

  private:
    [[nodiscard]] int scan() const {
        const Stopwatch watch;
        const auto tree = DiskTreeScanner().scan(folder_);
        if (!tree) return stopped(DiskTreeScanner::description(tree.error()));
        phase("read", watch,
              RoomText::counted(static_cast<std::uint64_t>(tree->count()), "item", "items"));
        measured("rank the largest", [&] {
            const auto largest = tree->largestFiles({.limit = 10, .onDisk = true});
            return RoomText::counted(largest.size(), "file", "files");
        });
        measured("sort into groups", [&] {
            const DiskSorting sorting(*tree, ProjectFolderJudge::live(),
                                      DiskSorting::Options::current());
            std::size_t items = 0;
            for (const DiskGroup group : allCases<DiskGroup>())
                items += sorting.items(group).size();
            return RoomText::counted(items, "item", "items");
        });
        measured("make a snapshot", [&] {
            const FolderSnapshot snapshot = FolderSnapshot::of(*tree, {.onDisk = true});
            return RoomText::counted(snapshot.folders.size(), "folder", "folders");
        });
        return CommandLineMode::succeeded;
    }

    [[nodiscard]] int duplicates() const {
        using Phase = DuplicateProgress::Phase;
        struct Begun {
            Phase phase;
            double at;
        };
        const Stopwatch watch;
        std::vector<Begun> begun{{.phase = Phase::listing, .at = 0}};
        const auto report =
            DuplicateEngine({.progressInterval = 0})
                .run({.roots = {folder_}, .home = platform::homeFolder()}, nullptr,
                     [&](const DuplicateProgress& progress) {
                         if (progress.phase == begun.back().phase) return;
                         begun.push_back({.phase = progress.phase, .at = watch.seconds()});
                     });
        const double end = watch.seconds();
        if (!report) return stopped(DuplicateEngine::description(report.error()));
        for (std::size_t i = 0; i < begun.size(); ++i) {
            const double until = i + 1 < begun.size() ? begun[i + 1].at : end;
            phase(rawValue(begun[i].phase), until - begun[i].at, "");
        }
        phase("all", end, RoomText::counted(report->groups.size(), "set", "sets"));
        return CommandLineMode::succeeded;
    }

    [[nodiscard]] int find() const {
        FindIndex index;
        if (!opens(index)) {
            const Stopwatch watch;
            auto storage = FindIndexBuilder({.rootPath = folder_.path()}).run();
            if (!storage) return stopped(FindIndexBuilder::description(storage.error()));
            const Timestamp now = Timestamp::now();
            index.replace(*std::move(storage), {.builtAt = now, .savedAt = now});
            phase("build", watch, names(index));
            save(index);
        }
        FindSearchEngine engine;
        engine.prepare(index);
        while (const auto query = surroundings_.read()) answer(engine, *query, index);
        return CommandLineMode::succeeded;
    }

    /// Whether the saved index is one of this folder; if it is of no use, it is told why.
    [[nodiscard]] bool opens(FindIndex& index) const {
        const Stopwatch watch;
        auto saved = FindIndexPersistence::read(indexFile());
        const std::string file = shown(indexFile().path());
        if (!saved) {
            const bool isThere =
                !std::holds_alternative<FindIndexPersistenceError::Unreadable>(saved.error().kind);
            if (isThere) phase("open", watch, file + ": " + saved.error().description());
            return false;
        }
        if (saved->storage.rootPath != folder_.path()) {
            phase("open", watch, file + " is the index of " + shown(saved->storage.rootPath));
            return false;
        }
        index.replace(std::move(saved->storage), saved->metadata);
        const double age =
            Timestamp::now().secondsSince1970() - saved->metadata.builtAt.secondsSince1970();
        phase("open", watch,
              fmt::format("{}, {} h old, from {}", names(index),
                          decimal(std::max(age, 0.0) / 3'600, 1), file));
        return true;
    }

    void save(const FindIndex& index) const {
        const Stopwatch watch;
        const auto saved =
            FindIndexPersistence::write(*index.storage(), index.metadata(), indexFile());
        const std::string file = indexFile().path();
        phase("save", watch,
              shown(saved ? file : file + ".partial: " + saved.error().description()));
    }

    void answer(FindSearchEngine& engine, const std::string& query, const FindIndex& index) const {
        const Stopwatch watch;
        const FindSearchResult found =
            engine.search(query, {.in = index, .limit = 500, .now = Timestamp::now()});
        const double milliseconds = watch.milliseconds();
        line("\"{}\": {} in {} ms", shown(query),
             RoomText::counted(found.matchCount, "match", "matches"), decimal(milliseconds, 3));
        if (found.problem) line("  {}", shown(*found.problem));
        const FindIndex::Storage storage = index.storage();
        for (const std::uint32_t hit : found.hits | std::views::take(hitsShown)) {
            line("  {}", shown(storage->path(hit)));
        }
    }

    [[nodiscard]] FileURL indexFile() const {
        return surroundings_.indexFile.value_or(FindIndexPersistence::defaultURL());
    }
    [[nodiscard]] static std::string names(const FindIndex& index) {
        const FindIndexSummary summary = index.summary();
        const auto closed = static_cast<std::uint64_t>(summary.unreadableFolderCount);
        return RoomText::counted(static_cast<std::uint64_t>(summary.itemCount), "name", "names") +
               (closed == 0 ? ""
                            : ", " + RoomText::counted(closed, "closed folder", "closed folders"));
    }

    template <class Work>
    void measured(std::string_view name, Work work) const {
        const Stopwatch watch;
        const std::string result = work();
        phase(name, watch, result);
    }
    void phase(std::string_view name, const Stopwatch& watch, std::string_view result) const {
        phase(name, watch.seconds(), result);
    }
    void phase(std::string_view name, double seconds, std::string_view result) const {
        line("{:<16} {:>9} s{}{}", name, decimal(seconds, 4), result.empty() ? "" : "  ", result);
    }
    [[nodiscard]] int stopped(std::string reason) const {
        line("Stopped: {}", shown(std::move(reason)));
        return CommandLineMode::stopped;
    }

    FileURL folder_;
    Subject subject_;
    const ScanDiagnostics::Surroundings& surroundings_;
};

std::optional<std::string> lineOfInput() {
    std::string line;
    if (!std::getline(std::cin, line)) return std::nullopt;
    return line;
}

} // namespace

const std::string_view ScanDiagnostics::usageText =
    "Usage: Tidyro --diagnose-scan <folder>\n"
    "       Tidyro --diagnose-find <folder>        Queries are read line by line\n"
    "       Tidyro --diagnose-duplicates <folder>\n"
    "Tells how long each phase takes. Nothing is moved or deleted.";

std::optional<std::expected<ScanDiagnostics::Request, std::string_view>>
ScanDiagnostics::parse(std::span<const std::string> arguments, std::string_view home) {
    // What follows "--cli" is the command line's own: a query may read like a switch.
    const auto end = std::ranges::find(arguments, "--cli");
    for (auto at = arguments.begin(); at != end; ++at) {
        const auto found = std::ranges::find(switches, std::string_view(*at),
                                             &std::pair<std::string_view, Subject>::first);
        if (found == switches.end()) continue;
        const bool hasFolder =
            arguments.end() - at == 2 && !at[1].empty() && !at[1].starts_with('-');
        if (!hasFolder) return std::unexpected(usageText);
        return Request{.subject = found->second, .folder = folderArgument(at[1], home)};
    }
    return std::nullopt;
}

int ScanDiagnostics::run(const Request& request, const Surroundings& surroundings) {
    return DiagnosticRun(request, surroundings)();
}

void ScanDiagnostics::runIfAsked(std::span<const std::string> arguments) {
    const auto parsed = parse(arguments, platform::homeFolder().path());
    if (!parsed) return;
    platform::OutputLines lines;
    int status = CommandLineMode::malformed;
    if (*parsed) {
        status = lines.ending(
            run(**parsed, {.write = [&](std::string_view text) { lines.write(text); },
                           .read = lineOfInput,
                           .escapesNames = platform::isTerminal(platform::Stream::output)}));
    } else {
        static_cast<void>(
            platform::writeAll(platform::Stream::error, fmt::format("{}\n", parsed->error())));
    }
    // No thread of ours runs by now.
    std::exit(status); // NOLINT(concurrency-mt-unsafe)
}

} // namespace tidyro
