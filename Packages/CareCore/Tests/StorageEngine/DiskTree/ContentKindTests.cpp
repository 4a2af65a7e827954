#include "StorageEngine/DiskTree/ContentKind.h"

#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace tidyro {
namespace {

using enum ContentKind;
using Context = std::optional<ContentKind>;
using Words = std::vector<std::string_view>;

TEST(ContentKind, HasStableNumbers) {
    for (const ContentKind kind : allContentKinds()) {
        EXPECT_EQ(contentKind(static_cast<std::uint8_t>(kind)), kind);
    }
    EXPECT_EQ(contentKind(8), diskImage);
    EXPECT_EQ(contentKind(10), system);
    EXPECT_FALSE(contentKind(11));
    EXPECT_EQ(title(cachesAndLogs), "Caches and logs");
    EXPECT_EQ(title(system), "System");
}

// The ends of each list, and words that look like one of another list.
TEST(ContentKind, ComesFromTheExtension) {
    for (const auto& [kind, extensions] : std::vector<std::pair<ContentKind, Words>>{
             {image, {"jpg", "hdr", "raw", "JPG", "hEiC"}},
             {video, {"mp4", "asf", "mts", "m2ts", "3gp"}},
             {audio, {"mp3", "aup", "m4a", "m4b"}},
             {document, {"pdf", "eml", "pages", "key", "numbers", "rtfd"}},
             {archive, {"zip", "sitx", "gz", "7z", "jar", "aar", "deb"}},
             {diskImage, {"dmg", "raw2", "pkg", "mpkg", "utm", "sparsebundle"}},
             {developer, {"swift", "apk", "c", "ts", "m", "d", "mod", "aab", "linkfilelist"}},
             {cachesAndLogs, {"log", "dmp", "db-wal", "tracev3", "pack"}},
             {application, {"app", "aupreset"}},
             {other, {"", "jpgx", "jp", "raw3", "m4", "c ", "appex", "db", "wal", "\xFF"}}}) {
        for (const std::string_view extension : extensions) {
            EXPECT_EQ(contentKindForExtension(extension), kind) << extension;
        }
    }
    EXPECT_EQ(contentKindForFile("a.tar.GZ"), archive);
    EXPECT_EQ(contentKindForFile(".log"), other);
    EXPECT_EQ(contentKindForFile("log"), other);
    EXPECT_EQ(contentKindForFile("pdf."), other);
}

TEST(ContentKind, IsImposedByFolders) {
    for (const auto& [context, names] : std::vector<std::pair<Context, Words>>{
             {application, {"X.app", "X.APP", "..app", "a.b.systemextension", "x.vst3", "x.wdgt"}},
             {developer,
              {"node_modules", "Node_Modules", "android", ".android", "DerivedData",
               "iOS DeviceSupport", "Xcode", ".git", "venv", "__PYCACHE__"}},
             {cachesAndLogs, {"Caches", "LOGS", "DiagnosticReports"}},
             {std::nullopt,
              {"", ".app", "app", "x.apps", "x.app ", "x.app.d", "x.xcodeproj", "node_module",
               "node_modules2", "git", "deviceSupport", "Cache", "System", "usr"}}}) {
        for (const std::string_view name : names) {
            EXPECT_EQ(contentKindContext(name, std::nullopt, false), context) << name;
            // What stands above wins: first the parent, then the system.
            EXPECT_EQ(contentKindContext(name, image, true), image) << name;
            EXPECT_EQ(contentKindContext(name, std::nullopt, true), system) << name;
        }
    }
    for (const auto& [context, paths] : std::vector<std::pair<Context, Words>>{
             {std::nullopt, {"/", "/home/ada/Documents", "/home/usr", "/system/x", "/home/System"}},
             {system, {"/usr", "/System/Library/Caches", "/private/tmp/X.app", "/cores", "/dev"}},
             {developer, {"/src/node_modules/X.app/Caches"}},
             {application, {"/Applications/X.app/Contents/Caches/deep"}},
             {cachesAndLogs, {"/home/ada/Library/Caches/X.app"}}}) {
        for (const std::string_view path : paths) {
            EXPECT_EQ(contentKindContextOfPath(path), context) << path;
        }
    }
}

TEST(ContentKind, TellsPackages) {
    for (const std::string_view name :
         {"X.app", "x.APP", "x.dSYM", "x.icbundle", "Photos.photoslibrary", "a.b.vst", "x.lproj"}) {
        EXPECT_TRUE(isPackageFolder(name)) << name;
    }
    for (const std::string_view name : {"", "app", ".app", "x.apps", "x.app.d", "x.", "x.zip",
                                        "x.node_modules", "x.iso", "x.systemextensions"}) {
        EXPECT_FALSE(isPackageFolder(name)) << name;
    }
}

} // namespace
} // namespace tidyro
