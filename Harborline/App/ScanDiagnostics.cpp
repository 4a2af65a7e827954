#include "App/ScanDiagnostics.h"

#include <algorithm>
#include <iostream>
#include <ranges>
#include <utility>
#include <vector>

#include "Base/RoomText.h"
#include "Base/Stopwatch.h"
#include "Base/Timestamp.h"
#include "Platform/Folders/WellKnownFolders.h"
#include "Rooms/Activity/FolderSnapshot.h"
#include "Rooms/Duplicates/Search/DuplicateEngine.h"
#include "Rooms/Find/Services/Building/FindIndexBuilder.h"
#include "Rooms/Find/Services/Index/FindIndex.h"
#include "Rooms/Find/Services/Saving/FindIndexPair.h"
#include "Rooms/Find/Services/Search/FindSearchEngine.h"
#include "StorageEngine/DiskTree/DiskTreeScanner.h"
#include "StorageEngine/Sorting/DiskSorting.h"

namespace tidyro {

namespace {

using Subject = ScanDiagnostics::Subject;

constexpr std::size_t maxHitsShown = 5;

/// Measures what one request asks for.
class DiagnosticsRun : private TextOutput {
  public:
    DiagnosticsRun(const ScanDiagnostics::Request& request, const TextOutput& output,
                   const ScanDiagnostics::FindInputs& inputs)
        : TextOutput(output),
          folder_(FileURL::folder(request.folder)),
          subject_(request.subject),
          inputs_(inputs) {}

    [[nodiscard]] int operator()() const {
        if (!confirmFolder(folder_.path())) return ExitStatus::noFolder;
        switch (subject_) {
        case Subject::scan: return scan();
        case Subject::find: return find();
        case Subject::duplicates: return duplicates();
        }
        return ExitStatus::succeeded;
    }

  private:
    [[nodiscard]] int scan() const {
        const Stopwatch watch;
        const auto tree = DiskTreeScanner().scan(folder_);
        if (!tree) return tellStop(DiskTreeScanner::description(tree.error()));
        tellPhase("read", watch,
                  RoomText::counted(static_cast<std::uint64_t>(tree->count()), "item", "items"));
        measure("rank the largest", [&] {
            const auto largest = tree->largestFiles({.limit = 10, .onDisk = true});
            return RoomText::counted(largest.size(), "file", "files");
        });
        measure("sort into groups", [&] {
            const DiskSorting sorting(*tree, ProjectFolderJudge::live(),
                                      DiskSorting::Options::current());
            std::size_t items = 0;
            for (const DiskGroup group : allCases<DiskGroup>())
                items += sorting.items(group).size();
            return RoomText::counted(items, "item", "items");
        });
        measure("make a snapshot", [&] {
            const FolderSnapshot snapshot = FolderSnapshot::take(*tree, {.onDisk = true});
            return RoomText::counted(snapshot.folders.size(), "folder", "folders");
        });
        return ExitStatus::succeeded;
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
        if (!report) return tellStop(DuplicateEngine::description(report.error()));
        for (std::size_t i = 0; i < begun.size(); ++i) {
            const double until = i + 1 < begun.size() ? begun[i + 1].at : end;
            tellPhase(rawValue(begun[i].phase), until - begun[i].at, "");
        }
        tellPhase("all", end, RoomText::counted(report->groups.size(), "set", "sets"));
        return ExitStatus::succeeded;
    }

    [[nodiscard]] int find() const {
        FindIndex index;
        if (!openSaved(index)) {
            const Stopwatch watch;
            auto storage = FindIndexBuilder({.rootPath = folder_.path()}).run();
            if (!storage) return tellStop(FindIndexBuilder::description(storage.error()));
            const Timestamp now = Timestamp::now();
            index.replace(*std::move(storage), {.builtAt = now, .savedAt = now});
            tellPhase("build", watch, names(index));
            save(index);
        }
        FindSearchEngine engine;
        engine.prepare(index);
        while (const auto query = inputs_.nextQuery()) answer(engine, *query, index);
        return ExitStatus::succeeded;
    }

