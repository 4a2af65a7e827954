#pragma once

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <ranges>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Base/PathText.h"
#include "Platform/Files/ChangeGate.h"
#include "Platform/Files/DurableFile.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Testing/ForwardedFolderChanges.h"

namespace tidyro::testing {

/// A disk that may forget whatever was not flushed. It makes the changes of a run on the real tree,
/// remembers those that no flush has confirmed, and undoes one of them, or all from one on, once
/// the run has ended:
///
///     UnflushedChanges disk({.watched = place / "data", .aside = place / "aside", .end = 12});
///     runWith(disk.folders(), disk.gate());       // everything after the 12th change fails
///     if (!disk.forget(3)) return;                // no crash leaves that
///     ... recover, and look for the items ...
///
/// It is stricter than file systems with a journal are: an entry lasts when its folder was flushed,
/// the bytes of a file when the file was, and a rename when both of its folders were. A folder
/// whose own entry is forgotten takes with it what was flushed into it. So it shows a flush that is
/// left out also where a disk would hide it. It needs neither a device nor root. Used by one
/// thread.
class UnflushedChanges {
  public:
    static constexpr std::size_t never = std::numeric_limits<std::size_t>::max();
    struct Options {
        /// Small files and folders that change through the gate lie below it.
        std::string watched;
        /// An empty folder on the same volume. What is removed lies there, so that it can come
        /// back.
        std::string aside;
        /// A folder that stands for another disk: a flush of the whole volume does not reach it.
        std::string otherDisk = {};
        std::size_t end = never;          ///< the process dies after so many changes and flushes
        std::size_t flushLeftOut = never; ///< by its number, from 0 on: it does nothing
        bool isTellingPaths = false;      ///< of what is flushed, which takes its time
    };
    explicit UnflushedChanges(Options options)
        : options_(std::move(options)), folders_(*this), gate_(*this) {}
    UnflushedChanges(const UnflushedChanges&) = delete;
    UnflushedChanges& operator=(const UnflushedChanges&) = delete;

    [[nodiscard]] platform::FolderChanges& folders() { return folders_; }
    [[nodiscard]] platform::ChangeGate& gate() { return gate_; }

    struct Flush {
        std::size_t at;                     ///< how many changes and flushes there were with it
        std::string what;                   ///< for people
        std::vector<std::string> confirmed; ///< or would have been, when it was left out
    };
    /// How many changes and flushes were made.
    [[nodiscard]] std::size_t count() const { return count_; }
    [[nodiscard]] const std::vector<Flush>& flushes() const { return flushes_; }
    /// How many changes a crash may undo by now.
    [[nodiscard]] std::size_t unflushedCount() const { return unflushed_.size(); }
    /// Those of them that the flush that was left out would have confirmed.
    [[nodiscard]] std::vector<std::size_t> leftBehind() const {
        std::vector<std::size_t> numbers;
        for (std::size_t i = 0; i < unflushed_.size(); ++i) {
            if (unflushed_[i].isLeftBehind) numbers.push_back(i);
        }
        return numbers;
    }

    [[nodiscard]] const std::string& unflushed(std::size_t number) const {
        return unflushed_[number].what;
    }
    /// Undoes one change that was not flushed. False when later ones stand on it; then no crash
    /// leaves what is there by now.
    [[nodiscard]] bool forget(std::size_t number) {
        // What a folder holds that is forgotten itself was not moved there either.
        for (std::size_t later = unflushed_.size(); later-- > number + 1;) {
            if (unflushed_[later].touched.contains(unflushed_[number].made) &&
                !unflushed_[later].undo()) {
                return false;
            }
        }
        return unflushed_[number].undo();
    }
    /// Undoes one and all that came after it. False when that was not possible.
    [[nodiscard]] bool forgetFrom(std::size_t number) {
        while (unflushed_.size() > number) {
            if (!unflushed_.back().undo()) return false;
            unflushed_.pop_back();
        }
        return true;
    }

  private:
    using Identity = platform::ItemIdentity;
    using Folder = std::shared_ptr<const FolderDescriptor>;
    using Changed = platform::FolderChanges::Changed;
    struct Seen {
        Identity identity;
        bool isFolder;
        std::string bytes = {};
    };
    using Tree = std::map<std::string, Seen>;

    struct Change {
        std::string what; ///< for people
        std::function<bool()> undo;
        /// The folders that have to be flushed for it, or the file whose bytes it changed.
        std::set<Identity> needs = {};
        std::set<Identity> touched = {}; ///< the same folders, flushed or not
        Identity made = {};              ///< the folder that it made
        Identity removed = {};           ///< the folder that it removed
        bool isOnOtherDisk = false;
        bool isLeftBehind = false;
    };

