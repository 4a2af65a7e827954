#include "StorageEngine/DiskTree/ContentKind.h"

#include <algorithm>
#include <array>

#include "Base/LowercaseTable.h"
#include "Base/PathText.h"

namespace tidyro {

namespace {

struct Titled {
    ContentKind kind;
    std::string_view title;
};

constexpr std::array<Titled, contentKindCount> titles{
    {{ContentKind::other, "Other"},
     {ContentKind::application, "Applications"},
     {ContentKind::developer, "Developer"},
     {ContentKind::image, "Images"},
     {ContentKind::video, "Video"},
     {ContentKind::audio, "Audio"},
     {ContentKind::document, "Documents"},
     {ContentKind::archive, "Archives"},
     {ContentKind::diskImage, "Disk images"},
     {ContentKind::cachesAndLogs, "Caches and logs"},
     {ContentKind::system, "System"}}};

constexpr std::array<ContentKind, contentKindCount> kinds = [] {
    std::array<ContentKind, contentKindCount> all{};
    for (std::size_t i = 0; i < all.size(); ++i) all[i] = titles[i].kind;
    return all;
}();

/// Where two kinds list one extension, the later kind has it.
constexpr std::array<ValueWords<ContentKind>, 9> extensionLists{{
    {ContentKind::image, "jpg jpeg png gif heic heif webp avif tif tiff bmp raw cr2 cr3 nef arw "
                         "dng orf rw2 raf psd ai eps svg ico icns jxl exr hdr"},
    {ContentKind::video, "mp4 mov m4v mkv avi webm wmv flv f4v mpg mpeg 3gp mts m2ts braw r3d "
                         "prores vob ogv asf"},
    {ContentKind::audio,
     "mp3 m4a aac wav aiff aif flac ogg oga opus alac wma caf mid midi m4b aup"},
    {ContentKind::document, "pdf doc docx pages key numbers xls xlsx ppt pptx txt rtf rtfd md "
                            "markdown csv tsv epub mobi djvu odt ods odp tex msg eml"},
    {ContentKind::archive, "zip tar gz tgz bz2 tbz xz txz 7z rar zst lz4 lzma cpio jar war ear "
                           "aar deb rpm sit sitx"},
    {ContentKind::diskImage, "dmg iso img sparseimage sparsebundle toast cdr vdi vmdk qcow2 vhd "
                             "vhdx hds utm pvm pkg mpkg xip ipsw raw2"},
    {ContentKind::developer,
     "swift c h cc cpp hpp m mm js mjs cjs ts tsx jsx py pyc pyd pyi pyx rb go rs java kt kts "
     "scala dart php lua exs erl clj vue svelte sh zsh bash fish gradle cmake ninja bazel json "
     "json5 yaml yml toml xml plist graphql proto sql ipynb lock sum mod o a dylib so class wasm "
     "node pdb map d pbxproj xcconfig storyboard xib nib car strings metallib swiftmodule "
     "swiftdoc swiftsourceinfo swiftinterface modulemap tbd pcm bcsymbolmap gcno gcda hmap "
     "linkfilelist abi rlib rmeta beam cma cmi cmx elc zwc dex aab apk"},
    {ContentKind::cachesAndLogs, "log cache tmp temp crash ips diag spin hang asl tracev3 db-wal "
                                 "db-shm idx pack swap dmp"},
    {ContentKind::application, "app aupreset"},
}};

constexpr auto byExtension = lowercaseTable<extensionLists>();

constexpr std::array<LowercaseTable<Listed, 33>::Row, 33> developerFolderRows{{
    {"node_modules"},
    {"deriveddata"},
    {".build"},
    {".gradle"},
    {"pods"},
    {".next"},
    {".nuxt"},
    {".turbo"},
    {".parcel-cache"},
    {".svelte-kit"},
    {".angular"},
    {".dart_tool"},
    {".zig-cache"},
    {".mypy_cache"},
    {".pytest_cache"},
    {".ruff_cache"},
    {"__pycache__"},
    {".venv"},
    {"venv"},
    {".tox"},
    {".git"},
    {".cargo"},
    {".rustup"},
    {".npm"},
    {".pnpm-store"},
    {".yarn"},
    {"coresimulator"},
    {"ios devicesupport"},
    {"watchos devicesupport"},
    {"tvos devicesupport"},
    {"xcode"},
    {".android"},
    {"android"},
}};
constexpr LowercaseTable<Listed, 33> developerFolders(developerFolderRows);

constexpr auto applicationFolderExtensions = lowercaseSet<17>(
    "app appex xpc framework bundle kext plugin prefpane qlgenerator component vst vst3 mdimporter "
    "saver service wdgt systemextension");

constexpr auto packageExtensions = lowercaseSet<53>(
    "app appex bundle framework plugin kext xpc systemextension dext photoslibrary photolibrary "
    "migratedphotolibrary aplibrary musiclibrary tvlibrary imovielibrary theater fcpbundle logicx "
    "band xcodeproj xcworkspace xcarchive xctest playground dsym rtfd pages numbers key "
    "sparsebundle pkg mpkg qlgenerator mdimporter prefpane saver docset scptd wdgt workflow action "
    "vmwarevm pvm utm component vst vst3 service download lproj pbproj icbundle");

constexpr auto cacheAndLogFolders = lowercaseSet<3>("caches logs diagnosticreports");

constexpr std::array<std::string_view, 7> systemTopLevelFolders{"System",  "usr",   "bin", "sbin",
                                                                "private", "cores", "dev"};

} // namespace

std::span<const ContentKind> allContentKinds() { return kinds; }

std::optional<ContentKind> contentKind(std::uint8_t rawValue) {
    if (rawValue >= contentKindCount) return std::nullopt;
    return kinds[rawValue];
}

std::string_view title(ContentKind kind) { return titles[static_cast<std::size_t>(kind)].title; }

ContentKind contentKindForExtension(std::string_view extension) {
    return byExtension.find(extension).value_or(ContentKind::other);
}

ContentKind contentKindForFile(std::string_view name) {
    return contentKindForExtension(path::extensionOf(name));
}

std::optional<ContentKind> contentKindContext(std::string_view folderName,
                                              std::optional<ContentKind> parentContext,
                                              bool isTopLevelSystem) {
    if (parentContext) return parentContext;
    if (isTopLevelSystem) return ContentKind::system;
    if (applicationFolderExtensions.contains(path::extensionOf(folderName))) {
        return ContentKind::application;
    }
    if (developerFolders.contains(folderName)) return ContentKind::developer;
    if (cacheAndLogFolders.contains(folderName)) return ContentKind::cachesAndLogs;
    return std::nullopt;
}

std::optional<ContentKind> contentKindContextOfPath(std::string_view path) {
    std::optional<ContentKind> context;
    bool isTopLevel = true;
    for (const std::string_view component : path::components(path)) {
        context =
            contentKindContext(component, context, isTopLevel && isSystemTopLevelFolder(component));
        isTopLevel = false;
    }
    return context;
}

bool isSystemTopLevelFolder(std::string_view name) {
    return std::ranges::find(systemTopLevelFolders, name) != systemTopLevelFolders.end();
}

bool isPackageFolder(std::string_view name) {
    return packageExtensions.contains(path::extensionOf(name));
}

} // namespace tidyro
