#include "StorageEngine/DeveloperStores/StoreManifests.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <system_error>
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

/// Keys in the order of their bytes. In a document that keeps the order of the text, each key is
/// compared with all before it, and a list of some hundred thousand files is never done.
using Listing = nlohmann::json;

std::optional<Listing> parseListing(std::string_view text) {
    // A zero byte has no place in JSON, and the parser would take it for the end of the text.
    if (text.find('\0') != std::string_view::npos) return std::nullopt;
    Listing listing = Listing::parse(text, nullptr, /*allow_exceptions=*/false);
    if (!listing.is_object()) return std::nullopt;
    return listing;
}

/// The text of a key; empty when there is none.
std::string_view textAt(const Listing& object, const char* key) {
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

void addOllamaBlob(const Listing& layer, std::vector<std::string>& names) {
    constexpr std::string_view algorithm = "sha256:";
    constexpr std::size_t digestLength = 64;
    const std::string_view digest = textAt(layer, "digest");
    if (!digest.starts_with(algorithm)) return;
    const std::string_view hex = digest.substr(algorithm.size());
    if (isHex(hex, digestLength)) names.push_back("sha256-" + std::string(hex));
}

/// The key of a file from what an index says of it: "sha512-" and base64, and the mode.
std::optional<PnpmFileKey> keyOfPnpmFile(std::string_view integrity, std::int64_t mode) {
    constexpr std::string_view algorithm = "sha512-";
    constexpr std::size_t digestLength = 88; // 64 bytes
    constexpr std::size_t keyLength = 12;    // nine bytes: the key takes eight
    constexpr std::int64_t executable = 0111;
    if (!integrity.starts_with(algorithm) || !integrity.ends_with("==")) return std::nullopt;
    integrity.remove_prefix(algorithm.size());
    if (integrity.size() != digestLength) return std::nullopt;
    const auto bytes = base64Bytes(integrity.substr(0, keyLength));
    if (!bytes || bytes->size() < sizeof(PnpmFileKey)) return std::nullopt;
    PnpmFileKey key = 0;
    for (std::size_t i = 0; i < sizeof key; ++i) {
        key = key << 8U | static_cast<unsigned char>((*bytes)[i]);
    }
    return (key & ~PnpmFileKey{1}) | ((mode & executable) != 0 ? 1U : 0U);
}

std::optional<PnpmPackage> pnpmPackageOf(std::string_view name, std::string_view version,
                                         std::vector<PnpmFileKey> files) {
    if (!isPackageText(name) || !isPackageText(version)) return std::nullopt;
    return PnpmPackage{.name = std::string(name).append("@").append(version),
                       .files = std::move(files)};
}

/// Goes through JSON that is spelled as programs spell it: no white space, and no text in which a
/// byte stands for anything but itself. Whatever is not, each call answers with false or none.
class PlainJSON {
  public:
    explicit PlainJSON(std::string_view text) : rest_(text) {
        // No early end: to ask after each byte costs more than to read the rest.
        unsigned odd = 0;
        for (const char byte : text) {
            const auto value = static_cast<signed char>(byte); // below zero: not ASCII
            odd |= static_cast<unsigned>(value < ' ') | static_cast<unsigned>(value == '\\');
        }
        if (odd != 0) rest_ = {};
    }

    [[nodiscard]] bool isAtEnd() const { return rest_.empty(); }

    [[nodiscard]] std::optional<std::string_view> text() {
        if (!take('"')) return std::nullopt;
        const std::size_t end = rest_.find('"');
        if (end == std::string_view::npos) return std::nullopt;
        const std::string_view text = rest_.substr(0, end);
        rest_.remove_prefix(end + 1);
        return text;
    }
    /// A whole number that is not negative.
    [[nodiscard]] std::optional<std::int64_t> number() {
        std::int64_t value = 0;
        const bool isNegative = rest_.starts_with('-');
        const auto [end, failed] =
            std::from_chars(rest_.data(), rest_.data() + rest_.size(), value);
        const auto length = static_cast<std::size_t>(end - rest_.data());
        const bool hasLeadingZero = length > 1 && rest_.front() == '0';
        if (failed != std::errc() || isNegative || hasLeadingZero) return std::nullopt;
        rest_.remove_prefix(length);
        return value;
    }
    /// Passes over anything but an object or a list.
    [[nodiscard]] bool scalar() {
        if (rest_.starts_with('"')) return text().has_value();
        for (const std::string_view word : {"true", "false", "null"}) {
            if (!rest_.starts_with(word.front()) || !rest_.starts_with(word)) continue;
            rest_.remove_prefix(word.size());
            return true;
        }
        return number().has_value();
    }
    /// `takeValue` gets each key, and has to take the value.
    template <class TakeValue>
    [[nodiscard]] bool object(TakeValue takeValue) {
        if (!take('{')) return false;
        if (take('}')) return true;
        do {
            const auto key = text();
            if (!key || !take(':') || !takeValue(*key)) return false;
        } while (take(','));
        return take('}');
    }

  private:
    [[nodiscard]] bool take(char expected) {
        if (!rest_.starts_with(expected)) return false;
        rest_.remove_prefix(1);
        return true;
    }

    std::string_view rest_;
};

/// Passes over one file of an index, and takes note of its key.
bool takePnpmFile(PlainJSON& json, std::vector<PnpmFileKey>& files) {
    std::string_view integrity;
    std::int64_t mode = 0;
    const bool isTaken = json.object([&](std::string_view key) {
        if (key == "integrity") {
            const auto text = json.text();
            if (text) integrity = *text;
            return text.has_value();
        }
        if (key == "mode") {
            const auto number = json.number();
            if (number) mode = *number;
            return number.has_value();
        }
        return json.scalar();
    });
    if (!isTaken) return false;
    if (const auto key = keyOfPnpmFile(integrity, mode)) files.push_back(*key);
    return true;
}

} // namespace

