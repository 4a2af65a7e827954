#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>

#include "Base/FileURL.h"
#include "Base/StringTable.h"
#include "Platform/Folders/FolderChanges.h"
#include "StorageEngine/AITools/AIToolVeto.h"

namespace tidyro {

/// Brings `AIToolVeto` to files by their paths. The folders are opened beneath the rule's root, so
/// no link below it is followed and no other disk is entered. It keeps the roots open, and the
/// last folder, since items come folder by folder. Made for one pass; used by one thread.
class AIToolLastLook {
  public:
    using Veto = std::function<std::optional<AIToolVeto::Reason>(
        const AIToolRecognizer& rule, std::span<const std::string> componentsBelow,
        const platform::FolderDescriptor& folder, const std::string& name)>;

    explicit AIToolLastLook(Veto veto = AIToolVeto::reason) : veto_(std::move(veto)) {}

    /// Why the item may not go by the rule; none when nothing speaks against it. An item that
    /// cannot be reached beneath the root is unreadable.
    [[nodiscard]] std::optional<AIToolVeto::Reason>
    reason(const AIToolRecognizer& rule, const FileURL& root, const FileURL& item);

  private:
    using Root = std::optional<platform::FoldersBeneath>;
    [[nodiscard]] const Root& rootAt(const std::string& path);

    Veto veto_;
    StringMap<Root> roots_; ///< by their paths as they are written
    std::string folderPath_;
    std::optional<platform::FolderDescriptor> folder_ = std::nullopt;
};

} // namespace tidyro
