#include "StorageEngine/AITools/AIToolFence.h"

#include <algorithm>
#include <utility>

#include "Base/PathText.h"
#include "Base/UnicodeText.h"
#include "Platform/Files/FileMetadata.h"
#include "Platform/Folders/WellKnownFolders.h"
#include "StorageEngine/AITools/AIToolClassifier.h"
#include "StorageEngine/AITools/AIToolVeto.h"
#include "StorageEngine/Places/BaseFolders.h"
#include "StorageEngine/Places/FolderResolver.h"

namespace tidyro {

namespace {

constexpr std::string_view tellingNameStays =
    "Its name tells of a conversation or a credential, so Tidyro keeps it.";

bool isOfProtectedKind(AIToolDecision decision) {
    switch (decision) {
        using enum AIToolDecision;
    case namedProtectedState:
    case conversationOrHistory:
    case database:
    case lockOrStaging:
    case currentRuntime: return true;
    default: return false;
    }
}

/// Where a place below the home may lie: as tables name it, where the environment moved it as far
/// as anything follows it, and wherever the environment says.
std::vector<FileURL> placesOfTool(const FileURL& userHome, const std::string& relative) {
    std::vector<FileURL> places{userHome.appendingFolder(relative)};
    const auto add = [&](FileURL place) {
        if (std::ranges::none_of(
                places, [&](const FileURL& known) { return known.path() == place.path(); })) {
            places.push_back(std::move(place));
        }
    };
    add(userHome.appendingFolder(BaseFolders::ofKeptPlaces(userHome).moved(relative)));
    const platform::MovedFolders moved = platform::movedFolders();
    const std::pair<std::string_view, const std::optional<std::string>&> bases[] = {
        {".cache", moved.caches}, {".config", moved.settings}, {".local/share", moved.data}};
    for (const auto& [base, folder] : bases) {
        if (folder && path::isInsideOrEqual(relative, base)) {
            add(FileURL::folder(path::joined(*folder, path::below(relative, base))));
        }
    }
    return places;
}

} // namespace

class AIToolFence::Finder {
  public:
    explicit Finder(const AIToolHomeDiscovery& discovery) : discovery_(discovery) {}

    [[nodiscard]] std::vector<Ground> find() {
        AIToolHomeDiscovery usual = discovery_;
        usual.environment.clear();
        usual.customHomes.clear();
        const auto tools = allCases<AIToolID>();
        for (const AIToolHomeDiscovery* one : {&discovery_, &std::as_const(usual)}) {
            for (const AIToolHomeCandidate& found : one->discover(tools)) {
                addHome(found.url, found.tool, found.source);
            }
        }
        for (const AIToolID tool : tools) {
            const AIToolLayout& layout = AIToolLayouts::layout(tool);
            for (const FileURL& url : placesOfTool(discovery_.userHome, layout.homeRelativePath)) {
                addHome(url, tool, AIToolHome::Source::conventional);
            }
            for (std::size_t i = 0; i < layout.externalStores.size(); ++i) {
                for (const FileURL& url : placesOfTool(
                         discovery_.userHome, layout.externalStores[i].relativeToUserHome)) {
                    addStore(url, tool, i);
                }
            }
        }
        return std::move(grounds_);
    }

  private:
    void addHome(const FileURL& url, AIToolID tool, AIToolHome::Source source) {
        if (!platform::fileMetadata(url.path())) return;
        const FileURL real =
            FileURL::folder(FolderResolver::resolved(url.path()).value_or(url.path()));
        const bool isHome =
            discovery_.validate(real, tool, source).has_value() ||
            (source == AIToolHome::Source::conventional && discovery_.isAcceptableLocation(real));
        add(url, tool, {}, isHome);
        add(real, tool, {}, isHome);
    }
    void addStore(const FileURL& url, AIToolID tool, std::size_t index) {
        if (!platform::fileMetadata(url.path())) return;
        const FileURL real =
            FileURL::folder(FolderResolver::resolved(url.path()).value_or(url.path()));
        const bool isStore = discovery_.isAcceptableLocation(real);
        add(url, tool, {.storeIndex = index}, isStore);
        add(real, tool, {.storeIndex = index}, isStore);
    }
    void add(const FileURL& url, AIToolID tool, AIToolLocation::Place place, bool isHeldWhole) {
        Ground ground{.folded = folded(url.path()),
                      .depth = path::components(url.path()).size(),
                      .tool = tool,
                      .place = place,
                      .isHeldWhole = isHeldWhole};
        const auto same = std::ranges::find_if(grounds_, [&](const Ground& known) {
            return known.folded == ground.folded && known.tool == tool && known.place == place;
        });
        if (same != grounds_.end()) {
            same->isHeldWhole |= isHeldWhole;
            return;
        }
        AIToolLocation at{.home = {.tool = tool,
                                   .url = url,
                                   .deviceID = 0,
                                   .inode = 0,
                                   .source = AIToolHome::Source::conventional,
                                   .userHome = discovery_.userHome},
                          .place = place,
                          .rootURL = url,
                          .components = {}};
        const auto look = [&](std::string root) {
            // What processes have open is held by the policies themselves.
            if (auto state = AIToolVersionState::forBuildFolder(at, ToolActivitySnapshot{})) {
                ground.versions.emplace(std::move(root), *std::move(state));
            }
        };
        if (place.storeIndex) {
            look({});
        } else {
            for (const AIToolCandidateRoot& root : at.layout().candidateRoots) {
                at.components.clear();
                for (const std::string_view each : path::components(root.relativePath)) {
                    at.components.emplace_back(each);
                }
                look(root.relativePath);
            }
        }
        grounds_.push_back(std::move(ground));
    }