std::optional<std::vector<std::string>> ollamaBlobNames(std::string_view manifest) {
    const auto document = parseListing(manifest);
    if (!document) return std::nullopt;
    const auto layers = document->find("layers");
    if (layers == document->end() || !layers->is_array()) return std::nullopt;
    std::vector<std::string> names;
    if (const auto config = document->find("config"); config != document->end()) {
        addOllamaBlob(*config, names);
    }
    for (const Listing& layer : *layers) addOllamaBlob(layer, names);
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

std::optional<PnpmFileKey> pnpmFileKey(std::string_view folder, std::string_view name) {
    constexpr std::string_view executableEnding = "-exec";
    constexpr std::size_t folderLength = 2;
    constexpr std::size_t nameLength = 126;
    const bool isExecutable = name.ends_with(executableEnding);
    if (isExecutable) name.remove_suffix(executableEnding.size());
    if (folder.size() != folderLength || name.size() != nameLength) return std::nullopt;
    PnpmFileKey key = 0;
    for (const std::string_view part : {folder, name.substr(0, sizeof key * 2 - folderLength)}) {
        for (const char digit : part) {
            const bool isLetter = digit >= 'a' && digit <= 'f';
            if (!isLetter && (digit < '0' || digit > '9')) return std::nullopt;
            key = key << 4U | static_cast<unsigned>(isLetter ? digit - 'a' + 10 : digit - '0');
        }
    }
    return (key & ~PnpmFileKey{1}) | (isExecutable ? 1U : 0U);
}

std::optional<PnpmPackage> pnpmPackage(std::string_view index) {
    PlainJSON json(index);
    std::optional<std::string_view> name = "";
    std::optional<std::string_view> version = "";
    std::vector<PnpmFileKey> files;
    constexpr std::size_t usualEntryLength = 160;
    files.reserve(index.size() / usualEntryLength);
    bool hasFiles = false;
    const bool isPlain = json.object([&](std::string_view key) {
        if (key == "name") return (name = json.text()).has_value();
        if (key == "version") return (version = json.text()).has_value();
        if (key != "files") return json.scalar();
        files.clear(); // the last of several counts
        hasFiles = true;
        return json.object([&](std::string_view) { return takePnpmFile(json, files); });
    });
    if (!isPlain || !json.isAtEnd()) return pnpmPackageOfAnySpelling(index);
    return hasFiles ? pnpmPackageOf(*name, *version, std::move(files)) : std::nullopt;
}

std::optional<PnpmPackage> pnpmPackageOfAnySpelling(std::string_view index) {
    const auto document = parseListing(index);
    if (!document) return std::nullopt;
    const auto listed = document->find("files");
    if (listed == document->end() || !listed->is_object()) return std::nullopt;
    std::vector<PnpmFileKey> files;
    for (const Listing& entry : *listed) {
        if (!entry.is_object()) continue;
        const auto mode = entry.find("mode");
        const bool hasMode = mode != entry.end() && mode->is_number_integer();
        const auto key =
            keyOfPnpmFile(textAt(entry, "integrity"), hasMode ? mode->get<std::int64_t>() : 0);
        if (key) files.push_back(*key);
    }
    return pnpmPackageOf(textAt(*document, "name"), textAt(*document, "version"), std::move(files));
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
