#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "Base/Cases.h"
#include "Base/FileURL.h"
#include "Base/Record.h"

namespace tidyro {

/// The cases of `CleanupAuthorization`, which says what they are for.
namespace authorization {

/// A shipped cleanup rule, anchored at this root folder.
struct BuiltInRule {
    std::string id;
    FileURL rootURL;

    static constexpr std::string_view caseName = "builtInRule";
    static constexpr auto fields() {
        return fieldList<BuiltInRule>(field("id", &BuiltInRule::id),
                                      field("rootURL", &BuiltInRule::rootURL));
    }
    bool operator==(const BuiltInRule&) const = default;
};

/// A folder that the user chose explicitly.
struct UserSelectedRoot {
    FileURL url;

    static constexpr std::string_view caseName = "userSelectedRoot";
    static constexpr auto fields() {
        return fieldList<UserSelectedRoot>(field("_0", &UserSelectedRoot::url));
    }
    bool operator==(const UserSelectedRoot&) const = default;
};

/// An application that the user chose for removal.
struct UserSelectedApplication {
    FileURL bundleURL;
    std::optional<std::string> bundleIdentifier = std::nullopt; ///< as read when it was chosen

    static constexpr std::string_view caseName = "userSelectedApplication";
    static constexpr auto fields() {
        using Self = UserSelectedApplication;
        return fieldList<Self>(field("bundleURL", &Self::bundleURL),
                               field("bundleIdentifier", &Self::bundleIdentifier));
    }
    bool operator==(const UserSelectedApplication&) const = default;
};

/// A rule of an AI tool's adapter, anchored at that tool's home.
struct AIToolRule {
    std::string toolID;
    std::string ruleID;
    FileURL rootURL;

    static constexpr std::string_view caseName = "aiToolRule";
    static constexpr auto fields() {
        return fieldList<AIToolRule>(field("toolID", &AIToolRule::toolID),
                                     field("ruleID", &AIToolRule::ruleID),
                                     field("rootURL", &AIToolRule::rootURL));
    }
    bool operator==(const AIToolRule&) const = default;
};

/// A generated folder directly inside a project, such as its build output.
struct ProjectArtifact {
    FileURL workspaceURL; ///< the user's workspace, which holds the project
    FileURL projectURL;
    std::string folderName;

    static constexpr std::string_view caseName = "projectArtifact";
    static constexpr auto fields() {
        using Self = ProjectArtifact;
        return fieldList<Self>(field("workspaceURL", &Self::workspaceURL),
                               field("projectURL", &Self::projectURL),
                               field("folderName", &Self::folderName));
    }
    bool operator==(const ProjectArtifact&) const = default;
};

/// A single file or folder picked from the disk tree.
struct DiskItem {
    std::optional<std::string> placeID = std::nullopt; ///< absent: from a folder the user chose
    FileURL itemURL;

    static constexpr std::string_view caseName = "diskItem";
    static constexpr auto fields() {
        return fieldList<DiskItem>(field("placeID", &DiskItem::placeID),
                                   field("itemURL", &DiskItem::itemURL));
    }
    bool operator==(const DiskItem&) const = default;
};

} // namespace authorization

/// Why Tidyro may touch a path at all. It is no token: it is not signed and does not expire. What
/// makes it safe is that it is verified against the disk right before every change.
///
///     const CleanupAuthorization picked{authorization::DiskItem{.itemURL = url}};
///     picked.provenanceSummary()    // "old.dmg, which you chose"
struct CleanupAuthorization {
    using Cases = std::variant<authorization::BuiltInRule, authorization::UserSelectedRoot,
                               authorization::UserSelectedApplication, authorization::AIToolRule,
                               authorization::ProjectArtifact, authorization::DiskItem>;
    SharedCases<Cases> value; ///< one for all candidates of a rule

    /// The file or folder outside which nothing is authorized. For a project artifact it is the
    /// project, not the workspace.
    [[nodiscard]] const FileURL& rootURL() const;
    [[nodiscard]] bool isDiskItem() const;
    [[nodiscard]] bool isProjectArtifact() const;
    [[nodiscard]] bool isApplicationBundle() const;
    /// One line for people, with names of files as their bytes are. Before it goes to a terminal it
    /// goes through `terminalSafe`.
    [[nodiscard]] std::string provenanceSummary() const;

    bool operator==(const CleanupAuthorization&) const = default;
};

} // namespace tidyro
