#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
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

struct DeveloperStoreTexts {
    DeveloperStoreKind kind;
    std::string_view text;
    std::string_view title;
    std::string_view explanation;
    std::string_view command;
    std::string_view program;
};

/// In the order of the kinds.
inline constexpr auto developerStoreTexts = std::to_array<DeveloperStoreTexts>({
    {.kind = DeveloperStoreKind::uvCache,
     .text = "uvCache",
     .title = "uv package cache",
     .explanation = "Wheels and source packages uv downloaded or built. uv fetches them again when "
                    "a project needs them, which costs time and bandwidth and needs a connection.",
     .command = "uv cache prune",
     .program = "uv"},
    {.kind = DeveloperStoreKind::huggingFaceHub,
     .text = "huggingFaceHub",
     .title = "Hugging Face model cache",
     .explanation =
         "Models and datasets downloaded from Hugging Face. Several revisions can share the same "
         "files, and the folder beside it holds your login token.",
     .command = "hf cache ls, then hf cache rm or hf cache prune",
     .program = "hf"},
    {.kind = DeveloperStoreKind::torchHub,
     .text = "torchHub",
     .title = "PyTorch model downloads",
     .explanation = "Model weights downloaded by PyTorch. Anything that loads them will download "
                    "them again, which can be large.",
     .command = "Remove unused checkpoints from inside the project that downloaded them",
     .program = ""},
    {.kind = DeveloperStoreKind::ollamaModels,
     .text = "ollamaModels",
     .title = "Ollama models",
     .explanation = "Local language models pulled with Ollama. Removing one means pulling it again "
                    "before you can use it offline.",
     .command = "ollama list, then ollama rm <model>",
     .program = "ollama"},
    {.kind = DeveloperStoreKind::dockerDiskImage,
     .text = "dockerDiskImage",
     .title = "Docker Desktop disk image",
     .explanation =
         "One file holding every Docker image, container, volume and build cache. Its full size is "
         "a limit, not what is used: the space it takes on disk is shown here. Deleting it would "
         "erase all containers and volumes, so Tidyro never touches it.",
     .command = "docker system df, then docker builder prune and docker image prune; lower the "
                "disk limit in Docker Desktop settings to shrink the file",
     .program = "docker"},
    {.kind = DeveloperStoreKind::pnpmStore,
     .text = "pnpmStore",
     .title = "pnpm store",
     .explanation = "Every file of every package pnpm installed, each kept once. Projects share "
                    "these files, so removing one frees space only when no project uses it.",
     .command = "pnpm store prune",
     .program = "pnpm"},
    {.kind = DeveloperStoreKind::condaPackages,
     .text = "condaPackages",
     .title = "conda packages",
     .explanation = "Packages conda downloaded and unpacked. Environments may share their files, "
                    "and conda downloads a missing package again when it needs it.",
     .command = "conda clean --all",
     .program = "conda"},
    {.kind = DeveloperStoreKind::goModules,
     .text = "goModules",
     .title = "Go modules",
     .explanation = "Source code of the modules your Go projects use. Go downloads a missing "
                    "module again at the next build, which needs a connection.",
     .command = "go clean -modcache",
     .program = "go"},
    {.kind = DeveloperStoreKind::podmanStorage,
     .text = "podmanStorage",
     .title = "Podman storage",
     .explanation = "Your Podman images, containers and volumes. Volumes hold data that nothing "
                    "can download again, so Tidyro never touches this folder.",
     .command = "podman system df, then podman system prune",
     .program = "podman"},
    {.kind = DeveloperStoreKind::rootlessDocker,
     .text = "rootlessDocker",
     .title = "Docker (rootless)",
     .explanation = "Images, containers and volumes of the Docker service that runs under your own "
                    "account. Volumes hold data that nothing can download again, so Tidyro never "
                    "touches this folder.",
     .command = "docker system df, then docker system prune",
     .program = "docker"},
    {.kind = DeveloperStoreKind::flatpakUser,
     .text = "flatpakUser",
     .title = "Flatpak (yours)",
     .explanation = "Applications and runtimes you installed with Flatpak for yourself. Runtimes "
                    "that no application uses any more can be uninstalled.",
     .command = "flatpak uninstall --unused",
     .program = "flatpak"},
    {.kind = DeveloperStoreKind::preCommit,
     .text = "preCommit",
     .title = "pre-commit",
     .explanation = "Hooks pre-commit fetched, with the environments it built for them. It builds "
                    "what a project still needs again.",
     .command = "pre-commit gc",
     .program = "pre-commit"},
    {.kind = DeveloperStoreKind::nixStore,
     .text = "nixStore",
     .title = "Nix store",
     .explanation = "Everything Nix built or downloaded, for all users of this computer. Nix knows "
                    "which of it is still in use.",
     .command = "nix-collect-garbage",
     .program = "nix-collect-garbage"},
    {.kind = DeveloperStoreKind::ccache,
     .text = "ccache",
     .title = "ccache",
     .explanation = "Results of compiling, kept so that the same source is not compiled twice. "
                    "Builds are slower until it has filled again.",
     .command = "ccache --cleanup",
     .program = "ccache"},
});

constexpr auto rawValues(RawValueTag<DeveloperStoreKind>) {
    RawValueTable<DeveloperStoreKind, developerStoreTexts.size()> table{};
    for (std::size_t i = 0; i < table.rows.size(); ++i) {
        table.rows[i] = {developerStoreTexts[i].kind, developerStoreTexts[i].text};
    }
    return table;
}

[[nodiscard]] constexpr const DeveloperStoreTexts& textsOf(DeveloperStoreKind kind) {
    return developerStoreTexts[static_cast<std::size_t>(kind)]; // NOLINT: one for each kind
}

/// What people are shown.
[[nodiscard]] constexpr std::string_view title(DeveloperStoreKind kind) {
    return textsOf(kind).title;
}
/// What lies in the store, and what it costs to lose it.
[[nodiscard]] constexpr std::string_view explanation(DeveloperStoreKind kind) {
    return textsOf(kind).explanation;
}
/// The owner's own way to shrink the store: a command, or a sentence where there is none.
[[nodiscard]] constexpr std::string_view nativeCommand(DeveloperStoreKind kind) {
    return textsOf(kind).command;
}
/// The program that the command begins with; empty where no program owns the store.
[[nodiscard]] constexpr std::string_view ownerProgram(DeveloperStoreKind kind) {
    return textsOf(kind).program;
}

/// Whether the command tells a person something only where the program is installed. The stores
/// that every system has are explained in full, since their owner may run elsewhere: in a container
/// or in an environment that is not in the search path.
[[nodiscard]] constexpr bool isCommandOnlyForInstalled(DeveloperStoreKind kind) {
    return kind > DeveloperStoreKind::dockerDiskImage;
}

} // namespace tidyro
