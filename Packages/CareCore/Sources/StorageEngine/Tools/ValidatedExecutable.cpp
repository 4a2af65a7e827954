#include "StorageEngine/Tools/ValidatedExecutable.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <system_error>
#include <utility>

#include "Base/Fault.h"
#include "Base/PathText.h"
#include "Base/UnicodeText.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/FolderChanges.h"
#include "Platform/Folders/WellKnownFolders.h"
#include "Platform/Machine/RandomUUID.h"

namespace tidyro {

namespace {

using platform::FileMetadata;

constexpr std::uint32_t writableByEverybody = 0002;
constexpr std::uint32_t writableByOthers = 0022;
constexpr std::uint32_t rootUserID = 0;

/// Whether the file's own facts let it run; where it lies is another question.
bool isTrustworthyFile(const FileMetadata& seen) {
    return seen.kind == platform::ItemKind::regularFile &&
           (seen.ownerUserID == platform::currentUserID() || seen.ownerUserID == rootUserID) &&
           (seen.permissions & writableByOthers) == 0;
}

bool isInTemporaryPlace(const std::string& path) {
    constexpr std::array<std::string_view, 6> places{
        "/tmp", "/private/tmp", "/var/folders", "/private/var/folders", "/var/tmp", "/dev/shm",
    };
    const auto isBelow = [&](std::string_view place) { return path::isInsideOrEqual(path, place); };
    if (std::ranges::any_of(places, isBelow)) return true;
    const auto moved = platform::folderNamedBy("TMPDIR");
    if (!moved) return false;
    const auto real = platform::realPath(*moved);
    return isBelow(path::standardized(*moved)) || (real && isBelow(*real));
}

/// False also when one cannot be looked at.
bool areFoldersAboveGuarded(std::string_view path) {
    for (std::string_view folder = path; folder != "/";) {
        folder = path::parent(folder);
        const auto seen = platform::fileMetadata(std::string(folder));
        if (!seen) return false;
        const bool isOpen = (seen->permissions & writableByEverybody) != 0;
        if (isOpen && (seen->permissions & platform::stickyPermission) == 0) return false;
    }
    return true;
}

/// None where the file system keeps no dates: then nothing tells a changed file.
std::optional<std::int64_t> modificationSecondsOf(const FileMetadata& seen) {
    if (!seen.modified) return std::nullopt;
    return static_cast<std::int64_t>(std::floor(seen.modified->secondsSince1970()));
}

bool isRecorded(const ValidatedExecutable& record, const FileMetadata& seen) {
    return seen.kind == platform::ItemKind::regularFile &&
           seen.identity.device == record.deviceID && seen.identity.inode == record.inode &&
           seen.byteCount == record.byteCount &&
           modificationSecondsOf(seen) == record.modificationSeconds;
}

std::optional<ValidatedExecutable> recordOf(const FileURL& url, const FileMetadata& seen) {
    const auto modified = modificationSecondsOf(seen);
    if (!modified) return std::nullopt;
    return ValidatedExecutable{.url = url,
                               .version = {},
                               .deviceID = seen.identity.device,
                               .inode = seen.identity.inode,
                               .byteCount = seen.byteCount,
                               .modificationSeconds = *modified};
}

} // namespace

// The working folder ---------------------------------------------------------------------------

std::optional<ScratchFolder> ScratchFolder::make(std::string_view label,
                                                 const std::optional<FileURL>& in) {
    require(label.find('/') == std::string_view::npos, "a scratch folder's label is one name");
    const FileURL parent =
        in ? *in : FileURL::folder(platform::folderNamedBy("TMPDIR").value_or("/tmp"));
    const std::string name = std::string(label) + "-" + platform::randomUUID().text();
    const auto opened = platform::FolderDescriptor::openRoot(parent.path());
    platform::LiveFolderChanges changes;
    constexpr unsigned onlyOwner = 0700;
    if (!opened || !changes.makeFolder({*opened, name}, onlyOwner)) return std::nullopt;
    return ScratchFolder(parent.appendingFolder(name));
}

ScratchFolder::ScratchFolder(ScratchFolder&& other) noexcept
    : url_(std::move(other.url_)), isThere_(std::exchange(other.isThere_, false)) {}

void ScratchFolder::remove() {
    if (!std::exchange(isThere_, false)) return;
    namespace fs = std::filesystem;
    std::error_code failed;
    fs::remove_all(url_.path(), failed);
    if (!failed) return;
    // A program may have closed its working folder, or one that it made, which hides what is in it.
    std::error_code stillClosed;
    fs::permissions(url_.path(), fs::perms::owner_all,
                    fs::perm_options::replace | fs::perm_options::nofollow, stillClosed);
    for (fs::recursive_directory_iterator at(url_.path(), failed), end; !failed && at != end;
         at.increment(failed)) {
        std::error_code unchanged;
        if (at->is_directory(unchanged) && !at->is_symlink(unchanged)) {
            fs::permissions(at->path(), fs::perms::owner_all, unchanged);
        }
    }
    fs::remove_all(url_.path(), failed);
}

// The program ----------------------------------------------------------------------------------

std::optional<FileURL> ValidatedExecutable::passesFileChecks(const FileURL& at,
                                                             bool allowTemporaryLocation) {
    const auto real = platform::realPath(at.path());
    if (!real) return std::nullopt;
    const auto seen = platform::fileMetadata(*real);
    if (!seen || !isTrustworthyFile(*seen) || !platform::isExecutable(*real)) return std::nullopt;
    if (!allowTemporaryLocation && isInTemporaryPlace(*real)) return std::nullopt;
    if (!areFoldersAboveGuarded(*real)) return std::nullopt;
    return FileURL::file(*real);
}

std::optional<ValidatedExecutable> ValidatedExecutable::validated(const FileURL& at,
                                                                  const Options& options) {
    const auto resolved = passesFileChecks(at, options.allowTemporaryLocation);
    if (!resolved) return std::nullopt;
    auto opened = platform::OpenProgram::open(resolved->path());
    if (!opened || (options.scripts == Scripts::refused && !opened->isNative())) {
        return std::nullopt;
    }
    // What is recorded is what is asked for its version, whatever happens to its name.
    const auto seen = opened->metadata();
    if (!seen || !isTrustworthyFile(*seen)) return std::nullopt;
    auto record = recordOf(*resolved, *seen);
    const auto usualLaunch = [&]() -> Launch {
        return {.executable = *resolved,
                .arguments = {"--version"},
                .environment = options.environment
                                   ? *options.environment
                                   : BoundedProcess::defaultEnvironment(platform::homeFolder())};
    };
    const Launch launch = options.launcher ? options.launcher(*resolved) : usualLaunch();
    const auto scratch = ScratchFolder::make("check", options.scratchRoot);
    if (!record || launch.executable != *resolved || !scratch) return std::nullopt;

    constexpr std::size_t maxVersionBytes = 65'536;
    const BoundedProcess probe{
        .executable = launch.executable,
        .arguments = launch.arguments,
        .environment = launch.environment,
        .currentDirectory = scratch->url(),
        .timeout = options.versionTimeout,
        .outputLimit = maxVersionBytes,
        .terminationGrace = options.terminationGrace,
        .program = std::make_shared<const platform::OpenProgram>(std::move(*opened)),
    };
    const auto output = probe.runSynchronously();
    if (!output || output->timedOut || output->cancelled || output->exitCode != 0) {
        return std::nullopt;
    }
    auto version = options.version(repairedUTF8(output->standardOutput));
    if (!version || !record->stillIdentified()) return std::nullopt;
    record->version = std::move(*version);
    return record;
}

bool ValidatedExecutable::stillIdentified() const {
    const auto seen = platform::fileMetadata(url.path());
    return seen && isRecorded(*this, *seen);
}

std::shared_ptr<const platform::OpenProgram> ValidatedExecutable::open() const {
    // The path must lead there without a link, as it did.
    if (!platform::isWithoutLinks(url.path())) return nullptr;
    auto opened = platform::OpenProgram::open(url.path());
    if (!opened) return nullptr;
    const auto seen = opened->metadata();
    if (!seen || !isRecorded(*this, *seen) || !isTrustworthyFile(*seen)) return nullptr;
    return std::make_shared<const platform::OpenProgram>(std::move(*opened));
}

} // namespace tidyro
