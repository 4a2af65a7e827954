#include "App/ScanDiagnostics.h"

#include <algorithm>
#include <iostream>
#include <ranges>
#include <utility>
#include <vector>

#include "Base/JSONText.h"
#include "Base/RoomText.h"
#include "Base/Stopwatch.h"
#include "Base/Timestamp.h"
#include "Platform/Folders/WellKnownFolders.h"
#include "Platform/Terminal/StandardStreams.h"
#include "Rooms/Activity/FolderSnapshot.h"
#include "Rooms/Duplicates/Search/DuplicateEngine.h"
#include "Rooms/Find/Services/Building/FindIndexBuilder.h"
#include "Rooms/Find/Services/Index/FindIndex.h"
#include "Rooms/Find/Services/Refreshing/FindIndexService.h"
#include "Rooms/Find/Services/Saving/FindIndexPersistence.h"
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
          request_(request),
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
        FindIndexService service({.rootPath = folder_.path(), .file = indexFile()});
        if (!openSaved(service)) {
            const Stopwatch watch;
            if (const auto built = service.build(); !built) {
                return tellStop(FindIndexBuilder::description(built.error()));
            }
            tellPhase("build", watch, names(service.index()));
            save(service);
        }
        FindSearchEngine engine;
        engine.prepare(service.index());
        while (const auto query = inputs_.nextQuery()) answer(engine, *query, service);
        return ExitStatus::succeeded;
    }

    /// Opens the saved index and makes it true. False when it is of no use for this folder; a line
    /// then says why, unless there is none.
    [[nodiscard]] bool openSaved(FindIndexService& service) const {
        const Stopwatch watch;
        const Timestamp now = Timestamp::now();
        if (const auto opened = service.open(now); !opened) {
            if (!opened.error().empty()) tellPhase("open", watch, shown(opened.error()));
            return false;
        }
        tellPhase("open", watch,
                  fmt::format("{}, {} old, from {}", names(service.index()),
                              hoursSince(service.index().metadata().builtAt),
                              shown(indexFile().path())));
        return request_.isAsIs || refresh(service);
    }

    [[nodiscard]] bool refresh(FindIndexService& service) const {
        const Stopwatch watch;
        const auto refreshed = service.refresh([&](const FindIndexRefresh::Progress& progress) {
            if (!inputs_.showProgress) return;
            inputs_.showProgress(RoomText::counted(static_cast<std::uint64_t>(progress.lookedAt),
                                                   "folder", "folders") +
                                 " looked at");
        });
        if (!refreshed) {
            tellPhase("refresh", watch, FindIndexRefresh::description(refreshed.error()));
            return false;
        }
        tellPhase("refresh", watch,
                  fmt::format("{}, {} read again, {}",
                              RoomText::counted(static_cast<std::uint64_t>(refreshed->lookedAt),
                                                "folder", "folders"),
                              refreshed->read, names(service.index())));
        if (refreshed->isWorthSaving) save(service);
        return true;
    }

    void save(FindIndexService& service) const {
        const Stopwatch watch;
        const auto saved = service.save(Timestamp::now());
        const std::string file = indexFile().path();
        tellPhase("save", watch,
                  shown(saved ? file : file + ".partial: " + saved.error().description()));
    }

    [[nodiscard]] FindIndexService::Answer search(FindSearchEngine& engine,
                                                  const std::string& query,
                                                  FindIndexService& service,
                                                  std::size_t limit) const {
        const FindSearchEngine::Question question{
            .in = service.index(), .limit = limit, .now = Timestamp::now()};
        if (request_.isAsIs) return {.found = engine.search(query, question)};
        return service.search(engine, query, question);
    }

    void answer(FindSearchEngine& engine, const std::string& query,
                FindIndexService& service) const {
        if (request_.listing) return list(engine, query, service, *request_.listing);
        constexpr std::size_t maxHits = 500;
        const Stopwatch watch;
        const FindIndexService::Answer answer = search(engine, query, service, maxHits);
        const FindSearchResult& found = answer.found;
        const double milliseconds = watch.milliseconds();
        line("\"{}\": {} in {} ms", shown(query),
             RoomText::counted(found.matchCount, "match", "matches"), decimal(milliseconds, 3));
        for (const std::string& note : notesOn(answer)) line("  {}", shown(note));
        const FindIndex::Storage storage = service.index().storage();
        for (const std::uint32_t hit : found.hits | std::views::take(maxHitsShown)) {
            line("  {}", shown(storage->path(hit)));
        }
    }

    void list(FindSearchEngine& engine, const std::string& query, FindIndexService& service,
              const ScanDiagnostics::Request::Listing& listing) const {
        // In any other order than the search's, the first ones are only known among all.
        const std::size_t all = service.index().storage()->count();
        const bool isBest = listing.order == FindHitOrder::best;
        const std::size_t limit = listing.limit.value_or(all);
        FindIndexService::Answer answer = search(engine, query, service, isBest ? limit : all);
        for (const std::string& note : notesOn(answer)) {
            if (inputs_.showNote) inputs_.showNote(note);
        }
        const FindIndex::Storage storage = service.index().storage();
        std::vector<std::uint32_t>& hits = answer.found.hits;
        FindHitListing::sort(*storage, hits, listing.order);
        TextInPieces text(write);
        for (const std::uint32_t hit : hits | std::views::take(limit)) {
            if (listing.form == FindHitForm::line) {
                text.append(shown(storage->path(hit))).append("\n");
            } else {
                text.append(FindHitListing::text(*storage, hit, listing.form));
            }
        }
        text.end();
    }

    [[nodiscard]] static std::vector<std::string> notesOn(const FindIndexService::Answer& answer) {
        std::vector<std::string> notes;
        if (answer.found.problem) notes.push_back(*answer.found.problem);
        if (answer.sizesAsOf) {
            notes.push_back("Sizes and dates of files are " + hoursSince(*answer.sizesAsOf) +
                            " old.");
        }
        return notes;
    }

    [[nodiscard]] static std::string hoursSince(Timestamp then) {
        const double age = Timestamp::now().secondsSince1970() - then.secondsSince1970();
        return decimal(std::max(age, 0.0) / 3'600, 1) + " h";
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
        if (request_.listing) return; // scripts read it
        line("{:<16} {:>9} s{}{}", name, decimal(seconds, 4), result.empty() ? "" : "  ", result);
    }

    FileURL folder_;
    Subject subject_;
    const ScanDiagnostics::Request& request_;
    const ScanDiagnostics::FindInputs& inputs_;
};

