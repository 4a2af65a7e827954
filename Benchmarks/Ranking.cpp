// Tells how often a search puts what was meant first.
//
//     Ranking LIST...
//
// A list is a text of lines. Empty lines and those that begin with "#" are passed over; in all
// others a word tells what the rest of the line is:
//
//     fixture NAME    begins a new disk, whose paths compete with one another
//     path PATH       a file there; a folder when it ends in "/". Folders above come by themselves
//     program PATH    a file that can be run
//     here PATH       the folder that one works in, for the queries that follow; alone: none
//     query TEXT      what is typed
//     right PATH      what may be meant by the query before; one or more of them
//
// For each list: the share of queries with a right path first, and among the first three, and each
// query that has no right path first.

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Rooms/Find/Services/Index/FindIndex.h"
#include "Rooms/Find/Services/Index/FindIndexStorage.h"
#include "Rooms/Find/Services/Search/FindSearchEngine.h"

namespace {

using namespace tidyro;

struct Query {
    std::string text;
    std::string here;
    std::vector<std::string> right;
};

/// A disk and what is asked of it.
class Fixture {
  public:
    std::string name;
    std::vector<Query> queries;

    void add(std::string_view path, FindObjectType type) {
        if (path.ends_with('/')) {
            path.remove_suffix(1);
            type = FindObjectType::directory;
        }
        if (path.empty() || !known_.insert(std::string(path)).second) return;
        const std::size_t slash = path.rfind('/');
        const std::string folder(path.substr(0, slash));
        if (!folder.empty()) add(folder, FindObjectType::directory);
        folders_[folder].push_back({.name = std::string(path.substr(slash + 1)), .type = type});
    }

    [[nodiscard]] FindIndexStorage storage() const {
        FindIndexStorage made("/");
        made.appendRoot("/", 0);
        std::vector<std::string> open{""};
        for (std::size_t next = 0; next < open.size(); ++next) {
            const std::string folder = open[next];
            const auto items = folders_.find(folder);
            if (items == folders_.end()) continue;
            FindDirectoryListing listing;
            for (const Item& item : items->second) {
                const bool isProgram = item.type == FindObjectType::other;
                listing.append({.name = item.name,
                                .type = isProgram ? FindObjectType::file : item.type,
                                .size = 1'000,
                                .mtime = 1'700'000'000,
                                .bsdFlags = isProgram ? FindDirectoryListing::programFlag : 0});
                open.push_back(folder + "/" + item.name);
            }
            made.appendBlock(made.lookup(folder.empty() ? "/" : folder).value_or(0), listing);
        }
        return made;
    }

  private:
    struct Item {
        std::string name;
        FindObjectType type; ///< `other` for a program
    };
    std::map<std::string, std::vector<Item>> folders_;
    std::set<std::string> known_;
};

std::vector<Fixture> fixturesOf(const char* list) {
    std::vector<Fixture> fixtures;
    std::ifstream file(list);
    std::string here;
    std::size_t number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        if (line.empty() || line.starts_with('#')) continue;
        const std::size_t blank = std::min(line.find(' '), line.size());
        const std::string word = line.substr(0, blank);
        const std::string rest = line.substr(std::min(blank + 1, line.size()));
        const bool hasFixture = !fixtures.empty();
        if (word == "fixture") {
            fixtures.emplace_back().name = rest;
            here.clear();
        } else if (hasFixture && word == "path") {
            fixtures.back().add(rest, FindObjectType::file);
        } else if (hasFixture && word == "program") {
            fixtures.back().add(rest, FindObjectType::other);
        } else if (hasFixture && word == "here") {
            here = rest;
        } else if (hasFixture && word == "query") {
            fixtures.back().queries.push_back({.text = rest, .here = here, .right = {}});
        } else if (hasFixture && word == "right" && !fixtures.back().queries.empty()) {
            fixtures.back().queries.back().right.push_back(rest);
        } else {
            std::fprintf(stderr, "%s:%zu: not understood\n", list, number);
        }
    }
    return fixtures;
}

struct Tally {
    std::size_t queries = 0;
    std::size_t first = 0;
    std::size_t amongThree = 0;
};

void ask(const Query& query, const FindIndex& index, const Fixture& fixture, Tally& tally) {
    constexpr std::size_t few = 3;
    const auto storage = index.storage();
    for (const std::string& right : query.right) {
        if (!storage->lookup(right)) {
            std::fprintf(stderr, "%s is not in %s\n", right.c_str(), fixture.name.c_str());
        }
    }
    const auto found = FindSearchEngine().search(
        query.text, {.in = index, .limit = few, .now = Timestamp(), .workingFolder = query.here});
    std::size_t place = 0;
    while (place < found.hits.size() &&
           std::ranges::find(query.right, storage->path(found.hits[place])) == query.right.end()) {
        ++place;
    }
    ++tally.queries;
    if (place < found.hits.size()) ++tally.amongThree;
    if (place == 0 && !found.hits.empty()) {
        ++tally.first;
        return;
    }
    std::printf("  %s: \"%s\"", fixture.name.c_str(), query.text.c_str());
    for (const auto hit : found.hits) std::printf("  %s", storage->path(hit).c_str());
    std::printf("\n");
}

} // namespace

int main(int count, char** arguments) {
    if (count < 2) {
        std::fputs("Ranking LIST...\n", stderr);
        return 64;
    }
    for (int i = 1; i < count; ++i) {
        std::printf("%s\n", arguments[i]);
        Tally tally;
        for (const Fixture& fixture : fixturesOf(arguments[i])) {
            FindIndex index;
            index.replace(fixture.storage(), {});
            for (const Query& query : fixture.queries) ask(query, index, fixture, tally);
        }
        if (tally.queries == 0) return 1;
        const auto share = [&tally](std::size_t of) {
            return static_cast<double>(of) / static_cast<double>(tally.queries);
        };
        std::printf("%zu queries: %.2f first, %.2f among three\n", tally.queries,
                    share(tally.first), share(tally.amongThree));
    }
    return 0;
}
