#include "Rooms/Find/Services/Index/FindPlaces.h"

#include <array>
#include <cstddef>

#include "Base/PathText.h"
#include "Base/UnicodeText.h"

namespace tidyro {

namespace {

/// What the name of a folder says.
enum class NameMeaning : std::uint8_t {
    nothing,
    programs,
    library,
    sources,
    aside,
    store,
    noise,
    homes,        ///< at the top only
    superuser,    ///< at the top only
    noiseAtTop,   ///< not on a disk at all
    asideInAHome, ///< what programs keep where it is seen
};

struct KnownName {
    std::string_view name;
    NameMeaning meaning = NameMeaning::nothing;
};

constexpr std::array knownNames = [] {
    using enum NameMeaning;
    return std::to_array<KnownName>({
        {"bin", programs},
        {"sbin", programs},
        {"applications", programs},
        {"lib", library},
        {"lib32", library},
        {"lib64", library},
        {"libx32", library},
        {"libexec", library},
        {"share", library},
        {"src", sources},
        {"source", sources},
        {"sources", sources},
        {"projects", sources},
        {"repos", sources},
        {"workspace", sources},
        {"doc", aside},
        {"docs", aside},
        {"documentation", aside},
        {"man", aside},
        {"info", aside},
        {"help", aside},
        {"javadoc", aside},
        {"gtk-doc", aside},
        {"examples", aside},
        {"samples", aside},
        {"licenses", aside},
        {"include", aside},
        {"includes", aside},
        {"headers", aside},
        {"locale", aside},
        {"locales", aside},
        {"i18n", aside},
        {"l10n", aside},
        {"translations", aside},
        {"icons", aside},
        {"pixmaps", aside},
        {"themes", aside},
        {"zoneinfo", aside},
        {"skel", aside},
        {"testdata", aside},
        {"fixtures", aside},
        {"firmware", aside},
        {"modules", aside},
        {"gcc", aside},
        {"jvm", aside},
        {"llvm", aside},
        {"toolchains", noise},
        {"sdks", noise},
        {".rustup", noise},
        {".nvm", noise},
        {".pyenv", noise},
        {".rbenv", noise},
        {".sdkman", noise},
        {"node_modules", store},
        {"bower_components", store},
        {"site-packages", store},
        {"dist-packages", store},
        {"gems", store},
        {"vendor", store},
        {"cellar", store},
        {"tmp", noise},
        {"temp", noise},
        {"cache", noise},
        {"caches", noise},
        {".cache", noise},
        {".ccache", noise},
        {".npm", noise},
        {".yarn", noise},
        {".pnpm-store", noise},
        {".gradle", noise},
        {".m2", noise},
        {".terraform", noise},
        {"registry", noise},
        {".git", noise},
        {".svn", noise},
        {".hg", noise},
        {".bzr", noise},
        {"build", noise},
        {"_build", noise},
        {"dist", noise},
        {"out", noise},
        {"obj", noise},
        {"target", noise},
        {"coverage", noise},
        {"cmakefiles", noise},
        {"deriveddata", noise},
        {"__pycache__", noise},
        {".venv", noise},
        {"venv", noise},
        {".tox", noise},
        {".nox", noise},
        {".mypy_cache", noise},
        {".pytest_cache", noise},
        {".ruff_cache", noise},
        {".next", noise},
        {"trash", noise},
        {".trash", noise},
        {".trashes", noise},
        {".snapshots", noise},
        {"lost+found", noise},
        {"home", homes},
        {"users", homes},
        {"root", superuser},
        {"proc", noiseAtTop},
        {"sys", noiseAtTop},
        {"dev", noiseAtTop},
        {"run", noiseAtTop},
        {"library", asideInAHome},
        {"snap", asideInAHome},
    });
}();

constexpr std::size_t slotCount = 1'024; // so that most names meet an empty slot

constexpr std::size_t slotOf(std::string_view name) {
    std::uint32_t hash = static_cast<std::uint32_t>(name.size());
    for (std::size_t i = 0; i < name.size() && i < 8; ++i) {
        hash = (hash ^ static_cast<unsigned char>(name[i])) * 0x01000193U;
    }
    return (hash ^ hash >> 15U) % slotCount;
}

constexpr std::array<KnownName, slotCount> nameSlots = [] {
    std::array<KnownName, slotCount> slots{};
    for (const KnownName& known : knownNames) {
        std::size_t slot = slotOf(known.name);
        while (!slots[slot].name.empty()) slot = (slot + 1) % slotCount;
        slots[slot] = known;
    }
    return slots;
}();

NameMeaning meaningOf(std::string_view name) {
    for (std::size_t slot = slotOf(name); !nameSlots[slot].name.empty();
         slot = (slot + 1) % slotCount) {
        if (nameSlots[slot].name == name) return nameSlots[slot].meaning;
    }
    // Versions stand behind these.
    const bool isToolchain = name.starts_with("linux-headers-") || name.starts_with("cuda");
    return isToolchain ? NameMeaning::aside : NameMeaning::nothing;
}

} // namespace

std::uint8_t findPlaceCost(FindPlace place) {
    switch (place) {
    case FindPlace::home:
    case FindPlace::own:
    case FindPlace::programs: return findProgramGain;
    case FindPlace::top:
    case FindPlace::homes:
    case FindPlace::plain: return 4;
    case FindPlace::library: return 5;
    case FindPlace::hidden: return 6;
    case FindPlace::aside:
    case FindPlace::store: return 8;
    case FindPlace::noise: return maxFindPlaceCost;
    }
    return maxFindPlaceCost;
}

FindPlace findPlaceInside(FindPlace above, std::string_view name, bool isPackage) {
    using enum FindPlace;
    if (above == noise || above == store) return noise;
    const NameMeaning meaning = meaningOf(name);
    if (meaning == NameMeaning::noise) return noise;
    if (meaning == NameMeaning::store) return store;
    if (above == aside || isPackage) return aside;
    if (above == hidden) return meaning == NameMeaning::programs ? programs : hidden;
    if (name.starts_with('.')) return hidden;
    if (above == homes) return home;
    if (above == top) {
        if (meaning == NameMeaning::homes) return homes;
        if (meaning == NameMeaning::superuser) return home;
        if (meaning == NameMeaning::noiseAtTop) return noise;
    }
    if (above == home) {
        // Documents are documents, whatever their folder is called.
        if (meaning == NameMeaning::asideInAHome) return aside;
        return meaning == NameMeaning::programs ? programs : own;
    }
    switch (meaning) {
    case NameMeaning::programs: return programs;
    case NameMeaning::aside: return aside;
    case NameMeaning::sources: return own;
    case NameMeaning::library: return above == own ? own : library;
    default: return above == top ? plain : above;
    }
}

FindPlace findPlaceOfRoot(std::string_view path) {
    auto place = FindPlace::top;
    for (const std::string_view component : path::components(path)) {
        place = findPlaceInside(place, searchFolded(component), false);
    }
    return place >= FindPlace::hidden ? FindPlace::plain : place;
}

} // namespace tidyro
