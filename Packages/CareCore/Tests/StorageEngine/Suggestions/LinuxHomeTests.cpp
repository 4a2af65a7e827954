#include <algorithm>
#include <array>
#include <map>
#include <string>
#include <string_view>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Platform/Machine/OperatingSystem.h"
#include "StorageEngine/Observation/FileObserver.h"
#include "StorageEngine/PickedItems/DiskItemRemovalPolicy.h"
#include "StorageEngine/Rules/BuiltInCleanupRules.h"
#include "StorageEngine/Safety/DeterministicSafetyPolicy.h"
#include "StorageEngine/Suggestions/CleanupBench.h"
#include "Support/OtherCircumstances.h"

namespace tidyro {
namespace {

/// What a developer's home holds on Linux. A file is rated ("safe RULE", "review RULE" or why it is
/// held) and picked: what its card says that it is, or why it stays. A path that ends with "/" is a
/// folder of files in other rows, and is picked as a whole.
struct Item {
    const char* path;
    int daysOld;
    const char* rated;
    const char* picked;
};
constexpr auto items = std::to_array<Item>({
    // Browsers and mail
    {".cache/google-chrome/Default/Cache/Cache_Data/f_01", 4, "safe linux-chrome-cache",
     "regenerableCache"},
    {".cache/google-chrome/Default/Cache/Cache_Data/young", 2, "insufficientAge",
     "regenerableCache"},
    {".config/google-chrome/Default/Code Cache/js/1", 4, "safe linux-chrome-support",
     "regenerableCache"},
    {".config/google-chrome/Default/Preferences", 400, "protectedLocation", "protectedPlace"},
    {".config/google-chrome/Default/Extensions/a/cache/code.js", 400, "protectedLocation",
     "protectedPlace"},
    {".config/google-chrome/Default/Service Worker/CacheStorage/1", 400, "protectedLocation",
     "protectedPlace"},
    {".config/google-chrome/Default/IndexedDB/site/1.log", 400, "liveDataStore", "protectedPlace"},
    {".config/google-chrome/", 0, "", "protectedPlace"},
    {".config/google-chrome/Default/Code Cache/", 0, "", "regenerableCache"},
    {".cache/mozilla/firefox/p/cache2/entries/E", 4, "safe linux-firefox-cache",
     "regenerableCache"},
    {".mozilla/firefox/p/logins.json", 400, "protectedLocation", "protectedPlace"},
    {".cache/chromium/Default/Cache/x", 4, "safe linux-chromium-cache", "regenerableCache"},
    {".config/chromium/Default/Cookies", 400, "protectedLocation", "protectedPlace"},
    {".config/BraveSoftware/Brave-Browser/Default/Bookmarks", 400, "protectedLocation",
     "protectedPlace"},
    {".config/BraveSoftware/Brave-Browser/Default/GPUCache/x", 4, "safe linux-brave-support",
     "regenerableCache"},
    {".cache/thunderbird/p/startupCache/x", 15, "safe linux-thunderbird-cache", "regenerableCache"},
    {".thunderbird/p/ImapMail/INBOX", 400, "protectedLocation", "protectedPlace"},
    {"Maildir/cur/1", 400, "protectedLocation", "protectedPlace"},
    {".claws-mail/accountrc", 400, "protectedLocation", "protectedPlace"},
    {".local/share/evolution/mail/1", 400, "protectedLocation", "protectedPlace"},
    {".cache/evolution/mail/1", 400, "protectedLocation", "protectedPlace"},

    // Editors
    {".config/Code/CachedData/a/main.js", 8, "safe linux-vscode-support", "regenerableCache"},
    {".config/Code/User/settings.json", 400, "protectedLocation", "unknown"},
    {".config/Code/User/workspaceStorage/1/cache/x", 400, "protectedLocation", "unknown"},
    {".config/Cursor/Cache/Cache_Data/x", 400, "activeApplicationData", "activeApplication"},
    {".cache/vscode-cpptools/ipch/x", 15, "safe linux-cpptools", "regenerableCache"},
    {".cache/clangd/index/x", 31, "safe linux-clangd", "regenerableCache"},
    {".cache/JetBrains/Idea/caches/names.dat", 31, "review linux-jetbrains", "regenerableCache"},
    {".cache/JetBrains/Idea/LocalHistory/changes", 400, "protectedLocation", "protectedPlace"},
    {".cache/JetBrains/", 0, "", "holdsProtectedPlace"},
    {".cache/nvim/luac/x", 31, "review dot-cache", "regenerableCache"},
    {".cache/nvim/swap/notes", 400, "protectedLocation", "protectedPlace"},
    {".cache/vim/undo/notes", 400, "protectedLocation", "protectedPlace"},
    {".cache/emacs/notes~", 400, "protectedLocation", "protectedPlace"},
    {".cache/nvim/", 0, "", "holdsProtectedPlace"},
    {".cache/emacs/", 0, "", "holdsProtectedPlace"},
    {".cache/emacs/#notes#", 400, "protectedLocation", "protectedPlace"},

    // Package managers, compilers, what they keep for themselves, and what people built
    {".npm/_cacache/content/x", 31, "safe npm-cache", "regenerableCache"},
    {".npmrc", 400, "protectedLocation", "protectedPlace"},
    {".cache/yarn/v6/x", 31, "safe linux-yarn", "regenerableCache"},
    {".cache/pnpm/metadata/x", 31, "safe linux-pnpm-metadata", "regenerableCache"},
    {".local/share/pnpm/store/v3/files/x", 400, "protectedLocation", "regenerableCache"},
    {".cache/electron/x.zip", 31, "safe linux-electron", "regenerableCache"},
    {".cache/ms-playwright/chromium-1/chrome", 31, "review linux-playwright", "regenerableCache"},
    {".cache/deno/gen/x", 31, "safe linux-deno", "regenerableCache"},
    {".cache/deno/location_data/a/kv", 400, "protectedLocation", "protectedPlace"},
    {".cache/pip/http-v2/x", 31, "safe pip-cache-dot", "regenerableCache"},
    {".cache/pypoetry/cache/repositories/x", 31, "safe linux-poetry-downloads", "regenerableCache"},
    {".cache/pypoetry/virtualenvs/app/pyvenv.cfg", 400, "projectContent", "regenerableCache"},
    {".cache/pypoetry/virtualenvs/app/lib/site.py", 400, "projectContent", "regenerableCache"},
    {".cache/uv/wheels/x", 400, "protectedLocation", "ownersStore"},
    {".cache/uv/", 0, "", "ownersStore"},
    {".cache/pre-commit/repo1/x", 400, "protectedLocation", "ownersStore"},
    {"miniconda3/pkgs/x/info", 400, "protectedLocation", "ownersStore"},
    {"miniconda3/envs/app/conda-meta/history", 400, "projectContent", "unknown"},
    {".cache/huggingface/hub/blobs/model", 400, "protectedLocation", "ownersStore"},
    {".cache/torch/hub/checkpoints/x", 400, "protectedLocation", "regenerableCache"},
    {".ollama/models/blobs/sha256-1", 400, "protectedLocation", "ownersStore"},
    {".ollama/models/blobs/partial/x", 8, "review ollama-blob-partials", "temporaryArtifact"},
    {".cache/lm-studio/models/x", 400, "protectedLocation", "protectedPlace"},
    {".lmstudio/models/x", 400, "unknownPurpose", "unknown"},
    {".cargo/registry/cache/i/serde.crate", 31, "safe cargo-registry-cache", "regenerableCache"},
    {".cargo/git/checkouts/serde-1a/2b/.git/HEAD", 61, "review cargo-git-checkouts",
     "repositoryData"},
    {".cargo/git/checkouts/serde-1a/2b/lib.rs", 61, "review cargo-git-checkouts",
     "regenerableCache"},
    {".cargo/git/checkouts/serde-1a/2b/own/.git/HEAD", 400, "projectRepository", "repositoryData"},
    {".cargo/git/checkouts/serde-1a/2b/own/x.rs", 400, "projectRepository", "regenerableCache"},
    {".rustup/downloads/x.partial", 8, "safe linux-rustup-downloads", "temporaryArtifact"},
    {".rustup/tmp/x", 8, "safe linux-rustup-tmp", "temporaryArtifact"},
    {".rustup/toolchains/stable/bin/rustc", 400, "unknownPurpose", "unknown"},
    {".cache/go-build/00/a", 15, "safe linux-go-build", "regenerableCache"},
    {"go/pkg/mod/cache/download/m/@v/v1.zip", 61, "safe go-module-cache", "regenerableCache"},
    {"go/pkg/mod/m@v1/m.go", 400, "protectedLocation", "regenerableCache"},
    {"go/src/mine/main.go", 400, "unknownPurpose", "unknown"},
    {".m2/repository/org/theirs/x.jar", 91, "review linux-maven", "regenerableCache"},
    {".m2/repository/org/mine/maven-metadata-local.xml", 400, "protectedLocation",
     "protectedPlace"},
    {".m2/repository/org/mine/1/mine.jar", 400, "protectedLocation", "builtHere"},
    {".m2/repository/", 0, "", "holdsProtectedPlace"},
    {".gradle/caches/modules-2/x.jar", 31, "safe gradle-caches", "regenerableCache"},
    {".ivy2/cache/org/x.jar", 61, "safe linux-ivy", "regenerableCache"},
    {".cache/ccache/a/b", 400, "protectedLocation", "ownersStore"},
    {".cache/sccache/a", 31, "safe linux-sccache", "regenerableCache"},
    {".cache/bazel/_bazel_ada/x", 31, "review linux-bazel", "regenerableCache"},
    {".cache/yay/tool/.git/HEAD", 31, "review dot-cache", "repositoryData"},
    {".cache/yay/tool/tool.tar.xz", 31, "review dot-cache", "regenerableCache"},
    {".cache/yay/tool/", 0, "", "regenerableCache"},
    {".cache/paru/clone/tool/.git/HEAD", 31, "review dot-cache", "repositoryData"},
    {".cache/paru/clone/tool/PKGBUILD", 31, "review dot-cache", "regenerableCache"},
    {".cache/tool/mine/.git/HEAD", 400, "projectRepository", "repositoryData"},
    {".cache/tool/mine/x", 400, "projectRepository", "regenerableCache"},
    {".cache/tool/other/.hg/store/x", 400, "projectRepository", "repositoryData"},
    {".cache/tool/other/x", 400, "projectRepository", "regenerableCache"},

    // The desktop
    {".cache/thumbnails/normal/1.png", 15, "safe linux-thumbnails", "regenerableCache"},
    {".cache/mesa_shader_cache/00/x", 15, "safe linux-mesa-shaders", "regenerableCache"},
    {".local/share/xorg/Xorg.0.log", 15, "safe linux-xorg-logs", "expiredLog"},
    {".cache/spotify/Storage/x", 31, "review linux-spotify-cache", "regenerableCache"},
    {".config/discord/Cache/Cache_Data/x", 8, "safe linux-discord-support", "regenerableCache"},
    {".config/discord/settings.json", 400, "protectedLocation", "unknown"},
    {".config/discord/downloads/x", 400, "protectedLocation", "download"},
    {".config/tool/Cache/x", 400, "protectedLocation", "unknown"},
    {".cache/rclone/vfs/remote/x", 400, "protectedLocation", "protectedPlace"},
    {".cache/rclone/", 0, "", "protectedPlace"},

    // Flatpak, snap and containers
    {".var/app/org.gimp.GIMP/cache/x", 31, "review flatpak-caches:org.gimp.GIMP",
     "regenerableCache"},
    {".var/app/org.gimp.GIMP/data/x", 400, "protectedLocation", "protectedPlace"},
    {".var/app/org.gimp.GIMP/config/x", 400, "protectedLocation", "protectedPlace"},
    {".var/app/org.gimp.GIMP/", 0, "", "holdsProtectedPlace"},
    {".var/app/org.gimp.GIMP/cache/", 0, "", "regenerableCache"},
    {".var/app/org.mozilla.firefox/cache/mozilla/firefox/p/E", 4, "safe flatpak-firefox-cache",
     "regenerableCache"},
    {".var/app/org.mozilla.firefox/.mozilla/firefox/p/prefs.js", 400, "protectedLocation",
     "protectedPlace"},
    {".var/app/org.gnome.Evolution/cache/evolution/mail/1", 400, "protectedLocation",
     "protectedPlace"},
    {".var/app/io.neovim.nvim/cache/nvim/swap/notes", 400, "protectedLocation", "protectedPlace"},
    {".var/app/io.neovim.nvim/cache/", 0, "", "holdsProtectedPlace"},
    {".var/app/io.neovim.nvim/cache/uv/wheels/x", 400, "protectedLocation", "regenerableCache"},
    {"snap/nvim/common/.cache/nvim/undo/notes", 400, "protectedLocation", "protectedPlace"},
    {"snap/notes/common/.cache/x", 31, "review snap-caches:notes", "regenerableCache"},
    {"snap/notes/common/notes.txt", 400, "unknownPurpose", "unknown"},
    {"snap/firefox/common/.cache/mozilla/firefox/p/E", 4, "safe snap-firefox-cache",
     "regenerableCache"},
    {"snap/firefox/common/.mozilla/firefox/p/prefs.js", 400, "protectedLocation", "protectedPlace"},
    {".local/share/flatpak/repo/x", 400, "protectedLocation", "ownersStore"},
    {".local/share/containers/storage/tmp/x", 8, "review containers-storage-tmp",
     "temporaryArtifact"},
    {".local/share/containers/storage/overlay/x", 400, "protectedLocation", "ownersStore"},
    {".local/share/docker/overlay2/x", 400, "protectedLocation", "ownersStore"},
    {".docker/buildx/cache/x", 15, "review docker-buildx-cache", "regenerableCache"},
    {".docker/config.json", 400, "protectedLocation", "protectedPlace"},

    // Games
    {".local/share/Steam/steamapps/shadercache/1/x", 31, "safe linux-steam-shaders",
     "regenerableCache"},
    {".local/share/Steam/steamapps/common/Game/data", 400, "protectedLocation", "unknown"},
    {".local/share/Steam/steamapps/compatdata/1/pfx/save", 400, "protectedLocation",
     "protectedPlace"},
    {".local/share/Steam/userdata/1/save", 400, "protectedLocation", "protectedPlace"},
    {".local/share/Steam/logs/x.txt", 15, "safe linux-steam-logs", "expiredLog"},
    {".var/app/com.valvesoftware.Steam/.local/share/Steam/steamapps/shadercache/1/x", 31,
     "safe flatpak-steam-shaders", "regenerableCache"},
    {".var/app/com.valvesoftware.Steam/.local/share/Steam/userdata/1/save", 400,
     "protectedLocation", "protectedPlace"},
    {".wine/drive_c/save", 400, "protectedLocation", "protectedPlace"},
    {".minecraft/saves/world/level.dat", 400, "protectedLocation", "protectedPlace"},
    {".config/unity3d/Studio/Game/save", 400, "protectedLocation", "protectedPlace"},
    {".local/share/lutris/pga", 400, "protectedLocation", "protectedPlace"},

    // Keys, passwords, wallets, histories, machines and backups
    {".aws/credentials", 400, "protectedLocation", "protectedPlace"},
    {".aws/cli/cache/x", 15, "safe aws-cli-cache", "regenerableCache"},
    {".kube/config", 400, "protectedLocation", "protectedPlace"},
    {".kube/cache/x", 15, "safe kube-cache", "regenerableCache"},
    {".netrc", 400, "protectedLocation", "protectedPlace"},
    {".gnupg/pubring.kbx", 400, "protectedLocation", "protectedPlace"},
    {".config/gh/hosts.yml", 400, "protectedLocation", "protectedPlace"},
    {".config/sops/age/keys.txt", 400, "protectedLocation", "protectedPlace"},
    {".config/borg/keys/x", 400, "protectedLocation", "protectedPlace"},
    {".password-store/mail.gpg", 400, "protectedLocation", "protectedPlace"},
    {".local/share/keyrings/login.keyring", 400, "protectedLocation", "protectedPlace"},
    {".config/Bitwarden/data.json", 400, "protectedLocation", "protectedPlace"},
    {".config/op/config", 400, "protectedLocation", "protectedPlace"},
    {"Documents/secrets.kdbx", 400, "personalLocation", "protectedPlace"},
    {".cache/tool/secrets.kdbx", 400, "protectedLocation", "protectedPlace"},
    {".bitcoin/wallet.dat", 400, "protectedLocation", "protectedPlace"},
    {".electrum/wallets/default", 400, "protectedLocation", "protectedPlace"},
    {".ethereum/keystore/x", 400, "protectedLocation", "protectedPlace"},
    {".bash_history", 400, "protectedLocation", "protectedPlace"},
    {".cache/zsh/history", 400, "protectedLocation", "protectedPlace"},
    {".local/share/fish/fish_history", 400, "protectedLocation", "protectedPlace"},
    {".local/share/atuin/key", 400, "protectedLocation", "protectedPlace"},
    {".config/syncthing/cert.pem", 400, "protectedLocation", "protectedPlace"},
    {".local/share/gnome-boxes/images/vm", 400, "protectedLocation", "protectedPlace"},
    {"disk/kopia.repository.f", 400, "backupArtifact", "backup"},
    {"disk/p0/1.f", 400, "backupArtifact", "backup"},
    {"disk/", 0, "", "backup"},
});

TEST(LinuxHome, IsRatedSuggestedAndPickedRowByRow) {
    if (platform::operatingSystem() != OperatingSystem::linux_) GTEST_SKIP() << "places of Linux";
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    CleanupBench bench;
    const auto isFolder = [](const Item& item) {
        return std::string_view(item.path).ends_with('/');
    };
    for (const Item& item : items) {
        if (!isFolder(item)) bench.file(item.path, item.daysOld, 1);
    }
    LocalRuntimeSafetyContextProvider contexts(bench.home,
                                               {.volumes = bench.volumes,
                                                .processes = bench.seenProcesses,
                                                .applications = bench.applications},
                                               {});
    const auto context = contexts.freshContext();
    ASSERT_NE(context, nullptr);
    const DeterministicSafetyPolicy policy(bench.home);
    const auto rules = BuiltInCleanupRules::allLocations(bench.home);
    FileObserver observer(bench.home, bench.volumes);
    DiskItemRemovalPolicy picking(
        {.home = bench.home, .context = context, .volumes = bench.volumes});

    std::map<std::string, std::string> mayGo;
    for (const Item& item : items) {
        const FileURL url = FileURL::file(path::joined(bench.home.path(), item.path));
        const auto entry = picking.planEntry({.item = FileURL::file(path::standardized(url.path())),
                                              .measuredBytes = 1,
                                              .at = bench.now});
        EXPECT_EQ(entry ? rawValue(entry->proofCard.category) : rawValue(entry.error()),
                  item.picked)
            << item.path;
        if (isFolder(item)) continue;
        const auto seen = observer.observation(url);
        ASSERT_TRUE(seen) << item.path;
        const auto folder = platform::FolderDescriptor::openRoot(url.parent().path());
        ASSERT_TRUE(folder) << item.path;
        const auto rated = policy.classify(*seen, {.rules = rules,
                                                   .context = *context,
                                                   .now = bench.now,
                                                   .partOf = observer.partOf(*folder, *seen)});
        const CleanupRule* rule = DeterministicSafetyPolicy::mostSpecificMatchingRule(url, rules);
        const auto& assessment = rated.assessment;
        std::string said;
        if (assessment.tier == RiskTier::protected_) {
            said = rawValue(*assessment.evidence.codes.begin());
        } else {
            const bool isSafe = assessment.tier == RiskTier::safeToReclaim;
            said = fmt::format("{} {}", isSafe ? "safe" : "review",
                               rule == nullptr ? "?" : rule->id());
            mayGo[item.path] = said;
        }
        EXPECT_EQ(said, item.rated) << item.path;
    }

    const auto report = bench.scan({});
    ASSERT_TRUE(report);
    std::map<std::string, std::string> suggested;
    for (const SmartCleanupGroup& group : report->groups) {
        for (const CleanupCandidate& one : group.candidates) {
            const bool isSafe = one.assessment.tier == RiskTier::safeToReclaim;
            suggested[bench.below(one.observation.url)] =
                fmt::format("{} {}", isSafe ? "safe" : "review", group.ruleID);
        }
    }
    EXPECT_EQ(suggested, mayGo);
}

} // namespace
} // namespace tidyro