void noteOnErrorStream(std::string_view text) {
    static_cast<void>(platform::writeAll(platform::Stream::error, fmt::format("{}\n", text)));
}

/// Reads what follows the folder of `find`. False when it makes no sense.
bool readFindOptions(ArgumentReader& reader, ScanDiagnostics::Request& request) {
    ScanDiagnostics::Request::Listing listing;
    while (const auto argument = reader.next()) {
        if (*argument == "--as-is") {
            request.isAsIs = true;
            continue;
        }
        if (*argument == "--list") {
            listing.form = FindHitForm::line;
        } else if (*argument == "--print0") {
            listing.form = FindHitForm::zeroEnded;
        } else if (*argument == "--json") {
            listing.form = FindHitForm::json;
        } else if (*argument == "--limit") {
            listing.limit = reader.nextNumber<std::uint64_t>();
            if (!listing.limit) return false;
        } else if (*argument == "--sort") {
            const auto order = fromRawValue<FindHitOrder>(reader.next().value_or(""));
            if (!order) return false;
            listing.order = *order;
        } else {
            return false;
        }
        request.listing = listing;
    }
    return true;
}

std::optional<std::string> readLineOfInput() {
    std::string line;
    if (!std::getline(std::cin, line)) return std::nullopt;
    return line;
}

/// Somebody who waits at a terminal sees it; a file of results does not.
void showOnTerminal(std::string_view text) {
    if (!platform::isTerminal(platform::Stream::error)) return;
    static_cast<void>(platform::writeAll(platform::Stream::error, fmt::format("{}\n", text)));
}

} // namespace

const std::string_view ScanDiagnostics::usageText =
    "Usage: Tidyro --diagnose-scan <folder>\n"
    "       Tidyro --diagnose-find <folder> [--as-is] [--list | --print0 | --json] [--limit N]\n"
    "              [--sort best|name|path|size|date]\n"
    "                                              Queries are read line by line. With --as-is\n"
    "                                              nothing is compared with the disk. --list and\n"
    "                                              the others write all that matched\n"
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
    if (!subject || !isFolder) return CommandLineUsage{usageText};
    Request request{.subject = *subject, .folder = folderArgument(folder, home)};
    const bool isWellFormed =
        *subject == Subject::find ? readFindOptions(*reader, request) : !reader->next();
    if (!isWellFormed) return CommandLineUsage{usageText};
    return request;
}

int ScanDiagnostics::run(const Request& request, const TextOutput& output,
                         const FindInputs& inputs) {
    return DiagnosticsRun(request, output, inputs)();
}

void ScanDiagnostics::runIfAsked(ArgumentReader::Arguments arguments) {
    runAndExit(parse(arguments, platform::homeFolder().path()),
               [](const Request& request, const TextOutput& output) {
                   return run(request, output,
                              {.nextQuery = readLineOfInput,
                               .showProgress = showOnTerminal,
                               .showNote = noteOnErrorStream});
               });
}

} // namespace tidyro
