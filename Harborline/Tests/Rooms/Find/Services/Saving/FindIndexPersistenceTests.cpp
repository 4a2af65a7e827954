#include "Rooms/Find/Services/Saving/FindIndexPersistence.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>

#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Platform/Files/DurableFile.h"
#include "Rooms/Find/Services/Index/FindTrees.h"
#include "Support/OtherCircumstances.h"

namespace tidyro {
namespace {

using testing::everythingOnce;
using testing::file;
using testing::folder;
using testing::listing;
using testing::TemporaryFolder;
using Error = FindIndexPersistenceError;
using Persistence = FindIndexPersistence;

const FindIndexMetadata metadata{.lastEventID = 0x1122'3344'5566'7788,
                                 .builtAt = Timestamp::since1970(1'700'000'000.5),
                                 .savedAt = Timestamp::since1970(1'800'000'000.0)};

std::string bytesOf(const FindIndexStorage& storage) {
    const TemporaryFolder place;
    const FileURL url = FileURL::file(place / "a/b/index");
    const auto written = Persistence::write(storage, metadata, url);
    EXPECT_TRUE(written) << written.error().description();
    return platform::readWholeFile(url.path(), 1U << 30).value_or("");
}

std::expected<Persistence::Opened, Error> opened(std::string_view bytes) {
    return Persistence::read(bytes.size(), [&](std::span<std::byte> into) {
        const std::size_t count = std::min(into.size(), bytes.size());
        if (count > 0) std::memcpy(into.data(), bytes.data(), count);
        bytes.remove_prefix(count);
        return std::expected<std::size_t, SystemError>(count);
    });
}

Error::Inconsistent inconsistent(const char* reason) { return {reason}; }

/// Reads the file by what is written about its layout, and by nothing else of the program: byte by
/// byte, each number put together by hand.
class PlainReader {
  public:
    explicit PlainReader(std::string bytes) : bytes_(std::move(bytes)) {}

    std::string text(std::size_t count) {
        at_ += count;
        return bytes_.substr(at_ - count, count);
    }
    std::uint64_t number(unsigned width) {
        std::uint64_t value = 0;
        for (unsigned i = 0; i < width; ++i) {
            value |= std::uint64_t{static_cast<unsigned char>(bytes_.at(at_++))} << (8 * i);
        }
        return value;
    }
    double date() {
        const std::uint64_t bits = number(8);
        double seconds = 0;
        std::memcpy(&seconds, &bits, 8);
        return seconds;
    }
    template <class Column>
    void expectColumn(const Column& column, unsigned width, std::string_view name) {
        for (const auto value : column) {
            EXPECT_EQ(number(width), static_cast<std::uint64_t>(value)) << name;
        }
        align();
    }
    void align() {
        while (at_ % 8 != 0) EXPECT_EQ(number(1), 0U);
    }
    [[nodiscard]] bool isAtEnd() const { return at_ == bytes_.size(); }

  private:
    std::string bytes_;
    std::size_t at_ = 0;
};

TEST(FindIndexPersistence, WritesTheFileByteForByte) {
    for (const bool isEmpty : {false, true}) {
        FindIndexStorage storage = everythingOnce();
        if (isEmpty) {
            storage = FindIndexStorage("/");
            storage.appendRoot("/", 0);
        }
        PlainReader reader(bytesOf(storage));
        EXPECT_EQ(reader.text(8), "TIDYROFI");
        EXPECT_EQ(reader.number(4), 1U);
        EXPECT_EQ(reader.number(4), 0U);
        EXPECT_EQ(reader.number(8), isEmpty ? 1U : 10U);
        EXPECT_EQ(reader.number(8), storage.names.size());
        EXPECT_EQ(reader.number(8), isEmpty ? 0U : 3U);
        EXPECT_EQ(reader.number(8), isEmpty ? 0U : 2U);
        EXPECT_EQ(reader.number(8), 0x1122'3344'5566'7788U);
        EXPECT_EQ(reader.date(), 1'700'000'000.5);
        EXPECT_EQ(reader.date(), 1'800'000'000.0);
        EXPECT_EQ(reader.number(8), isEmpty ? 0U : 2U);
        EXPECT_EQ(reader.number(8), isEmpty ? 0U : 1U);
        EXPECT_EQ(reader.number(8), isEmpty ? 1U : 0U) << "the system's folders are marked";
        EXPECT_EQ(reader.number(8), storage.rootPath.size());
        EXPECT_EQ(reader.text(storage.rootPath.size()), storage.rootPath);
        reader.align();
        EXPECT_EQ(reader.text(storage.names.size()),
                  std::string_view(storage.names.data(), storage.names.size()));
        reader.align();
        reader.expectColumn(storage.nameStart, 4, "nameStart");
        reader.expectColumn(storage.parent, 4, "parent");
        reader.expectColumn(storage.size32, 4, "size32");
        reader.expectColumn(storage.mtime, 4, "mtime");
        reader.expectColumn(storage.flags, 1, "flags");
        reader.expectColumn(storage.kind, 1, "kind");
        reader.expectColumn(storage.depth, 1, "depth");
        reader.expectColumn(storage.firstChild, 4, "firstChild");
        std::vector<std::uint64_t> keys;
        std::vector<std::uint64_t> sizes;
        for (const auto& [entry, size] : storage.bigSizes) {
            keys.push_back(entry);
            sizes.push_back(size);
        }
        using Numbers = std::vector<unsigned>;
        reader.expectColumn(keys, 4, "keys");
        reader.expectColumn(sizes, 8, "sizes");
        reader.expectColumn(isEmpty ? Numbers{} : Numbers{0, 0}, 4, "extra child folders");
        reader.expectColumn(isEmpty ? Numbers{} : Numbers{8, 9}, 4, "extra children");
        EXPECT_EQ(reader.text(8), "TIDYROFE");
        EXPECT_TRUE(reader.isAtEnd());
    }
}

TEST(FindIndexPersistence, OpensWhatItWrote) {
    const FindIndexStorage storage = everythingOnce();
    const auto read = opened(bytesOf(storage));
    ASSERT_TRUE(read) << read.error().description();
    const FindIndexStorage& again = read->storage;
    EXPECT_EQ(read->metadata, metadata);
    EXPECT_EQ(again.rootPath, storage.rootPath);
    EXPECT_EQ(again.marksSystemFolders, storage.marksSystemFolders);
    EXPECT_EQ(again.bigSizes, storage.bigSizes);
    EXPECT_EQ(again.extraChildren, storage.extraChildren);
    EXPECT_EQ(again.deletedCount, 1);
    EXPECT_EQ(again.deniedCount, 2);
    EXPECT_TRUE(again.foldedNames == storage.foldedNames);
    EXPECT_TRUE(again.foldedStart == storage.foldedStart);
    EXPECT_TRUE(again.foldedEntries == storage.foldedEntries);
    EXPECT_EQ(again.lookup("/home/ada/Mail.app/big.mov"), 4U);
    EXPECT_EQ(bytesOf(again), bytesOf(storage));
}

TEST(FindIndexPersistence, SurvivesEveryCutAndEveryChangedByte) {
    const std::string whole = bytesOf(everythingOnce());
    for (std::size_t length = 0; length < whole.size(); ++length) {
        const auto read = opened(std::string_view(whole).substr(0, length));
        ASSERT_FALSE(read) << length;
        EXPECT_EQ(read.error(), Error{Error::Truncated{}}) << length;
    }
    std::map<std::size_t, std::size_t> outcomes;
    for (std::size_t at = 0; at < whole.size(); ++at) {
        std::string changed = whole;
        for (unsigned bits = 1; bits < 256; ++bits) {
            changed[at] = static_cast<char>(static_cast<unsigned char>(whole[at]) ^ bits);
            const auto read = opened(changed);
            if (read) testing::walkEverything(read->storage);
            ++outcomes[read ? 99 : read.error().kind.index()];
        }
    }
    EXPECT_EQ(outcomes[4], 8U * 255) << "wrong magic and no other way";
    EXPECT_GT(outcomes[1], 10'000U) << "most of what is changed is noticed";
}

TEST(FindIndexPersistence, TellsWhatIsWrong) {
    const std::string whole = bytesOf(everythingOnce());
    const auto with = [&](std::size_t at, std::string_view bytes) {
        std::string changed = whole;
        changed.replace(at, bytes.size(), bytes);
        const auto read = opened(changed);
        return read ? std::string("opened") : read.error().description();
    };
    EXPECT_EQ(with(0, "tidyrofi"), "The file is not an index.");
    EXPECT_EQ(with(8, {"\2\0\0\0", 4}),
              "The index is of version 2, which this program does not know.");
    EXPECT_EQ(opened(std::string_view("TIDYROFI\2\0\0\0", 12)).error(),
              Error{Error::UnsupportedVersion{2}});
    EXPECT_EQ(with(whole.size() - 1, "F"), "The index is cut short.");
    // Counts that no file holds: nothing is made room for.
    for (const std::size_t count : {16U, 24U, 32U, 40U, 96U}) {
        for (const std::string_view bytes :
             {std::string_view("\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"),
              std::string_view("\0\0\0\0\0\0\0\x40", 8), std::string_view("\0\0\0\0\1\0\0\0", 8)}) {
            EXPECT_EQ(with(count, bytes), "The index is cut short.") << count;
        }
    }
    EXPECT_EQ(with(56, {"\0\0\0\0\0\0\xF8\x7F", 8}), "The index is damaged (structure).") << "NaN";
    EXPECT_EQ(opened(whole + "12345678").error(), Error{inconsistent("structure")});
    EXPECT_EQ(Persistence::read(FileURL::file("/")).error(), Error{Error::Unreadable{}});
    EXPECT_EQ(Persistence::read(FileURL::file("/none/x")).error(), Error{Error::Unreadable{}});
    EXPECT_EQ(Error{Error::WriteFailed{{ENOSPC}}}.description(),
              "The index could not be saved (No space left on device).");
}

TEST(FindIndexPersistence, MakesNoRoomForWhatCannotBe) {
    // A file with a hole can be of any length and hold next to nothing.
    const std::string whole = bytesOf(everythingOnce());
    const auto claiming = [&](std::size_t at, std::uint64_t width) {
        constexpr std::uint64_t more = 1ULL << 50;
        std::string head = whole.substr(0, 104);
        head[at + 6] = 4; // 2 to the power of 50
        std::string_view rest = head;
        const auto read = Persistence::read(
            whole.size() + more * width,
            [&](std::span<std::byte> into) -> std::expected<std::size_t, SystemError> {
                if (rest.size() < into.size()) return std::unexpected(SystemError{EIO});
                std::memcpy(into.data(), rest.data(), into.size());
                rest.remove_prefix(into.size());
                return into.size();
            });
        return read ? "opened" : read.error().description();
    };
    EXPECT_EQ(claiming(16, 23), "The index is damaged (structure).") << "entries";
    EXPECT_EQ(claiming(24, 1), "The index is damaged (name offsets).");
    EXPECT_EQ(claiming(32, 12), "The index is damaged (sizes).");
    EXPECT_EQ(claiming(40, 8), "The index is damaged (extra children).");
    EXPECT_EQ(claiming(96, 1), "The index is damaged (structure).") << "the root's path";
}

TEST(FindIndexPersistence, TakesAHoleForNoIndex) {
    // Its head and its length agree, and all between is a hole that would fill the memory.
    const FindIndexStorage storage = everythingOnce();
    const std::string whole = bytesOf(storage);
    constexpr std::uint64_t nameBytes = 1ULL << 30;
    std::string head = whole.substr(0, 104);
    std::memcpy(head.data() + 24, &nameBytes, sizeof nameBytes);
    const TemporaryFolder place;
    const FileURL url = FileURL::file(place / "index");
    std::ofstream(url.path(), std::ios::binary) << head;
    const std::uint64_t before = (storage.names.size() + 7) / 8 * 8;
    std::filesystem::resize_file(url.path(), whole.size() - before + nameBytes);
    const auto read = Persistence::read(url);
    ASSERT_FALSE(read);
    EXPECT_EQ(read.error(), Error{inconsistent("structure")});
}

TEST(FindIndexPersistence, ValidatesEveryLink) {
    ASSERT_TRUE(Persistence::validate(everythingOnce()));
    EXPECT_TRUE(Persistence::validate(FindIndexStorage("/")));
    const std::vector<std::pair<const char*, std::function<void(FindIndexStorage&)>>> faults{
        {"name offsets", [](auto& s) { s.nameStart[0] = 1; }},
        {"name offsets", [](auto& s) { s.nameStart[10] += 1; }},
        {"name offsets", [](auto& s) { std::swap(s.nameStart[3], s.nameStart[4]); }},
        {"name offsets", [](auto& s) { s.nameStart.clear(); }},
        {"structure", [](auto& s) { s.parent[1] = 2; }},
        {"structure", [](auto& s) { s.parent[4] = 4; }},
        {"structure", [](auto& s) { s.parent[4] = FindIndexStorage::none; }},
        {"structure", [](auto& s) { s.parent[0] = 1; }},
        {"structure", [](auto& s) { s.parent[6] = 3; }},      // a file holds nothing
        {"structure", [](auto& s) { s.firstChild[1] = 10; }}, // outside
        {"structure", [](auto& s) { s.firstChild[1] = 6; }},  // another folder's
        {"structure", [](auto& s) { s.firstChild[1] = 5; }},  // one is nobody's
        {"structure", [](auto& s) { s.firstChild[7] = 4; }},
        {"structure", [](auto& s) { s.kind[3] &= 127; }}, // a block without an end
        {"structure", [](auto& s) { s.kind[1] |= 128; }},
        {"structure", [](auto& s) { s.kind[2] = 9; }},
        {"structure", [](auto& s) { s.depth[5] = 1; }},
        {"structure", [](auto& s) { s.flags[7] &= 251; }}, // in something hidden
        {"structure", [](auto& s) { s.flags[3] &= 191; }}, // not ASCII
        {"structure", [](auto& s) { s.deletedCount = 0; }},
        {"structure", [](auto& s) { s.names[s.nameStart[4]] = '/'; }},
        {"structure", [](auto& s) { s.mtime.push(1); }},
        {"structure", [](auto& s) { s.extraChildren.clear(); }},
        {"extra children", [](auto& s) { s.extraChildren[10] = {}; }},
        {"extra children", [](auto& s) { s.extraChildren[0].push_back(10); }},
        {"extra children", [](auto& s) { s.extraChildren[0].push_back(8); }},
        {"extra children", [](auto& s) { s.extraChildren[0].push_back(1); }},
        {"extra children", [](auto& s) { s.extraChildren[1] = {7}; }},
        {"sizes", [](auto& s) { s.bigSizes[10] = 0x1'0000'0000; }},
        {"sizes", [](auto& s) { s.bigSizes[3] = 0x1'0000'0000; }},
        {"sizes", [](auto& s) { s.bigSizes.erase(4); }},
        {"sizes", [](auto& s) { s.bigSizes[4] = 5; }},
    };
    for (std::size_t i = 0; i < faults.size(); ++i) {
        FindIndexStorage storage = everythingOnce();
        faults[i].second(storage);
        const auto valid = Persistence::validate(storage);
        ASSERT_FALSE(valid) << i;
        EXPECT_EQ(valid.error(), Error{inconsistent(faults[i].first)}) << i;
    }
}

std::size_t entriesIn(const std::string& folder) {
    const std::filesystem::directory_iterator entries(folder);
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

TEST(FindIndexPersistence, LeavesTheOldFileWhenSavingFails) {
    const TemporaryFolder place;
    const FileURL url = FileURL::file(place / "index");
    place.file("index.partial", std::string(5'000'000, 'x')); // left by a crash
    ASSERT_TRUE(Persistence::write(everythingOnce(), metadata, url));
    struct stat status{};
    ASSERT_EQ(::stat(url.path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    EXPECT_EQ(entriesIn(place.path()), 1U);

    FindIndexStorage large("/");
    large.appendRoot("/", 0);
    std::vector<std::string> names;
    for (int i = 0; i < 100'000; ++i) names.push_back("name " + std::to_string(i));
    std::vector<testing::Listed> listed;
    for (const std::string& name : names) listed.push_back(file(name));
    large.appendBlock(0, listing(listed));
    const std::string told = testing::inChild([&] {
        const rlimit limit{.rlim_cur = 1'500'000, .rlim_max = 1'500'000};
        ::signal(SIGXFSZ, SIG_IGN);
        if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return std::string("no limit");
        const auto written = Persistence::write(large, metadata, url);
        return written ? "written" : written.error().description();
    });
    EXPECT_EQ(told, "The index could not be saved (File too large).");
    EXPECT_EQ(Persistence::read(url)->storage.count(), 10U);
    EXPECT_EQ(entriesIn(place.path()), 1U);

#ifdef __linux__
    const auto full = testing::inMountNamespace([&]() -> std::string {
        place.folder("full");
        const FileURL there = FileURL::file(place / "full/index");
        if (::mount("none", (place / "full").c_str(), "tmpfs", 0, "size=1m") != 0) return "skip";
        if (!Persistence::write(everythingOnce(), metadata, there)) return "not even a small one";
        const auto written = Persistence::write(large, metadata, there);
        const bool isKept = Persistence::read(there)->storage.count() == 10;
        return (written ? "written" : written.error().description()) +
               (isKept && entriesIn(place / "full") == 1 ? "" : " and broken");
    });
    if (!full || *full == "skip") GTEST_SKIP() << "no mounts here";
    EXPECT_EQ(*full, "The index could not be saved (No space left on device).");
#endif
}

TEST(FindIndexPersistence, SavesWholeFilesFromSeveralProcesses) {
    const TemporaryFolder place;
    const FileURL url = FileURL::file(place / "index");
    // Indexes of different lengths: a mixture would show.
    const auto save = [&](unsigned which) {
        FindIndexStorage storage("/r");
        storage.appendRoot("/r", 0);
        std::vector<std::string> names;
        for (unsigned i = 0; i < 20'000 * which; ++i) {
            names.push_back(std::to_string(which) + "-" + std::to_string(i));
        }
        std::vector<testing::Listed> listed;
        for (const std::string& name : names) listed.push_back(file(name));
        storage.appendBlock(0, listing(listed));
        FindIndexMetadata saved = metadata;
        saved.lastEventID = which;
        for (int i = 0; i < 25; ++i) {
            if (!Persistence::write(storage, saved, url)) return false;
        }
        return true;
    };
    std::vector<pid_t> children;
    for (const unsigned which : {1U, 2U, 3U}) {
        const pid_t child = ::fork();
        if (child == 0) ::_exit(save(which) ? 0 : 1);
        ASSERT_GT(child, 0);
        children.push_back(child);
    }
    std::size_t running = children.size();
    while (running > 0) {
        int status = 0;
        if (::waitpid(-1, &status, WNOHANG) > 0) {
            --running;
            EXPECT_EQ(status, 0) << "one could not save";
        }
        const auto read = Persistence::read(url);
        if (!read && read.error() == Error{Error::Unreadable{}} && running > 0) continue; // not yet
        ASSERT_TRUE(read) << read.error().description();
        EXPECT_EQ(read->storage.count(), 20'000 * read->metadata.lastEventID + 1);
    }
    EXPECT_EQ(entriesIn(place.path()), 1U);
}

TEST(FindIndexPersistence, IsUsedAsItsHeaderSays) {
    const FindIndexStorage storage = everythingOnce();
    const TemporaryFolder place;
    const FileURL url = FileURL::file(place / "index");
    FindIndex index;
    const auto saved = FindIndexPersistence::write(storage, metadata, url);
    auto opened = FindIndexPersistence::read(url);
    if (opened) index.replace(std::move(opened->storage), opened->metadata);
    EXPECT_TRUE(saved);
    EXPECT_EQ(index.metadata(), metadata);
}

} // namespace
} // namespace tidyro