    /// One change of what folders hold.
    class Folders final : public ForwardedFolderChanges {
      public:
        explicit Folders(UnflushedChanges& disk) : ForwardedFolderChanges(live_), disk_(disk) {}

        Changed renameNeverReplacing(const EntryName& from, const EntryName& to) override {
            return disk_.rename(from, to);
        }
        // Placeholders alone are replaced, and they are worth nothing.
        Changed renameReplacing(const EntryName& from, const EntryName& to) override {
            if (disk_.isOver_) return disk_.dead();
            static_cast<void>(live_.removeFile(to));
            static_cast<void>(live_.removeFolder(to));
            return disk_.rename(from, to);
        }
        Changed link(const EntryName& existing, const EntryName& added) override {
            return disk_.make(added, [&] { return live_.link(existing, added); });
        }
        Changed makeEmptyFile(const EntryName& at) override {
            return disk_.make(at, [&] { return live_.makeEmptyFile(at); });
        }
        Changed makeFolder(const EntryName& at, unsigned permissions) override {
            return disk_.make(at, [&] { return live_.makeFolder(at, permissions); });
        }
        Changed removeFile(const EntryName& at) override { return disk_.remove(at); }
        Changed removeFolder(const EntryName& at) override {
            if (disk_.isOver_) return disk_.dead();
            // The system judges whether it may go; a removed one is made anew and kept aside.
            const auto folder = at.folder.open(at.name.c_str());
            if (!folder || !isEmpty(*folder)) return live_.removeFolder(at);
            const Identity removed = identityOf(*folder);
            disk_.removedFolders_.insert(removed);
            return disk_.remove(at, removed);
        }
        Changed flush(const FolderDescriptor& folder) override {
            if (disk_.isOver_) return disk_.dead();
            const Identity flushed = identityOf(folder);
            if (disk_.removedFolders_.contains(flushed)) return {}; // nothing leads to it any more
            disk_.flush("folder " + disk_.pathOf(flushed),
                        [&](Change& each) { return each.needs.erase(flushed) > 0; });
            return {};
        }
        Changed flushVolume(const FolderDescriptor&) override {
            if (disk_.isOver_) return disk_.dead();
            disk_.flush("volume", [&](Change& each) {
                if (each.isOnOtherDisk) return false;
                each.needs.clear();
                return true;
            });
            return {};
        }

      private:
        platform::LiveFolderChanges live_;
        UnflushedChanges& disk_;
    };

    /// One change of a file. What it was shows by what is there afterwards.
    class Gate final : public platform::ChangeGate {
      public:
        explicit Gate(UnflushedChanges& disk) : disk_(disk) {}
        Done perform(platform::DiskChange, const std::function<Done()>& change) override {
            if (disk_.isOver_) return std::unexpected(SystemError{EIO});
            const Tree before = disk_.watchedTree();
            Done done = change();
            if (done) disk_.addWhatChanged(before);
            return done;
        }
        Done performFlush(const platform::FlushTarget& target,
                          const std::function<Done()>&) override {
            if (disk_.isOver_) return std::unexpected(SystemError{EIO});
            const Identity flushed = target.file >= 0
                                         ? platform::fileMetadata(target.file)->identity
                                         : platform::fileMetadata(target.folder)->identity;
            disk_.flush((target.file >= 0 ? "file " : "folder ") + disk_.pathOf(flushed),
                        [&](Change& each) { return each.needs.erase(flushed) > 0; });
            return {};
        }

      private:
        UnflushedChanges& disk_;
    };

    [[nodiscard]] static Identity identityOf(const FolderDescriptor& folder) {
        return platform::fileMetadata(folder.fd())->identity;
    }
    [[nodiscard]] static Identity folderOf(const std::string& path) {
        return platform::fileMetadata(std::string(path::parent(path)))->identity;
    }
    [[nodiscard]] static bool isEmpty(const FolderDescriptor& folder) {
        for (const auto& each :
             std::filesystem::directory_iterator("/proc/self/fd/" + std::to_string(folder.fd()))) {
            static_cast<void>(each);
            return false;
        }
        return true;
    }
    [[nodiscard]] static Folder own(const FolderDescriptor& folder) {
        return std::make_shared<const FolderDescriptor>(*folder.open("."));
    }
    [[nodiscard]] std::string newNameAside() { return "removed " + std::to_string(asideCount_++); }
    [[nodiscard]] static Changed dead() {
        return std::unexpected(platform::ChangeError::fromSystem({EIO}));
    }
    /// Of an item on this disk, as far as it can be found; it may have gone.
    [[nodiscard]] std::string pathOf(const Identity& identity) const {
        if (!options_.isTellingPaths) return {};
        const std::string top(path::parent(options_.aside));
        std::error_code none;
        for (const auto& each : std::filesystem::recursive_directory_iterator(top, none)) {
            const auto seen = platform::fileMetadata(each.path().string());
            if (seen && seen->identity == identity) return each.path().string().substr(top.size());
        }
        return "(gone)";
    }

