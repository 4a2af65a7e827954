#include "Rooms/Find/Services/Matching/FindBlockFilter.h"

#include <algorithm>
#include <cstring>
#include <memory>

namespace tidyro {

namespace {

constexpr std::string_view lettersInOrder = "abcdefghijklmnopqrstuvwxyz0123456789._- ";

/// The place of a byte among the letters; 63, a bit that nobody asks for, where it is none.
constexpr std::array<std::uint8_t, 256> letterNumbers = [] {
    std::array<std::uint8_t, 256> numbers{};
    numbers.fill(63);
    for (std::size_t i = 0; i < lettersInOrder.size(); ++i) {
        numbers[static_cast<unsigned char>(lettersInOrder[i])] = static_cast<std::uint8_t>(i);
    }
    return numbers;
}();

/// A square of 64 by 64 bits turned over: bit b of word a becomes bit a of word b. By halves:
/// squares of 32, then 16 bits and so on change places.
void transpose(std::array<std::uint64_t, 64>& square) {
    std::uint64_t mask = 0x00000000FFFFFFFF;
    for (std::size_t half = 32; half != 0; half /= 2, mask ^= mask << half) {
        for (std::size_t i = 0; i < square.size(); i = (i + half + 1) & ~half) {
            const std::uint64_t changed = (square[i] >> half ^ square[i + half]) & mask;
            square[i] ^= changed << half;
            square[i + half] ^= changed;
        }
    }
}

} // namespace

/// The groups of 64 blocks while they are read: for each block a bit for each number.
struct FindBlockFilter::Stretch {
    static constexpr std::size_t words = numbers / 64;
    std::array<std::array<std::uint64_t, words>, stretch> blocks;
};

FindBlockFilter::FindBlockFilter(const FindIndexStorage& storage, const CancelToken& cancel)
    : stretches_(storage.count() / blockSize / stretch) {
    const std::size_t blocks = stretches_ * stretch;
    groups_.resize(numbers * stretches_);
    for (auto& bits : letters_) bits.resize(blocks);
    firstBytes_.resize(blocks * blockSize);
    withDot_.resize(blocks);
    const auto read = std::make_unique<Stretch>();
    for (std::size_t at = 0; at < stretches_; ++at) {
        if (cancel.stop_requested()) return;
        *read = {};
        for (std::size_t i = 0; i < stretch; ++i) readBlock(storage, at * stretch + i, *read);
        take(*read, at);
    }
    covered_ = static_cast<std::uint32_t>(blocks * blockSize);
}

void FindBlockFilter::readBlock(const FindIndexStorage& storage, std::size_t block, Stretch& into) {
    auto& groups = into.blocks[block % stretch];
    std::array<std::uint64_t, letters> withLetter{};
    for (std::size_t i = 0; i < blockSize; ++i) {
        const std::size_t entry = block * blockSize + i;
        const std::string_view name = storage.foldedName(static_cast<std::uint32_t>(entry));
        const bool isHidden = name.size() > 1 && name.front() == '.';
        firstBytes_[entry] = name.empty() ? '\0' : name[isHidden ? 1 : 0];
        withDot_[block] |= std::uint64_t{name.starts_with('.')} << i;
        std::uint32_t group = 0;
        std::uint64_t inName = 0;
        for (std::size_t at = 0; at < name.size(); ++at) {
            const auto byte = static_cast<unsigned char>(name[at]);
            inName |= std::uint64_t{1} << letterNumbers[byte];
            group = (group << 8U | byte) & 0xFFFFFFU;
            const std::size_t number = numberOf(group);
            if (at >= 2) groups[number / 64] |= std::uint64_t{1} << (number % 64);
        }
        for (std::size_t letter = 0; letter < letters; ++letter) {
            withLetter[letter] |= (inName >> letter & 1U) << i;
        }
    }
    for (std::size_t letter = 0; letter < letters; ++letter) {
        letters_[letter][block] = withLetter[letter];
    }
}

void FindBlockFilter::take(const Stretch& blocks, std::size_t at) {
    std::array<std::uint64_t, stretch> square{};
    for (std::size_t word = 0; word < Stretch::words; ++word) {
        for (std::size_t i = 0; i < stretch; ++i) square[i] = blocks.blocks[i][word];
        transpose(square);
        for (std::size_t bit = 0; bit < square.size(); ++bit) {
            groups_[(word * 64 + bit) * stretches_ + at] = square[bit];
        }
    }
}

std::vector<std::uint64_t> FindBlockFilter::blocksThatMayHold(std::string_view needle) const {
    constexpr std::size_t maxGroups = 12; // more would rule out hardly any more blocks
    const std::size_t count = needle.size() < 3 ? 0 : std::min(needle.size() - 2, maxGroups);
    std::vector<std::uint64_t> blocks(covered_ / blockSize / stretch, ~std::uint64_t{0});
    for (std::size_t at = 0; at < count; ++at) {
        std::uint32_t group = 0;
        for (const char byte : needle.substr(at, 3)) {
            group = group << 8U | static_cast<unsigned char>(byte);
        }
        const std::uint64_t* with = groups_.data() + numberOf(group) * stretches_;
        for (std::size_t i = 0; i < blocks.size(); ++i) blocks[i] &= with[i];
    }
    return blocks;
}

const std::uint64_t* FindBlockFilter::namesWith(char byte) const {
    static_assert(lettersInOrder.size() == letters);
    const std::size_t letter = letterNumbers[static_cast<unsigned char>(byte)];
    return letter < letters ? letters_[letter].data() : nullptr;
}

std::vector<const std::uint64_t*> FindBlockFilter::namesWithEach(std::string_view text) const {
    std::vector<const std::uint64_t*> sets;
    for (const char byte : text) {
        const std::uint64_t* with = namesWith(byte);
        if (with == nullptr || std::ranges::find(sets, with) != sets.end()) continue;
        sets.push_back(with);
    }
    return sets;
}

std::uint64_t FindBlockFilter::namesBeginningWith(char byte, std::size_t block) const {
    if (byte == '.') return withDot_[block];
    // Eight bytes at a time: where they are the byte, all bits of the difference are 0.
    constexpr std::uint64_t ones = 0x0101010101010101;
    constexpr std::uint64_t lower = 0x7F * ones;
    constexpr std::uint64_t gathering = 0x0102040810204080;
    const std::uint64_t pattern = static_cast<unsigned char>(byte) * ones;
    std::uint64_t beginning = 0;
    for (std::size_t i = 0; i < blockSize; i += 8) {
        std::uint64_t bytes = 0;
        std::memcpy(&bytes, firstBytes_.data() + block * blockSize + i, sizeof bytes);
        const std::uint64_t difference = bytes ^ pattern;
        const std::uint64_t isOther = (((difference & lower) + lower) | difference) >> 7U & ones;
        beginning |= (isOther ^ ones) * gathering >> 56U << i;
    }
    return beginning;
}

} // namespace tidyro
