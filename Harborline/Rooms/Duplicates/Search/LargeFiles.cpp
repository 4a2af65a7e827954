#include "Rooms/Duplicates/Search/LargeFiles.h"

#include <algorithm>
#include <cstring>
#include <ranges>
#include <utility>

#include "Platform/Machine/DedicatedThread.h"

namespace tidyro {

namespace {

/// Bytes of all files that are read side by side, taken together, in long runs from a disk.
constexpr std::size_t bufferSize = 8'388'608;
/// Bytes of one call, and of one file at a time when it comes from memory: as many as make calls
/// cheap, and few enough to be in the processor's cache still when they are hashed and compared.
constexpr std::size_t oneRead = 1'048'576;

} // namespace

void LargeFiles::count(const LargeFile& file, std::uint64_t files, std::uint64_t bytes) {
    if (!counts_) return;
    around_.progress.add(files, bytes,
                         [&] { return around_.listing.path(around_.listing.files()[file.file]); });
}

std::vector<LargeFiles::Member> LargeFiles::opened(std::span<const LargeFile> files) {
    std::vector<Member> members;
    for (const LargeFile& file : files) {
        auto opened = opener_.openLooking(around_.listing.files()[file.file]);
        if (opened && opened->seen.identity == file.identity) {
            members.push_back({.file = file, .opened = *std::move(opened), .buffer = {}});
        } else {
            count(file, 1, file.bytes);
        }
    }
    return members;
}

void LargeFiles::shareBuffer(std::vector<Member>& members) {
    buffer_.resize(bufferSize);
    const std::size_t part = bufferSize / members.size();
    std::span rest(buffer_);
    for (Member& member : members) {
        member.buffer = rest.first(part);
        rest = rest.subspan(part);
    }
}

/// False when the first of them, with which the others are compared, is lost.
bool LargeFiles::fill(std::vector<Member>& members, std::uint64_t at, std::size_t count) {
    std::unique_lock<std::mutex> turn;
    if (waitsForDisk_) turn = around_.turns.turn(members.front().file.identity.device);
    const std::uint64_t before = platform::waitCountOfThisThread();
    for (Member& member : members) {
        for (std::size_t done = 0; done < count && !member.isLost; done += oneRead) {
            const auto into = member.buffer.subspan(done, std::min(oneRead, count - done));
            member.isLost = around_.cancel.stop_requested() ||
                            member.opened.contents.read(at + done, into) != into.size();
        }
    }
    waitsForDisk_ = platform::waitCountOfThisThread() != before;
    return !members.front().isLost;
}

/// Sorts out what differs from the first and what is lost.
void LargeFiles::compare(std::vector<Member>& members, std::size_t count) {
    const std::byte* wanted = members.front().buffer.data();
    for (Member& member : members | std::views::drop(1)) {
        if (member.isLost) continue;
        member.isDifferent = std::memcmp(wanted, member.buffer.data(), count) != 0;
    }
    std::erase_if(members, [&](const Member& member) {
        if (member.isDifferent) different.push_back(member.file);
        return member.isLost || member.isDifferent;
    });
}

void LargeFiles::read(std::span<const LargeFile> files, bool counts) {
    counts_ = counts;
    std::vector<Member> members = opened(files);
    if (members.empty()) return;
    shareBuffer(members);
    const std::uint64_t bytes = members.front().file.bytes;
    std::vector<LargeFile> uncounted;
    uncounted.reserve(members.size());
    for (const Member& member : members) uncounted.push_back(member.file);
    hash_.restart();
    std::uint64_t at = 0;
    while (at < bytes && !around_.cancel.stop_requested()) {
        const std::size_t atOnce = waitsForDisk_ ? members.front().buffer.size()
                                                 : std::min(members.front().buffer.size(), oneRead);
        const auto part = static_cast<std::size_t>(std::min<std::uint64_t>(atOnce, bytes - at));
        if (!fill(members, at, part)) {
            for (const Member& member : members | std::views::drop(1)) {
                different.push_back(member.file);
            }
            break;
        }
        hash_.update(members.front().buffer.first(part));
        compare(members, part);
        at += part;
        for (const LargeFile& file : uncounted) count(file, 0, part);
    }
    for (const LargeFile& file : uncounted) count(file, 1, bytes - at);
    if (at < bytes) return;
    const auto digest = hash_.finish();
    for (const Member& member : members) {
        auto proof = tidyro::proven(member.file.file, member.opened, digest);
        if (proof) proven.push_back(*std::move(proof));
    }
}

} // namespace tidyro
