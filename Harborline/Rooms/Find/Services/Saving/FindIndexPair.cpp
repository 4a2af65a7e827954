#include "Rooms/Find/Services/Saving/FindIndexPair.h"

#include <array>
#include <bit>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#define XXH_INLINE_ALL
#include <xxhash.h>

#include "Platform/Files/DurableFile.h"
#include "Platform/Files/FileLock.h"

namespace tidyro {

namespace {

using PairError = FindIndexPersistenceError;

/// What the second file begins with. The columns of the stamps follow, then the checksum of all
/// bytes before it.
struct ExtraHead {
    std::array<char, 8> magic = {'T', 'I', 'D', 'Y', 'R', 'O', 'F', 'X'};
    std::uint32_t version = 1;
    std::uint32_t reserved = 0;
    std::uint64_t indexByteCount;
    std::uint64_t indexChecksum;
    std::uint64_t folderCount;
    bool operator==(const ExtraHead&) const = default;
};
static_assert(sizeof(ExtraHead) == 40 && std::endian::native == std::endian::little);

constexpr std::size_t bytesPerFolder = 3 * sizeof(std::uint64_t) + sizeof(std::uint32_t);

std::uint64_t checksumOf(std::string_view bytes) { return XXH3_64bits(bytes.data(), bytes.size()); }

/// The length and checksum of the index's file while it passes.
class PassingIndex {
  public:
    PassingIndex() { XXH3_64bits_reset(&state_); }

    [[nodiscard]] FindIndexPersistence::Passed passed() {
        return [this](std::span<const std::byte> bytes) {
            byteCount_ += bytes.size();
            XXH3_64bits_update(&state_, bytes.data(), bytes.size());
        };
    }
    [[nodiscard]] ExtraHead head(std::uint64_t folderCount) const {
        return {.indexByteCount = byteCount_,
                .indexChecksum = XXH3_64bits_digest(&state_),
                .folderCount = folderCount};
    }

  private:
    XXH3_state_t state_;
    std::uint64_t byteCount_ = 0;
};

template <class T>
void appendBytes(std::string& bytes, T value) {
    bytes.append(reinterpret_cast<const char*>(&value), sizeof(T));
}

std::string extraBytes(ExtraHead head, const FindFolderStamps& stamps) {
    std::string bytes;
    bytes.reserve(sizeof(head) + stamps.rows.size() * bytesPerFolder + sizeof(std::uint64_t));
    appendBytes(bytes, head);
    for (const auto& row : stamps.rows) appendBytes(bytes, row.stamp.changed);
    for (const auto& row : stamps.rows) appendBytes(bytes, row.stamp.identity.device);
    for (const auto& row : stamps.rows) appendBytes(bytes, row.stamp.identity.inode);
    for (const auto& row : stamps.rows) appendBytes(bytes, row.folder);
    appendBytes(bytes, checksumOf(bytes));
    return bytes;
}

/// Takes values off the front of bytes that are long enough.
class ExtraColumns {
  public:
    explicit ExtraColumns(std::string_view bytes) : bytes_(std::as_bytes(std::span(bytes))) {}

    template <class T>
    [[nodiscard]] T take() {
        T value;
        std::memcpy(&value, bytes_.data(), sizeof(T));
        bytes_ = bytes_.subspan(sizeof(T));
        return value;
    }

