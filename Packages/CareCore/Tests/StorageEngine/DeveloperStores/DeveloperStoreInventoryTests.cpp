#include "StorageEngine/DeveloperStores/DeveloperStoreInventory.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <stop_token>
#include <thread>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Base/Base64.h"
#include "Base/PathText.h"
#include "Base/RoomText.h"
#include "Base/Stopwatch.h"
#include "Support/OtherCircumstances.h"
#include "Support/TemporaryFolder.h"

namespace tidyro {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::TemporaryFolder;

constexpr std::size_t block = 4'096;

/// A home, and a system around it, in which a test makes stores.
struct MadeMachine {
    TemporaryFolder folder;

    MadeMachine() { folder.folder("home/bin"); }

    [[nodiscard]] FileURL home() const { return FileURL::folder(folder / "home"); }
    [[nodiscard]] DeveloperStoreInventory
    inventory(DeveloperStoreInventory::Environment environment = {}) const {
        return {.userHome = home(),
                .environment = std::move(environment),
                .systemRoot = FileURL::folder(folder.path()),
                .system = OperatingSystem::linux_};
    }
    void blocks(std::string_view name, std::size_t count) const {
        folder.noise(std::string("home/").append(name), count * block);
    }
    void link(const std::string& name, const std::string& target) const {
        folder.folder("home/" + std::string(path::parent(name)));
        folder.link("home/" + name, target);
    }
    void program(const std::string& name, unsigned mode) const {
        folder.file("home/bin/" + name, "#!/bin/sh\n");
        folder.permissions("home/bin/" + name, mode);
    }

