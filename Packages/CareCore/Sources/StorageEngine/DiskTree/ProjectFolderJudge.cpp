#include "StorageEngine/DiskTree/ProjectFolderJudge.h"

#include <array>
#include <filesystem>
#include <system_error>

#include "Base/PathText.h"
#include "StorageEngine/DiskTree/LowercaseTable.h"

namespace tidyro {

namespace {

/// What confirms a folder: any one of these files beside it, separated by blanks. "*.cabal" stands
/// for any name with the ending.
using ProjectFiles = std::string_view;

constexpr ProjectFiles node = "package.json";
constexpr ProjectFiles python =
    "pyproject.toml setup.py setup.cfg requirements.txt Pipfile tox.ini";
constexpr ProjectFiles gradle =
    "build.gradle build.gradle.kts settings.gradle settings.gradle.kts";

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

bool holdsNameEndingWith(const std::string& folder, std::string_view ending) {
    std::error_code failed;
    std::filesystem::directory_iterator entries(folder, failed);
    while (!failed && entries != std::filesystem::directory_iterator()) {
        const std::string name = entries->path().filename().string();
        if (name.size() > ending.size() && name.ends_with(ending)) return true;
        entries.increment(failed);
    }
    return false;
}

class LiveJudge final : public ProjectFolderJudge {
  public:
    [[nodiscard]] bool confirms(const std::string& path) const override {
        auto files = generatedFolders.find(path::lastComponent(path));
        if (!files) return false;
        const std::string folder(path::parent(path));
        while (!files->empty()) {
            const std::string_view file = takeWord(*files);
            std::error_code failed;
            if (file.starts_with('*') ? holdsNameEndingWith(folder, file.substr(1))
                                      : std::filesystem::is_regular_file(
                                            path::joined(folder, file), failed)) {
                return true;
            }
        }
        return false;
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
