#include "Platform/Folders/FolderFlushes.h"

#include <chrono>

#include "Platform/Files/FileMetadata.h"

namespace tidyro::platform {

FolderFlushes::FolderFlushes(FolderChanges& changes, Clock steadySeconds)
    : changes_(changes), steadySeconds_(std::move(steadySeconds)) {
    if (!steadySeconds_) {
        steadySeconds_ = [] {
            const auto since = std::chrono::steady_clock::now().time_since_epoch();
            return std::chrono::duration<double>(since).count();
        };
    }
}

std::expected<void, SystemError> FolderFlushes::note(const FolderDescriptor& folder, Side side) {
    const auto seen = fileMetadata(folder.fd());
    if (!seen) return std::unexpected(seen.error());
    return note(folder, side, *seen);
}

std::expected<void, SystemError> FolderFlushes::note(const FolderDescriptor& folder, Side side,
                                                     const FileMetadata& onSameVolume) {
    const std::scoped_lock guard(mutex_);
    Volume& volume = volumes_[onSameVolume.mount.value_or(onSameVolume.identity.device)];
    if (!volume.isSlow && (!volume.left.empty() || !volume.entered.empty())) return {};
    const auto seen = fileMetadata(folder.fd());
    if (!seen) return std::unexpected(seen.error());
    if (volume.folders(side).contains(seen->identity)) return {};
    auto own = folder.open(".");
    if (!own) return std::unexpected(own.error());
    volume.folders(side).emplace(seen->identity, *std::move(own));
    return {};
}

bool FolderFlushes::isFlushedOneByOne(const FolderDescriptor& folder) {
    const auto seen = fileMetadata(folder.fd());
    return seen && isFlushedOneByOne(*seen);
}

bool FolderFlushes::isFlushedOneByOne(const FileMetadata& onSameVolume) {
    const std::scoped_lock guard(mutex_);
    const auto volume = volumes_.find(onSameVolume.mount.value_or(onSameVolume.identity.device));
    return volume != volumes_.end() && volume->second.isSlow;
}

std::expected<void, SystemError> FolderFlushes::flushSide(Volume& volume, Side side) {
    for (const auto& [identity, folder] : volume.folders(side)) {
        // One that was removed has nothing left to bring to the disk; its parent has.
        if (const auto seen = fileMetadata(folder.fd()); seen && seen->linkCount == 0) continue;
        if (const auto flushed = changes_.flush(folder); !flushed) {
            return std::unexpected(flushed.error().system);
        }
    }
    volume.folders(side).clear();
    return {};
}

std::expected<void, SystemError> FolderFlushes::flush() {
    const std::scoped_lock guard(mutex_);
    if (!failed_) return failed_;
    for (auto& [number, volume] : volumes_) {
        if (volume.isSlow || (volume.left.empty() && volume.entered.empty())) continue;
        const auto& folder =
            !volume.left.empty() ? volume.left.begin()->second : volume.entered.begin()->second;
        const double begun = steadySeconds_();
        if (const auto flushed = changes_.flushVolume(folder); !flushed) {
            return failed_ = std::unexpected(flushed.error().system);
        }
        volume.left.clear();
        volume.entered.clear();
        volume.isSlow = steadySeconds_() - begun > maxSecondsForVolume;
    }
    for (const Side side : {Side::left, Side::entered}) {
        for (auto& [number, volume] : volumes_) {
            if (const auto flushed = flushSide(volume, side); !flushed) return failed_ = flushed;
        }
    }
    return {};
}

} // namespace tidyro::platform
