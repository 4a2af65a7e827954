#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <string>
#include <utility>

#include "Base/UnicodeText.h"
#include "Platform/Files/InputFile.h"
#include "Platform/Machine/LargeBlocks.h"
#include "Rooms/Find/Services/Saving/FindIndexFile.h"
#include "Rooms/Find/Services/Saving/FindIndexPersistence.h"

namespace tidyro {

namespace {

using Error = FindIndexPersistenceError;
using Head = FindIndexFileHead;

std::unexpected<Error> inconsistent(const char* reason) {
    return std::unexpected(Error{Error::Inconsistent{reason}});
}
std::unexpected<Error> truncated() { return std::unexpected(Error{Error::Truncated{}}); }

/// Room for a column that is then filled from end to end.
template <class T>
void makeRoom(GrowingArray<T>& column, std::size_t count) {
    column.reserveMore(count);
    const std::span room(column.data(), column.capacityBytes() / sizeof(T));
    platform::expectWholeWrite(std::as_writable_bytes(room));
}

/// Reads on and on; after the first failure nothing.
class IndexReader {
  public:
    explicit IndexReader(const FindIndexPersistence::Next& next) : next_(next) {}

    [[nodiscard]] const std::expected<void, Error>& result() const { return result_; }

    void read(std::span<std::byte> into) {
        if (!result_) return;
        const auto got = next_(into);
        if (!got) {
            result_ = std::unexpected(Error{Error::Unreadable{}});
        } else if (*got != into.size()) {
            result_ = truncated(); // it was cut while it was read
        }
        read_ += into.size();
    }
    void skipPadding() {
        std::array<std::byte, Head::alignment> zeros{};
        read(std::span(zeros).first((0 - read_) % zeros.size()));
    }
    /// The file was found to hold as much.
    template <class T>
    void readColumn(GrowingArray<T>& column, std::uint64_t count) {
        column.clear();
        makeRoom(column, count);
        if (count == 0 || !result_) return;
        read(std::as_writable_bytes(std::span(column.appendUnset(count), count)));
        skipPadding();
    }

  private:
    const FindIndexPersistence::Next& next_;
    std::expected<void, Error> result_;
    std::uint64_t read_ = 0;
};

/// What stands before the columns, as far as it can be judged by itself.
std::expected<Head, Error> readHead(IndexReader& reader, std::uint64_t byteCount) {
    std::array<char, Head::magic.size()> magic{};
    const std::size_t there = std::min<std::uint64_t>(byteCount, magic.size());
    reader.read(std::as_writable_bytes(std::span(magic).first(there)));
    if (!reader.result()) return std::unexpected(reader.result().error());
    if (std::string_view(magic.data(), there) != Head::magic.substr(0, there)) {
        return std::unexpected(Error{Error::NotAnIndex{}});
    }
    Head head{};
    const auto bytes = std::as_writable_bytes(std::span(&head, 1));
    if (byteCount < magic.size() + sizeof(head.version)) return truncated();
    reader.read(bytes.first(sizeof(head.version)));
    if (reader.result() && head.version != Head::knownVersion) {
        return std::unexpected(Error{Error::UnsupportedVersion{head.version}});
    }
    if (byteCount < magic.size() + sizeof(head)) return truncated();
    reader.read(bytes.subspan(sizeof(head.version)));
    if (!reader.result()) return std::unexpected(reader.result().error());

    const std::uint64_t expected = head.fileByteCount();
    if (expected > byteCount) return truncated();
    // A file may be long and take nothing on the disk: no room is made for what cannot be.
    if (head.nameByteCount > 0xFFFFFFFF) return inconsistent("name offsets");
    if (head.extraChildCount > head.entryCount) return inconsistent("extra children");
    if (head.bigSizeCount > head.entryCount) return inconsistent("sizes");
    // Far more than people have, and dates can still be made of it.
    constexpr double maxSeconds = 253'402'300'799; // the end of the year 9999
    const bool areDates =
        std::abs(head.builtAt) <= maxSeconds && std::abs(head.savedAt) <= maxSeconds;
    constexpr std::uint64_t maxRootPathLength =
        65'536; // systems take paths of a few thousand bytes
    if (expected != byteCount || !areDates || head.entryCount >= FindIndexStorage::none ||
        head.entryCount > head.nameByteCount + 1 || head.rootPathLength > maxRootPathLength ||
        head.deletedCount > head.entryCount || head.deniedCount > INT64_MAX ||
        head.marksSystemFolders > 1) {
        return inconsistent("structure");
    }
    return head;
}

std::expected<void, Error> takeBigSizes(FindIndexStorage& storage,
                                        const FindIndexFileTables& tables) {
    const auto& entries = tables.bigSizeKeys;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (i > 0 && entries[i - 1] >= entries[i]) return inconsistent("sizes");
        storage.bigSizes.emplace_hint(storage.bigSizes.end(), entries[i], tables.bigSizeValues[i]);
    }
    return {};
}

std::expected<void, Error> takeExtraChildren(FindIndexStorage& storage,
                                             const FindIndexFileTables& tables) {
    const auto& folders = tables.extraChildFolders;
    auto last = storage.extraChildren.end();
    for (std::size_t i = 0; i < folders.size(); ++i) {
        if (i > 0 && folders[i - 1] > folders[i]) return inconsistent("extra children");
        if (i == 0 || folders[i - 1] != folders[i]) {
            last = storage.extraChildren.emplace_hint(storage.extraChildren.end(), folders[i],
                                                      std::vector<std::uint32_t>{});
        }
        last->second.push_back(tables.extraChildren[i]);
    }
    return {};
}

/// Folding may make three bytes of one that is no text, and offsets have 32 bits. Only an index so
/// large that it might not fit is folded once more to know.
bool hasRoomToFold(const FindIndexStorage& storage) {
    constexpr std::uint64_t maxBytes = 0xFFFFFFFF;
    if (storage.names.size() <= maxBytes / 3) return true;
    std::uint64_t bytes = 0;
    for (FindIndexStorage::Entry entry = 0; entry < storage.count(); ++entry) {
        const std::string_view name = storage.name(entry);
        bytes += storage.is(entry, findflag::notASCII) ? searchFolded(name).size() : name.size();
    }
    return bytes <= maxBytes;
}

} // namespace

