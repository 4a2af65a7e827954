#include "Rooms/Find/Services/Saving/FindIndexPersistence.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "Platform/Files/DurableFile.h"
#include "Platform/Folders/WellKnownFolders.h"
#include "Rooms/Find/Services/Saving/FindIndexFile.h"

namespace tidyro {

namespace {

using Error = FindIndexPersistenceError;

struct DescribePersistenceError {
    std::string operator()(const Error::UnsupportedVersion& found) const {
        return fmt::format("The index is of version {}, which this program does not know.",
                           found.version);
    }
    std::string operator()(const Error::Inconsistent& found) const {
        return fmt::format("The index is damaged ({}).", found.reason);
    }
    std::string operator()(const Error::WriteFailed& found) const {
        return fmt::format("The index could not be saved ({}).", found.error.description());
    }
    std::string operator()(Error::Unreadable /*error*/) const {
        return "The index could not be read.";
    }
    std::string operator()(Error::NotAnIndex /*error*/) const {
        return "The file is not an index.";
    }
    std::string operator()(Error::Truncated /*error*/) const { return "The index is cut short."; }
};

/// Counts what it writes, and remembers the first failure.
class IndexWriter {
  public:
    IndexWriter(platform::DurableWriter writer, const FindIndexPersistence::Passed& passed)
        : writer_(std::move(writer)), passed_(passed) {}

    template <class T>
    void writeArray(std::span<const T> values) {
        write(std::as_bytes(values));
        constexpr std::array<std::byte, FindIndexFileHead::alignment> zeros{};
        write(std::span(zeros).first((0 - written_) % zeros.size()));
    }
    void write(std::span<const std::byte> bytes) {
        if (result_) result_ = writer_.append(bytes);
        if (passed_) passed_(bytes);
        written_ += bytes.size();
    }
    [[nodiscard]] std::expected<void, SystemError> commit() {
        return result_ ? writer_.commit() : result_;
    }

  private:
    platform::DurableWriter writer_;
    const FindIndexPersistence::Passed& passed_;
    std::expected<void, SystemError> result_;
    std::uint64_t written_ = 0;
};

FindIndexFileTables tablesOf(const FindIndexStorage& storage) {
    FindIndexFileTables tables;
    for (const auto& [entry, size] : storage.bigSizes) {
        tables.bigSizeKeys.push(entry);
        tables.bigSizeValues.push(size);
    }
    for (const auto& [folder, children] : storage.extraChildren) {
        tables.extraChildFolders.append(children.size(), folder);
        tables.extraChildren.append(children);
    }
    return tables;
}

FindIndexFileHead head(const FindIndexStorage& storage, const FindIndexMetadata& metadata,
                       const FindIndexFileTables& tables) {
    const auto counted = [](std::int64_t count) {
        return static_cast<std::uint64_t>(std::max(count, std::int64_t{0}));
    };
    return {.entryCount = storage.count(),
            .nameByteCount = storage.names.size(),
            .bigSizeCount = tables.bigSizeKeys.size(),
            .extraChildCount = tables.extraChildren.size(),
            .lastEventID = metadata.lastEventID,
            .builtAt = metadata.builtAt.secondsSince1970(),
            .savedAt = metadata.savedAt.secondsSince1970(),
            .deniedCount = counted(storage.deniedCount),
            .deletedCount = counted(storage.deletedCount),
            .marksSystemFolders = storage.marksSystemFolders ? 1U : 0U,
            .rootPathLength = storage.rootPath.size()};
}

std::expected<void, SystemError> save(const FindIndexStorage& storage,
                                      const FindIndexMetadata& metadata, const FileURL& url,
                                      const FindIndexPersistence::Passed& passed) {
    if (auto made = platform::makePrivateFolder(url.parent().path()); !made) return made;
    auto opened =
        platform::DurableWriter::open(url.path(), platform::DurableWriter::Sibling::shared);
    if (!opened) return std::unexpected(opened.error());
    IndexWriter writer(*std::move(opened), passed);

    const FindIndexFileTables tables = tablesOf(storage);
    const FindIndexFileHead first = head(storage, metadata, tables);
    writer.write(std::as_bytes(std::span(FindIndexFileHead::magic)));
    writer.write(std::as_bytes(std::span(&first, 1)));
    writer.writeArray(std::span<const char>(storage.rootPath));
    FindIndexStorage::visitStoredColumns(
        [&](auto column) { writer.writeArray((storage.*column.values).span()); });
    FindIndexFileTables::visitColumns(
        [&](auto column) { writer.writeArray((tables.*column.values).span()); });
    writer.write(std::as_bytes(std::span(FindIndexFileHead::trailer)));
    return writer.commit();
}

} // namespace

std::string FindIndexPersistenceError::description() const {
    return std::visit(DescribePersistenceError{}, kind);
}

FileURL FindIndexPersistence::defaultURL() {
    return platform::applicationSupportFolder().appending("Harborline/Find/name-index-v1.bin");
}

std::expected<void, Error> FindIndexPersistence::write(const FindIndexStorage& storage,
                                                       const Metadata& metadata, const FileURL& url,
                                                       const Passed& passed) {
    const auto saved = save(storage, metadata, url, passed);
    if (!saved) return std::unexpected(Error{Error::WriteFailed{saved.error()}});
    return {};
}

} // namespace tidyro