    /// Units and sizes on disk in blocks: the tests write whole ones.
    [[nodiscard]] std::string line(const DeveloperStoreMeasurement& store) const {
        std::string units;
        for (const auto& unit : store.largestUnits) {
            units += fmt::format(" {}={}", unit.name, unit.byteCount / block);
        }
        return fmt::format("{} {}: {} files, {} blocks{}{};{}", rawValue(store.kind),
                           path::below(store.url.path(), folder.path()), store.fileCount,
                           store.allocatedByteCount / block, store.isPartial ? ", partial" : "",
                           store.isOwnerInstalled ? ", installed" : "", units);
    }
    [[nodiscard]] std::vector<std::string> lines(const DeveloperStoreInventory& inventory) const {
        const ProgramsInFolders programs({folder / "home/bin"});
        std::vector<std::string> lines;
        const auto stores = inventory.measure(programs);
        if (!stores) return {"cancelled"};
        for (const auto& store : *stores) lines.push_back(line(store));
        return lines;
    }
};

std::string hexOf(char digit, std::size_t length) {
    std::string hex;
    while (hex.size() < length) hex += fmt::format("{:02x}", static_cast<unsigned>(digit));
    return hex;
}

void makeHuggingFaceHub(const MadeMachine& machine) {
    const std::string hub = ".cache/huggingface/hub/";
    const std::string model = hub + "models--org--llm/";
    machine.blocks(model + "blobs/weights", 3);
    machine.blocks(model + "blobs/old-config", 2);
    machine.blocks(model + "blobs/config", 1);
    machine.blocks(model + "blobs/unfinished.incomplete", 1);
    machine.folder.file("home/" + model + "refs/main", "2222\n");
    for (const auto& [link, target] : {std::pair{"1111/weights", "weights"},
                                       {"1111/config", "old-config"},
                                       {"2222/weights", "weights"},
                                       {"2222/config", "config"}}) {
        machine.link(model + "snapshots/" + link, std::string("../../blobs/") + target);
    }
    // It leads to a blob of another repository, which is not this revision's.
    machine.link(model + "snapshots/1111/stranger", "../../../datasets--org--data/blobs/rows");
    machine.blocks(hub + "datasets--org--data/blobs/rows", 5);
    machine.link(hub + "datasets--org--data/snapshots/3333/train/rows", "../../../blobs/rows");
}

void makeOllamaModels(const MadeMachine& machine, const std::string& models) {
    const auto digest = [](char digit) { return std::string(64, digit); };
    const auto manifest = [&](const std::string& name, const std::string& layers) {
        machine.folder.file(models + "manifests/registry.ollama.ai/" + name,
                            "{\"config\":{\"digest\":\"sha256:" + digest('c') + "\"},\"layers\":[" +
                                layers + "]}");
    };
    const auto layer = [&](char digit) {
        return "{\"digest\":\"sha256:" + digest(digit) + "\",\"size\":999999999}";
    };
    manifest("library/llama3/8b", layer('a'));
    manifest("someone/mine/v1", layer('a') + "," + layer('b'));
    machine.folder.file(models + "manifests/registry.ollama.ai/library/broken/1", "{\"layers\":");
    machine.folder.noise(models + "blobs/sha256-" + digest('a'), 3 * block);
    machine.folder.noise(models + "blobs/sha256-" + digest('b'), 2 * block);
    machine.folder.noise(models + "blobs/sha256-" + digest('c'), block);
}

void makePnpmFile(const MadeMachine& machine, char digit, std::size_t blocks,
                  const std::string& ending = "") {
    machine.blocks(".local/share/pnpm/store/v10/files/" + hexOf(digit, 2) + "/" +
                       hexOf(digit, 126) + ending,
                   blocks);
}
std::string pnpmEntry(char digit, int mode) {
    return fmt::format(R"({{"integrity":"sha512-{}","mode":{},"size":1}})",
                       base64Text(std::string(64, digit)), mode);
}
void makePnpmIndex(const MadeMachine& machine, const std::string& name, const std::string& files) {
    machine.folder.file(
        "home/.local/share/pnpm/store/v10/index/00/" + name + ".json",
        fmt::format(R"({{"name":"@org/{}","version":"1.0.0","files":{{{}}}}})", name, files));
}

TEST(DeveloperStoreInventory, tellsOfEveryStoreInAHome) {
    const MadeMachine machine;
    const TemporaryFolder& folder = machine.folder;
    machine.blocks(".cache/uv/wheels-v5/a.whl", 2);
    machine.blocks(".cache/uv/archive-v0/x/module.so", 3);
    folder.hardLink("home/.cache/uv/archive-v0/x/again.so",
                    "home/.cache/uv/archive-v0/x/module.so");
    makeHuggingFaceHub(machine);
    machine.blocks(".cache/torch/hub/checkpoints/resnet.pth", 2);
    machine.blocks(".cache/torch/hub/org_repo_main/model.py", 1);
    makeOllamaModels(machine, "home/.ollama/models/");
    folder.folder("home/.docker/desktop/vms/0/data");
    folder.hole("home/.docker/desktop/vms/0/data/Docker.raw", 1ULL << 30U);
    makePnpmFile(machine, 'a', 4);
    makePnpmFile(machine, 'b', 2, "-exec");
    makePnpmFile(machine, 'c', 1);
    makePnpmIndex(machine, "big", "\"x\":" + pnpmEntry('a', 420) + ",\"y\":" + pnpmEntry('b', 493));
    makePnpmIndex(machine, "small",
                  "\"x\":" + pnpmEntry('a', 420) + ",\"z\":" + pnpmEntry('c', 420));
    machine.blocks("miniconda3/pkgs/numpy-1.26.4-py311_0/lib.so", 3);
    machine.blocks("miniconda3/pkgs/numpy-1.26.4-py311_0.conda", 1);
    machine.blocks("go/pkg/mod/github.com/!burnt!sushi/toml@v1.3.2/a.go", 2);
    machine.blocks("go/pkg/mod/cache/download/github.com/!burnt!sushi/toml/@v/v1.3.2.zip", 1);
    machine.blocks("go/pkg/mod/cache/vcs/0123/pack", 1);
    machine.blocks(".local/share/containers/storage/overlay/layer/file", 2);
    machine.blocks(".local/share/containers/storage/volumes/db/_data/rows", 3);
    machine.blocks(".local/share/docker/overlay2/layer/file", 1);
    machine.blocks(".local/share/flatpak/runtime/org.gnome.Platform/x86_64/45/lib", 4);
    folder.folder("home/.local/share/flatpak/repo/objects");
    folder.hardLink("home/.local/share/flatpak/repo/objects/lib",
                    "home/.local/share/flatpak/runtime/org.gnome.Platform/x86_64/45/lib");
    machine.blocks(".local/share/flatpak/repo/objects/old", 1);
    machine.blocks(".cache/pre-commit/repoab12/hook", 1);
    folder.noise("nix/store/0abc-hello-2.12/hello", block);
    machine.blocks(".ccache/1/2/result", 1);
    machine.program("uv", 0755);
    machine.program("go", 0644); // nobody may execute it
    folder.link("home/bin/pnpm", "uv");
    folder.link("home/bin/docker", "/nowhere/docker");

    // Of the lists that pnpm, Hugging Face and Ollama keep, each takes a block of its own.
    EXPECT_THAT(
        machine.lines(machine.inventory()),
        ElementsAre(
            "uvCache home/.cache/uv: 2 files, 5 blocks, installed; archive-v0=3 wheels-v5=2",
            "huggingFaceHub home/.cache/huggingface/hub: 6 files, 13 blocks; "
            "dataset/org/data@3333=5 org/llm@2222=4 org/llm@1111=2 org/llm, in no revision=1",
            "torchHub home/.cache/torch: 2 files, 3 blocks; resnet.pth=2 org_repo_main=1",
            "ollamaModels home/.ollama/models: 6 files, 9 blocks; llama3:8b=4 someone/mine:v1=2",
            "dockerDiskImage home/.docker/desktop/vms/0/data/Docker.raw: 1 files, 0 blocks;",
            "pnpmStore home/.local/share/pnpm/store: 5 files, 9 blocks, installed; "
            "@org/big@1.0.0=7 @org/small@1.0.0=2",
            "condaPackages home/miniconda3/pkgs: 2 files, 4 blocks; numpy-1.26.4-py311_0=4",
            "goModules home/go/pkg/mod: 3 files, 4 blocks; "
            "github.com/BurntSushi/toml@v1.3.2=3 cache/vcs=1",
            "podmanStorage home/.local/share/containers/storage: 2 files, 5 blocks; "
            "volume db=3 overlay=2",
            "rootlessDocker home/.local/share/docker: 1 files, 1 blocks; overlay2=1",
            "flatpakUser home/.local/share/flatpak: 2 files, 5 blocks; "
            "org.gnome.Platform/x86_64/45=4 repo=1",
            "preCommit home/.cache/pre-commit: 1 files, 1 blocks; repoab12=1",
            "nixStore nix/store: 1 files, 1 blocks; 0abc-hello-2.12=1",
            "ccache home/.ccache: 1 files, 1 blocks;"));
}

TEST(DeveloperStoreInventory, showsACommandWhereItHelps) {
    const MadeMachine machine;
    machine.program("pnpm", 0755);
    machine.folder.times("home/bin/pnpm", 7, 7); // it is no part of a store
    for (const char* store : {".cache/uv", ".local/share/pnpm/store", "go/pkg/mod"}) {
        machine.blocks(std::string(store) + "/file", 1);
        machine.folder.times(std::string("home/") + store + "/file", 5, 1'000);
    }
    machine.folder.folder("home/.ccache");
    const auto stores =
        machine.inventory().measure(ProgramsInFolders({machine.folder / "home/bin"}));
    ASSERT_TRUE(stores);
    ASSERT_EQ(stores->size(), 4U);
    EXPECT_EQ(stores->at(0).shownCommand, "uv cache prune"); // uv may be in an environment
    EXPECT_EQ(stores->at(1).shownCommand, "pnpm store prune");
    EXPECT_EQ(stores->at(2).shownCommand, "");
    EXPECT_EQ(stores->at(0).newestModification, Timestamp::since1970(1'000.0));
    EXPECT_EQ(stores->at(0).logicalByteCount, block);
    EXPECT_EQ(stores->at(3).newestModification, std::nullopt);
    EXPECT_FALSE(stores->at(3).isPartial);
}

TEST(DeveloperStoreInventory, looksWhereTheEnvironmentPutsStores) {
    const MadeMachine machine;
    const TemporaryFolder& folder = machine.folder;
    const std::string elsewhere = folder / "disk";
    folder.noise("disk/uv/wheels-v5/a", block);
    machine.blocks(".cache/uv/wheels-v5/a", 2);
    folder.noise("disk/face/hub/models--gpt2/blobs/a", block);
    folder.noise("disk/go/example.com@v1.0.0/a", block);
    machine.blocks("caches/pre-commit/repo1/a", 1);
    machine.blocks(".cache/pre-commit/repo2/a", 1);
    EXPECT_THAT(machine.lines(machine.inventory({{"UV_CACHE_DIR", elsewhere + "/./uv/"},
                                                 {"HF_HOME", elsewhere + "/face"},
                                                 {"GOMODCACHE", elsewhere + "/go"},
                                                 {"XDG_CACHE_HOME", folder / "home/caches"},
                                                 {"HF_HUB_CACHE", ""},
                                                 {"TORCH_HOME", "home"}})),
                ElementsAre("uvCache disk/uv: 1 files, 1 blocks; wheels-v5=1",
                            "uvCache home/.cache/uv: 1 files, 2 blocks; wheels-v5=2",
                            "huggingFaceHub disk/face/hub: 1 files, 1 blocks; gpt2, in no "
                            "revision=1",
                            "goModules disk/go: 1 files, 1 blocks; example.com@v1.0.0=1",
                            "preCommit home/caches/pre-commit: 1 files, 1 blocks; repo1=1",
                            "preCommit home/.cache/pre-commit: 1 files, 1 blocks; repo2=1"));
}

TEST(DeveloperStoreInventory, listsThePlacesOfBothSystemsInOrder) {
    const auto pathsOn = [](OperatingSystem system) {
        const DeveloperStoreInventory inventory{.userHome = FileURL::folder("/home/ada"),
                                                .environment = {{"UV_CACHE_DIR", "/c"},
                                                                {"XDG_CACHE_HOME", "/x"},
                                                                {"HF_HUB_CACHE", "/h"},
                                                                {"HF_HOME", "/f"}},
                                                .system = system};
        std::vector<std::string> paths;
        for (const auto& location : inventory.locations()) paths.push_back(location.url.path());
        return paths;
    };
    const std::vector<std::string> onMacOS{
        "/c",
        "/x/uv",
        "/home/ada/.cache/uv",
        "/home/ada/Library/Caches/uv",
        "/h",
        "/f/hub",
        "/home/ada/.cache/huggingface/hub",
        "/home/ada/.cache/torch",
        "/home/ada/.ollama/models",
        "/home/ada/Library/Containers/com.docker.docker/Data/vms/0/data/Docker.raw"};
    EXPECT_EQ(pathsOn(OperatingSystem::macOS), onMacOS);
    std::vector<std::string> onLinux = pathsOn(OperatingSystem::linux_);
    const auto isOnMacOS = [&](const std::string& path) {
        return std::ranges::find(onMacOS, path) != onMacOS.end();
    };
    std::vector<std::string> further;
    std::ranges::remove_copy_if(onLinux, std::back_inserter(further), isOnMacOS);
    EXPECT_THAT(further,
                ElementsAre("/usr/share/ollama/.ollama/models", "/var/lib/ollama",
                            "/home/ada/.docker/desktop/vms/0/data/Docker.raw",
                            "/home/ada/.local/share/pnpm/store", "/home/ada/.conda/pkgs",
                            "/home/ada/miniconda3/pkgs", "/home/ada/miniforge3/pkgs",
                            "/home/ada/anaconda3/pkgs", "/home/ada/go/pkg/mod",
                            "/home/ada/.local/share/containers/storage",
                            "/home/ada/.local/share/docker", "/home/ada/.local/share/flatpak",
                            "/home/ada/.cache/pre-commit", "/nix/store", "/home/ada/.cache/ccache",
                            "/home/ada/.ccache"));
    std::erase_if(onLinux, [&](const std::string& path) { return !isOnMacOS(path); });
    EXPECT_EQ(onLinux, onMacOS);
}

TEST(DeveloperStoreInventory, tellsAFolderOnceThatIsFoundInTwoWays) {
    const MadeMachine machine;
    const TemporaryFolder& folder = machine.folder;
    folder.noise("disk/uv/wheels-v5/a", block);
    machine.link(".cache/uv", folder / "disk/uv");
    // The service of the system has its models in what is looked at as well.
    makeOllamaModels(machine, "var/lib/ollama/.ollama/models/");
    const DeveloperStoreInventory::Environment both{
        {"UV_CACHE_DIR", folder / "disk/uv"},
        {"OLLAMA_MODELS", folder / "var/lib/ollama/.ollama/models"}};
    EXPECT_THAT(machine.lines(machine.inventory(both)),
                ElementsAre("uvCache disk/uv: 1 files, 1 blocks; wheels-v5=1",
                            "ollamaModels var/lib/ollama/.ollama/models: 6 files, 9 blocks; "
                            "llama3:8b=4 someone/mine:v1=2"));
    EXPECT_THAT(machine.lines(machine.inventory()),
                ElementsAre("uvCache home/.cache/uv: 1 files, 1 blocks; wheels-v5=1",
                            "ollamaModels var/lib/ollama: 6 files, 9 blocks; "
                            "llama3:8b=4 someone/mine:v1=2"));
}

TEST(DeveloperStoreInventory, tellsAStoreWithoutTheOneInIt) {
    const MadeMachine machine;
    machine.blocks(".cache/uv/ci/archive-v0/a", 1);
    machine.blocks(".cache/uv/wheels-v5/b", 3);
    EXPECT_THAT(
        machine.lines(machine.inventory({{"UV_CACHE_DIR", machine.folder / "home/.cache/uv/ci"}})),
        ElementsAre("uvCache home/.cache/uv/ci: 1 files, 1 blocks; archive-v0=1",
                    "uvCache home/.cache/uv: 1 files, 3 blocks; wheels-v5=3"));
}

TEST(DeveloperStoreInventory, takesNothingForAStoreThatIsNone) {
    const MadeMachine machine;
    const TemporaryFolder& folder = machine.folder;
    machine.blocks("letter", 1);
    machine.link(".cache/uv", "uv");               // a loop
    machine.link(".cache/torch", folder / "home"); // the home by another name
    folder.file("home/.ccache", "a file");
    folder.folder("home/.docker/desktop/vms/0/data/Docker.raw");
    EXPECT_THAT(
        machine.lines(machine.inventory(
            {{"UV_CACHE_DIR", folder / "home"}, {"GOMODCACHE", "/"}, {"CCACHE_DIR", "relative"}})),
        IsEmpty());
}

TEST(DeveloperStoreInventory, followsNoLinkInAStore) {
    const MadeMachine machine;
    machine.blocks("letters/letter", 9);
    machine.blocks(".cache/uv/archive-v0/a", 1);
    machine.folder.link("home/.cache/uv/archive-v0/up", "../..");
    machine.link(".cache/uv/letters", "../../letters");
    // A list that is a link may lead to anything.
    makeOllamaModels(machine, "home/other/");
    const std::string manifests = "manifests/registry.ollama.ai/library/";
    machine.folder.noise("home/.ollama/models/blobs/sha256-" + std::string(64, 'a'), block);
    machine.folder.hardLink("home/list", "home/other/" + manifests + "llama3/8b");
    // A short link takes no block of its own.
    machine.link(".ollama/models/" + manifests + "llama3/8b", "../../../../../../list");
    EXPECT_THAT(machine.lines(machine.inventory()),
                ElementsAre("uvCache home/.cache/uv: 1 files, 1 blocks; archive-v0=1",
                            "ollamaModels home/.ollama/models: 1 files, 1 blocks;"));
}

TEST(DeveloperStoreInventory, tellsWhatItCouldNotRead) {
    const MadeMachine machine;
    machine.blocks(".cache/uv/wheels-v5/a", 1);
    machine.blocks(".cache/uv/closed/a", 1);
    machine.blocks("go/pkg/mod/example.com@v1/a", 1);
    machine.folder.noise("usr/share/ollama/.ollama/models/blobs/a", block);
    const auto close = [&](unsigned mode) {
        machine.folder.permissions("home/.cache/uv/closed", mode);
        machine.folder.permissions("home/go/pkg/mod", mode);
        machine.folder.permissions("usr/share/ollama", mode);
    };
    close(0);
    const std::string seen = testing::asOrdinaryUser([&] {
        std::string text;
        for (const std::string& line : machine.lines(machine.inventory())) text += line + "\n";
        return text;
    });
    close(0755);
    EXPECT_EQ(seen, "uvCache home/.cache/uv: 1 files, 1 blocks, partial; wheels-v5=1\n"
                    "ollamaModels usr/share/ollama/.ollama/models: 0 files, 0 blocks, partial;\n"
                    "goModules home/go/pkg/mod: 0 files, 0 blocks, partial;\n");
}

TEST(DeveloperStoreInventory, showsTheTenLargestUnits) {
    const MadeMachine machine;
    std::vector<std::string> expected;
    makePnpmFile(machine, 'a', 30);
    for (int i = 0; i < 200; ++i) { // so many that several threads read them
        const std::string name = fmt::format("package-{:03}", i);
        makePnpmIndex(machine, name, "\"x\":" + pnpmEntry('a', 420));
        if (i < 10) expected.push_back(fmt::format("@org/{}@1.0.0={}", name, i == 0 ? 31 : 1));
    }
    const auto lines = machine.lines(machine.inventory());
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0], fmt::format("pnpmStore home/.local/share/pnpm/store: 201 files, 230 "
                                    "blocks; {}",
                                    fmt::join(expected, " ")));

    // Repositories that are too small for the list are not looked into.
    const MadeMachine models;
    expected.clear();
    for (int i = 40; i > 0; --i) {
        const std::string repository = fmt::format(".cache/huggingface/hub/models--m{:02}/", i);
        models.blocks(repository + "blobs/a", static_cast<std::size_t>(i));
        models.link(repository + "snapshots/1/a", "../../blobs/a");
        if (i > 30) expected.push_back(fmt::format("m{:02}@1={}", i, i));
    }
    EXPECT_THAT(models.lines(models.inventory()),
                ElementsAre(fmt::format(
                    "huggingFaceHub home/.cache/huggingface/hub: 40 files, 820 blocks; {}",
                    fmt::join(expected, " "))));
}

TEST(DeveloperStoreInventory, keepsTheBytesOfNames) {
    const MadeMachine machine;
    machine.blocks(".cache/pre-commit/\x1B[2J\n/hook", 3);
    machine.blocks(".cache/pre-commit/\xFE/hook", 2); // as text they would be one
    machine.blocks(".cache/pre-commit/\xFF/hook", 1);
    EXPECT_THAT(machine.lines(machine.inventory()),
                ElementsAre("preCommit home/.cache/pre-commit: 3 files, 6 blocks; "
                            "\x1B[2J\n=3 \xFE=2 \xFF=1"));
}

/// Nothing is installed. Cancels a measurement when the first store is done.
class CancellingPrograms final : public OwnerPrograms {
  public:
    explicit CancellingPrograms(std::stop_source& stop) : stop_(stop) {}
    [[nodiscard]] bool isInstalled(std::string_view) const override {
        stop_.request_stop();
        return false;
    }

  private:
    std::stop_source& stop_;
};

TEST(DeveloperStoreInventory, endsWhenItIsCancelled) {
    const MadeMachine machine;
    machine.blocks(".cache/uv/wheels-v5/a", 1);
    makePnpmFile(machine, 'a', 1);
    for (int i = 0; i < 300; ++i) {
        makePnpmIndex(machine, fmt::format("package-{:03}", i), "\"x\":" + pnpmEntry('a', 420));
    }
    std::stop_source stop;
    EXPECT_EQ(machine.inventory().measure(CancellingPrograms(stop), stop.get_token()),
              std::unexpected(CancellationError{}));
    EXPECT_EQ(machine.inventory().measure(ProgramsInFolders({}), stop.get_token()),
              std::unexpected(CancellationError{}));

    // At any moment: it ends at once, or is whole.
    const auto whole = machine.inventory().measure(ProgramsInFolders({}));
    int cancelled = 0;
    for (int run = 0; run < 100; ++run) {
        std::stop_source source;
        Stopwatch sinceStop;
        const std::jthread canceller([&] {
            std::this_thread::sleep_for(std::chrono::microseconds(run * 50));
            sinceStop.restart();
            source.request_stop();
        });
        const auto stores = machine.inventory().measure(ProgramsInFolders({}), source.get_token());
        if (stores) {
            EXPECT_EQ(stores, whole);
            continue;
        }
        ++cancelled;
        EXPECT_LT(sinceStop.seconds(), 1);
    }
    EXPECT_GT(cancelled, 0);
}

TEST(DeveloperStoreInventory, worksAsItsExampleSays) {
    const MadeMachine machine;
    const FileURL home = machine.home();
    machine.blocks(".cache/uv/wheels-v5/a", 1);
    const auto listed = [&]() -> std::string {
        std::string list;
        const auto inventory = DeveloperStoreInventory::ofThisProcess(home);
        const ProgramsInFolders programs(ProgramsInFolders::usualFolders(home, "/usr/bin"));
        const auto stores = inventory.measure(programs);
        if (!stores) return list; // it was cancelled
        for (const DeveloperStoreMeasurement& store : *stores) {
            list += title(store.kind);
            list += " " + RoomText::bytes(store.allocatedByteCount) + "\n";
        }
        return list;
    };
    EXPECT_THAT(listed(), ::testing::HasSubstr("uv package cache 4"));
}

TEST(ProgramsInFolders, asksAbsoluteFoldersFirstInTheOrderOfTheSearchPath) {
    const auto folders =
        ProgramsInFolders::usualFolders(FileURL::folder("/home/ada"), "/b::relative:/a/../c:/b");
    ASSERT_GT(folders.size(), 3U);
    EXPECT_THAT(std::vector(folders.begin(), folders.begin() + 3),
                ElementsAre("/b", "/c", "/home/ada/.local/bin"));
    EXPECT_FALSE(ProgramsInFolders({"/"}).isInstalled("bin/sh"));
}

} // namespace
} // namespace tidyro
