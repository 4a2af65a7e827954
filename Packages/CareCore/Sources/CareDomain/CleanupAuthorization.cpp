#include "CareDomain/CleanupAuthorization.h"

#include <fmt/format.h>

namespace tidyro {

using namespace authorization;

namespace {

struct RootURL {
    const FileURL& operator()(const BuiltInRule& rule) const { return rule.rootURL; }
    const FileURL& operator()(const UserSelectedRoot& root) const { return root.url; }
    const FileURL& operator()(const UserSelectedApplication& app) const { return app.bundleURL; }
    const FileURL& operator()(const AIToolRule& rule) const { return rule.rootURL; }
    const FileURL& operator()(const ProjectArtifact& made) const { return made.projectURL; }
    const FileURL& operator()(const DiskItem& item) const { return item.itemURL; }
};

struct ProvenanceSummary {
    std::string operator()(const BuiltInRule& rule) const {
        return fmt::format("Shipped rule {} at {}", rule.id, rule.rootURL.path());
    }
    std::string operator()(const UserSelectedRoot& root) const {
        return fmt::format("The folder you chose: {}", root.url.path());
    }
    std::string operator()(const UserSelectedApplication& app) const {
        return fmt::format("The application you chose: {}", app.bundleURL.lastComponent());
    }
    std::string operator()(const AIToolRule& rule) const {
        return fmt::format("AI tool adapter {} rule {} at {}", rule.toolID, rule.ruleID,
                           rule.rootURL.path());
    }
    std::string operator()(const ProjectArtifact& made) const {
        return fmt::format("Generated folder {} in the project {}", made.folderName,
                           made.projectURL.lastComponent());
    }
    std::string operator()(const DiskItem& item) const {
        const auto name = item.itemURL.lastComponent();
        return item.placeID ? fmt::format("{} in the known place {}", name, *item.placeID)
                            : fmt::format("{}, which you chose", name);
    }
};

} // namespace

const FileURL& CleanupAuthorization::rootURL() const {
    return std::visit(RootURL{}, value.cases());
}

bool CleanupAuthorization::isDiskItem() const {
    return std::holds_alternative<DiskItem>(value.cases());
}

bool CleanupAuthorization::isProjectArtifact() const {
    return std::holds_alternative<ProjectArtifact>(value.cases());
}

bool CleanupAuthorization::isApplicationBundle() const {
    return std::holds_alternative<UserSelectedApplication>(value.cases());
}

std::string CleanupAuthorization::provenanceSummary() const {
    return std::visit(ProvenanceSummary{}, value.cases());
}

} // namespace tidyro
