#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Base/UnicodeText.h"
#include "StorageEngine/Places/DesktopFolders.h"
#include "StorageEngine/Places/HomeFolders.h"
#include "StorageEngine/Places/SystemPlaces.h"

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

TEST(DesktopFolders, KnowsNothingByALineThatItCannotRead) {
    for (const char* line :
         {"XDG_MUSIC_DIR", "XDG_MUSIC_DIR=", "XDG_MUSIC_DIR=$HOME/Musik",
          "XDG_MUSIC_DIR='$HOME/Musik'", "XDG_MUSIC_DIR=\"$HOME/Musik",
          "XDG_MUSIC_DIR=\"$HOME/Musik\\\"", "XDG_MUSIC_DIR=\"$HOME/Musik\" 2",
          "XDG_MUSIC_DIR=\"Musik\"", "XDG_MUSIC_DIR=\"~/Musik\"", "XDG_MUSIC_DIR=\"$HOMES/Musik\"",
          "XDG_MUSIC_DIR=\"$HOME/$MINE\"", "XDG_MUSIC_DIR=\"$HOME/`mine`\"",
          "export XDG_MUSIC_DIR=\"$HOME/Musik\"", ": ; XDG_MUSIC_DIR=\"$HOME/Musik\""}) {
        EXPECT_FALSE(DesktopFolders::parse(line, home)) << line;
    }
    std::string many;
    for (int i = 0; i < 101; ++i) many += "XDG_" + std::to_string(i) + "_DIR=\"$HOME/a\"\n";
    EXPECT_FALSE(DesktopFolders::parse(many, home)) << "each costs looks at the disk";
    EXPECT_TRUE(DesktopFolders::parse(many.substr(many.find('\n') + 1), home));
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