  private:
    std::span<const std::byte> bytes_;
};

/// The stamps in the bytes; none when they are not those of this index.
std::optional<FindFolderStamps> stampsIn(std::string_view bytes, const PassingIndex& index,
                                         const FindIndexStorage& storage) {
    constexpr std::size_t ends = sizeof(ExtraHead) + sizeof(std::uint64_t);
    if (bytes.size() < ends) return std::nullopt;
    const auto head = ExtraColumns(bytes).take<ExtraHead>();
    const auto checked = bytes.substr(0, bytes.size() - sizeof(std::uint64_t));
    if (head != index.head(head.folderCount) || head.folderCount > storage.count() ||
        bytes.size() != ends + head.folderCount * bytesPerFolder ||
        ExtraColumns(bytes.substr(checked.size())).take<std::uint64_t>() != checksumOf(checked)) {
        return std::nullopt;
    }
    ExtraColumns columns(checked.substr(sizeof(ExtraHead)));
    FindFolderStamps stamps;
    stamps.rows.resize(head.folderCount);
    for (auto& row : stamps.rows) row.stamp.changed = columns.take<std::int64_t>();
    for (auto& row : stamps.rows) row.stamp.identity.device = columns.take<std::uint64_t>();
    for (auto& row : stamps.rows) row.stamp.identity.inode = columns.take<std::uint64_t>();
    std::uint32_t least = 0; // they ascend, each once
    for (auto& row : stamps.rows) {
        row.folder = columns.take<std::uint32_t>();
        if (row.folder < least || row.folder >= storage.count() ||
            !storage.is(row.folder, findflag::folder)) {
            return std::nullopt;
        }
        least = row.folder + 1;
    }
    return stamps;
}

std::expected<FindIndexPersistence::Opened, PairError> readOnce(const FileURL& url) {
    PassingIndex passing;
    auto opened = FindIndexPersistence::read(url, passing.passed());
    if (!opened) return opened;
    const std::size_t maxBytes =
        sizeof(ExtraHead) + sizeof(std::uint64_t) + opened->storage.count() * bytesPerFolder;
    const auto bytes = platform::readWholeFile(FindIndexPair::extraURL(url).path(), maxBytes);
    auto stamps = bytes ? stampsIn(*bytes, passing, opened->storage) : std::nullopt;
    if (!stamps) return std::unexpected(PairError{PairError::Inconsistent{"extra"}});
    opened->storage.folderStamps = *std::move(stamps);
    return opened;
}

std::expected<void, PairError> writeFailed(SystemError error) {
    return std::unexpected(PairError{PairError::WriteFailed{error}});
}

} // namespace

FileURL FindIndexPair::extraURL(const FileURL& url) {
    constexpr std::string_view ending = ".bin";
    std::string path = url.path();
    if (path.ends_with(ending)) path.resize(path.size() - ending.size());
    return FileURL::file(path + ".extra");
}

std::expected<void, PairError> FindIndexPair::write(const FindIndexStorage& storage,
                                                    const FindIndexMetadata& metadata,
                                                    const FileURL& url) {
    if (auto made = platform::makePrivateFolder(url.parent().path()); !made) {
        return writeFailed(made.error());
    }
    // Its lock is held until both files stand.
    auto extra = platform::DurableWriter::open(extraURL(url).path(),
                                               platform::DurableWriter::Sibling::shared);
    if (!extra) return writeFailed(extra.error());
    PassingIndex passing;
    if (auto saved = FindIndexPersistence::write(storage, metadata, url, passing.passed());
        !saved) {
        return saved;
    }
    const std::string bytes =
        extraBytes(passing.head(storage.folderStamps.rows.size()), storage.folderStamps);
    if (auto added = extra->append(std::as_bytes(std::span(bytes))); !added) {
        return writeFailed(added.error());
    }
    if (auto done = extra->commit(); !done) return writeFailed(done.error());
    return {};
}

std::expected<FindIndexPersistence::Opened, PairError> FindIndexPair::read(const FileURL& url) {
    constexpr int maxTries = 20;
    for (int tries = 1;; ++tries) {
        auto opened = readOnce(url);
        const bool isTorn =
            !opened && opened.error() == PairError{PairError::Inconsistent{"extra"}};
        if (!isTorn || tries == maxTries) return opened;
        const auto isWritten = platform::FileLock::isTaken(extraURL(url).path() + ".partial");
        if (!isWritten) return opened;
        if (*isWritten) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        } else if (tries > 1) {
            return opened;
        } // otherwise the writer may have ended since, and they are read once more
    }
}

} // namespace tidyro
