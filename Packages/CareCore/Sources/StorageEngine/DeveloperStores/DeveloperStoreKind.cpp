#include "StorageEngine/DeveloperStores/DeveloperStoreKind.h"

#include <array>
#include <cstddef>

namespace tidyro {

namespace {

struct StoreTexts {
    std::string_view title;
    std::string_view explanation;
    std::string_view command;
    std::string_view program;
};

/// In the order of the cases.
constexpr auto storeTexts = std::to_array<StoreTexts>({
    {.title = "uv package cache",
     .explanation = "Wheels and source packages uv downloaded or built. uv fetches them again when "
                    "a project needs them, which costs time and bandwidth and needs a connection.",
     .command = "uv cache prune",
     .program = "uv"},
    {.title = "Hugging Face model cache",
     .explanation =
         "Models and datasets downloaded from Hugging Face. Several revisions can share the same "
         "files, and the folder beside it holds your login token.",
     .command = "hf cache ls, then hf cache rm or hf cache prune",
     .program = "hf"},
    {.title = "PyTorch model downloads",
     .explanation = "Model weights downloaded by PyTorch. Anything that loads them will download "
                    "them again, which can be large.",
     .command = "Remove unused checkpoints from inside the project that downloaded them",
     .program = ""},
    {.title = "Ollama models",
     .explanation = "Local language models pulled with Ollama. Removing one means pulling it again "
                    "before you can use it offline.",
     .command = "ollama list, then ollama rm <model>",
     .program = "ollama"},
    {.title = "Docker Desktop disk image",
     .explanation =
         "One file holding every Docker image, container, volume and build cache. Its full size is "
         "a limit, not what is used: the space it takes on disk is shown here. Deleting it would "
         "erase all containers and volumes, so Tidyro never touches it.",
     .command = "docker system df, then docker builder prune and docker image prune; lower the "
                "disk limit in Docker Desktop settings to shrink the file",
     .program = "docker"},
    {.title = "pnpm store",
     .explanation = "Every file of every package pnpm installed, each kept once. Projects share "
                    "these files, so removing one frees space only when no project uses it.",
     .command = "pnpm store prune",
     .program = "pnpm"},
    {.title = "conda packages",
     .explanation = "Packages conda downloaded and unpacked. Environments may share their files, "
                    "and conda downloads a missing package again when it needs it.",
     .command = "conda clean --all",
     .program = "conda"},
    {.title = "Go modules",
     .explanation = "Source code of the modules your Go projects use. Go downloads a missing "
                    "module again at the next build, which needs a connection.",
     .command = "go clean -modcache",
     .program = "go"},
    {.title = "Podman storage",
     .explanation = "Your Podman images, containers and volumes. Volumes hold data that nothing "
                    "can download again, so Tidyro never touches this folder.",
     .command = "podman system df, then podman system prune",
     .program = "podman"},
    {.title = "Docker (rootless)",
     .explanation = "Images, containers and volumes of the Docker service that runs under your own "
                    "account. Volumes hold data that nothing can download again, so Tidyro never "
                    "touches this folder.",
     .command = "docker system df, then docker system prune",
     .program = "docker"},
    {.title = "Flatpak (yours)",
     .explanation = "Applications and runtimes you installed with Flatpak for yourself. Runtimes "
                    "that no application uses any more can be uninstalled.",
     .command = "flatpak uninstall --unused",
     .program = "flatpak"},
    {.title = "pre-commit",
     .explanation = "Hooks pre-commit fetched, with the environments it built for them. It builds "
                    "what a project still needs again.",
     .command = "pre-commit gc",
     .program = "pre-commit"},
    {.title = "Nix store",
     .explanation = "Everything Nix built or downloaded, for all users of this computer. Nix knows "
                    "which of it is still in use.",
     .command = "nix-collect-garbage",
     .program = "nix-collect-garbage"},
    {.title = "ccache",
     .explanation = "Results of compiling, kept so that the same source is not compiled twice. "
                    "Builds are slower until it has filled again.",
     .command = "ccache --cleanup",
     .program = "ccache"},
});
static_assert(storeTexts.size() == allCases<DeveloperStoreKind>().size());

const StoreTexts& textsOf(DeveloperStoreKind kind) {
    return storeTexts[static_cast<std::size_t>(kind)]; // NOLINT: there is one for each case
}

} // namespace

std::string_view title(DeveloperStoreKind kind) { return textsOf(kind).title; }
std::string_view explanation(DeveloperStoreKind kind) { return textsOf(kind).explanation; }
std::string_view nativeCommand(DeveloperStoreKind kind) { return textsOf(kind).command; }
std::string_view ownerProgram(DeveloperStoreKind kind) { return textsOf(kind).program; }

bool isCommandOnlyForInstalled(DeveloperStoreKind kind) {
    return kind > DeveloperStoreKind::dockerDiskImage;
}

} // namespace tidyro
