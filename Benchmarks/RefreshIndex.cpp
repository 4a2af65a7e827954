// Compares refreshing an index with building it, in one run:
//
//     RefreshIndex FOLDER [CHANGES]
//
// With CHANGES it makes ten files in each of so many folders, refreshes, and removes them again.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "Base/Stopwatch.h"
#include "Platform/Machine/LargeBlocks.h"
#include "Rooms/Find/Services/Refreshing/FindIndexService.h"
#include "Rooms/Find/Services/Saving/FindIndexPersistence.h"

namespace {

using namespace tidyro;

constexpr int rounds = 5;

/// Median milliseconds of some rounds.
template <class Work>
double median(Work work) {
    std::vector<double> times;
    times.reserve(rounds);
    for (int round = 0; round < rounds; ++round) {
        const Stopwatch watch;
        work();
        times.push_back(watch.milliseconds());
    }
    std::ranges::sort(times);
    return times[rounds / 2];
}

void need(bool isDone, const char* what) {
    if (isDone) return;
    std::fprintf(stderr, "%s failed.\n", what);
    std::exit(1); // NOLINT(concurrency-mt-unsafe): there is one thread
}

FindIndexService serviceOf(const std::string& folder, const FileURL& file) {
    return FindIndexService({.rootPath = folder, .file = file});
}

void compareChanges(const std::string& folder, const FileURL& file, std::size_t count,
                    double building) {
    FindIndexService service = serviceOf(folder, file);
    need(service.open(Timestamp::now()).has_value(), "opening");
    need(service.refresh().has_value(), "refreshing");
    const FindIndex::Storage before = service.index().storage();
    std::vector<std::string> made;
    made.reserve(count * 10);
    const std::size_t step = std::max<std::size_t>(before->folderStamps.rows.size() / count, 1);
    for (std::size_t row = 0; row < before->folderStamps.rows.size(); row += step) {
        const std::string path = before->path(before->folderStamps.rows[row].folder);
        for (int i = 0; i < 10; ++i) {
            made.push_back(fmt::format("{}/tidyro-benchmark-{}", path, i));
            std::ofstream(made.back()) << i;
        }
    }
    const Stopwatch watch;
    const auto refreshed = service.refresh();
    const double milliseconds = watch.milliseconds();
    need(refreshed.has_value(), "refreshing");
    std::size_t missing = 0;
    for (const std::string& path : made) {
        missing += service.index().storage()->lookup(path) ? 0U : 1U;
        std::filesystem::remove(path);
    }
    std::printf("%zu changes: refresh %.1f ms, %.3f of a build, %zu missing, %jd read\n",
                made.size(), milliseconds, milliseconds / building, missing,
                std::intmax_t{refreshed->read});
}

} // namespace

int main(int count, char** arguments) {
    if (count < 2) {
        std::fputs("RefreshIndex FOLDER [CHANGES]\n", stderr);
        return 64;
    }
    platform::giveLargeBlocksBack(); // as the program does
    const std::string folder = arguments[1];
    std::string place = (std::filesystem::temp_directory_path() / "tidyro-XXXXXX").string();
    need(::mkdtemp(place.data()) != nullptr, "a folder for the index");
    const FileURL file = FileURL::file(place + "/name-index-v1.bin");
    FindIndexService service = serviceOf(folder, file);
    const double building = median([&] { need(service.build().has_value(), "building"); });
    need(service.save(Timestamp::now()).has_value(), "saving");
    const double refreshing = median([&] { need(service.refresh().has_value(), "refreshing"); });
    const double answering = median([&] {
        FindIndexService opened = serviceOf(folder, file);
        need(opened.open(Timestamp::now()).has_value(), "opening");
        need(opened.refresh().has_value(), "refreshing");
        FindSearchEngine engine;
        const auto answer =
            opened.search(engine, "readme", {.in = opened.index(), .now = Timestamp::now()});
        need(!answer.found.wasCancelled, "searching");
    });
    const double opening = median([&] {
        FindIndexService opened = serviceOf(folder, file);
        need(opened.open(Timestamp::now()).has_value(), "opening");
        FindSearchEngine engine;
        const auto found =
            engine.search("readme", {.in = opened.index(), .limit = 500, .now = Timestamp::now()});
        need(!found.wasCancelled, "searching");
    });
    const double plainly = median([&] {
        auto opened = FindIndexPersistence::read(file);
        need(opened.has_value(), "opening");
        FindIndex index;
        index.replace(std::move(opened->storage), opened->metadata);
        FindSearchEngine engine;
        const auto found =
            engine.search("readme", {.in = index, .limit = 500, .now = Timestamp::now()});
        need(!found.wasCancelled, "searching");
    });
    std::printf("%ju entries, %zu folders\n", std::uintmax_t{service.index().storage()->count()},
                service.index().storage()->folderStamps.rows.size());
    std::printf("build %.1f ms, refresh %.1f ms, %.3f of a build\n", building, refreshing,
                refreshing / building);
    std::printf(
        "open and answer %.1f ms, %.2f of opening without the pair; with a refresh %.1f ms\n",
        opening, opening / plainly, answering);
    if (count > 2) {
        compareChanges(folder, file, std::strtoul(arguments[2], nullptr, 10), building);
    }
    std::filesystem::remove_all(place);
    return 0;
}
