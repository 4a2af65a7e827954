#ifdef __linux__
#include "Platform/Files/FileLease.h"

#include <functional>
#include <map>
#include <string>

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Support/OtherCircumstances.h"

namespace tidyro::platform {
namespace {

using tidyro::testing::MountedImage;
using tidyro::testing::TemporaryFolder;

/// As one asks who goes through whole folders.
FileUse askedUse(const FolderDescriptor& folder, const char* name) {
    const auto seen = fileMetadata(folder, name);
    if (!seen) return FileUse::unknown;
    FileAccessAsker asker;
    asker.begin(folder);
    const FileAccess access = asker.ask(name, *seen);
    EXPECT_TRUE(access.isReadable) << name;
    return access.use;
}

FileUse useOf(const std::string& folder, const char* name = "file") {
    const auto opened = FolderDescriptor::openRoot(folder);
    if (!opened) return FileUse::unknown;
    const FileUse use = fileUse(*opened, name);
    EXPECT_EQ(askedUse(*opened, name), use) << name;
    return use;
}

/// Asks while another process does something to the file; that process is then let go.
FileUse whileAnother(const std::string& folder, const std::function<void()>& act) {
    int ready[2];
    int over[2];
    if (::pipe(ready) != 0 || ::pipe(over) != 0) return FileUse::unknown;
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(over[1]);
        act();
        char byte = 'x';
        static_cast<void>(::write(ready[1], &byte, 1));
        static_cast<void>(::read(over[0], &byte, 1));
        ::_exit(0);
    }
    ::close(over[0]);
    char byte = 0;
    static_cast<void>(::read(ready[0], &byte, 1));
    const FileUse use = useOf(folder);
    ::close(over[1]);
    ::waitpid(child, nullptr, 0);
    ::close(ready[0]);
    ::close(ready[1]);
    return use;
}

class ProvenByLease : public ::testing::TestWithParam<const char*> {};

TEST_P(ProvenByLease, WhoeverHasTheFileOpen) {
    const auto image = MountedImage::make(GetParam());
    if (!image) GTEST_SKIP() << GetParam() << " images need root and its tools";
    const TemporaryFolder& place = image->folder();
    place.noise("file", 20'000);
    place.hardLink("other name", "file");
    const std::string file = place / "file";
    const std::string path = place.path();
    EXPECT_EQ(useOf(path), FileUse::free);
    EXPECT_EQ(useOf(path, "other name"), FileUse::free);
    EXPECT_EQ(useOf(path, "nothing"), FileUse::unknown);

    const auto open = [](const std::string& name, int flags) {
        return [name, flags] { static_cast<void>(::open(name.c_str(), flags)); };
    };
    const std::map<std::string, std::function<void()>> users{
        {"reads", open(file, O_RDONLY)},
        {"writes", open(file, O_RDWR)},
        {"has another name of it open", open(place / "other name", O_RDONLY)},
        {"has it mapped and nothing else",
         [&] {
             const int fd = ::open(file.c_str(), O_RDWR);
             static_cast<void>(::mmap(nullptr, 4'096, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
             ::close(fd);
         }},
        {"has it open below a mount of its own namespace",
         [&] {
             static_cast<void>(::unshare(CLONE_NEWNS));
             static_cast<void>(::open(file.c_str(), O_RDONLY));
         }},
    };
    for (const auto& [what, act] : users)
        EXPECT_EQ(whileAnother(path, act), FileUse::inUse) << what;
    EXPECT_EQ(useOf(path), FileUse::free) << "once all of them are gone";
}

TEST_P(ProvenByLease, IsHeldUntilSomebodyOpensTheFile) {
    const auto image = MountedImage::make(GetParam());
    if (!image) GTEST_SKIP() << GetParam() << " images need root and its tools";
    const TemporaryFolder& place = image->folder();
    place.file("file", "mine");
    place.file("other", "theirs");
    place.link("link", "file");
    place.pipe("pipe");
    const auto folder = FolderDescriptor::openRoot(place.path());
    ASSERT_TRUE(folder);
    auto held = HeldItem::open(*folder, "file");
    ASSERT_TRUE(held);
    EXPECT_FALSE(held->isLeaseBroken()) << "there is none";
    EXPECT_EQ(held->takeLease(), FileUse::free);
    EXPECT_FALSE(held->isLeaseBroken());
    ASSERT_EQ(::rename((place / "file").c_str(), (place / "moved").c_str()), 0);
    ASSERT_EQ(::rename((place / "other").c_str(), (place / "file").c_str()), 0);
    EXPECT_FALSE(held->isLeaseBroken()) << "a rename is no use";
    EXPECT_EQ(held->metadata()->identity, fileMetadata(place / "moved")->identity);
    EXPECT_EQ(held->metadata()->byteCount, 4U) << "not the one that has its name by now";
    // Whoever does not want to wait is told at once, but has begun to break it.
    EXPECT_LT(::open((place / "moved").c_str(), O_RDONLY | O_NONBLOCK), 0);
    EXPECT_TRUE(held->isLeaseBroken());
    held->releaseLease();
    const int user = ::open((place / "moved").c_str(), O_RDONLY | O_NONBLOCK);
    EXPECT_GE(user, 0);
    EXPECT_EQ(held->takeLease(), FileUse::inUse);
    ::close(user);
    EXPECT_EQ(held->takeLease(), FileUse::free);
    ProvenMounts mounts;
    for (int asked = 0; asked < 2; ++asked) {
        EXPECT_EQ(mounts.isProven(*folder, *held->metadata()), true) << "asked " << asked;
    }
    EXPECT_EQ(mounts.isProven(*folder, *fileMetadata("/")), std::nullopt) << "of another mount";
    EXPECT_EQ(held->takeLease(*held->metadata(), true), FileUse::free);
    EXPECT_FALSE(held->isLeaseBroken());
    EXPECT_EQ(held->takeLease(*held->metadata(), false), FileUse::unknown);

    for (const char* name : {"link", "pipe"}) {
        auto other = HeldItem::open(*folder, name);
        ASSERT_TRUE(other) << name;
        EXPECT_NE(other->metadata()->kind, ItemKind::regularFile) << name;
        EXPECT_EQ(other->takeLease(), FileUse::unknown) << name;
        EXPECT_EQ(other->takeLease(*other->metadata(), true), FileUse::unknown) << name;
    }
    EXPECT_FALSE(HeldItem::open(*folder, "none"));
}

INSTANTIATE_TEST_SUITE_P(FileLease, ProvenByLease, ::testing::Values("ext4", "btrfs", "xfs"));

TEST(FileLease, ProvesNothingWhereItIsNotKnownTo) {
    const std::string name = "tidyro-lease-" + std::to_string(::getpid());
    const TemporaryFolder memory("/dev/shm"); // not ours: only the file is removed
    memory.file(name, "x");
    EXPECT_EQ(useOf(memory.path(), name.c_str()), FileUse::unknown) << "not proven to";
    const int held = ::open((memory / name).c_str(), O_RDONLY);
    EXPECT_EQ(useOf(memory.path(), name.c_str()), FileUse::inUse) << "a refusal always counts";
    ::close(held);
    ::unlink((memory / name).c_str());
    EXPECT_EQ(useOf("/proc/self", "status"), FileUse::unknown);
}

TEST(FileLease, FindsOutWhatMayBeRead) {
    const TemporaryFolder place;
    place.file("open", "x");
    place.file("closed", "x");
    place.permissions("closed", 0);
    const std::string told = tidyro::testing::asOrdinaryUser([&] {
        const auto folder = FolderDescriptor::openRoot(place.path());
        FileAccessAsker asker;
        asker.begin(*folder);
        std::string text;
        for (const char* name : {"open", "closed"}) {
            text += asker.ask(name, *fileMetadata(*folder, name)).isReadable ? "y" : "n";
        }
        return text;
    });
    EXPECT_EQ(told, "yn");
}

TEST(FileLease, TrustsAFolderForNoFileThatIsMountedIntoIt) {
    const auto image = MountedImage::make("ext4");
    if (!image) GTEST_SKIP() << "images need root and their tools";
    const auto told = tidyro::testing::inMountNamespace([&]() -> std::string {
        const TemporaryFolder& place = image->folder();
        place.file("file", "x");
        const std::string name = "tidyro-lease-" + std::to_string(::getpid());
        const TemporaryFolder memory("/dev/shm"); // not ours: only the file is removed
        memory.file(name, "x");
        if (!tidyro::testing::bindMount(memory / name, place / "file")) return "no mount";
        const auto folder = FolderDescriptor::openRoot(place.path());
        const FileUse use = askedUse(*folder, "file");
        ::unlink((memory / name).c_str());
        return use == FileUse::unknown ? "unknown" : "told";
    });
    if (!told || *told == "no mount") GTEST_SKIP() << "mounts need root";
    EXPECT_EQ(*told, "unknown");
}

} // namespace
} // namespace tidyro::platform
#endif
