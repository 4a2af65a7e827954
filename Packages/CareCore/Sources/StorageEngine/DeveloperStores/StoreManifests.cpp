#include "StorageEngine/DeveloperStores/StoreManifests.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

#include "Base/Base64.h"
#include "Base/JSON.h"
#include "Base/PathText.h"

namespace tidyro {

namespace {

constexpr std::string_view hexDigits = "0123456789abcdef";

bool isHex(std::string_view text, std::size_t length) {
    return text.size() == length && text.find_first_not_of(hexDigits) == std::string_view::npos;
}

/// The text of a key; empty when there is none.
std::string_view textAt(const JSON& object, const char* key) {
    if (!object.is_object()) return {};
    const auto found = object.find(key);
    if (found == object.end() || !found->is_string()) return {};
    return found->get_ref<const std::string&>();
}

/// Names of packages are short, and people are shown them.
bool isPackageText(std::string_view text) {
    constexpr std::size_t maxNameBytes = 256;
    return !text.empty() && text.size() <= maxNameBytes &&
           std::ranges::all_of(text, [](char byte) { return byte > ' ' && byte < '\x7f'; });
}

void addOllamaBlob(const JSON& layer, std::vector<std::string>& names) {
    constexpr std::string_view algorithm = "sha256:";
    constexpr std::size_t digestLength = 64;
    const std::string_view digest = textAt(layer, "digest");
    if (!digest.starts_with(algorithm)) return;
    const std::string_view hex = digest.substr(algorithm.size());
    if (isHex(hex, digestLength)) names.push_back("sha256-" + std::string(hex));
}

/// The file of a package by the digest of its contents: "sha512-" and base64.
std::optional<PnpmPackage::File> pnpmFile(const JSON& entry) {
    constexpr std::string_view algorithm = "sha512-";
    constexpr std::size_t digestBytes = 64;
    constexpr std::int64_t executable = 0111;
    const std::string_view integrity = textAt(entry, "integrity");
    if (!integrity.starts_with(algorithm)) return std::nullopt;
    const auto digest = base64Bytes(integrity.substr(algorithm.size()));
    if (!digest || digest->size() != digestBytes) return std::nullopt;
    std::string hex;
    for (const char byte : *digest) {
        const auto value = static_cast<unsigned char>(byte);
        hex += hexDigits[value >> 4U];
        hex += hexDigits[value & 0xFU];
    }
    const auto mode = entry.find("mode");
    const bool isExecutable = mode != entry.end() && mode->is_number_integer() &&
                              (mode->get<std::int64_t>() & executable) != 0;
    return PnpmPackage::File{.folder = hex.substr(0, 2),
                             .name = hex.substr(2) + (isExecutable ? "-exec" : "")};
}

} // namespace

std::optional<std::vector<std::string>> ollamaBlobNames(std::string_view manifest) {
    const auto document = parseJSON(manifest);
    if (!document || !document->is_object()) return std::nullopt;
    const auto layers = document->find("layers");
    if (layers == document->end() || !layers->is_array()) return std::nullopt;
    std::vector<std::string> names;
    if (const auto config = document->find("config"); config != document->end()) {
        addOllamaBlob(*config, names);
    }
    for (const JSON& layer : *layers) addOllamaBlob(layer, names);
    return names;
}

std::optional<std::string> ollamaModelName(std::string_view belowManifests) {
    const std::vector<std::string_view> parts = path::components(belowManifests);
    constexpr std::size_t partCount = 4; // a registry, who published it, the model and its tag
    if (parts.size() != partCount) return std::nullopt;
    std::string name;
    const bool isUsualRegistry = parts[0] == "registry.ollama.ai";
    if (!isUsualRegistry) name.append(parts[0]).append("/");
    if (!isUsualRegistry || parts[1] != "library") name.append(parts[1]).append("/");
    return name.append(parts[2]).append(":").append(parts[3]);
}

std::optional<PnpmPackage> pnpmPackage(std::string_view index) {
    const auto document = parseJSON(index);
    if (!document || !document->is_object()) return std::nullopt;
    const std::string_view name = textAt(*document, "name");
    const std::string_view version = textAt(*document, "version");
    const auto files = document->find("files");
    if (!isPackageText(name) || !isPackageText(version) || files == document->end() ||
        !files->is_object()) {
        return std::nullopt;
    }
    PnpmPackage package{.name = std::string(name) + "@" + std::string(version), .files = {}};
    for (const JSON& entry : *files) {
        if (auto file = pnpmFile(entry)) package.files.push_back(*std::move(file));
    }
    return package;
}

std::optional<std::string> huggingFaceRepository(std::string_view folder) {
    struct Type {
        std::string_view prefix;
        std::string_view shown;
    };
    constexpr auto types =
        std::to_array<Type>({{"models--", ""}, {"datasets--", "dataset/"}, {"spaces--", "space/"}});
    for (const auto& [prefix, shown] : types) {
        if (!folder.starts_with(prefix)) continue;
        folder.remove_prefix(prefix.size());
        if (folder.empty()) return std::nullopt;
        // The first pair of hyphens stands for the "/". An old model has nobody before its name.
        const std::size_t separator = folder.find("--");
        std::string name(shown);
        if (separator == std::string_view::npos) return name.append(folder);
        return name.append(folder.substr(0, separator))
            .append("/")
            .append(folder.substr(separator + 2));
    }
    return std::nullopt;
}

std::optional<std::string_view> huggingFaceBlob(std::string_view linkTarget, std::size_t depth) {
    constexpr std::string_view upwards = "../";
    constexpr std::string_view blobs = "blobs/";
    for (; depth > 0; --depth) {
        if (!linkTarget.starts_with(upwards)) return std::nullopt;
        linkTarget.remove_prefix(upwards.size());
    }
    if (!linkTarget.starts_with(blobs)) return std::nullopt;
    linkTarget.remove_prefix(blobs.size());
    if (linkTarget.empty() || linkTarget == "." || linkTarget == ".." ||
        linkTarget.find('/') != std::string_view::npos) {
        return std::nullopt;
    }
    return linkTarget;
}

std::string goModuleName(std::string_view folder) {
    std::string name;
    for (std::size_t i = 0; i < folder.size(); ++i) {
        if (folder[i] != '!') {
            name += folder[i];
            continue;
        }
        ++i;
        if (i == folder.size() || folder[i] < 'a' || folder[i] > 'z') return std::string(folder);
        name += static_cast<char>(folder[i] - 'a' + 'A');
    }
    return name;
}

} // namespace tidyro
