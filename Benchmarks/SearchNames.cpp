// Searches very many real names, those of a folder repeated with changes, and tells how long each
// query takes in the open index on one thread.
//
//     SearchNames FOLDER NAMES [--paths FILE] [--fresh] [QUERY]...
//
// Each query: its matches, the time of the first answer, the median and the best of all, by an
// engine that has not answered the query before it. `--paths` writes the paths, one a line, so
// that other programs can search the same names. `--fresh` asks each time as an engine answers that
// has prepared nothing. Without queries those of the product's own figures
// are asked.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "Rooms/Find/Services/Building/FindIndexBuilder.h"
#include "Rooms/Find/Services/Index/FindIndex.h"
#include "Rooms/Find/Services/Index/FindIndexStorage.h"
#include "Rooms/Find/Services/Search/FindSearchEngine.h"

namespace {

using namespace tidyro;
using Entry = FindIndexStorage::Entry;

/// The time that this thread had a processor for: a search runs on one thread, and what others do
/// meanwhile is not its time.
double millisecondsOfThread() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

/// The name as it is in one of the copies: its digits turned on, one of its letters another one.
std::string changed(std::string_view name, unsigned copy) {
    std::string text(name);
    if (copy == 0) return text;
    const std::size_t place = (text.size() * 7 + std::size_t{copy} * 5) % text.size();
    for (std::size_t i = 0; i < text.size(); ++i) {
        char& byte = text[i];
        if (byte >= '0' && byte <= '9') {
            byte = static_cast<char>('0' + (static_cast<unsigned>(byte - '0') + copy) % 10);
        }
        if (i == place && byte >= 'a' && byte <= 'z') {
            byte = static_cast<char>('a' + (static_cast<unsigned>(byte - 'a') + copy) % 26);
        }
    }
    return text;
}

/// The tree again and again, each copy in a folder of its own, until there are enough names.
FindIndexStorage repeated(const FindIndexStorage& tree, std::size_t names) {
    FindIndexStorage storage(tree.rootPath);
    storage.appendRoot(tree.rootPath, 0);
    const auto copies = static_cast<unsigned>((names + tree.count() - 1) / tree.count());
    FindDirectoryListing listing;
    for (unsigned copy = 0; copy < copies; ++copy) {
        listing.append({.name = "copy " + std::to_string(copy), .type = FindObjectType::directory});
    }
    const Entry first = storage.appendBlock(0, listing);
    for (unsigned copy = 0; copy < copies; ++copy) {
        std::vector<std::pair<Entry, Entry>> open{{0, first + copy}}; // of the tree, of the copy
        for (std::size_t next = 0; next < open.size() && storage.count() < names; ++next) {
            listing.clear();
            std::vector<Entry> from;
            tree.visitChildren(open[next].first, [&](Entry child) {
                const bool isFolder = tree.is(child, findflag::folder);
                from.push_back(child);
                listing.append({.name = changed(tree.name(child), copy),
                                .type = isFolder ? FindObjectType::directory : FindObjectType::file,
                                .size = isFolder ? 0 : tree.size(child),
                                .mtime = tree.mtime[child]});
                return storage.count() + from.size() < names;
            });
            const Entry block = storage.appendBlock(open[next].second, listing);
            for (std::size_t i = 0; i < from.size(); ++i) {
                if (tree.is(from[i], findflag::folder)) {
                    open.emplace_back(from[i], block + static_cast<Entry>(i));
                }
            }
        }
    }
    storage.aggregateFolderSizes();
    return storage;
}

void writePaths(const FindIndexStorage& storage, const char* to) {
    std::FILE* file = std::fopen(to, "w");
    if (file == nullptr) return std::perror(to);
    for (Entry entry = 1; entry < storage.count(); ++entry) {
        std::string line = storage.path(entry) + "\n";
        std::fwrite(line.data(), 1, line.size(), file);
    }
    std::fclose(file);
}

/// What searches use is made beside them: what is measured is an index that is
/// open.
void warmUp(FindSearchEngine& engine, const FindIndex& index) {
    engine.prepare(index);
    std::this_thread::sleep_for(std::chrono::milliseconds(500 + index.storage()->count() / 2'000));
}

/// With an engine of its own for each answer nothing is prepared.
enum class Engines : std::uint8_t { one, fresh };

void measure(FindSearchEngine& prepared, const FindIndex& index, const std::string& query,
             Engines engines) {
    constexpr int rounds = 15;
    std::vector<double> times;
    FindSearchResult found;
    for (int round = 0; round < rounds; ++round) {
        FindSearchEngine fresh;
        FindSearchEngine& engine = engines == Engines::one ? prepared : fresh;
        // What a longer query could use of the one before is gone.
        if (engines == Engines::one)
            (void)engine.search("zqzqz", {.in = index, .now = Timestamp::now()});
        const double begin = millisecondsOfThread();
        found = engine.search(query, {.in = index, .now = Timestamp::now()});
        times.push_back(millisecondsOfThread() - begin);
    }
    const double first = times.front();
    std::sort(times.begin(), times.end());
    std::printf("%8ju  %8.2f ms  %8.2f ms  %8.2f ms  %s%s%s\n", std::uintmax_t{found.matchCount},
                first, times[rounds / 2], times.front(), query.c_str(), found.problem ? "  " : "",
                found.problem ? found.problem->c_str() : "");
}

} // namespace

int main(int count, char** arguments) {
    std::vector<std::string> given(arguments + 1, arguments + count);
    if (given.size() < 2) {
        std::fputs("SearchNames FOLDER NAMES [--paths FILE] [--fresh] [QUERY]...\n", stderr);
        return 64;
    }
    const auto tree = FindIndexBuilder({.rootPath = given[0]}).run();
    if (!tree || tree->count() < 2) {
        std::fputs("The index could not be built.\n", stderr);
        return 1;
    }
    FindIndex index;
    index.replace(repeated(*tree, std::strtoull(given[1].c_str(), nullptr, 10)), {});
    given.erase(given.begin(), given.begin() + 2);
    if (given.size() >= 2 && given[0] == "--paths") {
        writePaths(*index.storage(), given[1].c_str());
        given.erase(given.begin(), given.begin() + 2);
    }
    const bool isFresh = !given.empty() && given[0] == "--fresh";
    if (isFresh) given.erase(given.begin());
    if (given.empty()) {
        given = {"readme",
                 "libstdc",
                 "python3.11",
                 "module",
                 "conf",
                 "lib so",
                 "a",
                 "e",
                 "s",
                 "1",
                 ".",
                 "in",
                 ".py",
                 "test py",
                 "bin bash",
                 "share doc readme",
                 "in re",
                 "a e",
                 "zzz",
                 "*.so",
                 "lib*.h",
                 "usr/share",
                 "path:python",
                 "ext:png;jpg",
                 "a OR b",
                 "-a",
                 "word:readme",
                 "case:README",
                 "kind:image",
                 "in:share",
                 "size:>1mb",
                 "regex:^lib.*\\.so$",
                 "regex:libstdc",
                 "regex:[0-9]{4}",
                 "regex:^[a-z]+$",
                 "regex:(foo|bar)[0-9]",
                 "regex:."};
    }
    std::printf("%ju names\n matches        first       median         best  query\n",
                std::uintmax_t{index.storage()->count()});
    FindSearchEngine engine;
    if (!isFresh) warmUp(engine, index);
    const auto engines = isFresh ? Engines::fresh : Engines::one;
    for (const std::string& query : given) measure(engine, index, query, engines);
    return 0;
}
