#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <functional>
#include <span>
#include <string>
#include <variant>

#include "Base/FileURL.h"
#include "Base/SystemError.h"
#include "Rooms/Find/Services/Index/FindIndex.h"

namespace tidyro {

/// Why an index could not be kept or opened again. Nothing is lost but time: it can be built anew.
struct FindIndexPersistenceError {
    struct UnsupportedVersion {
        std::uint32_t version;
        bool operator==(const UnsupportedVersion&) const = default;
    };
    /// The file is whole, but no index has what it says: "name offsets", "structure", "extra
    /// children" or "sizes".
    struct Inconsistent {
        std::string reason;
        bool operator==(const Inconsistent&) const = default;
    };
    struct WriteFailed {
        SystemError error;
        bool operator==(const WriteFailed&) const = default;
    };
    struct Unreadable {
        bool operator==(const Unreadable&) const = default;
    };
    struct NotAnIndex {
        bool operator==(const NotAnIndex&) const = default;
    };
    /// It ends before it says.
    struct Truncated {
        bool operator==(const Truncated&) const = default;
    };

    std::variant<UnsupportedVersion, Inconsistent, WriteFailed, Unreadable, NotAnIndex, Truncated>
        kind;

    /// One sentence for people.
    [[nodiscard]] std::string description() const;
    bool operator==(const FindIndexPersistenceError&) const = default;
};

/// Keeps an index in one file, so that it can be opened at once the next time.
///
///     FindIndexPersistence::write(storage, metadata, url)
///     auto opened = FindIndexPersistence::read(url);
///     index.replace(std::move(opened->storage), opened->metadata);
///
/// FindIndexFile.h says how the file is laid out. Any bytes at all may stand in it: what is read is
/// an index of which every walk ends inside it, or an error, in time that grows with the file.
struct FindIndexPersistence {
    using Error = FindIndexPersistenceError;
    using Metadata = FindIndexMetadata;

    /// "Harborline/Find/name-index-v1.bin" in the person's Application Support folder.
    [[nodiscard]] static FileURL defaultURL();

    /// Replaces the file as a whole, and makes its folder when it is missing. The new bytes stand
    /// in ".partial" beside it first, which is locked: of two processes that save at once one waits
    /// for the other, and the last one's index stays.
    [[nodiscard]] static std::expected<void, Error>
    write(const FindIndexStorage& storage, const Metadata& metadata, const FileURL& url);

    /// With its folded names. Dates are kept by their seconds since 1970, which may move a moment
    /// by a tenth of a microsecond.
    struct Opened {
        FindIndexStorage storage;
        Metadata metadata;
    };
    [[nodiscard]] static std::expected<Opened, Error> read(const FileURL& url);

    /// The same from bytes that come from anywhere: `next` fills a block with what follows and
    /// says how much there was.
    using Next = std::function<std::expected<std::size_t, SystemError>(std::span<std::byte>)>;
    [[nodiscard]] static std::expected<Opened, Error> read(std::uint64_t byteCount,
                                                           const Next& next);

    /// Whether every number in the stored form leads where it should. Folded names play no part.
    [[nodiscard]] static std::expected<void, Error> validate(const FindIndexStorage& storage);
};

} // namespace tidyro
