#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Testing/FakeVolumes.h"
#include "StorageEngine/PickedItems/DiskItemRemovalPolicy.h"
#include "Support/QuietMachine.h"
#include "Support/TemporaryFolder.h"

namespace tidyro {

constexpr double secondsOfDay = 86'400;

/// A home, a folder that the person opened beside it, and all that a policy for picked items is
/// made from.
struct PickedItemsBench {
    testing::TemporaryFolder place;
    platform::testing::FakeVolumes volumes =
        platform::testing::FakeVolumes::withOneAt(place.path());
    SafetyPolicyFacts facts = testing::quietMachine();
    std::vector<FileURL> choosable;

    PickedItemsBench() {
        place.folder("home");
        place.folder("opened");
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
