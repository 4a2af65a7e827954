#pragma once

#include "Platform/Folders/FolderChanges.h"

namespace tidyro::testing {

using platform::EntryName;
using platform::FolderDescriptor;

/// Hands each change on to another object, for tests that look at some kinds of changes or leave
/// some out: they override those alone.
class ForwardedFolderChanges : public platform::FolderChanges {
  public:
    explicit ForwardedFolderChanges(platform::FolderChanges& next) : next_(next) {}

    Changed renameNeverReplacing(const EntryName& from, const EntryName& to) override {
        return next_.renameNeverReplacing(from, to);
    }
    Changed renameReplacing(const EntryName& from, const EntryName& to) override {
        return next_.renameReplacing(from, to);
    }
    Changed link(const EntryName& existing, const EntryName& added) override {
        return next_.link(existing, added);
    }
    Changed makeEmptyFile(const EntryName& at) override { return next_.makeEmptyFile(at); }
    Changed makeFolder(const EntryName& at, unsigned permissions) override {
        return next_.makeFolder(at, permissions);
    }
    Changed removeFile(const EntryName& at) override { return next_.removeFile(at); }
    Changed removeFolder(const EntryName& at) override { return next_.removeFolder(at); }
    Changed flush(const FolderDescriptor& folder) override { return next_.flush(folder); }
    Changed flushVolume(const FolderDescriptor& folder) override {
        return next_.flushVolume(folder);
    }

  protected:
    [[nodiscard]] platform::FolderChanges& next() const { return next_; }

  private:
    platform::FolderChanges& next_;
};

} // namespace tidyro::testing