    /// Opens the saved index. False when it is of no use for this folder; a line then says why,
    /// unless there is none.
    [[nodiscard]] bool openSaved(FindIndex& index) const {
        const Stopwatch watch;
        auto saved = FindIndexPair::read(indexFile());
        const std::string file = shown(indexFile().path());
        if (!saved) {
            const bool isThere =
                !std::holds_alternative<FindIndexPersistenceError::Unreadable>(saved.error().kind);
            if (isThere) tellPhase("open", watch, file + ": " + saved.error().description());
            return false;
        }
        if (saved->storage.rootPath != folder_.path()) {
            tellPhase("open", watch, file + " is the index of " + shown(saved->storage.rootPath));
            return false;
        }
        index.replace(std::move(saved->storage), saved->metadata);
        const double age =
            Timestamp::now().secondsSince1970() - saved->metadata.builtAt.secondsSince1970();
        tellPhase("open", watch,
                  fmt::format("{}, {} h old, from {}", names(index),
                              decimal(std::max(age, 0.0) / 3'600, 1), file));
        return true;
    }

    void save(const FindIndex& index) const {
        const Stopwatch watch;
        const auto saved =
            FindIndexPair::write(*index.storage(), index.metadata(), indexFile());
        const std::string file = indexFile().path();
        tellPhase("save", watch,
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
        for (const std::uint32_t hit : found.hits | std::views::take(maxHitsShown)) {
            line("  {}", shown(storage->path(hit)));
        }
    }

    [[nodiscard]] FileURL indexFile() const {
        return inputs_.indexFile.value_or(FindIndexPersistence::defaultURL());
    }
    [[nodiscard]] static std::string names(const FindIndex& index) {
        const FindIndexSummary summary = index.summary();
        const auto closed = static_cast<std::uint64_t>(summary.unreadableFolderCount);
        return RoomText::counted(static_cast<std::uint64_t>(summary.itemCount), "name", "names") +
               (closed == 0 ? ""
                            : ", " + RoomText::counted(closed, "closed folder", "closed folders"));
    }

    template <class Work>
    void measure(std::string_view name, Work work) const {
        const Stopwatch watch;
        const std::string result = work();
        tellPhase(name, watch, result);
    }
    void tellPhase(std::string_view name, const Stopwatch& watch, std::string_view result) const {
        tellPhase(name, watch.seconds(), result);
    }
    void tellPhase(std::string_view name, double seconds, std::string_view result) const {
        line("{:<16} {:>9} s{}{}", name, decimal(seconds, 4), result.empty() ? "" : "  ", result);
    }

    FileURL folder_;
    Subject subject_;
    const ScanDiagnostics::FindInputs& inputs_;
};

std::optional<std::string> readLineOfInput() {
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

CommandLineParse<ScanDiagnostics::Request>
ScanDiagnostics::parse(ArgumentReader::Arguments arguments, std::string_view home) {
    auto reader = ArgumentReader::behind(
        {rawValue(Subject::scan), rawValue(Subject::find), rawValue(Subject::duplicates)},
        arguments);
    if (!reader) return CommandLineNotRequested{};
    const auto subject = fromRawValue<Subject>(reader->foundSwitch());
    const std::string folder = reader->next().value_or("");
    const bool isFolder = !folder.empty() && !folder.starts_with('-');
    if (!subject || !isFolder || reader->next()) return CommandLineUsage{usageText};
    return Request{.subject = *subject, .folder = folderArgument(folder, home)};
}

int ScanDiagnostics::run(const Request& request, const TextOutput& output,
                         const FindInputs& inputs) {
    return DiagnosticsRun(request, output, inputs)();
}

void ScanDiagnostics::runIfAsked(ArgumentReader::Arguments arguments) {
    runAndExit(parse(arguments, platform::homeFolder().path()),
               [](const Request& request, const TextOutput& output) {
                   return run(request, output, {.nextQuery = readLineOfInput});
               });
}

} // namespace tidyro
