#pragma once

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

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
/// the bytes of a file when the file was, and a rename when both of its folders were. So it shows a
/// flush that is left out also where a disk would hide it. It needs neither a device nor root. Used
/// by one thread.
class UnflushedChanges {
  public:
    static constexpr std::size_t never = std::numeric_limits<std::size_t>::max();
    struct Options {
        /// Small files that change through the gate lie below it.
        std::string watched;
        /// An empty folder on the same volume. What is removed lies there, so that it can come
        /// back.
        std::string aside;
        std::size_t end = never;          ///< the process dies after so many changes
        std::size_t flushLeftOut = never; ///< by its number, from 0 on: it does nothing
    };
    explicit UnflushedChanges(Options options)
        : options_(std::move(options)), folders_(*this), gate_(*this) {}
    UnflushedChanges(const UnflushedChanges&) = delete;
    UnflushedChanges& operator=(const UnflushedChanges&) = delete;

    [[nodiscard]] platform::FolderChanges& folders() { return folders_; }
    [[nodiscard]] platform::ChangeGate& gate() { return gate_; }

    [[nodiscard]] std::size_t count() const { return count_; }
    /// How many changes had been made at each flush.
    [[nodiscard]] const std::vector<std::size_t>& flushes() const { return flushes_; }
    /// How many changes a crash may undo by now.
    [[nodiscard]] std::size_t unflushedCount() const { return unflushed_.size(); }

    [[nodiscard]] const std::string& unflushed(std::size_t number) const {
        return unflushed_[number].what;
    }
    /// Undoes one change that was not flushed. False when later ones stand on it; then nothing was
    /// done.
    [[nodiscard]] bool forget(std::size_t number) { return unflushed_[number].undo(); }
    /// Undoes one and all that came after it. False when that was not possible.
    [[nodiscard]] bool forgetFrom(std::size_t number) {
        while (unflushed_.size() > number) {
            if (!unflushed_.back().undo()) return false;
            unflushed_.pop_back();
        }
        return true;
    }

  private:
    using Folder = std::shared_ptr<const FolderDescriptor>;
    using Files = std::map<std::string, std::string>;

    struct Change {
        std::string what; ///< for people
        std::function<bool()> undo;
        /// The folders that have to be flushed for it.
        std::set<platform::ItemIdentity> needs = {};
        /// For a file's bytes: its folder's path, and nothing of the above.
        std::string bytesIn = {};
    };

    /// One change of what folders hold.
    class Folders final : public ForwardedFolderChanges {
      public:
        explicit Folders(UnflushedChanges& disk) : ForwardedFolderChanges(live_), disk_(disk) {}

