#include "Rooms/Duplicates/Search/LargeFileReader.h"

#include <algorithm>
#include <cstring>
#include <ranges>
#include <utility>

#include "Platform/Machine/DedicatedThread.h"

namespace tidyro {

namespace {

/// Bytes of the buffer that all files read side by side share. From a disk they come in runs of
/// this length.
constexpr std::size_t sharedBufferSize = 8'388'608;
/// Bytes of one call. From memory one file gives no more at a time: so many make the calls cheap,
/// and they are still in the processor's cache when they are hashed and compared.
constexpr std::size_t oneRead = 1'048'576;

} // namespace

void LargeFileReader::count(const LargeFile& file, std::uint64_t files, std::uint64_t bytes) {
    if (time_ == Time::second) return;
    shared_.progress.add(files, bytes,
                         [&] { return shared_.listing.path(shared_.listing.files()[file.file]); });
}

std::vector<LargeFileReader::Member> LargeFileReader::open(std::span<const LargeFile> files) {
    std::vector<Member> members;
    for (const LargeFile& file : files) {
        auto opened = opener_.openAndLook(shared_.listing.files()[file.file]);
        if (opened && opened->seen.identity == file.identity) {
            members.push_back({.file = file, .opened = *std::move(opened), .buffer = {}});
        } else {
            count(file, 1, file.bytes);
        }
    }
    return members;
}

void LargeFileReader::shareBuffer(std::vector<Member>& members) {
    buffer_.resize(sharedBufferSize);
    const std::size_t part = sharedBufferSize / members.size();
    std::span rest(buffer_);
    for (Member& member : members) {
        member.buffer = rest.first(part);
        rest = rest.subspan(part);
    }
}

/// False when the first file is lost, with which the others are compared.
bool LargeFileReader::fill(std::vector<Member>& members, std::uint64_t at, std::size_t count) {
    std::unique_lock<std::mutex> turn;
    if (hasWaited_) turn = shared_.turns.turn(members.front().file.identity.device);
    const std::uint64_t before = platform::waitCountOfThisThread();
    for (Member& member : members) {
        for (std::size_t done = 0; done < count && !member.isLost; done += oneRead) {
            const auto into = member.buffer.subspan(done, std::min(oneRead, count - done));
            member.isLost = shared_.cancel.stop_requested() ||
                            member.opened.contents.read(at + done, into) != into.size();
        }
    }
    hasWaited_ = platform::waitCountOfThisThread() != before;
    return !members.front().isLost;
}

/// Sorts out the files that differ from the first and those that are lost.
void LargeFileReader::compare(std::vector<Member>& members, std::size_t count) {
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

void LargeFileReader::read(std::span<const LargeFile> files, Time time) {
    time_ = time;
    std::vector<Member> members = open(files);
    if (members.empty()) return;
    shareBuffer(members);
    const std::uint64_t bytes = members.front().file.bytes;
    std::vector<LargeFile> uncounted;
    uncounted.reserve(members.size());
    for (const Member& member : members) uncounted.push_back(member.file);
    hash_.restart();
    std::uint64_t at = 0;
    while (at < bytes && !shared_.cancel.stop_requested()) {
        const std::size_t atOnce = hasWaited_ ? members.front().buffer.size()
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
        auto proof = prove(member.file.file, member.opened, digest);
        if (proof) proven.push_back(*std::move(proof));
    }
}

} // namespace tidyro
