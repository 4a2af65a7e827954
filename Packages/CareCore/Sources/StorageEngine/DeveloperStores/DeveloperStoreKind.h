#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "Base/RawValues.h"

namespace tidyro {

/// The stores of developers' tools that Tidyro measures and explains. Only the tool that owns a
/// store knows what in it is still needed, so each kind names the owner's own way to shrink it.
enum class DeveloperStoreKind : std::uint8_t {
    uvCache,
    huggingFaceHub,
    torchHub,
    ollamaModels,
    dockerDiskImage,
    // These are looked for on Linux only.
    pnpmStore,
    condaPackages,
    goModules,
    podmanStorage,
    rootlessDocker,
    flatpakUser,
    preCommit,
    nixStore,
    ccache,
};

constexpr RawValueTable<DeveloperStoreKind, 14> rawValues(RawValueTag<DeveloperStoreKind>) {
    using enum DeveloperStoreKind;
    return {{{{uvCache, "uvCache"},
              {huggingFaceHub, "huggingFaceHub"},
              {torchHub, "torchHub"},
              {ollamaModels, "ollamaModels"},
              {dockerDiskImage, "dockerDiskImage"},
              {pnpmStore, "pnpmStore"},
              {condaPackages, "condaPackages"},
              {goModules, "goModules"},
              {podmanStorage, "podmanStorage"},
              {rootlessDocker, "rootlessDocker"},
              {flatpakUser, "flatpakUser"},
              {preCommit, "preCommit"},
              {nixStore, "nixStore"},
              {ccache, "ccache"}}}};
}

/// What people are shown.
[[nodiscard]] std::string_view title(DeveloperStoreKind kind);
/// What lies in the store, and what it costs to lose it.
[[nodiscard]] std::string_view explanation(DeveloperStoreKind kind);
/// The owner's own way to shrink the store: a command, or a sentence where there is none.
[[nodiscard]] std::string_view nativeCommand(DeveloperStoreKind kind);

/// The program that the command begins with; empty where no program owns the store.
[[nodiscard]] std::string_view ownerProgram(DeveloperStoreKind kind);
/// Whether the command tells a person something only where the program is installed. The stores
/// that every system has are explained in full, since their owner may run elsewhere: in a container
/// or in an environment that is not in the search path.
[[nodiscard]] bool isCommandOnlyForInstalled(DeveloperStoreKind kind);

} // namespace tidyro
