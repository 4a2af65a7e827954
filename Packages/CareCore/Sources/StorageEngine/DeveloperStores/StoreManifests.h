#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Reads what the owners of stores write down about their contents: lists of files, and names of
/// folders that stand for names of packages. Anybody may have put these bytes there, so every
/// result is checked: no name of a file holds "/" or leads upwards, and nothing is believed of a
/// size. Nothing here looks at the disk. Any thread may call.
namespace tidyro {

/// A file that lists what belongs to a model or a package is never longer.
inline constexpr std::size_t maxStoreManifestBytes = std::size_t{8} * 1'024 * 1'024;

/// The files in Ollama's "blobs" that a model consists of, as its manifest lists them by digest:
///
///     {"config": {"digest": "sha256:ab..."}, "layers": [{"digest": "sha256:cd..."}]}
///
/// None for anything that is no manifest. A digest that is none is passed over.
[[nodiscard]] std::optional<std::vector<std::string>> ollamaBlobNames(std::string_view manifest);

/// What people call a model of Ollama, from the path of its manifest below "manifests":
/// "registry.ollama.ai/library/llama3/8b" is "llama3:8b". None for a path of another depth.
[[nodiscard]] std::optional<std::string> ollamaModelName(std::string_view belowManifests);

/// What tells a file of pnpm's store from all others: the first bits of the digest of its contents,
/// and whether it is executable. Only somebody who makes up digests gets two files of one key, and
/// all that comes of it is a wrong size in that person's list.
using PnpmFileKey = std::uint64_t;

/// The key of a file from the folder below "files" and the name that hold it; none for other files.
[[nodiscard]] std::optional<PnpmFileKey> pnpmFileKey(std::string_view folder,
                                                     std::string_view name);

/// One package in pnpm's store.
struct PnpmPackage {
    std::string name; ///< "left-pad@1.3.0"
    std::vector<PnpmFileKey> files;

    bool operator==(const PnpmPackage&) const = default;
};
/// Reads the index that pnpm keeps of a package. It names the package and its files by the digests
/// of their contents. None for anything else, and for an index without the package's name.
[[nodiscard]] std::optional<PnpmPackage> pnpmPackage(std::string_view index);
/// The same for any spelling of JSON. It takes several times as long, so `pnpmPackage` asks it only
/// for what is not spelled as pnpm spells nearly every index.
[[nodiscard]] std::optional<PnpmPackage> pnpmPackageOfAnySpelling(std::string_view index);

/// What Hugging Face calls a repository, from its folder: "models--org--model" is "org/model", and
/// "datasets--org--data" is "dataset/org/data". None for a folder that is no repository.
[[nodiscard]] std::optional<std::string> huggingFaceRepository(std::string_view folder);

/// The file in a repository's "blobs" that a link leads to; none when it leads elsewhere. `depth`
/// is how many folders the link lies below the repository's.
[[nodiscard]] std::optional<std::string_view> huggingFaceBlob(std::string_view linkTarget,
                                                              std::size_t depth);

/// A module's path from the path of its folder, in which "!b" stands for "B". A path that is no
/// such escape stays as it is.
[[nodiscard]] std::string goModuleName(std::string_view folder);

} // namespace tidyro
