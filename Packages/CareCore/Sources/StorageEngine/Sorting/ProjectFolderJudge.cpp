#include "StorageEngine/Sorting/ProjectFolderJudge.h"

#include <array>
#include <filesystem>
#include <string>
#include <system_error>

#include "Base/LowercaseTable.h"
#include "Base/PathText.h"

namespace tidyro {

namespace {

/// The files of a project, separated by blanks: any one of them beside a folder confirms it.
/// "*.cabal" stands for any name with the ending.
using ProjectFiles = std::string_view;

constexpr ProjectFiles nodeFiles = "package.json";
constexpr ProjectFiles pythonFiles =
    "pyproject.toml setup.py setup.cfg requirements.txt Pipfile tox.ini";
constexpr ProjectFiles gradleFiles =
    "build.gradle build.gradle.kts settings.gradle settings.gradle.kts";

using GeneratedFolders = LowercaseTable<ProjectFiles, 34>;

constexpr std::array<GeneratedFolders::Row, 34> generatedFolderRows{{
    {"node_modules", nodeFiles},
    {".next", nodeFiles},
    {".nuxt", nodeFiles},
    {".turbo", nodeFiles},
    {".parcel-cache", nodeFiles},
    {".svelte-kit", nodeFiles},
    {".angular", nodeFiles},
    {"target", "Cargo.toml pom.xml build.sbt"},
    {"build", "build.gradle build.gradle.kts settings.gradle settings.gradle.kts CMakeLists.txt "
              "package.json pyproject.toml setup.py meson.build pubspec.yaml"},
    {"cmake-build-debug", "CMakeLists.txt"},
    {"cmake-build-release", "CMakeLists.txt"},
    {".gradle", gradleFiles},
    {".build", "Package.swift"},
    {"pods", "Podfile"},
    {"deriveddata", "*.xcodeproj *.xcworkspace Package.swift"},
    {".dart_tool", "pubspec.yaml"},
    {".zig-cache", "build.zig"},
    {"zig-cache", "build.zig"},
    {"zig-out", "build.zig"},
    {".venv", pythonFiles},
    {"venv", pythonFiles},
    {".tox", pythonFiles},
    {".nox", "noxfile.py"},
    {".mypy_cache", pythonFiles},
    {".pytest_cache", pythonFiles},
    {".ruff_cache", pythonFiles},
    {"__pycache__", pythonFiles},
    {"obj", "*.csproj *.fsproj *.vbproj"},
    {"_build", "mix.exs dune-project rebar.config"},
    {".stack-work", "stack.yaml"},
    {"dist-newstyle", "cabal.project *.cabal"},
    {"elm-stuff", "elm.json"},
    {".terraform", "*.tf"},
    {"bazel-out", "MODULE.bazel WORKSPACE WORKSPACE.bazel"},
}};

constexpr GeneratedFolders generatedFolders(generatedFolderRows);

bool isProjectFile(std::string_view file, std::string_view name) {
    if (!file.starts_with('*')) return name == file;
    file.remove_prefix(1);
    return name.size() > file.size() && name.ends_with(file);
}

bool isAnyProjectFile(ProjectFiles files, std::string_view name) {
    while (!files.empty()) {
        if (isProjectFile(takeWord(files), name)) return true;
    }
    return false;
}

/// Whether the tree holds a project file beside a folder, which is not its root.
bool hasProjectFileInTree(const DiskTree& tree, NodeNumber folder, ProjectFiles files) {
    for (const NodeNumber beside : tree.children(tree.parent(folder))) {
        if (beside != folder && isAnyProjectFile(files, tree.nameBytes(beside))) return true;
    }
    return false;
}

/// The same on the disk. A project file may be a folder too ("App.xcodeproj").
bool hasProjectFileOnDisk(const std::string& folder, ProjectFiles files) {
    std::error_code failed;
    std::filesystem::directory_iterator entries(std::string(path::parent(folder)), failed);
    while (!failed && entries != std::filesystem::directory_iterator()) {
        if (isAnyProjectFile(files, entries->path().filename().string())) return true;
        entries.increment(failed);
    }
    return false;
}

class LiveJudge final : public ProjectFolderJudge {
  public:
    [[nodiscard]] bool isGenerated(const DiskTree& tree, NodeNumber folder) const override {
        const auto files = generatedFolders.find(tree.nameBytes(folder));
        if (!files) return false;
        if (folder != DiskTree::root && !hasProjectFileInTree(tree, folder, *files)) return false;
        return hasProjectFileOnDisk(tree.path(folder), *files);
    }
};

} // namespace

bool ProjectFolderJudge::mayBeGenerated(std::string_view name) {
    return generatedFolders.contains(name);
}

bool ProjectFolderJudge::isGeneratedOnDisk(const std::string& folder) {
    const auto files = generatedFolders.find(path::lastComponent(folder));
    return files && hasProjectFileOnDisk(folder, *files);
}

const ProjectFolderJudge& ProjectFolderJudge::live() {
    static const LiveJudge judge;
    return judge;
}

} // namespace tidyro
