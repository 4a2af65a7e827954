#include "StorageEngine/Safety/LocalRuntimeSafetyContextProvider.h"

#include <atomic>
#include <cerrno>
#include <thread>

#include <unistd.h>

#include <gtest/gtest.h>

#include "Platform/Files/FileMetadata.h"
#include "Platform/Testing/FakeRunningApplications.h"
#include "Platform/Testing/FakeRunningProcesses.h"
#include "Platform/Testing/FakeVolumes.h"
#include "StorageEngine/Observation/FileObserver.h"
#include "Support/OtherCircumstances.h"

namespace tidyro {
namespace {

using platform::ProcessActivity;
using testing::TemporaryFolder;

platform::Volume volume(std::string identifier, bool isInternal) {
    return {.mountPath = "/",
            .mount = 1,
            .device = 1,
            .identifier = std::move(identifier),
            .fileSystem = "ext4",
            .isInternalLocal = isInternal};
}

/// A machine of fakes around a real home.
struct FakeMachine {
    TemporaryFolder place;
    FileURL home;
    platform::testing::FakeVolumes volumes;
    platform::testing::FakeRunningProcesses processes;
    platform::testing::FakeRunningApplications applications;
    std::atomic<double> seconds = 1'000;

    FakeMachine() : home(FileURL::folder(place / "home")) {
        place.folder("home");
        volumes.answer = std::vector{volume("inside", true), volume("outside", false)};
        applications.answer = std::vector<platform::RunningApplication>{
            {.bundleIdentifier = {}, .executable = "/usr/bin/cargo", .name = "cargo"}};
        processes.answer = ProcessActivity{
            .processes = {{.pid = 1, .executable = "/bin/a", .files = {"/x", "/lib"}},
                          {.pid = 2, .executable = "/bin/b", .files = {"/lib"}}},
            .unreadable = 7};
    }
    LocalRuntimeSafetyContextProvider provider() {
        return {home,
                {.volumes = volumes,
                 .processes = processes,
                 .applications = applications,
                 .clock = [this] { return Timestamp::sinceReference(seconds); }},
                {.maxAge = 5, .protectedRoots = {FileURL::folder("/kept")}}};
    }
};

TEST(LocalRuntimeSafetyContextProvider, GathersEveryPieceOnce) {
    FakeMachine machine;
    auto provider = machine.provider();
    EXPECT_FALSE(provider.last());
    const auto context = provider.context();
    ASSERT_NE(context, nullptr);
    const SafetyPolicyFacts& facts = context->facts();
    EXPECT_EQ(facts.currentUserID, ::geteuid());
    EXPECT_EQ(facts.internalLocalVolumeIdentifiers, (std::set<std::string, std::less<>>{"inside"}));
    EXPECT_EQ(facts.openByProcessPaths,
              (std::set<std::string, std::less<>>{"/bin/a", "/bin/b", "/lib", "/x"}));
    EXPECT_TRUE(facts.activelyGrowingPaths.empty());
    const auto inHome = [&](const char* place) { return machine.home.appending(place).path(); };
    EXPECT_TRUE(context->activeApplicationRootIndex().contains(inHome(".cargo/registry/x")));
    EXPECT_FALSE(context->activeApplicationRootIndex().contains(inHome(".npm/x")));
    EXPECT_EQ(context->reasonOfActiveApplication(inHome(".cargo/registry/x")).text(),
              "Data belonging to an active application remains protected. Quit cargo first.");
    EXPECT_EQ(context->with(facts).reasonOfActiveApplication(inHome(".cargo")),
              context->reasonOfActiveApplication(inHome(".cargo/registry/x")));
    EXPECT_TRUE(context->additionalProtectedRootIndex().contains("/kept/x"));
    EXPECT_TRUE(context->additionalProtectedRootIndex().contains(inHome(".ssh/id")));
    EXPECT_EQ(machine.processes.timesAsked, 1);
    EXPECT_EQ(provider.last()->context, context);
    EXPECT_EQ(provider.last()->at, Timestamp::sinceReference(1'000));
}

TEST(LocalRuntimeSafetyContextProvider, GivesNoneWhenAPieceIsMissing) {
    const SystemError error{EIO};
    using enum MissingPiece;
    const std::array missing{volumes, processes, applications, desktopFolders};
    for (int piece = 0; piece < 4; ++piece) {
        FakeMachine machine;
        auto provider = machine.provider();
        ASSERT_NE(provider.context(), nullptr);
        if (piece == 0) machine.volumes.answer = std::unexpected(error);
        if (piece == 1) machine.processes.answer = std::unexpected(error);
        if (piece == 2) machine.applications.answer = std::unexpected(error);
        if (piece == 3) machine.place.folder("home/.config/user-dirs.dirs"); // no list to read
        EXPECT_NE(provider.context(), nullptr) << "young enough";
        EXPECT_FALSE(provider.missing());
        EXPECT_EQ(provider.freshContext(), nullptr) << piece;
        EXPECT_EQ(provider.missing(), missing.at(static_cast<std::size_t>(piece)));
        EXPECT_EQ(provider.context(), nullptr) << "what failed does not bring back what was";
        EXPECT_FALSE(provider.last());
    }
}

TEST(LocalRuntimeSafetyContextProvider, KeepsTheLastOneByItsClock) {
    FakeMachine machine;
    auto provider = machine.provider();
    const auto first = provider.context();
    machine.seconds = 1'005;
    EXPECT_EQ(provider.context(), first);
    EXPECT_EQ(machine.processes.timesAsked, 1);
    machine.seconds = 1'005.5;
    const auto second = provider.context();
    EXPECT_NE(second, first);
    EXPECT_NE(provider.freshContext(), second);
    EXPECT_EQ(machine.processes.timesAsked, 3);
    machine.seconds = 900; // the clock was set back
    EXPECT_NE(provider.context(), nullptr);
    EXPECT_EQ(machine.processes.timesAsked, 4);
}

TEST(LocalRuntimeSafetyContextProvider, CountsAVolumeOnlyWhenAllUnderItsNameIsInside) {
    FakeMachine machine;
    machine.volumes.answer =
        std::vector{volume("copied", true), volume("copied", false), volume("own", true)};
    const auto context = machine.provider().context();
    EXPECT_EQ(context->facts().internalLocalVolumeIdentifiers,
              (std::set<std::string, std::less<>>{"own"}));
}

TEST(LocalRuntimeSafetyContextProvider, ProtectsWhatIsMountedInTheHomeASecondTime) {
    FakeMachine machine;
    machine.place.link("ada", machine.place / "home");
    machine.home = FileURL::folder(machine.place / "ada");
    const auto mounted = [&](std::string path, std::string identifier) {
        platform::Volume one = volume(std::move(identifier), true);
        one.mountPath = std::move(path);
        return one;
    };
    machine.volumes.answer =
        std::vector{mounted("/", "system"), mounted(machine.place / "home/.cache/pip", "system"),
                    mounted(machine.place / "home/.npm", "own disk")};
    const auto context = machine.provider().context();
    const RootPathIndex& index = context->additionalProtectedRootIndex();
    EXPECT_TRUE(index.contains(machine.place / "home/.cache/pip/x"));
    EXPECT_TRUE(index.contains(machine.place / "ada/.cache/pip/x"));
    EXPECT_FALSE(index.contains(machine.place / "home/.npm/_cacache/x"));
    EXPECT_FALSE(index.contains(machine.place / "home/x"));
}

TEST(LocalRuntimeSafetyContextProvider, LetsPeopleChooseOnlyInWhatNothingElseKeeps) {
    FakeMachine machine;
    for (const char* folder : {"home/.ssh/inner", "home/.gnupg", "home/Klang", "home/.pki"}) {
        machine.place.folder(folder);
    }
    machine.place.link("home/keys", ".gnupg");
    machine.place.file("home/.config/user-dirs.dirs", "XDG_TEMPLATES_DIR=\"$HOME/.ssh\"\n"
                                                      "XDG_DOCUMENTS_DIR=\"$HOME/.SSH/inner\"\n"
                                                      "XDG_PICTURES_DIR=\"$HOME/keys\"\n"
                                                      "XDG_DESKTOP_DIR=\"/kept\"\n"
                                                      "XDG_DOWNLOAD_DIR=\"$HOME/Geholt\"\n"
                                                      "XDG_MUSIC_DIR=\"$HOME/Klang\"\n");
    machine.volumes.answer = std::vector(4, volume("twice", true));
    machine.volumes.answer->at(1).mountPath = machine.place / "home/.pki";
    machine.volumes.answer->at(2).mountPath = machine.place / "home/data";
    const auto context = machine.provider().context();
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(context->choosableRoots(), (std::vector{machine.home.appendingFolder("keys"),
                                                      machine.home.appendingFolder("Klang"),
                                                      machine.home.appendingFolder("data")}));
    for (const char* kept : {".ssh/id", ".gnupg/x", ".pki/x", "keys/x", "Klang/x", "data/x"}) {
        EXPECT_TRUE(
            context->additionalProtectedRootIndex().contains(machine.home.appending(kept).path()))
            << kept;
    }
}

TEST(LocalRuntimeSafetyContextProvider, KnowsFilesByTheNamesThatScansUse) {
    FakeMachine machine;
    machine.place.folder("disk/home/data");
    machine.place.folder("disk/cargo");
    machine.place.link("disk/home/.npm", machine.place / "disk/npm");
    machine.place.folder("disk/npm/_cacache");
    machine.place.link("disk/home/.cargo", machine.place / "disk/cargo");
    machine.place.link("ada", machine.place / "disk/home");
    machine.home = FileURL::folder(machine.place / "ada");
    machine.processes.answer->processes = {
        {.pid = 1,
         .executable = {},
         .files = {machine.place / "disk/home/data/open", machine.place / "disk/npm/_cacache/x"}}};
    const auto context = machine.provider().context();
    ASSERT_NE(context, nullptr);
    for (const char* name :
         {"ada/data/open", "disk/home/data/open", "disk/npm/_cacache/x", "ada/.npm/_cacache/x"}) {
        EXPECT_TRUE(context->facts().openByProcessPaths.contains(machine.place / name)) << name;
    }
    for (const char* name : {"ada/.cargo/registry", "disk/cargo/registry"}) {
        EXPECT_TRUE(context->activeApplicationRootIndex().contains(machine.place / name)) << name;
    }
}

TEST(LocalRuntimeSafetyContextProvider, ServesManyThreads) {
    FakeMachine machine;
    auto provider = machine.provider();
    std::atomic<int> nulls = 0;
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            for (int step = 0; step < 50; ++step) {
                const auto context = i % 2 == 0 ? provider.context() : provider.freshContext();
                if (context == nullptr || !provider.last()) ++nulls;
                machine.seconds = machine.seconds + 1;
            }
        });
    }
    threads.clear();
    EXPECT_EQ(nulls, 0);
}

TEST(LocalRuntimeSafetyContextProvider, SeesTheRunningSystem) {
    if (!testing::isProcMounted()) GTEST_SKIP() << "needs /proc";
    const TemporaryFolder place;
    place.file("home/.npm/_cacache/held", "x");
    place.file("home/.npm/_cacache/free", "x");
    const FileURL personsHome = FileURL::folder(place / "home");
    std::FILE* held = std::fopen((place / "home/.npm/_cacache/held").c_str(), "re");
    ASSERT_NE(held, nullptr);
    const auto context = LocalRuntimeSafetyContextProvider(personsHome).context();
    std::fclose(held);
    ASSERT_NE(context, nullptr);
    EXPECT_TRUE(context->facts().openByProcessPaths.contains(place / "home/.npm/_cacache/held"));
    EXPECT_FALSE(context->facts().openByProcessPaths.contains(place / "home/.npm/_cacache/free"));

    const auto told = testing::inMountNamespace([&]() -> std::string {
        if (!testing::runQuietly("mount -t tmpfs none /proc")) return "cannot mount";
        return LocalRuntimeSafetyContextProvider(personsHome).context() == nullptr ? "none"
                                                                                   : "a guess";
    });
    EXPECT_TRUE(!told || *told == "none" || *told == "cannot mount") << *told;
}

} // namespace
} // namespace tidyro
