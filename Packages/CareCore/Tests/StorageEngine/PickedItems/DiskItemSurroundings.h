#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <unistd.h>

#include "Platform/Testing/FakeVolumes.h"
#include "StorageEngine/PickedItems/DiskItemRemovalPolicy.h"
#include "Support/TemporaryFolder.h"

/// What the tests of the policy for picked items ask it about.
namespace tidyro {

constexpr double secondsOfDay = 86'400;

/// A home, a folder that the person opened beside it, and all that a policy is made from.
struct Surroundings {
    testing::TemporaryFolder place;
    platform::testing::FakeVolumes volumes;
    SafetyPolicyFacts facts{.currentUserID = ::geteuid(),
                            .internalLocalVolumeIdentifiers = {"inside"},
                            .activeApplicationRoots = {},
                            .additionalProtectedRoots = {},
                            .activelyGrowingPaths = {},
                            .openByProcessPaths = {}};
    std::vector<FileURL> choosable;

    Surroundings() {
        place.folder("home");
        place.folder("opened");
        const auto seen = platform::fileMetadata(place.path());
        volumes.answer = std::vector<platform::Volume>{{.mountPath = "/",
                                                        .mount = seen->mount.value_or(0),
                                                        .device = seen->identity.device,
                                                        .identifier = "inside",
                                                        .fileSystem = "any",
                                                        .isInternalLocal = true}};
    }
    [[nodiscard]] FileURL home() const { return FileURL::folder(place / "home"); }
    [[nodiscard]] FileURL at(std::string_view name) const { return FileURL::file(place / name); }
    [[nodiscard]] std::shared_ptr<const SafetyPolicyContext> context() const {
        return std::make_shared<const SafetyPolicyContext>(facts, choosable);
    }
    [[nodiscard]] DiskItemRemovalPolicy policy() const {
        return DiskItemRemovalPolicy({.home = home(),
                                      .openedFolders = {FileURL::folder(place / "opened"),
                                                        FileURL::folder(place / "home/papers")},
                                      .context = context(),
                                      .volumes = volumes});
    }
};

/// The refusal by its name; empty for an item that may go. Everything was made days ago.
inline std::string told(DiskItemRemovalPolicy& policy, const FileURL& item,
                        std::optional<std::string> placeID = std::nullopt) {
    const auto entry = policy.planEntry({.item = item,
                                         .placeID = std::move(placeID),
                                         .measuredBytes = 1,
                                         .at = Timestamp::now().adding(3 * secondsOfDay)});
    return entry ? "" : std::string(rawValue(entry.error()));
}

} // namespace tidyro