std::expected<FindIndexPersistence::Opened, Error>
FindIndexPersistence::read(std::uint64_t byteCount, const Next& next) {
    IndexReader reader(next);
    const auto head = readHead(reader, byteCount);
    if (!head) return std::unexpected(head.error());

    std::string rootPath(head->rootPathLength, '\0');
    reader.read(std::as_writable_bytes(std::span(rootPath)));
    reader.skipPadding();
    Opened opened{.storage = FindIndexStorage(std::move(rootPath), head->marksSystemFolders == 1),
                  .metadata = {.lastEventID = head->lastEventID,
                               .builtAt = Timestamp::since1970(head->builtAt),
                               .savedAt = Timestamp::since1970(head->savedAt)}};
    FindIndexStorage& storage = opened.storage;
    storage.deniedCount = static_cast<std::int64_t>(head->deniedCount);
    storage.deletedCount = static_cast<std::int64_t>(head->deletedCount);
    FindIndexStorage::visitStoredColumns([&](auto column) {
        reader.readColumn(storage.*column.values, head->elementCount(column.length));
    });
    FindIndexFileTables tables;
    FindIndexFileTables::visitColumns([&](auto column) {
        reader.readColumn(tables.*column.values, head->elementCount(column.length));
    });
    std::array<char, Head::trailer.size()> trailer{};
    reader.read(std::as_writable_bytes(std::span(trailer)));
    if (!reader.result()) return std::unexpected(reader.result().error());
    if (std::string_view(trailer.data(), trailer.size()) != Head::trailer) return truncated();

    if (auto taken = takeBigSizes(storage, tables); !taken) return std::unexpected(taken.error());
    if (auto taken = takeExtraChildren(storage, tables); !taken) {
        return std::unexpected(taken.error());
    }
    if (auto valid = validate(storage); !valid) return std::unexpected(valid.error());
    if (!hasRoomToFold(storage)) return inconsistent("name offsets");
    FindIndexStorage::visitFoldedColumns([&](auto column) {
        const bool isBytes = column.length == FindColumnLength::foldedBytes;
        makeRoom(storage.*column.values, isBytes ? storage.names.size() : storage.count());
    });
    storage.extendFolded();
    return opened;
}

std::expected<FindIndexPersistence::Opened, Error>
FindIndexPersistence::read(const FileURL& url, const Passed& passed) {
    auto file = platform::InputFile::open(url.path());
    if (!file) return std::unexpected(Error{Error::Unreadable{}});
    // A file that is long and takes nothing is a hole, which would fill the memory with zeros.
    // Names are never compressed so far.
    constexpr std::uint64_t minSuspicious = 1'048'576;
    constexpr std::uint64_t maxCompression = 64;
    if (file->byteCount() > minSuspicious &&
        file->byteCount() / maxCompression > file->bytesOnDisk()) {
        return inconsistent("structure");
    }
    return read(file->byteCount(),
                [&](std::span<std::byte> into) -> std::expected<std::size_t, SystemError> {
                    // A checksum is made of bytes that are still in the processor's cache.
                    constexpr std::size_t pieceBytes = 131'072;
                    const std::size_t piece = passed ? pieceBytes : into.size();
                    std::size_t filled = 0;
                    while (filled < into.size()) {
                        const auto rest =
                            into.subspan(filled, std::min(piece, into.size() - filled));
                        const auto got = file->read(rest);
                        if (!got) return got;
                        if (passed) passed(rest.first(*got));
                        filled += *got;
                        if (*got < rest.size()) break;
                    }
                    return filled;
                });
}

} // namespace tidyro
