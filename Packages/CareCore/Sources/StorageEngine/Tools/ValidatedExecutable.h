#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Base/FileURL.h"
#include "Base/Record.h"
#include "StorageEngine/Tools/BoundedProcess.h"

namespace tidyro {

/// A private working folder, gone with all that is in it when this goes.
class ScratchFolder {
  public:
    /// Named after the label and a fresh UUID, in the folder for temporary files when none is
    /// given. Only this user may enter it. None when it cannot be made.
    [[nodiscard]] static std::optional<ScratchFolder>
    make(std::string_view label, const std::optional<FileURL>& in = std::nullopt);
    ScratchFolder(ScratchFolder&& other) noexcept;
    ScratchFolder& operator=(ScratchFolder&&) = delete;
    ~ScratchFolder() { remove(); }

    [[nodiscard]] const FileURL& url() const { return url_; }
    /// Removes the folder and follows no link in it. Later calls do nothing.
    void remove();

  private:
    explicit ScratchFolder(FileURL url) : url_(std::move(url)) {}

    FileURL url_;
    bool isThere_ = true;
};

/// A program that was found trustworthy and told its version, pinned by its identity, so that
/// another file in its place is noticed before it runs. Whoever runs it calls `open` right before
/// and hands the result to the `BoundedProcess`.
struct ValidatedExecutable {
    FileURL url; ///< with every link resolved
    std::string version;
    std::uint64_t deviceID;
    std::uint64_t inode;
    std::uint64_t byteCount;
    std::int64_t modificationSeconds; ///< since 1970, rounded down

    struct Launch {
        FileURL executable;
        std::vector<std::string> arguments;
        std::map<std::string, std::string> environment;
    };
    enum class Scripts : std::uint8_t { refused, allowed };
    /// Makes a version from what the probe printed, repaired where it is no UTF-8; none when the
    /// program is another one.
    using VersionReader = std::function<std::optional<std::string>(std::string_view output)>;

    struct Options {
        /// The default one of the person's home when left out.
        std::optional<std::map<std::string, std::string>> environment = std::nullopt;
        bool allowTemporaryLocation = false;
        VersionReader version;
        /// Seconds.
        double versionTimeout = 5;
        double terminationGrace = 5;
        /// Where the probe's working folder is made; none for the folder for temporary files.
        std::optional<FileURL> scratchRoot = std::nullopt;
        /// How the resolved program is asked for its version; "--version" when left out. A launch
        /// of another program is refused.
        std::function<Launch(const FileURL& resolved)> launcher = {};
        /// A script is started by its path, so it is what was checked only as long as nobody
        /// exchanges it in that moment.
        Scripts scripts = Scripts::allowed;
    };
    /// Checks the file and asks it for its version, in a folder of its own. None when either fails.
    [[nodiscard]] static std::optional<ValidatedExecutable> validated(const FileURL& at,
                                                                      const Options& options);
    /// The same for a program that tells its version in the usual way.
    [[nodiscard]] static std::optional<ValidatedExecutable>
    validate(const FileURL& at, std::optional<std::map<std::string, std::string>> environment,
             bool allowTemporaryLocation, VersionReader version) {
        return validated(at, {.environment = std::move(environment),
                              .allowTemporaryLocation = allowTemporaryLocation,
                              .version = std::move(version)});
    }

    /// The resolved path when it leads to a regular file that
    ///
    /// - this user may execute,
    /// - belongs to this user or root,
    /// - nobody else may write to,
    /// - lies in no place for temporary files, unless those are allowed,
    /// - lies below no folder that everybody may write to. Sticky ones are aside: there everybody
    ///   may remove only what is their own.
    [[nodiscard]] static std::optional<FileURL> passesFileChecks(const FileURL& at,
                                                                 bool allowTemporaryLocation);

    /// Whether the file at the path is still the one that was validated.
    [[nodiscard]] bool stillIdentified() const;

    /// The file as it was validated, held open, for `BoundedProcess::program`. Null when another
    /// one lies there by now, or when others may write to it.
    [[nodiscard]] std::shared_ptr<const platform::OpenProgram> open() const;

    static constexpr auto fields() {
        using Self = ValidatedExecutable;
        return fieldList<Self>(field("url", &Self::url), field("version", &Self::version),
                               field("deviceID", &Self::deviceID), field("inode", &Self::inode),
                               field("byteCount", &Self::byteCount),
                               field("modificationSeconds", &Self::modificationSeconds));
    }
    bool operator==(const ValidatedExecutable&) const = default;
};

} // namespace tidyro
