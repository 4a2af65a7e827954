#include "Support/TemporaryFolder.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <system_error>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace tidyro::testing {

TemporaryFolder::TemporaryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "tidyro-XXXXXX").string();
    EXPECT_NE(::mkdtemp(pattern.data()), nullptr);
    path_ = std::filesystem::canonical(pattern).string();
    // Tests that drop their privileges must get in.
    EXPECT_EQ(::chmod(path_.c_str(), 0755), 0);
}

TemporaryFolder::~TemporaryFolder() {
    if (!isOwned_) return;
    // std::filesystem works with whole paths; very deep trees need rm. Folders that a test closed
    // are closed to their owner too, who is not always root.
    std::error_code failed;
    std::filesystem::remove_all(path_, failed);
    if (failed) {
        const std::string command = "chmod -R u+rwx '" + path_ + "'; rm -rf '" + path_ + "'";
        EXPECT_EQ(std::system(command.c_str()), 0) << path_ << " stays behind"; // NOLINT
    }
}

std::string TemporaryFolder::operator/(std::string_view name) const {
    return path_ + "/" + std::string(name);
}

void TemporaryFolder::folder(std::string_view name) const {
    std::filesystem::create_directories(*this / name);
}

void TemporaryFolder::file(std::string_view name, std::string_view contents) const {
    const std::filesystem::path path(*this / name);
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << contents;
    EXPECT_TRUE(std::filesystem::exists(path)) << path;
}

void TemporaryFolder::noise(std::string_view name, std::size_t bytes, std::uint32_t seed) const {
    std::mt19937 random(seed);
    std::string contents(bytes, '\0');
    for (char& byte : contents) byte = static_cast<char>(random());
    file(name, contents);
}

void TemporaryFolder::hole(std::string_view name, std::uint64_t bytes) const {
    file(name);
    EXPECT_EQ(::truncate((*this / name).c_str(), static_cast<off_t>(bytes)), 0);
}

void TemporaryFolder::link(std::string_view name, std::string_view target) const {
    EXPECT_EQ(::symlink(std::string(target).c_str(), (*this / name).c_str()), 0) << name;
}

void TemporaryFolder::hardLink(std::string_view name, std::string_view existing) const {
    EXPECT_EQ(::link((*this / existing).c_str(), (*this / name).c_str()), 0) << name;
}

void TemporaryFolder::pipe(std::string_view name) const {
    EXPECT_EQ(::mkfifo((*this / name).c_str(), 0600), 0) << name;
}

void TemporaryFolder::socket(std::string_view name) const {
    const std::string path = *this / name;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof(address.sun_path));
    std::memcpy(address.sun_path, path.c_str(), path.size());
    const int made = ::socket(AF_UNIX, SOCK_STREAM, 0);
    EXPECT_EQ(::bind(made, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    ::close(made);
}

void TemporaryFolder::permissions(std::string_view name, unsigned mode) const {
    EXPECT_EQ(::chmod((*this / name).c_str(), static_cast<mode_t>(mode)), 0) << name;
}

void TemporaryFolder::times(std::string_view name, std::int64_t accessed,
                            std::int64_t modified) const {
    const std::array<timespec, 2> both{timespec{.tv_sec = accessed, .tv_nsec = 0},
                                       timespec{.tv_sec = modified, .tv_nsec = 0}};
    EXPECT_EQ(::utimensat(AT_FDCWD, (*this / name).c_str(), both.data(), AT_SYMLINK_NOFOLLOW), 0);
}

} // namespace tidyro::testing
