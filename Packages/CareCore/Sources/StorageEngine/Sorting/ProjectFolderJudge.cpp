#include "StorageEngine/Sorting/ProjectFolderJudge.h"

#include <array>
#include <filesystem>
#include <string>
#include <system_error>

#include "Base/LowercaseTable.h"
#include "Base/PathText.h"

namespace tidyro {

namespace {

/// What confirms a folder: any one of these files beside it, separated by blanks. "*.cabal" stands
/// for any name with the ending.
using ProjectFiles = std::string_view;

constexpr ProjectFiles node = "package.json";
constexpr ProjectFiles python =
    "pyproject.toml setup.py setup.cfg requirements.txt Pipfile tox.ini";
constexpr ProjectFiles gradle = "build.gradle build.gradle.kts settings.gradle settings.gradle.kts";

using Table = LowercaseTable<ProjectFiles, 34>;

constexpr std::array<Table::Row, 34> rows{{
    {"node_modules", node},
    {".next", node},
    {".nuxt", node},
    {".turbo", node},
    {".parcel-cache", node},
    {".svelte-kit", node},
    {".angular", node},
    {"target", "Cargo.toml pom.xml build.sbt"},
    {"build", "build.gradle build.gradle.kts settings.gradle settings.gradle.kts CMakeLists.txt "
              "package.json pyproject.toml setup.py meson.build pubspec.yaml"},
    {"cmake-build-debug", "CMakeLists.txt"},
    {"cmake-build-release", "CMakeLists.txt"},
    {".gradle", gradle},
    {".build", "Package.swift"},
    {"pods", "Podfile"},
    {"deriveddata", "*.xcodeproj *.xcworkspace Package.swift"},
    {".dart_tool", "pubspec.yaml"},
    {".zig-cache", "build.zig"},
    {"zig-cache", "build.zig"},
    {"zig-out", "build.zig"},
    {".venv", python},
    {"venv", python},
    {".tox", python},
    {".nox", "noxfile.py"},
    {".mypy_cache", python},
    {".pytest_cache", python},
    {".ruff_cache", python},
    {"__pycache__", python},
    {"obj", "*.csproj *.fsproj *.vbproj"},
    {"_build", "mix.exs dune-project rebar.config"},
    {".stack-work", "stack.yaml"},
    {"dist-newstyle", "cabal.project *.cabal"},
    {"elm-stuff", "elm.json"},
    {".terraform", "*.tf"},
    {"bazel-out", "MODULE.bazel WORKSPACE WORKSPACE.bazel"},
}};

constexpr Table generatedFolders(rows);

bool fileTakes(std::string_view file, std::string_view name) {
    if (!file.starts_with('*')) return name == file;
    file.remove_prefix(1);
    return name.size() > file.size() && name.ends_with(file);
}

bool confirmedBy(ProjectFiles files, std::string_view name) {
    while (!files.empty()) {
        if (fileTakes(takeWord(files), name)) return true;
    }
    return false;
}

/// The project file beside a folder of the tree that is not its root.
bool treeHolds(const DiskTree& tree, NodeNumber folder, ProjectFiles files) {
    for (const NodeNumber beside : tree.children(tree.parent(folder))) {
        if (beside != folder && confirmedBy(files, tree.nameBytes(beside))) return true;
    }
    return false;
}

/// The same on the disk. What confirms may be a folder too ("App.xcodeproj").
bool diskHolds(const std::string& folder, ProjectFiles files) {
    std::error_code failed;
    std::filesystem::directory_iterator entries(std::string(path::parent(folder)), failed);
    while (!failed && entries != std::filesystem::directory_iterator()) {
        if (confirmedBy(files, entries->path().filename().string())) return true;
        entries.increment(failed);
    }
    return false;
}

class LiveJudge final : public ProjectFolderJudge {
  public:
    [[nodiscard]] bool isGenerated(const DiskTree& tree, NodeNumber folder) const override {
        const auto files = generatedFolders.find(tree.nameBytes(folder));
        if (!files) return false;
        if (folder != DiskTree::root && !treeHolds(tree, folder, *files)) return false;
        return diskHolds(tree.path(folder), *files);
    }
};

} // namespace

bool ProjectFolderJudge::mayBeGenerated(std::string_view name) {
    return generatedFolders.contains(name);
}

const ProjectFolderJudge& ProjectFolderJudge::live() {
    static const LiveJudge judge;
    return judge;
}

} // namespace tidyro