    const AIToolHomeDiscovery& discovery_;
    std::vector<Ground> grounds_;
};

std::shared_ptr<const AIToolFence> AIToolFence::find(const AIToolHomeDiscovery& discovery) {
    auto fence = std::make_shared<AIToolFence>();
    fence->grounds_ = Finder(discovery).find();
    std::vector<std::string> paths;
    paths.reserve(fence->grounds_.size());
    for (const Ground& ground : fence->grounds_) paths.push_back(ground.folded);
    fence->folded_ = RootPathIndex(paths);
    for (std::string& path : paths) path = lowercased(path);
    fence->lowered_ = RootPathIndex(paths);
    return fence;
}

bool AIToolFence::isNear(std::string_view lowered) const {
    if (lowered_.contains(lowered)) return true;
    return !isASCII(lowered) && folded_.contains(folded(lowered));
}

bool AIToolFence::isBelow(std::string_view folder) const {
    const std::string whole = folded(folder);
    return std::ranges::any_of(grounds_, [&](const Ground& ground) {
        return path::isInsideOrEqual(ground.folded, whole);
    });
}

std::optional<SharedText> AIToolFence::reason(std::string_view path, Item item) const {
    const std::string whole = folded(path);
    for (const Ground& ground : grounds_) {
        if (!path::isInsideOrEqual(whole, ground.folded)) continue;
        std::vector<std::string> components;
        for (const std::string_view each : path::components(path)) components.emplace_back(each);
        components.erase(components.begin(),
                         components.begin() + static_cast<std::ptrdiff_t>(ground.depth));
        if (auto found = reasonIn(ground, std::move(components), item)) return found;
    }
    return std::nullopt;
}

std::optional<SharedText> AIToolFence::reasonIn(const Ground& ground,
                                                std::vector<std::string> components, Item item) {
    const AIToolLayout& layout = AIToolLayouts::layout(ground.tool);
    const AIToolCandidateRoot* root = ground.place.storeIndex ? nullptr : layout.rootOf(components);
    const auto versions = ground.versions.find(root != nullptr ? root->relativePath : "");
    const AIToolClassifier::ByNames told =
        AIToolClassifier::byNames(layout, ground.place, components,
                                  versions == ground.versions.end() ? nullptr : &versions->second);
    const auto because = [](AIToolDecision decision) {
        return SharedText::lasting(explanation(decision));
    };
    if (told.decision) {
        const bool isHeld = ground.isHeldWhole || isOfProtectedKind(*told.decision);
        return isHeld ? std::optional(because(*told.decision)) : std::nullopt;
    }
    if (told.below.empty()) { // the root of a store or of what may go
        return ground.isHeldWhole ? std::optional(because(AIToolDecision::outsideAllowlist))
                                  : std::nullopt;
    }
    const bool mayBeNamedSo =
        told.recognizer != nullptr && told.recognizer->mayBeNamedLikeConversations;
    if (!mayBeNamedSo && std::ranges::any_of(told.below, AIToolVeto::hasTellingWord)) {
        return SharedText::lasting(tellingNameStays);
    }
    const bool isUnknown = told.recognizer == nullptr && item == Item::file;
    return isUnknown && ground.isHeldWhole
               ? std::optional(because(AIToolDecision::unrecognizedInsideAllowedRoot))
               : std::nullopt;
}

} // namespace tidyro
