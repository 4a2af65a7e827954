#include <array>

#include "StorageEngine/Safety/ActiveApplications.h"

namespace tidyro {

namespace {

// Many applications also run under the bare name of what they are built on: "electron", "java".
constexpr auto knownApplications = std::to_array<ActiveApplications::Known>({
    // Browsers
    {"chrome|google-chrome|google chrome|chrome_crashpad|chromedriver", "com.google.Chrome",
     "Library/Caches/Google|Library/Caches/com.google.Chrome|Library/Caches/Chromium|"
     "Library/Application Support/Google|Library/Application Support/Chromium|"
     ".config/google-chrome|.config/google-chrome-beta|.config/google-chrome-unstable|"
     ".cache/google-chrome|.cache/google-chrome-beta|.cache/google-chrome-unstable|"
     ".config/chromium|.cache/chromium|.cache/puppeteer|.cache/ms-playwright"},
    {"chromium|ungoogled-chromium", "org.chromium.Chromium",
     "Library/Caches/Chromium|Library/Application Support/Chromium|.config/chromium|"
     ".cache/chromium|snap/chromium"},
    {"brave", "com.brave.Browser",
     "Library/Caches/BraveSoftware|Library/Caches/com.brave.Browser|"
     "Library/Application Support/BraveSoftware|.config/BraveSoftware|.cache/BraveSoftware|"
     "snap/brave"},
    {"msedge|microsoft-edge|microsoft edge", "com.microsoft.edgemac|com.microsoft.Edge",
     "Library/Caches/Microsoft Edge|Library/Caches/com.microsoft.edgemac|"
     "Library/Application Support/Microsoft Edge|.config/microsoft-edge|.cache/microsoft-edge"},
    {"vivaldi", "com.vivaldi.Vivaldi",
     "Library/Caches/Vivaldi|Library/Caches/com.vivaldi.Vivaldi|"
     "Library/Application Support/Vivaldi|.config/vivaldi|.cache/vivaldi"},
    {"opera", "com.operasoftware",
     "Library/Caches/com.operasoftware.Opera|Library/Application Support/com.operasoftware.Opera|"
     ".config/opera|.cache/opera"},
    {"arc|browser helper", "company.thebrowser",
     "Library/Caches/Arc|Library/Caches/company.thebrowser.Browser|"
     "Library/Application Support/Arc"},
    {"zen", "app.zen-browser.zen",
     "Library/Caches/zen|Library/Application Support/zen|.zen|.cache/zen"},
    {"firefox|librewolf|waterfox|tor|plugin-container|web content|gpu process|socket process",
     "org.mozilla|io.gitlab.librewolf-community",
     "Library/Caches/Firefox|Library/Caches/Mozilla|Library/Application Support/Firefox|.mozilla|"
     ".cache/mozilla|.librewolf|.cache/librewolf|.waterfox|.cache/waterfox|snap/firefox|"
     ".var/app/org.mozilla.firefox"},
    {"safari|com.apple.webkit|com.apple.safari", "com.apple.Safari|com.apple.WebKit",
     "Library/Caches/com.apple.Safari|Library/Safari|Library/WebKit|"
     "Library/Containers/com.apple.Safari"},
    {"epiphany|gnome-web|webkitwebprocess|webkitnetworkpr", "org.gnome.Epiphany",
     ".cache/epiphany|.config/epiphany|.local/share/epiphany"},

    // Editors and development environments
    {"code|codium|vscodium|vscode|electron", "com.microsoft.VSCode|com.visualstudio.code",
     "Library/Application Support/Code|Library/Application Support/Code - Insiders|"
     "Library/Application Support/VSCodium|Library/Caches/com.microsoft.VSCode|.config/Code|"
     ".config/Code - OSS|.config/Code - Insiders|.config/VSCodium|.vscode|.vscode-oss|"
     ".vscode-server|.cache/vscode-cpptools"},
    {"cursor|electron", "com.todesktop.230313mzl4w4u92",
     "Library/Application Support/Cursor|Library/Caches/Cursor|.config/Cursor|.cursor|"
     ".cursor-server"},
    {"windsurf|electron", "com.exafunction.windsurf",
     "Library/Application Support/Windsurf|.config/Windsurf|.windsurf|.codeium"},
    {"zed", "dev.zed",
     "Library/Application Support/Zed|Library/Caches/Zed|Library/Logs/Zed|.config/zed|.cache/zed|"
     ".local/share/zed"},
    {"sublime_text|sublime text|subl|sublime_merge|sublime merge", "com.sublimetext",
     "Library/Application Support/Sublime Text|Library/Caches/Sublime Text|.config/sublime-text|"
     ".cache/sublime-text"},
    {"idea|pycharm|clion|goland|webstorm|phpstorm|rider|rustrover|datagrip|rubymine|jetbrains|"
     "fsnotifier|fleet|java",
     "com.jetbrains",
     "Library/Caches/JetBrains|Library/Application Support/JetBrains|Library/Logs/JetBrains|"
     ".config/JetBrains|.cache/JetBrains|.local/share/JetBrains"},
    {"studio|android studio|android-studio|adb|emulator|qemu-system|java", "com.google.android",
     "Library/Caches/Google|Library/Application Support/Google|Library/Android|.android|Android|"
     ".config/Google|.cache/Google|.local/share/Google"},
    {"eclipse|java", "org.eclipse", ".eclipse|.p2|eclipse-workspace"},
    {"xcode|xcodebuild|xcbbuildservice|swbbuildservice|simulator|simctl|coresimulator|"
     "com.apple.coresimu|launchd_sim|xctest|xcrun|ibtool|actool|swift|sourcekit|lldb|clang|ld|"
     "instruments|debugserver|com.apple.dt|playground",
     "com.apple.dt|com.apple.iphonesimulator|com.apple.CoreSimulator|com.apple.Playgrounds",
     "Library/Developer|Library/Caches/com.apple.dt.Xcode|Library/Caches/org.swift.swiftpm|"
     "Library/org.swift.swiftpm|Library/Logs/CoreSimulator|.swiftpm|.cache/org.swift.swiftpm"},
    {"emacs", "org.gnu.Emacs", ".emacs.d|.config/emacs|.cache/emacs"},
    {"vim|nvim|neovim|gvim|macvim", "org.vim.MacVim",
     ".vim|.config/nvim|.cache/nvim|.cache/vim|.local/share/nvim|.local/state/nvim"},

    // Talking and mail
    {"slack|electron", "com.tinyspeck.slackmacgap",
     "Library/Application Support/Slack|Library/Caches/com.tinyspeck.slackmacgap|"
     "Library/Containers/com.tinyspeck.slackmacgap|.config/Slack|.cache/Slack|snap/slack"},
    {"discord|electron", "com.hnc.Discord",
     "Library/Application Support/discord|Library/Caches/com.hnc.Discord|.config/discord|"
     "snap/discord"},
    {"teams|microsoft teams|msteams|teams-for-linux|electron", "com.microsoft.teams",
     "Library/Application Support/Microsoft/Teams|Library/Containers/com.microsoft.teams2|"
     "Library/Caches/com.microsoft.teams|.config/Microsoft|.config/teams-for-linux"},
    {"zoom", "us.zoom",
     "Library/Application Support/zoom.us|Library/Caches/us.zoom.xos|Library/Logs/zoom.us|.zoom|"
     ".cache/zoom|.config/zoomus.conf"},
    {"telegram", "ru.keepcoder.Telegram|org.telegram|com.tdesktop.Telegram",
     "Library/Application Support/Telegram Desktop|Library/Group Containers/"
     "6N38VWS5BX.ru.keepcoder.Telegram|.local/share/TelegramDesktop"},
    {"signal|electron", "org.whispersystems.signal-desktop",
     "Library/Application Support/Signal|.config/Signal"},
    {"whatsapp|electron", "net.whatsapp.WhatsApp",
     "Library/Application Support/WhatsApp|Library/Containers/net.whatsapp.WhatsApp|"
     ".config/WhatsApp"},
    {"element|electron", "im.riot.app", "Library/Application Support/Element|.config/Element"},
    {"mail|com.apple.mail|maild", "com.apple.mail",
     "Library/Mail|Library/Containers/com.apple.mail|Library/Caches/com.apple.mail"},
    {"thunderbird|betterbird", "org.mozilla.thunderbird",
     "Library/Thunderbird|Library/Caches/Thunderbird|.thunderbird|.cache/thunderbird|"
     "snap/thunderbird"},
    {"outlook|microsoft outlook", "com.microsoft.Outlook",
     "Library/Containers/com.microsoft.Outlook|Library/Group Containers/UBF8T346G9.Office"},
    {"evolution|geary", "org.gnome.Evolution",
     ".cache/evolution|.config/evolution|.local/share/evolution|.cache/geary|.local/share/geary"},

    // Tools for AI
    {"claude|electron|node", "com.anthropic",
     "Library/Application Support/Claude|Library/Caches/com.anthropic.claudefordesktop|"
     "Library/Logs/Claude|.claude|.config/Claude|.cache/claude|.cache/claude-cli-nodejs|"
     "Library/Caches/claude-cli-nodejs"},
    {"codex|node", "com.openai.codex", ".codex"},
    {"chatgpt", "com.openai",
     "Library/Application Support/com.openai.chat|Library/Caches/com.openai.chat"},
    {"opencode|node|bun", "ai.opencode",
     ".cache/opencode|.config/opencode|.local/share/opencode|.local/state/opencode"},
    {"copilot|github copilot|copilotforxcode|node", "com.github.CopilotForXcode|com.github.copilot",
     "Library/Caches/com.github.CopilotForXcode|Library/Application Support/com.github."
     "CopilotForXcode|.copilot|.config/github-copilot|.cache/github-copilot"},
    {"generativeexper|com.apple.generat|modelmanagerd|intelligenceplat|assistantd|siri",
     "com.apple.generativeexperiences|com.apple.Siri",
     "Library/Caches/com.apple.generativeexperiences|Library/Caches/com.apple.assistant"},
    {"gemini|node", "com.google.gemini", ".gemini"},
    {"ollama", "com.electron.ollama|com.ollama", ".ollama|Library/Application Support/Ollama"},
    {"lm studio|lm-studio|lmstudio|lms|electron", "ai.elementlabs.lmstudio",
     ".lmstudio|.cache/lm-studio|Library/Application Support/LM Studio|.config/LM Studio"},
    {"jan|electron", "jan.ai.app", "jan|Library/Application Support/Jan|.config/Jan"},

    // Made to write, draw and listen with
    {"spotify", "com.spotify.client",
     "Library/Application Support/Spotify|Library/Caches/com.spotify.client|.config/spotify|"
     ".cache/spotify|snap/spotify"},
    {"figma|electron", "com.figma",
     "Library/Application Support/Figma|Library/Caches/com.figma.Desktop|.config/figma-linux|"
     ".config/Figma"},
    {"notion|electron", "notion.id",
     "Library/Application Support/Notion|Library/Caches/notion.id|.config/Notion"},
    {"obsidian|electron", "md.obsidian",
     "Library/Application Support/obsidian|Library/Caches/md.obsidian|.config/obsidian"},
    {"postman|electron", "com.postmanlabs.mac",
     "Library/Application Support/Postman|Library/Caches/com.postmanlabs.mac|.config/Postman|"
     "Postman|snap/postman"},
    {"adobe|photoshop|lightroom|illustrator|indesign|after effects|afterfx|premiere|audition|"
     "creative cloud|ccxprocess|cclibrary|coresync|acrobat|media encoder|aerender|acrocef",
     "com.adobe",
     "Library/Application Support/Adobe|Library/Caches/Adobe|Library/Logs/Adobe|"
     "Library/Caches/com.adobe.Photoshop|Library/Preferences/Adobe"},
    {"steam|steamwebhelper", "com.valvesoftware.steam",
     "Library/Application Support/Steam|.steam|.local/share/Steam|snap/steam|"
     ".var/app/com.valvesoftware.Steam"},
    {"wine|wine64|wineserver|winetricks|lutris|proton|bottles", "",
     ".wine|.cache/wine|.cache/winetricks"},
    {"soffice|libreoffice|oosplash", "org.libreoffice",
     "Library/Application Support/LibreOffice|.config/libreoffice|.cache/libreoffice"},

    // Package managers and what runs them
    {"node|npm|npx|yarn|yarnpkg|pnpm|corepack|nodejs|electron|esbuild|tsserver", "",
     ".npm|.yarn|.pnpm-store|.node-gyp|.cache/node|.cache/node-gyp|.cache/yarn|.cache/pnpm|"
     ".cache/puppeteer|.cache/ms-playwright|.cache/Cypress|.cache/typescript|.cache/electron|"
     ".local/share/pnpm|.local/state/pnpm|Library/pnpm|Library/Caches/Yarn|Library/Caches/pnpm|"
     "Library/Caches/node|Library/Caches/node-gyp|Library/Caches/ms-playwright|"
     "Library/Caches/typescript|Library/Caches/electron|.cache/electron-builder"},
    {"bun|bunx", "", ".bun"},
    {"deno", "", ".deno|.cache/deno|Library/Caches/deno"},
    {"cargo|rustc|rustup|rust-analyzer|rustdoc|rustfmt|clippy|cargo-clippy|sccache", "",
     ".cargo|.rustup|.cache/sccache|Library/Caches/Mozilla.sccache"},
    {"gradle|gradlew|java|javaw|kotlin|kotlinc|mvn|maven|mvnd|sbt|scala|ant|jps", "",
     ".gradle|.m2|.ivy2|.sbt|.konan|.kotlin|.cache/coursier|Library/Caches/Coursier"},
    {"python|pypy|ipython|jupyter|pip|pipx|uv|uvx|poetry|pdm|conda|mamba|pipenv|hatch|tox", "",
     ".cache/pip|.cache/pypoetry|.cache/uv|.cache/pdm|.cache/pipenv|.cache/huggingface|"
     ".cache/torch|.cache/conda|.conda|.local/share/uv|.local/share/pipx|Library/Caches/pip|"
     "Library/Caches/pypoetry|Library/Caches/uv|Library/Caches/pdm|Library/Caches/pipenv|"
     "Library/Caches/conda|.cache/virtualenv|.cache/matplotlib|.cache/black"},
    {"php|composer", "", ".composer|.cache/composer|.config/composer|Library/Caches/composer"},
    {"dotnet|nuget|mono|msbuild|vbcscompiler|omnisharp", "",
     ".nuget|.dotnet|.local/share/NuGet|.templateengine"},
    {"pod|cocoapods|ruby", "",
     "Library/Caches/CocoaPods|.cocoapods|.gem|.bundle|.cache/bundler|.local/share/gem"},
    {"gem|bundle|bundler|irb|rake|rails|rbenv|rvm", "", ".gem|.bundle|.rbenv|.rvm|.cache/bundler"},
    {"brew|homebrew|ruby|curl", "",
     "Library/Caches/Homebrew|Library/Logs/Homebrew|.cache/Homebrew"},
    {"go|gopls|compile|link|asm|cgo|vet|staticcheck|golangci-lint|dlv", "",
     "go|Library/Caches/go-build|.cache/go-build|Library/Caches/gopls|.cache/gopls|"
     ".cache/golangci-lint|Library/Caches/golangci-lint"},
    {"git|git-lfs|git-remote", "", ".cache/git|.cargo/git|.cocoapods/repos"},
    {"cc|gcc|g++|c++|cc1|cc1plus|ccache|conan|cmake|ninja|bazel|bazelisk|vcpkg|clangd", "",
     ".ccache|.cache/ccache|Library/Caches/ccache|.conan|.conan2|.cache/bazel|.cache/bazelisk|"
     ".cache/vcpkg|.cache/clangd"},
    {"zig|zls", "", ".cache/zig"},
    {"trivy", "", ".cache/trivy"},

    // Containers, machines and what lives on servers
    {"docker|dockerd|containerd|buildx|buildkitd|com.docker|vpnkit|runc|docker-compose",
     "com.docker|com.electron.dockerdesktop",
     ".docker|.local/share/docker|.local/share/containerd|Library/Containers/com.docker.docker|"
     "Library/Group Containers/group.com.docker|Library/Caches/com.docker.docker|"
     "Library/Application Support/Docker Desktop|Library/Logs/Docker Desktop"},
    {"podman|buildah|skopeo|conmon|crun|runc|fuse-overlayfs|toolbox|distrobox|netavark|pasta|"
     "slirp4netns",
     "io.podman", ".local/share/containers|.config/containers|.cache/containers"},
    {"orbstack", "dev.orbstack|dev.kdrag0n.MacVirt",
     ".orbstack|Library/Group Containers/HUAQ24HBR6.dev.orbstack"},
    {"colima|limactl|lima", "io.lima-vm",
     ".colima|.lima|.cache/lima|.cache/colima|Library/Caches/lima|Library/Caches/colima"},
    {"utm|qemu|qemu-system|virtualbox|vboxheadless|vboxsvc|virt-manager|vagrant|gnome-boxes",
     "com.utmapp.UTM|org.virtualbox",
     "Library/Containers/com.utmapp.UTM|VirtualBox VMs|.config/VirtualBox|.vagrant.d|"
     ".local/share/gnome-boxes|.local/share/libvirt|.cache/libvirt|.config/libvirt"},
    {"kubectl|helm|k9s|minikube|kind|k3s|k3d|kubectx|kubens|flux|argocd|skaffold|tilt|lens|"
     "freelens|oc",
     "com.electron.kontena-lens",
     ".kube|.minikube|.cache/helm|Library/Caches/helm|.config/helm|.skaffold"},
    {"terraform|tofu|terragrunt|packer|terraform-provider", "",
     ".terraform.d|.cache/terraform|.packer.d"},
    {"circleci", "", ".circleci"},
    {"gitlab-runner", "", ".gitlab-runner|.cache/gitlab-runner"},
    {"gcloud|gsutil|bq|python", "", ".config/gcloud|.gsutil"},
    {"aws|sam|cdk|python|node", "", ".aws|.cdk"},
    {"az|python", "", ".azure"},
});

} // namespace

std::span<const ActiveApplications::Known> ActiveApplications::table() { return knownApplications; }

} // namespace tidyro
