#include "StorageEngine/AITools/Cleanup/AIToolLastLook.h"

#include <string_view>
#include <utility>
#include <vector>

#include "Base/PathText.h"
#include "StorageEngine/Places/FolderResolver.h"

namespace tidyro {

const AIToolLastLook::Root& AIToolLastLook::rootAt(const std::string& path) {
    const auto known = roots_.find(path);
    if (known != roots_.end()) return known->second;
    // The person's home may be reached through a link. The root itself may not be one.
    const auto above = FolderResolver::resolved(std::string(path::parent(path)));
    Root root;
    if (above) {
        auto opened =
            platform::FoldersBeneath::openRoot(path::joined(*above, path::lastComponent(path)));
        if (opened) root = *std::move(opened);
    }
    return roots_.emplace(path, std::move(root)).first->second;
}

std::optional<AIToolVeto::Reason> AIToolLastLook::reason(const AIToolRecognizer& rule,
                                                         const FileURL& root, const FileURL& item) {
    if (!veto_) return std::nullopt;
    const std::string& path = item.path();
    if (path == root.path() || !path::isInsideOrEqual(path, root.path())) {
        return AIToolVeto::Reason::unreadable;
    }
    const std::string_view folderPath = path::parent(path);
    if (folderPath != folderPath_) {
        folderPath_ = folderPath;
        folder_.reset();
        if (const Root& beneath = rootAt(root.path())) {
            auto opened = beneath->open(std::string(path::below(folderPath, root.path())));
            if (opened) folder_ = *std::move(opened);
        }
    }
    if (!folder_) return AIToolVeto::Reason::unreadable;
    std::vector<std::string> components;
    for (const std::string_view each : path::components(path::below(path, root.path()))) {
        components.emplace_back(each);
    }
    return veto_(rule, components, *folder_, components.back());
}

} // namespace tidyro
