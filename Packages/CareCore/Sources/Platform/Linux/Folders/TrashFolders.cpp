#include "Platform/Linux/Folders/TrashFolders.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <utility>

#include <fmt/format.h>

#include "Base/PathText.h"
#include "Platform/Files/DurableFile.h"
#include "Platform/Folders/FolderFiles.h"
#include "Platform/Machine/RandomUUID.h"

namespace tidyro::platform {

namespace {

using Opened = std::expected<std::shared_ptr<TrashFolders>, TrashError>;
using OpenedFolder = std::expected<FolderDescriptor, TrashError>;

constexpr unsigned privatePermissions = 0700;
constexpr const char* sizesName = "directorysizes";
constexpr std::size_t maxSizesBytes = 64UL << 20U;

std::unexpected<TrashError> unusable(SystemError error = {0}) {
    const bool isFull = error.code == ENOSPC || error.code == EDQUOT;
    return std::unexpected(
        TrashError{isFull ? TrashFailure::full : TrashFailure::trashUnusable, error});
}

std::string noteName(const std::string& name) { return name + std::string(trashNoteEnding); }

/// The bytes of a path as a note has them.
std::string encoded(std::string_view path) {
    constexpr std::string_view scheme = "file://";
    return FileURL::file(path).text().substr(scheme.size());
}

/// A folder inside another one: a real one, of this person, on the same mount. It is made when it
/// is missing and may be. The caller that hands in `isMade` flushes the parent then.
OpenedFolder openOwn(FolderChanges& changes, const FolderDescriptor& parent,
                     const std::string& name, TrashFolders::Missing missing,
                     bool* isMade = nullptr) {
    auto opened = parent.open(name.c_str());
    if (!opened && opened.error().code == ENOENT && missing == TrashFolders::Missing::make) {
        const auto made = changes.makeFolder({.folder = parent, .name = name}, privatePermissions);
        if (!made && made.error().kind != ChangeFailure::targetTaken) {
            if (made.error().kind == ChangeFailure::readOnly) {
                return std::unexpected(
                    TrashError{TrashFailure::volumeReadOnly, made.error().system});
            }
            return unusable(made.error().system);
        }
        // What is moved into it later is flushed with its own folder alone where volumes are slow.
        if (isMade != nullptr) {
            *isMade = true;
        } else if (const auto flushed = changes.flush(parent); !flushed) {
            return unusable(flushed.error().system);
        }
        opened = parent.open(name.c_str());
    }
    if (!opened) return unusable(opened.error());
    const auto seen = fileMetadata(opened->fd());
    const auto above = fileMetadata(parent.fd());
    if (!seen || !above || seen->ownerUserID != currentUserID() ||
        seen->identity.device != above->identity.device || !areOnOneMount(*seen, *above)) {
        return unusable();
    }
    return *std::move(opened);
}

/// Opens what lies in a Trash.
Opened openInside(FolderChanges& changes, std::string path, std::string top, FolderDescriptor base,
                  TrashFolders::Missing missing = TrashFolders::Missing::make) {
    bool isMade = false;
    auto files = openOwn(changes, base, "files", missing, &isMade);
    if (!files) return std::unexpected(files.error());
    auto info = openOwn(changes, base, "info", missing, &isMade);
    if (!info) return std::unexpected(info.error());
    if (isMade) {
        if (const auto flushed = changes.flush(base); !flushed) {
            return unusable(flushed.error().system);
        }
    }
    const auto seen = fileMetadata(files->fd());
    if (!seen) return unusable(seen.error());
    return std::make_shared<TrashFolders>(TrashFolders{.path = std::move(path),
                                                       .top = std::move(top),
                                                       .base = std::move(base),
                                                       .files = *std::move(files),
                                                       .info = *std::move(info),
                                                       .seen = *seen});
}

/// What looking for a Trash found; none when there is no Trash that a person could use.
std::optional<TrashFolders::Found> found(Opened opened) {
    if (opened) return *std::move(opened);
    switch (opened.error().system.code) {
    case 0:
    case ENOENT:
    case ENOTDIR:
    case ELOOP: return std::nullopt;
    default: return std::unexpected(opened.error().system);
    }
}

Opened look(const FolderDescriptor& above, const std::string& name, std::string path,
            std::string top) {
    LiveFolderChanges none; // nothing is made
    auto base = openOwn(none, above, name, TrashFolders::Missing::refuse);
    if (!base) return std::unexpected(base.error());
    if (!top.empty() && !isPrivateFolder(*base)) return unusable();
    return openInside(none, std::move(path), std::move(top), *std::move(base),
                      TrashFolders::Missing::refuse);
}

} // namespace

std::optional<TrashFolders::Found> TrashFolders::findHome(const std::string& path) {
    const auto above = FolderDescriptor::openRoot(std::string(path::parent(path)));
    if (!above) return found(unusable(above.error()));
    return found(look(*above, std::string(path::lastComponent(path)), path, {}));
}

std::vector<TrashFolders::Found> TrashFolders::findAtTop(const std::string& top) {
    std::vector<Found> all;
    const auto add = [&](Opened opened) {
        if (auto one = found(std::move(opened))) all.push_back(*std::move(one));
    };
    const auto folder = FolderDescriptor::openRoot(top);
    if (!folder) {
        add(unusable(folder.error()));
        return all;
    }
    const std::string user = std::to_string(currentUserID());
    if (const auto shared = folder->open(".Trash")) {
        const auto seen = fileMetadata(shared->fd());
        if (seen && (seen->permissions & stickyPermission) != 0) {
            add(look(*shared, user, path::joined(path::joined(top, ".Trash"), user), top));
        }
    }
    const std::string own = ".Trash-" + user;
    add(look(*folder, own, path::joined(top, own), top));
    return all;
}

Opened TrashFolders::openHome(FolderChanges& changes, ChangeGate& gate, const std::string& path) {
    // The folders above may be links: a person decides where the home keeps its data.
    const std::string above(path::parent(path));
    // A superuser who kept somebody's home in the environment leaves nothing of their own in there.
    std::string existing = path;
    auto seen = fileMetadata(existing);
    while (!seen && existing != "/") {
        existing = path::parent(existing);
        seen = fileMetadata(existing);
    }
    if (!seen || (currentUserID() == 0 && seen->ownerUserID != 0)) return unusable();
    if (const auto made = makePrivateFolder(above, gate); !made) return unusable(made.error());
    const auto parent = FolderDescriptor::openRoot(above);
    if (!parent) return unusable(parent.error());
    auto base = openOwn(changes, *parent, std::string(path::lastComponent(path)), Missing::make);
    if (!base) return std::unexpected(base.error());
    return openInside(changes, path, {}, *std::move(base));
}

Opened TrashFolders::openAtTop(FolderChanges& changes, const std::string& top, Missing missing) {
    const auto folder = FolderDescriptor::openRoot(top);
    if (!folder) return unusable(folder.error());
    const std::string user = std::to_string(currentUserID());
    // One for all that an administrator has made. Where it is not sticky somebody could exchange
    // the folder in it, and a link leads anywhere.
    if (const auto shared = folder->open(".Trash")) {
        const auto seen = fileMetadata(shared->fd());
        if (seen && (seen->permissions & stickyPermission) != 0) {
            if (auto base = openOwn(changes, *shared, user, missing);
                base && isPrivateFolder(*base)) {
                return openInside(changes, path::joined(path::joined(top, ".Trash"), user), top,
                                  *std::move(base));
            }
        }
    }
    const std::string name = ".Trash-" + user;
    auto base = openOwn(changes, *folder, name, missing);
    if (!base) return std::unexpected(base.error());
    if (!isPrivateFolder(*base)) return unusable();
    return openInside(changes, path::joined(top, name), top, *std::move(base));
}

void TrashFolders::writeSizes(ChangeGate& gate) {
    if (sizes.empty()) return;
    // A cache for others, which nothing is flushed for: one that a crash damages is written anew,
    // and one that cannot be written is left out.
    const EntryName at{.folder = base, .name = sizesName};
    std::map<std::string, std::string> lines; // by the encoded name
    const std::string known = readFileIn(at, maxSizesBytes).value_or(std::string());
    for (std::size_t begin = 0; begin < known.size();) {
        const std::size_t end = std::min(known.find('\n', begin), known.size());
        const std::string_view line = std::string_view(known).substr(begin, end - begin);
        const std::size_t name = line.rfind(' ');
        begin = end + 1;
        if (name == std::string_view::npos || name == 0) continue;
        const auto decoded = FileURL::fromText("file:///" + std::string(line.substr(name + 1)));
        if (decoded && fileMetadata(files, std::string(decoded->lastComponent()).c_str())) {
            lines[std::string(line.substr(name + 1))] = line;
        }
    }
    for (const Size& size : sizes) {
        const auto note = fileMetadata(info, noteName(size.name).c_str());
        if (!note || !fileMetadata(files, size.name.c_str())) continue;
        const std::optional<Timestamp> noted = note->modified;
        if (!noted) continue;
        const std::string name = encoded("/" + size.name).substr(1);
        lines[name] = fmt::format("{} {} {}", size.byteCount,
                                  static_cast<std::int64_t>(noted->secondsSince1970()), name);
    }
    std::string text;
    for (const auto& [name, line] : lines) text += line + '\n';
    static_cast<void>(replaceFileIn(at, text, gate));
    sizes.clear();
}

std::string trashName(std::string_view name, unsigned attempt, std::size_t maxBytes) {
    constexpr unsigned maxNumber = 20;
    std::string mark;
    if (attempt > maxNumber) {
        mark = "." + randomUUID().text().substr(0, 8);
    } else if (attempt > 1) {
        mark = "." + std::to_string(attempt);
    }
    constexpr std::size_t maxExtension = 32;
    std::string_view extension = path::extensionOf(name);
    if (extension.size() > maxExtension) extension = {};
    std::string_view stem =
        extension.empty() ? name : name.substr(0, name.size() - extension.size() - 1);
    const std::size_t others =
        mark.size() + trashNoteEnding.size() + (extension.empty() ? 0 : extension.size() + 1);
    const std::size_t room = maxBytes > others ? maxBytes - others : 1;
    if (stem.size() > room) {
        std::size_t end = room;
        const auto isInsideCharacter = [&](std::size_t at) {
            return (static_cast<unsigned char>(stem[at]) & 0xC0U) == 0x80U;
        };
        for (int back = 0; back < 3 && end > 1 && isInsideCharacter(end); ++back) --end;
        stem = stem.substr(0, end);
    }
    std::string made(stem);
    made += mark;
    if (!extension.empty()) made.append(".").append(extension);
    return made;
}

} // namespace tidyro::platform