    void countOne() {
        if (++count_ == options_.end) isOver_ = true;
    }
    void add(Change change) {
        change.touched.insert(change.needs.begin(), change.needs.end());
        unflushed_.push_back(std::move(change));
        countOne();
    }
    /// `confirm` takes away what a change still needs, and tells whether it did.
    template <class Confirm>
    void flush(std::string what, const Confirm& confirm) {
        const bool isLeftOut = flushes_.size() == options_.flushLeftOut;
        Flush made{.at = count_ + 1, .what = std::move(what), .confirmed = {}};
        const auto confirmEach = [&](const auto& take) {
            std::set<Identity> removed;
            for (Change& each : unflushed_) {
                const std::set<Identity> needs = each.needs;
                if (!take(each)) continue;
                made.confirmed.push_back(each.what);
                if (each.needs.empty()) removed.insert(each.removed);
                if (!isLeftOut) continue;
                each.needs = needs;
                each.isLeftBehind = true;
            }
            return removed;
        };
        // With the removal of a folder that of all that was in it lasts.
        for (const Identity& gone : confirmEach(confirm)) {
            static_cast<void>(
                confirmEach([&](Change& each) { return each.needs.erase(gone) > 0; }));
        }
        std::erase_if(unflushed_, [](const Change& each) { return each.needs.empty(); });
        flushes_.push_back(std::move(made));
        countOne();
    }

    Changed rename(const EntryName& from, const EntryName& to) {
        if (isOver_) return dead();
        auto renamed = live_.renameNeverReplacing(from, to);
        if (!renamed) return renamed;
        add({.what = "move " + from.name,
             .undo = undoOfRename(from, to),
             .needs = {identityOf(from.folder), identityOf(to.folder)}});
        return renamed;
    }
    Changed remove(const EntryName& at, const Identity& folder = {}) {
        if (isOver_) return dead();
        const FolderDescriptor aside = *FolderDescriptor::openRoot(options_.aside);
        const std::string name = newNameAside();
        const EntryName to{.folder = aside, .name = name};
        auto removed = live_.renameNeverReplacing(at, to);
        if (!removed) return removed;
        add({.what = "remove " + at.name,
             .undo = undoOfRename(at, to),
             .needs = {identityOf(at.folder)},
             .removed = folder});
        return removed;
    }
    std::function<bool()> undoOfRename(const EntryName& from, const EntryName& to) {
        return [this, source = own(from.folder), target = own(to.folder), oldName = from.name,
                newName = to.name] {
            // The removal of a folder lasts no longer than that of what was in it.
            if (removedFolders_.contains(identityOf(*source))) return false;
            const EntryName now{.folder = *target, .name = newName};
            const auto seen = platform::fileMetadata(*target, newName.c_str());
            const bool isBack =
                live_.renameNeverReplacing(now, {.folder = *source, .name = oldName}).has_value();
            if (isBack && seen) removedFolders_.erase(seen->identity);
            return isBack;
        };
    }

    Changed make(const EntryName& at, const std::function<Changed()>& work) {
        if (isOver_) return dead();
        auto made = work();
        if (!made) return made;
        const auto seen = platform::fileMetadata(at.folder, at.name.c_str());
        const bool isFolder = seen && seen->kind == platform::ItemKind::folder;
        add({.what = "make " + at.name,
             .undo =
                 [this, folder = own(at.folder), name = at.name] {
                     const FolderDescriptor aside = *FolderDescriptor::openRoot(options_.aside);
                     const std::string free = newNameAside();
                     return live_
                         .renameNeverReplacing({.folder = *folder, .name = name},
                                               {.folder = aside, .name = free})
                         .has_value();
                 },
             .needs = {identityOf(at.folder)},
             .made = isFolder ? seen->identity : Identity{}});
        return made;
    }

    // Files ---------------------------------------------------------------------------------------

