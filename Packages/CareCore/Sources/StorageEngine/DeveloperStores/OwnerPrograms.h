#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Base/FileURL.h"

namespace tidyro {

/// Answers whether the program that owns a store is installed. A store is explained by it, and
/// nothing is run: whoever runs a program checks far more.
class OwnerPrograms {
  public:
    virtual ~OwnerPrograms() = default;
    /// `name` is one component, such as "uv".
    [[nodiscard]] virtual bool isInstalled(std::string_view name) const = 0;
};

/// Looks into folders, as a shell does.
///
///     const ProgramsInFolders programs(ProgramsInFolders::usualFolders(home, path));
///     const bool mayPrune = programs.isInstalled("uv");
class ProgramsInFolders : public OwnerPrograms {
  public:
    explicit ProgramsInFolders(std::vector<std::string> folders) : folders_(std::move(folders)) {}

    /// A regular file, or a link to one, that somebody may execute.
    [[nodiscard]] bool isInstalled(std::string_view name) const override;

    /// The absolute folders of a search path ("/usr/bin:/bin"), then those in which installers put
    /// the owners of stores. A program with a window is often started with a short search path.
    [[nodiscard]] static std::vector<std::string> usualFolders(const FileURL& home,
                                                               std::string_view searchPath);

  private:
    std::vector<std::string> folders_;
};

} // namespace tidyro
