#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <variant>

#include "Base/Cancellation.h"
#include "Base/SystemError.h"
#include "Rooms/Find/Services/Index/FindIndexStorage.h"

namespace tidyro {

/// Reads every name below a root into a storage.
///
///     auto storage = FindIndexBuilder({.rootPath = "/home/ada"}).run();
///
/// Links are not followed, other volumes not entered, a folder that is closed is counted. Several
/// threads of its own read while the caller waits.
class FindIndexBuilder {
  public:
    struct Options {
        std::string rootPath;
        /// Neither these nor what is in them enters the index. Whole paths, as they are written.
        std::set<std::string> excludedPaths = {};
        std::set<std::string> skipping = {};           ///< likewise
        std::set<std::string> skippingContentsOf = {}; ///< listed, not entered
        std::int64_t workerCount = 0;                  ///< below 1: what suits the machine
        std::optional<bool> marksSystemFolders = std::nullopt;
    };
    struct Progress {
        std::int64_t items = 0;
        std::int64_t folders = 0;
        std::int64_t skipped = 0; ///< left out by the options, or mounted from elsewhere
        std::string currentPath;  ///< the folder read last; the root once everything is read
    };
    using ProgressHandler = std::function<void(const Progress&)>;

    struct NotADirectory {
        bool operator==(const NotADirectory&) const = default;
    };
    struct Unreadable {
        SystemError error;
        bool operator==(const Unreadable&) const = default;
    };
    /// More names than an index holds.
    struct TooLarge {
        bool operator==(const TooLarge&) const = default;
    };
    using Error = std::variant<NotADirectory, Unreadable, TooLarge, CancellationError>;
    /// One sentence for people.
    [[nodiscard]] static std::string description(const Error& error);

    explicit FindIndexBuilder(Options options) : options_(std::move(options)) {}

    /// `progress` is called from threads of the builder, never from two at once and never with less
    /// than before; once everything is read, the caller's thread calls it a last time with it all.
    [[nodiscard]] std::expected<FindIndexStorage, Error>
    run(const ProgressHandler& progress = nullptr, const CancelToken& cancel = {}) const;

  private:
    Options options_;
};

} // namespace tidyro