    [[nodiscard]] Tree watchedTree() const {
        constexpr std::uintmax_t maxByteCount = 65'536;
        Tree tree;
        std::error_code none;
        for (const auto& each :
             std::filesystem::recursive_directory_iterator(options_.watched, none)) {
            const std::string path = each.path().string();
            const bool isFolder = each.is_directory(none);
            if (!isFolder && (!each.is_regular_file(none) || each.file_size(none) > maxByteCount)) {
                continue;
            }
            const auto seen = platform::fileMetadata(path);
            if (!seen) continue;
            tree[path] = {
                .identity = seen->identity,
                .isFolder = isFolder,
                .bytes = isFolder
                             ? std::string()
                             : platform::readWholeFile(path, maxByteCount).value_or(std::string())};
        }
        return tree;
    }
    /// A file that was made again stands for the one that it was.
    [[nodiscard]] Identity current(Identity identity) const {
        for (auto again = madeAgain_.find(identity); again != madeAgain_.end();
             again = madeAgain_.find(identity)) {
            identity = again->second;
        }
        return identity;
    }
    void makeAgain(const std::string& path, const Seen& old) {
        std::ofstream(path, std::ios::binary) << old.bytes;
        madeAgain_[old.identity] = platform::fileMetadata(path)->identity;
    }

    void addWhatChanged(const Tree& before) {
        const Tree after = watchedTree();
        std::vector<std::string> gone;
        for (const auto& [path, old] : before) {
            const auto now = after.find(path);
            if (now == after.end() || now->second.identity != old.identity) gone.push_back(path);
        }
        const std::size_t known = unflushed_.size();
        for (const auto& [path, now] : after) {
            const auto old = before.find(path);
            const bool isNew = old == before.end() || old->second.identity != now.identity;
            if (!isNew) {
                if (old->second.bytes != now.bytes) addWrite(path, old->second, now);
                continue;
            }
            const auto from = std::ranges::find_if(gone, [&](const std::string& each) {
                return before.at(each).identity == now.identity;
            });
            if (from != gone.end()) {
                addFileRename(*from, path, old == before.end() ? nullptr : &old->second);
                gone.erase(from);
                std::erase(gone, path);
            } else {
                addMade(path, now);
            }
        }
        for (const std::string& path : gone) {
            addFile({.what = "remove " + path,
                     .undo =
                         [this, path, old = before.at(path)] {
                             if (std::filesystem::exists(path)) return false;
                             makeAgain(path, old);
                             return true;
                         },
                     .needs = {folderOf(path)}},
                    path);
        }
        if (known == unflushed_.size()) countOne(); // large files, which nobody misses
    }
    void addFile(Change change, const std::string& path) {
        change.isOnOtherDisk =
            !options_.otherDisk.empty() && path::isInsideOrEqual(path, options_.otherDisk);
        add(std::move(change));
    }
    void addWrite(const std::string& path, const Seen& old, const Seen& now) {
        addFile({.what = "write " + path,
                 .undo =
                     [this, old, now] {
                         for (const auto& [at, seen] : watchedTree()) {
                             if (seen.identity != current(now.identity)) continue;
                             if (seen.bytes != now.bytes) return false;
                             std::ofstream(at, std::ios::binary | std::ios::trunc) << old.bytes;
                             break;
                         }
                         return true; // a file that is gone has no bytes to lose
                     },
                 .needs = {now.identity}},
                path);
    }
    void addFileRename(const std::string& from, const std::string& to, const Seen* replaced) {
        std::optional<Seen> old;
        if (replaced != nullptr) old = *replaced;
        addFile({.what = "rename to " + to,
                 .undo =
                     [this, from, to, old] {
                         if (std::filesystem::exists(from)) return false;
                         std::error_code failed;
                         std::filesystem::rename(to, from, failed);
                         if (failed) return false;
                         if (old) makeAgain(to, *old);
                         return true;
                     },
                 .needs = {folderOf(from), folderOf(to)}},
                to);
    }
    void addMade(const std::string& path, const Seen& now) {
        addFile({.what = "make " + path,
                 .undo =
                     [this, path, now] {
                         const auto seen = platform::fileMetadata(path);
                         if (!seen || seen->identity != current(now.identity)) {
                             // It may be gone by now, but not be elsewhere.
                             return std::ranges::none_of(watchedTree(), [&](const auto& each) {
                                 return each.second.identity == current(now.identity);
                             });
                         }
                         std::filesystem::rename(path,
                                                 path::joined(options_.aside, newNameAside()));
                         return true;
                     },
                 .needs = {folderOf(path)},
                 .made = now.isFolder ? now.identity : Identity{}},
                path);
    }

    Options options_;
    platform::LiveFolderChanges live_;
    Folders folders_;
    Gate gate_;
    std::vector<Change> unflushed_;
    std::set<Identity> removedFolders_;
    std::map<Identity, Identity> madeAgain_;
    std::size_t asideCount_ = 0;
    std::size_t count_ = 0;
    std::vector<Flush> flushes_;
    bool isOver_ = false;
};

} // namespace tidyro::testing