        Changed renameNeverReplacing(const EntryName& from, const EntryName& to) override {
            return disk_.rename(from, to, live_);
        }
        // Placeholders alone are replaced, and they are worth nothing.
        Changed renameReplacing(const EntryName& from, const EntryName& to) override {
            if (disk_.isOver_) return disk_.dead();
            static_cast<void>(live_.removeFile(to));
            static_cast<void>(live_.removeFolder(to));
            return disk_.rename(from, to, live_);
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
        Changed removeFile(const EntryName& at) override {
            const FolderDescriptor aside = disk_.openAside();
            const std::string name = std::to_string(disk_.count_);
            return disk_.rename(at, {.folder = aside, .name = name}, live_);
        }
        Changed removeFolder(const EntryName& at) override {
            if (disk_.isOver_) return disk_.dead();
            const auto seen = platform::fileMetadata(at.folder, at.name.c_str());
            Changed removed = live_.removeFolder(at);
            if (removed && seen) {
                disk_.add({.what = "remove folder " + at.name,
                           .undo =
                               [this, folder = own(at.folder), name = at.name,
                                permissions = seen->permissions] {
                                   return live_
                                       .makeFolder({.folder = *folder, .name = name}, permissions)
                                       .has_value();
                               },
                           .needs = {identityOf(at.folder)}});
            }
            return removed;
        }
        Changed flush(const FolderDescriptor& folder) override {
            if (disk_.isOver_) return disk_.dead();
            if (disk_.isNextFlushMade()) disk_.flushed(identityOf(folder));
            return {};
        }
        Changed flushVolume(const FolderDescriptor&) override {
            if (disk_.isOver_) return disk_.dead();
            if (disk_.isNextFlushMade()) disk_.unflushed_.clear();
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
        Done perform(platform::DiskChange kind, const std::function<Done()>& change) override {
            if (disk_.isOver_) return std::unexpected(SystemError{EIO});
            if (kind == platform::DiskChange::flush) {
                if (disk_.isNextFlushMade()) disk_.fileFlushed();
                return {};
            }
            Files before = disk_.watchedFiles();
            Done done = change();
            if (done) disk_.addFileChange(kind, std::move(before));
            return done;
        }

      private:
        UnflushedChanges& disk_;
    };

    [[nodiscard]] static platform::ItemIdentity identityOf(const FolderDescriptor& folder) {
        return platform::fileMetadata(folder.fd())->identity;
    }
    [[nodiscard]] static Folder own(const FolderDescriptor& folder) {
        return std::make_shared<const FolderDescriptor>(*folder.open("."));
    }
    [[nodiscard]] FolderDescriptor openAside() const {
        return *FolderDescriptor::openRoot(options_.aside);
    }
    [[nodiscard]] static platform::FolderChanges::Changed dead() {
        return std::unexpected(platform::ChangeError::fromSystem({EIO}));
    }

    void add(Change change) {
        unflushed_.push_back(std::move(change));
        if (++count_ == options_.end) isOver_ = true;
    }
    [[nodiscard]] bool isNextFlushMade() {
        flushes_.push_back(count_);
        return flushes_.size() - 1 != options_.flushLeftOut;
    }

    platform::FolderChanges::Changed rename(const EntryName& from, const EntryName& to,
                                            platform::LiveFolderChanges& live) {
        if (isOver_) return dead();
        auto renamed = live.renameNeverReplacing(from, to);
        if (!renamed) return renamed;
        const bool isRemoval = identityOf(to.folder) == identityOf(openAside());
        Change change{.what = (isRemoval ? "remove " : "move ") + from.name,
                      .undo =
                          [&live, source = own(from.folder), target = own(to.folder),
                           oldName = from.name, newName = to.name] {
                              return live
                                  .renameNeverReplacing({.folder = *target, .name = newName},
                                                        {.folder = *source, .name = oldName})
                                  .has_value();
                          },
                      .needs = {identityOf(from.folder)}};
        if (!isRemoval) change.needs.insert(identityOf(to.folder));
        add(std::move(change));
        return renamed;
    }

    platform::FolderChanges::Changed
    make(const EntryName& at, const std::function<platform::FolderChanges::Changed()>& work) {
        if (isOver_) return dead();
        auto made = work();
        if (!made) return made;
        add({.what = "make " + at.name,
             .undo =
                 [folder = own(at.folder), name = at.name] {
                     platform::LiveFolderChanges live;
                     const EntryName again{.folder = *folder, .name = name};
                     return live.removeFolder(again) || live.removeFile(again);
                 },
             .needs = {identityOf(at.folder)}});
        return made;
    }

    [[nodiscard]] Files watchedFiles() const {
        constexpr std::uintmax_t maxByteCount = 65'536;
        namespace fs = std::filesystem;
        Files files;
        std::error_code none;
        for (const auto& each : fs::recursive_directory_iterator(options_.watched, none)) {
            if (!each.is_regular_file(none) || each.file_size(none) > maxByteCount) continue;
            const std::string path = each.path().string();
            files[path] = platform::readWholeFile(path, maxByteCount).value_or("");
        }
        return files;
    }

    static bool restore(const Files& before, const Files& after) {
        for (const auto& [path, bytes] : after) {
            if (!before.contains(path)) std::filesystem::remove(path);
        }
        for (const auto& [path, bytes] : before) {
            const auto now = after.find(path);
            if (now != after.end() && now->second == bytes) continue;
            if (!platform::writeDurably(path, bytes)) return false;
        }
        return true;
    }

    void addFileChange(platform::DiskChange kind, const Files& before) {
        Files now = watchedFiles();
        Files old;
        std::string folder;
        for (const auto& [path, bytes] : before) {
            const auto found = now.find(path);
            if (found != now.end() && found->second == bytes) {
                now.erase(found); // not touched
            } else {
                old[path] = bytes;
            }
        }
        for (const Files& files : {old, now}) {
            if (!files.empty()) {
                folder = std::filesystem::path(files.begin()->first).parent_path().string();
            }
        }
        wasWrite_ = kind == platform::DiskChange::write;
        if (!folder.empty()) lastFolder_ = folder;
        if (old.empty() && now.empty()) { // a folder, which is flushed when it is made
            if (++count_ == options_.end) isOver_ = true;
            return;
        }
        const bool isMade = kind == platform::DiskChange::makeFile;
        const std::string changed = (now.empty() ? old : now).begin()->first;
        Change change{.what = (wasWrite_ ? "write " : "make or rename ") + changed,
                      .undo = [this, isMade, old, now] {
                          const Files present = watchedFiles();
                          const bool isAsLeft = std::ranges::all_of(now, [&](const auto& file) {
                              const auto found = present.find(file.first);
                              return found != present.end() &&
                                     (isMade || found->second == file.second);
                          });
                          return isAsLeft && restore(old, now);
                      }};
        if (wasWrite_) {
            change.bytesIn = folder;
        } else {
            change.needs.insert(identityOf(*FolderDescriptor::openRoot(folder)));
        }
        add(std::move(change));
    }

    /// A flush through the gate is of what was changed last: of a file when that was a write, of
    /// its folder otherwise.
    void fileFlushed() {
        if (wasWrite_) {
            std::erase_if(unflushed_,
                          [&](const Change& each) { return each.bytesIn == lastFolder_; });
        } else if (!lastFolder_.empty()) {
            flushed(identityOf(*FolderDescriptor::openRoot(lastFolder_)));
        }
    }
    void flushed(const platform::ItemIdentity& folder) {
        std::erase_if(unflushed_, [&](Change& each) {
            return each.needs.erase(folder) > 0 && each.needs.empty();
        });
    }

    Options options_;
    Folders folders_;
    Gate gate_;
    std::vector<Change> unflushed_;
    std::size_t count_ = 0;
    std::vector<std::size_t> flushes_;
    bool isOver_ = false;
    bool wasWrite_ = false;
    std::string lastFolder_;
};

} // namespace tidyro::testing
