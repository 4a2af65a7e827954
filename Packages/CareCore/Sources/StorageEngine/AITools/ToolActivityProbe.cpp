#include "StorageEngine/AITools/ToolActivityProbe.h"

#include <algorithm>
#include <utility>

#include "Base/PathText.h"
#include "Platform/Files/FileMetadata.h"

namespace tidyro {

namespace {

/// Comes before all that lies below a place, and after the place itself and names like "place-2"
/// that lie between them: the order of the texts "place", "place-2", "place/a".
struct JustBelow {
    std::string_view place;

    friend bool operator<(const std::string& path, const JustBelow& below) {
        const int order = path.compare(0, below.place.size(), below.place);
        if (order != 0) return order < 0;
        return path.size() == below.place.size() ||
               static_cast<unsigned char>(path[below.place.size()]) < '/';
    }
};

bool isAtOrBelow(const ToolActivitySnapshot::Paths& paths, std::string_view place) {
    if (paths.empty()) return false; // as nearly always, and this is asked for each item
    if (place == "/" || paths.contains(place)) return true;
    const auto next = paths.lower_bound(JustBelow{place});
    return next != paths.end() && path::isInsideOrEqual(*next, place);
}

ToolActivitySnapshot::Paths below(const ToolActivitySnapshot::Paths& paths,
                                  std::span<const std::string> roots) {
    ToolActivitySnapshot::Paths kept;
    for (const std::string& path : paths) {
        if (std::ranges::any_of(
                roots, [&](const auto& root) { return path::isInsideOrEqual(path, root); })) {
            kept.insert(path);
        }
    }
    return kept;
}

} // namespace

bool ToolActivitySnapshot::isActive(std::string_view inside) const {
    return isAtOrBelow(openFilePaths, inside) || isAtOrBelow(workingDirectories, inside) ||
           isAtOrBelow(executablePaths, inside);
}

bool ToolActivitySnapshot::isWorkedIn(std::string_view folder) const {
    return isAtOrBelow(workingDirectories, folder);
}

void ToolActivitySnapshot::addWritten(const std::string& folder) {
    const auto real = platform::realPath(folder);
    if (!real || *real == folder) return;
    for (Paths* paths : {&openFilePaths, &workingDirectories, &executablePaths}) {
        for (const std::string& path : below(*paths, std::span(&*real, 1))) {
            paths->insert(folder + path.substr(real->size()));
        }
    }
}

ToolActivitySnapshot ToolActivitySnapshot::restricted(std::span<const std::string> to) const {
    return {.openFilePaths = below(openFilePaths, to),
            .workingDirectories = below(workingDirectories, to),
            .executablePaths = below(executablePaths, to),
            .unreadableProcessCount = unreadableProcessCount,
            .isIncomplete = isIncomplete};
}

bool ToolActivitySnapshot::isRunning(std::span<const std::string> markers) const {
    return std::ranges::any_of(executablePaths, [&](const std::string& path) {
        return std::ranges::any_of(
            markers, [&](const std::string& marker) { return path.find(marker) != path.npos; });
    });
}

ToolActivitySnapshot LiveToolActivityProvider::capture() const {
    auto activity = processes_.activity();
    ToolActivitySnapshot seen;
    if (!activity) {
        seen.isIncomplete = true;
        return seen;
    }
    seen.unreadableProcessCount = activity->unreadable;
    seen.isIncomplete = activity->areOthersHidden;
    for (platform::RunningProcess& process : activity->processes) {
        // What this program has open while it looks around is no sign of the tool.
        if (process.pid == platform::currentProcessID()) continue;
        for (std::string& file : process.files) seen.openFilePaths.insert(std::move(file));
        if (!process.workingFolder.empty()) {
            seen.workingDirectories.insert(std::move(process.workingFolder));
        }
        if (!process.executable.empty()) {
            seen.executablePaths.insert(std::move(process.executable));
        }
    }
    return seen;
}

ToolActivitySnapshot CachedToolActivityProvider::snapshot() {
    const std::lock_guard lock(mutex_);
    const Timestamp now = now_();
    // A clock that was set back makes what is remembered look new for ever.
    const double age =
        cachedAt_ ? now.secondsSinceReference() - cachedAt_->secondsSinceReference() : maxAge;
    if (age < 0 || age >= maxAge) {
        cached_ = base_.snapshot();
        cachedAt_ = now;
    }
    return cached_;
}

} // namespace tidyro
