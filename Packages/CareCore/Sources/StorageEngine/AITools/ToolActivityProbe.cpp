#include "StorageEngine/AITools/ToolActivityProbe.h"

#include <algorithm>
#include <utility>

#include "Base/PathText.h"

namespace tidyro {

namespace {

bool isAtOrBelow(const ToolActivitySnapshot::Paths& paths, std::string_view place) {
    if (paths.contains(place)) return true;
    // Names like "place-2" come between the place and what lies below it.
    const std::string below = std::string(place) + (place == "/" ? "" : "/");
    const auto next = paths.lower_bound(below);
    return next != paths.end() && next->starts_with(below);
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
