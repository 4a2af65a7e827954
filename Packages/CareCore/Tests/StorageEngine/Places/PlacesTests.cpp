#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Base/LoweredPath.h"
#include "Base/PathText.h"
#include "Base/UnicodeText.h"
#include "StorageEngine/Places/BaseFolders.h"
#include "StorageEngine/Places/DesktopFolders.h"
#include "StorageEngine/Places/HomeFolders.h"
#include "StorageEngine/Places/KeptPlaces.h"
#include "StorageEngine/Places/SystemPlaces.h"
#include "Support/TemporaryFolder.h"

namespace tidyro {
namespace {

const FileURL home = FileURL::folder("/home/ada");

TEST(DesktopFolders, ReadsWhatDesktopsWrite) {
    const auto found = DesktopFolders::parse("# made by the desktop\n"
                                             "XDG_DOCUMENTS_DIR=\"$HOME/Dokumente\"\n"
                                             "  XDG_MUSIC_DIR = \"${HOME}/a \\\"b\\\"\" # loud\r\n"
                                             "XDG_DOWNLOAD_DIR=\"$HOME/Herunter/\"\n"
                                             "XDG_TEMPLATES_DIR=\"$HOME/\"\n"
                                             "XDG_DESKTOP_DIR=\"$HOME\"\n"
                                             "XDG_PUBLICSHARE_DIR=\"\"\n"
                                             "XDG_VIDEOS_DIR=\"/home\"\n"
                                             "XDG_SOMETHING_ELSE=yes\n"
                                             "LANG=C\n"
                                             "XDG_PICTURES_DIR=\"/data/Bilder\"",
                                             home);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->personal,
              (std::vector{FileURL::folder("/home/ada/Dokumente"),
                           FileURL::folder("/home/ada/a \"b\""), FileURL::folder("/data/Bilder")}));
    EXPECT_EQ(found->downloads, std::vector{FileURL::folder("/home/ada/Herunter")});
}

TEST(DesktopFolders, LoseNoMoreThanALineThatTheyCannotRead) {
    const std::vector folder{FileURL::folder("/home/ada/Musik")};
    for (const char* line :
         {"XDG_MUSIC_DIR=$HOME/Musik", "XDG_MUSIC_DIR='$HOME/Musik'", "XDG_MUSIC_DIR=\"$HOME/Musik",
          "XDG_MUSIC_DIR=\"$HOME/Musik\\\"", "XDG_MUSIC_DIR=\"$HOME/Musik\" 2",
          "XDG_MUSIC_DIR=\"~/Musik\"", "XDG_MUSIC_DIR=\"$HOME/Musik/$MINE\"",
          "XDG_MUSIC_DIR=\"${HOME}/Musik`mine`\"", "export XDG_MUSIC_DIR=\"$HOME/Musik\"",
          ": ; XDG_MUSIC_DIR=\"$HOME/Musik\""}) {
        const auto found = DesktopFolders::parse(line, home);
        ASSERT_TRUE(found) << line;
        EXPECT_EQ(found->personal, folder) << line;
    }
    for (const char* line : {"XDG_MUSIC_DIR", "XDG_MUSIC_DIR=", "XDG_MUSIC_DIR=\"Musik\"",
                             "XDG_MUSIC_DIR=\"$HOMES/Musik\"", "XDG_MUSIC_DIR=\"$HOME/$MINE\""}) {
        const auto found =
            DesktopFolders::parse(std::string(line) + "\nXDG_VIDEOS_DIR=\"$HOME/Musik\"\n", home);
        ASSERT_TRUE(found) << line;
        EXPECT_EQ(found->personal, folder) << line;
    }
    std::string many;
    for (int i = 0; i < 101; ++i) many += "XDG_" + std::to_string(i) + "_DIR=\"$HOME/a\"\n";
    EXPECT_FALSE(DesktopFolders::parse(many, home)) << "each costs looks at the disk";
    EXPECT_TRUE(DesktopFolders::parse(many.substr(many.find('\n') + 1), home));
}

TEST(BaseFolders, MoveOnlyToFoldersThatHoldNothingElse) {
    const testing::TemporaryFolder place;
    const FileURL ada = FileURL::folder(place.path());
    place.folder("src/tool/.git");
    place.folder("var/files");
    const auto cachesAt = [&](const std::string& path) {
        return BaseFolders::chosen(ada, {.caches = path}).caches;
    };
    for (const char* name : {"var", "var/caches/../files", ".config/cache", "Documents/cache"}) {
        EXPECT_EQ(cachesAt(place / name), path::standardized(name)) << name;
    }
    for (const char* name : {"", ".", "..", "../x", ".local", ".config", "Documents", "documents",
                             "src", "src/tool"}) {
        EXPECT_EQ(cachesAt(place / name), ".cache") << name;
    }
    EXPECT_EQ(cachesAt("/var/tmp/ada"), ".cache");
    const BaseFolders bases = BaseFolders::chosen(
        ada, {.caches = place / "var", .settings = place / "var", .data = place / "var/data"});
    EXPECT_EQ(bases.caches, ".cache") << "it would hold the others";
    EXPECT_EQ(bases.settings, ".config");
    EXPECT_EQ(bases.data, "var/data");
    EXPECT_EQ(bases.moved(".local/share/Steam"), "var/data/Steam");
    EXPECT_EQ(bases.moved(".local/shared"), ".local/shared");
    EXPECT_EQ(bases.named("var/data"), ".local/share");
    EXPECT_EQ(bases.named("var/database"), "var/database");
}

/// Sets a variable of the environment as long as it lives.
class Variable {
  public:
    Variable(const char* name, const std::string& value) : name_(name) {
        ::setenv(name, value.c_str(), 1);
    }
    ~Variable() { ::unsetenv(name_); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

  private:
    const char* name_;
};

std::string keptAs(const KeptPlaces& kept, std::string_view path) {
    const auto found = kept.find(lowercased(path));
    if (!found) return "";
    return (found->storeDepth ? std::to_string(*found->storeDepth) + " " : "") +
           std::string(found->reason);
}

TEST(KeptPlaces, AreAskedAsTheHeaderShows) {
    const auto whyKept = [](const FileURL& of) -> std::string_view {
        const KeptPlaces kept(of);
        const auto found = kept.find(LoweredPath("/home/ada/.cache/uv/wheels/x").text());
        if (found) return found->reason; // it names uv's own command
        return {};
    };
    EXPECT_EQ(whyKept(home), "Only uv may shrink its cache: uv cache prune");
    const KeptPlaces kept(home);
    EXPECT_EQ(keptAs(kept, "/nix/store/x"), "1 Only Nix may shrink its store: nix-collect-garbage");
    EXPECT_EQ(keptAs(kept, "/home/ada/miniforge3/pkgs/x"),
              "4 Only conda may shrink its packages: conda clean --all");
    for (const char* free : {"/nixos/x", "/home/ada/miniforge3/x", "/home/bob/.cache/uv/x",
                             "/home/ada/.var/app/x/cache/data", "/home/ada/notes~"}) {
        EXPECT_EQ(keptAs(kept, free), "") << free;
    }
    using enum KeptPlaces::Touch;
    const auto touch = [&](std::string_view below) {
        return kept.touch("/home/ada/" + lowercased(below));
    };
    EXPECT_EQ(touch(".var/app/org.x/DATA/file"), isIn);
    EXPECT_EQ(touch(".aws/config"), isIn);
    EXPECT_EQ(touch(".aws/cli/cache"), nothing);
    EXPECT_EQ(touch(".config/google-chrome/Default/cache.json"), isIn);
    EXPECT_EQ(touch(".var/app/org.x"), holds);
    EXPECT_EQ(touch(".kube"), holds);
    EXPECT_EQ(touch(".kube/cache"), nothing);
    EXPECT_EQ(touch(".cache/uv"), nothing) << "a store is no data of people";
    EXPECT_EQ(touch(".cache/vim"), nothing) << "what it holds will tell";
    EXPECT_TRUE(KeptPlaces::isKeptName("mine.kdbx"));
    EXPECT_FALSE(KeptPlaces::isKeptName("history"));
}

TEST(KeptPlaces, FollowTheEnvironment) {
    if (platform::operatingSystem() != OperatingSystem::linux_) GTEST_SKIP() << "of Linux";
    const testing::TemporaryFolder place;
    const FileURL ada = FileURL::folder(place.path());
    place.folder("cfg/editor/.git"); // people keep their settings in repositories
    const Variable caches("XDG_CACHE_HOME", place / "var");
    const Variable settings("XDG_CONFIG_HOME", place / "cfg");
    const Variable modules("GOMODCACHE", place / "modules");
    const Variable whole("HF_HOME", place.path());
    const Variable elsewhere("UV_CACHE_DIR", "/srv/uv");
    const Variable relative("CCACHE_DIR", "ccache");
    const KeptPlaces kept(ada);
    EXPECT_NE(keptAs(kept, place / "var/uv/x"), "");
    EXPECT_NE(keptAs(kept, place / ".cache/uv/x"), "") << "older data";
    EXPECT_NE(keptAs(kept, place / "var/rclone/x"), "");
    EXPECT_NE(keptAs(kept, place / "cfg/gh/hosts.yml"), "") << "though it holds a project";
    EXPECT_NE(keptAs(kept, place / "modules/m@v1/x"), "");
    EXPECT_NE(keptAs(kept, "/srv/uv/x"), "");
    EXPECT_EQ(keptAs(kept, place / "ccache/x"), "");
    EXPECT_EQ(keptAs(kept, place / "other/x"), "") << "the home is no store";
    EXPECT_TRUE(kept.isApplicationSupport(lowercased(place / "cfg/tool/x")));
    EXPECT_EQ(BaseFolders::find(ada).settings, ".config") << "no rule follows";
    EXPECT_EQ(BaseFolders::find(ada).caches, "var");
    place.file("cfg/user-dirs.dirs", "XDG_MUSIC_DIR=\"$HOME/Musik\"\n");
    const auto desktop = DesktopFolders::read(ada);
    ASSERT_TRUE(desktop);
    EXPECT_EQ(desktop->personal, std::vector{ada.appendingFolder("Musik")});
}

TEST(HomeFolders, AreAskedAsTheHeaderShows) {
    std::vector<std::string> kept;
    for (const FileURL& folder : HomeFolders::protectedFolders(home)) {
        kept.push_back(folder.path());
    }
    const bool isSynced = HomeFolders::isInCloudFolder(folded("Dropbox/letter.txt"));
    EXPECT_EQ(kept.front(), "/home/ada/.ssh");
    EXPECT_TRUE(isSynced);
    EXPECT_FALSE(HomeFolders::isInCloudFolder(folded("sync.sh")));
}

TEST(SystemPlaces, AreAskedAsTheHeaderShows) {
    const SystemPlaces places(std::vector{folded("/home/ada")});
    const bool isSystem = places.isTouchedBy(folded("/usr/lib/os-release"));
    EXPECT_TRUE(isSystem);
    EXPECT_FALSE(places.isTouchedBy(folded("/home/ada/usr/lib")));
}

} // namespace
} // namespace tidyro
