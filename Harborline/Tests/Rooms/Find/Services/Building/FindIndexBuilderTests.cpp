// Indexes of real trees.
#include "Rooms/Find/Services/Building/FindIndexBuilder.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <map>
#include <mutex>
#include <set>
#include <stop_token>
#include <utility>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Rooms/Find/Services/Building/FindDirectoryReader.h"
#include "Rooms/Find/Services/Building/FindIndexWalk.h"
#include "Support/OtherCircumstances.h"

namespace tidyro {
namespace {

using ::testing::ElementsAre;
using testing::TemporaryFolder;
using Entry = FindIndexStorage::Entry;

/// Path below the root, and what is known of the entry.
using Facts = std::map<std::string, std::string>;

std::string fact(char type, std::uint64_t size, std::int64_t modified) {
    return fmt::format("{} {} {}", type, size, modified);
}

/// What a plain walk sees; returns the bytes below the folder.
std::uint64_t addPlain(const std::string& root, const std::string& below, Facts& facts) {
    std::uint64_t total = 0;
    for (const auto& each : std::filesystem::directory_iterator(root + below)) {
        const std::string path = below + "/" + each.path().filename().string();
        struct stat status{};
        EXPECT_EQ(::lstat((root + path).c_str(), &status), 0);
        const bool isFolder = S_ISDIR(status.st_mode);
        const std::uint64_t size =
            isFolder ? addPlain(root, path, facts) : static_cast<std::uint64_t>(status.st_size);
        facts[path] = fact(isFolder                  ? 'd'
                           : S_ISLNK(status.st_mode) ? 'l'
                                                     : 'f',
                           size, status.st_mtim.tv_sec);
        total += size;
    }
    return total;
}

/// What an index says, its entries' order and blocks tried on the way. Deleted entries left out.
Facts factsOf(const FindIndexStorage& storage) {
    Facts facts;
    std::set<Entry> inBlocks{0};
    for (Entry entry = 0; entry < storage.count(); ++entry) {
        for (const Entry child : storage.children(entry)) {
            EXPECT_EQ(storage.parent[child], entry);
            EXPECT_TRUE(inBlocks.insert(child).second);
        }
        EXPECT_EQ(storage.foldedEntries[entry], entry);
        if (entry == 0 || storage.isDeletedOrInside(entry)) continue;
        EXPECT_LT(storage.parent[entry], entry);
        EXPECT_EQ(storage.depth[entry], std::min(storage.depth[storage.parent[entry]] + 1, 255));
        const char type = storage.is(entry, findflag::folder)    ? 'd'
                          : storage.is(entry, findflag::symlink) ? 'l'
                                                                 : 'f';
        const std::string path = storage.path(entry).substr(storage.rootPath.size());
        EXPECT_TRUE(
            facts.emplace(path, fact(type, storage.size(entry), storage.mtime[entry])).second)
            << path;
    }
    EXPECT_EQ(inBlocks.size(), storage.count());
    EXPECT_EQ(storage.foldedThrough, storage.count());
    return facts;
}

FindIndexStorage built(FindIndexBuilder::Options options) {
    auto storage = FindIndexBuilder(std::move(options)).run();
    EXPECT_TRUE(storage.has_value());
    return storage ? *std::move(storage) : FindIndexStorage("");
}

std::set<std::string> pathsOf(const FindIndexStorage& storage) {
    std::set<std::string> paths;
    for (const auto& [path, fact] : factsOf(storage)) paths.insert(path);
    return paths;
}

FolderWalk::Options walkOf(const std::string& path, std::size_t workers) {
    return {.root = *platform::FolderDescriptor::openRoot(path),
            .rootPath = path,
            .threadName = "test",
            .workerCount = workers};
}

/// A walk whose readings a test takes part in.
std::expected<FindIndexStorage, FindIndexBuilder::Error>
walked(const std::string& path, std::size_t workers, std::function<void()> afterBulkRead,
       FindIndexBuilder::ProgressHandler progress = nullptr) {
    FindIndexWalk walk({.walk = walkOf(path, workers),
                        .progressInterval = 0,
                        .progress = std::move(progress),
                        .afterBulkRead = std::move(afterBulkRead)});
    return walk.run();
}

TEST(FindIndexBuilder, FindsWhatAPlainWalkFindsWithAnyNumberOfWorkers) {
    const TemporaryFolder place;
    for (int i = 0; i < 60; ++i) {
        place.noise(fmt::format("many/{}/of them/{}", i % 7, i), static_cast<std::size_t>(i) * 11);
    }
    // Read in several parts, which are one block all the same.
    for (int i = 0; i < 9'000; ++i) place.file(fmt::format("crowded/a name like others {}", i));
    place.folder("crowded/zzz/inside");
    place.folder("empty/in/empty");
    for (const std::string& odd :
         {std::string("new\nline"), std::string("not utf8 \xFF\xC3"), std::string("\xCC\x81"),
          std::string("\xE2\x80\xAE"
                      "rtl"),
          std::string("\xF0\x9F\x98\x80.txt"), std::string(255, 'n')}) {
        place.file("odd/" + odd, "x");
    }
    place.file("odd/\xC3\x89t\xC3\xA9/inside", "12");
    place.link("a link to a folder", "many");
    place.link("a broken link", "nowhere at all");
    place.pipe("pipe");
    place.socket("socket");
    place.hole("hole", 5'000'000'000);

    Facts plain;
    const std::uint64_t total = addPlain(place.path(), "", plain);
    for (const std::int64_t workers : {0, 1, 2, 4, 12}) {
        const auto storage = built({.rootPath = place.path() + "/", .workerCount = workers});
        EXPECT_EQ(factsOf(storage), plain) << workers;
        EXPECT_EQ(storage.size(0), total);
        EXPECT_EQ(storage.deniedCount, 0);
        EXPECT_EQ(storage.rootPath, place.path());
        const auto folded = storage.lookup(place / "odd/\xC3\x89t\xC3\xA9");
        ASSERT_TRUE(folded);
        EXPECT_EQ(storage.foldedName(*folded), "ete");
    }
}

TEST(FindIndexBuilder, HandsDownWhatFoldersAre) {
    const TemporaryFolder place;
    place.file(".hidden/deep/file");
    place.file("usr/lib/usr/file");
    place.file("home/usr");
    const auto told = [&](const FindIndexStorage& storage) {
        std::string text;
        for (const char* name :
             {".hidden", ".hidden/deep/file", "usr", "usr/lib/usr/file", "home/usr"}) {
            const Entry entry = *storage.lookup(place / name);
            text += fmt::format("{}{}{} ", storage.is(entry, findflag::hidden) ? "h" : "-",
                                storage.is(entry, findflag::system) ? "s" : "-",
                                (storage.kind[entry] & findkind::hiddenItself) != 0 ? "H" : "-");
        }
        return text;
    };
    EXPECT_EQ(told(built({.rootPath = place.path(), .marksSystemFolders = true})),
              "h-H h-- -s- -s- --- ");
    EXPECT_EQ(told(built({.rootPath = place.path()})), "h-H h-- --- --- --- ");
}

TEST(FindIndexBuilder, RefusesARootThatIsNoReadableFolder) {
    using Builder = FindIndexBuilder;
    const TemporaryFolder place;
    place.file("file");
    place.folder("closed");
    place.permissions("closed", 0);
    const auto error = [&](const char* name) {
        return Builder({.rootPath = place / name}).run().error();
    };
    EXPECT_EQ(error("file"), Builder::Error(Builder::NotADirectory{}));
    EXPECT_EQ(error("missing"), Builder::Error(Builder::Unreadable{{ENOENT}}));
    EXPECT_EQ(testing::asOrdinaryUser([&] {
                  return error("closed") == Builder::Error(Builder::Unreadable{{EACCES}}) ? "closed"
                                                                                          : "else";
              }),
              "closed");
}

/// The folders whose contents are not known, by name.
std::string unreadFolders(const FindIndexStorage& storage) {
    std::string names;
    for (std::uint32_t entry = 0; entry < storage.count(); ++entry) {
        if (storage.is(entry, findflag::unread)) names += std::string(storage.name(entry)) + ";";
    }
    return names;
}

TEST(FindIndexBuilder, CountsFoldersThatAreClosed) {
    const TemporaryFolder place;
    for (const char* name : {"open", "closed", "listed only"}) {
        place.file(std::string(name) + "/file", "1234");
    }
    place.times("closed", 77, 77);
    place.permissions("closed", 0);
    place.permissions("listed only", 0444);
    EXPECT_EQ(testing::asOrdinaryUser([&] {
                  const auto storage = built({.rootPath = place.path()});
                  const bool isMarked =
                      storage.is(*storage.lookup(place / "closed"), findflag::unread);
                  return fmt::format("{} denied, {} bytes, {} entries, {}, {}, {}",
                                     storage.deniedCount, storage.size(0), storage.count(),
                                     storage.mtime[*storage.lookup(place / "closed")], isMarked,
                                     unreadFolders(storage).size());
              }),
              "2 denied, 4 bytes, 5 entries, 77, true, 19");
}

TEST(FindIndexBuilder, ReadsTreesDeeperThanAnyPathWithFewOpenFiles) {
    constexpr int levels = 1'000;
    const TemporaryFolder place;
    const std::string name(200, 'd');
    int folder = ::open(place.path().c_str(), O_RDONLY | O_DIRECTORY);
    for (int i = 0; i < levels; ++i) {
        ASSERT_EQ(::mkdirat(folder, name.c_str(), 0755), 0);
        ASSERT_EQ(::mkdirat(folder, "beside", 0755), 0);
        const int next = ::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY);
        ::close(::openat(folder, "beside/file", O_WRONLY | O_CREAT, 0644));
        ::close(std::exchange(folder, next));
    }
    ::close(folder);
    for (const rlim_t openFiles : {24U, 1'024U}) {
        EXPECT_EQ(testing::inChild([&] {
                      const rlimit limit{.rlim_cur = openFiles, .rlim_max = openFiles};
                      if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) return std::string("no limit");
                      const auto storage = built({.rootPath = place.path()});
                      std::size_t longest = 0;
                      for (Entry entry = 0; entry < storage.count(); ++entry) {
                          longest = std::max(longest, storage.path(entry).size());
                      }
                      return fmt::format("{} entries, {} denied, {}", storage.count(),
                                         storage.deniedCount, longest - place.path().size());
                  }),
                  fmt::format("{} entries, 0 denied, {}", 3 * levels + 1, 201 * levels));
    }
}

TEST(FindIndexBuilder, EndsWithFewerOpenFilesThanItsWorkersAskFor) {
    const TemporaryFolder place;
    for (int i = 0; i < 200; ++i) {
        place.file(fmt::format("{}/{}/{}/file", i % 10, i / 10 % 5, i / 50), "1234");
    }
    const auto whole = pathsOf(built({.rootPath = place.path()}));
    for (const auto& [spare, expected] : std::map<unsigned, std::string>{
             {2, "Too many open files"}, // a way of two names takes two besides the root's
             {3, "the same"},
             {6, "the same"},
             {9, "the same"},
             {14, "the same"}}) {
        EXPECT_EQ(testing::inChild([&] {
                      ::alarm(30); // a walk that never ends is a failure, not a wait
                      if (!testing::leaveOpenFiles(spare)) return std::string("no limit");
                      const auto storage =
                          FindIndexBuilder({.rootPath = place.path(), .workerCount = 12}).run();
                      if (!storage) {
                          return std::get<FindIndexBuilder::Unreadable>(storage.error())
                              .error.description();
                      }
                      return std::string(pathsOf(*storage) == whole ? "the same" : "another tree");
                  }),
                  expected)
            << spare;
    }
}

TEST(FindIndexBuilder, LeavesOutWhatItIsToldTo) {
    const TemporaryFolder place;
    for (const char* name : {"a/x/1", "a/xy/2", "b/x/3", "b/deep/er/4", "c/5"}) place.file(name);
    std::vector<FindIndexBuilder::Progress> reports;
    auto options = walkOf(place.path(), 1);
    options.skipping = {place / "a/x", place / "missing", place / "a/", place / "b/deep/er/4",
                        "/elsewhere"};
    options.skippingContentsOf = {place / "b/x/"};
    FindIndexWalk walk({.walk = std::move(options),
                        .progressInterval = 0,
                        .progress = [&](const auto& progress) { reports.push_back(progress); }});
    const auto storage = walk.run();
    ASSERT_TRUE(storage);
    EXPECT_THAT(pathsOf(*storage),
                ElementsAre("/b", "/b/deep", "/b/deep/er", "/b/x", "/c", "/c/5"));
    EXPECT_GT(storage->mtime[*storage->lookup(place / "b/x")], 1'000'000'000U);
    EXPECT_EQ(unreadFolders(*storage), "x;") << "not deep/er, which was read and has nothing left";
    ASSERT_EQ(reports.size(), 6U) << "one for each folder, and the last";
    EXPECT_EQ(reports.back().items, 6);
    EXPECT_EQ(reports.back().folders, 5);
    EXPECT_EQ(reports.back().skipped, 3) << "a, b/deep/er/4 and the contents of b/x";
    EXPECT_EQ(reports.front().currentPath, place.path());

    const auto built =
        FindIndexBuilder(
            {.rootPath = place.path(), .excludedPaths = {place / "a/"}, .skipping = {place / "b"}})
            .run();
    EXPECT_THAT(pathsOf(*built), ElementsAre("/c", "/c/5"));
}

TEST(FindIndexBuilder, NeverReportsLessThanBeforeAndAllAtTheEnd) {
    const TemporaryFolder place;
    for (int i = 0; i < 400; ++i) place.folder(fmt::format("{}/{}", i % 20, i));
    std::vector<std::int64_t> folders; // without a lock: never two reports at once
    for (int round = 0; round < 20; ++round) {
        folders.clear();
        const auto storage = walked(place.path(), 8, nullptr, [&](const auto& progress) {
            folders.push_back(progress.folders);
        });
        ASSERT_TRUE(storage);
        EXPECT_TRUE(std::ranges::is_sorted(folders));
        EXPECT_EQ(folders.back(), 421);
    }
}

TEST(FindIndexBuilder, LeavesOutWhatVanishesMeanwhile) {
    const TemporaryFolder place;
    for (int i = 0; i < 30; ++i) place.file(fmt::format("{:02}/inside/file", i), "12");
    place.folder("target");
    bool isFirst = true;
    const auto storage = walked(place.path(), 1, [&] {
        if (!std::exchange(isFirst, false)) return;
        for (int i = 0; i < 30; i += 3) { // gone, and replaced by something else
            std::filesystem::remove_all(place / fmt::format("{:02}", i));
            if (i % 2 == 0) place.link(fmt::format("{:02}", i), "target");
        }
    });
    ASSERT_TRUE(storage);
    const auto paths = pathsOf(*storage);
    EXPECT_EQ(paths.size(), 20U * 3 + 1);
    EXPECT_FALSE(paths.contains("/03"));
    EXPECT_FALSE(paths.contains("/06"));
    EXPECT_EQ(storage->size(0), 40U);
    EXPECT_EQ(storage->deniedCount, 0);
    EXPECT_EQ(storage->deletedCount, 10);
}

TEST(FindIndexBuilder, EndsSoonWhenItIsCancelled) {
    const TemporaryFolder place;
    for (int i = 0; i < 200; ++i) place.file(fmt::format("{}/file", i));
    std::atomic<int> reads = 0;
    FindIndexWalk* running = nullptr;
    FindIndexWalk walk({.walk = walkOf(place.path(), 4), .afterBulkRead = [&] {
                            if (++reads == 20) running->cancel();
                        }});
    running = &walk;
    EXPECT_EQ(walk.run().error(), FindIndexBuilder::Error(CancellationError{}));
    EXPECT_LT(reads, 60);

    std::stop_source before;
    before.request_stop();
    EXPECT_EQ(FindIndexBuilder({.rootPath = place.path()}).run(nullptr, before.get_token()).error(),
              FindIndexBuilder::Error(CancellationError{}));
}

TEST(FindIndexBuilder, StaysOnTheVolumeOfItsRoot) {
    const TemporaryFolder place;
    place.noise("elsewhere/large", 100'000);
    place.folder("tree/mounted");
    const auto told = testing::inMountNamespace([&] {
        if (!testing::bindMount(place / "elsewhere", place / "tree/mounted")) {
            return std::string("no mount");
        }
        const auto storage = built({.rootPath = place / "tree"});
        return fmt::format("{} entries, {} bytes, {} denied, unread {}", storage.count(),
                           storage.size(0), storage.deniedCount, unreadFolders(storage));
    });
    if (!told) GTEST_SKIP() << "mount namespaces need root";
    EXPECT_EQ(*told, "2 entries, 0 bytes, 0 denied, unread mounted;");
}

TEST(FindDirectoryReader, ReadsAFolderWithTheDatesOfThoseInIt) {
    const TemporaryFolder place;
    place.file("file", "123");
    place.folder(".folder");
    place.link("link", "file");
    place.times(".folder", 1'000, 2'000);
    FindDirectoryReader reader;
    FindDirectoryListing listing;
    ASSERT_TRUE(reader.read(*platform::FolderDescriptor::openRoot(place.path()), listing));
    std::map<std::string, std::size_t> at;
    for (std::size_t i = 0; i < listing.count(); ++i) at.emplace(listing.name(i), i);
    ASSERT_EQ(at.size(), 3U);
    EXPECT_EQ(listing.types[at["file"]], FindObjectType::file);
    EXPECT_EQ(listing.types[at["link"]], FindObjectType::symlink);
    EXPECT_EQ(listing.types[at[".folder"]], FindObjectType::directory);
    EXPECT_EQ(listing.sizes[at["file"]], 3U);
    EXPECT_EQ(listing.mtimes[at[".folder"]], 2'000U);
    EXPECT_EQ(listing.bsdFlags[at[".folder"]], FindDirectoryListing::hiddenFlag);
    EXPECT_EQ(listing.bsdFlags[at["file"]], 0U);
}

TEST(FindDirectoryReader, TellsWhyAFolderCannotBeRead) {
    using Failure = FindDirectoryReader::Failure;
    using enum Failure::Kind;
    for (const auto& [code, kind] : {std::pair{ENOENT, missing},
                                     {ESTALE, missing},
                                     {EACCES, denied},
                                     {EPERM, denied},
                                     {ENOTDIR, notDirectory},
                                     {ELOOP, notDirectory},
                                     {EIO, failed},
                                     {EMFILE, failed}}) {
        EXPECT_EQ(Failure::fromError({code}), (Failure{.kind = kind, .error = {code}})) << code;
    }
    // Closed between opening and reading it.
    const TemporaryFolder place;
    place.file("listed only/file");
    place.permissions("listed only", 0444);
    EXPECT_EQ(testing::asOrdinaryUser([&] {
                  FindDirectoryListing listing;
                  const auto folder = platform::FolderDescriptor::openRoot(place / "listed only");
                  const auto read = FindDirectoryReader().read(*folder, listing);
                  return fmt::format("{} {}", !read && read.error().kind == denied,
                                     listing.count());
              }),
              "true 0");
}

#ifdef __linux__
TEST(FindIndexBuilder, KnowsWhatCanBeRun) {
    const TemporaryFolder place;
    place.file("run", "x");
    place.file("read", "x");
    place.folder("folder");
    place.link("link", "run");
    place.permissions("run", 0755);
    place.permissions("read", 0644);
    const auto storage = FindIndexBuilder({.rootPath = place.path()}).run();
    ASSERT_TRUE(storage);
    for (Entry entry = 1; entry < storage->count(); ++entry) {
        EXPECT_EQ(storage->is(entry, findflag::program), storage->name(entry) == "run");
    }
}
#endif

} // namespace
} // namespace tidyro
