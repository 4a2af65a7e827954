#include "Rooms/Find/Services/FindBlockFilter.h"

#include <algorithm>

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

} // namespace

FindBlockFilter::FindBlockFilter(const FindIndexStorage& storage, const CancelToken& cancel) {
    const std::size_t blocks = storage.count() / blockSize;
    groups_.resize(blocks * wordsPerBlock);
    for (auto& bits : letters_) bits.resize(blocks);
    firstBytes_.resize(blocks * blockSize);
    for (std::size_t block = 0; block < blocks; ++block) {
        if (block % 64 == 0 && cancel.stop_requested()) return;
        fillBlock(storage, block);
    }
    covered_ = static_cast<std::uint32_t>(blocks * blockSize);
}

void FindBlockFilter::fillBlock(const FindIndexStorage& storage, std::size_t block) {
    std::uint64_t* groups = groups_.data() + block * wordsPerBlock;
    std::array<std::uint64_t, letters> withLetter{};
    for (std::size_t i = 0; i < blockSize; ++i) {
        const std::size_t entry = block * blockSize + i;
        const std::string_view name = storage.foldedName(static_cast<std::uint32_t>(entry));
        firstBytes_[entry] = name.empty() ? '\0' : name.front();
        std::uint32_t group = 0;
        std::uint64_t inName = 0;
        for (std::size_t at = 0; at < name.size(); ++at) {
            const auto byte = static_cast<unsigned char>(name[at]);
            inName |= std::uint64_t{1} << letterNumbers[byte];
            group = (group << 8U | byte) & 0xFFFFFFU;
            if (at >= 2) groups[place(group) / 64] |= std::uint64_t{1} << (place(group) % 64);
        }
        for (std::size_t letter = 0; letter < letters; ++letter) {
            withLetter[letter] |= (inName >> letter & 1U) << i;
        }
    }
    for (std::size_t letter = 0; letter < letters; ++letter) {
        letters_[letter][block] = withLetter[letter];
    }
}

FindBlockFilter::Question::Question(const FindBlockFilter& filter, std::string_view needle)
    : filter_(filter) {
    for (std::size_t at = 0; at + 3 <= needle.size() && count_ < most; ++at) {
        std::uint32_t group = 0;
        for (const char byte : needle.substr(at, 3)) {
            group = group << 8U | static_cast<unsigned char>(byte);
        }
        places_[count_++] = place(group);
    }
}

const std::uint64_t* FindBlockFilter::namesWith(char byte) const {
    static_assert(lettersInOrder.size() == letters);
    const std::size_t letter = letterNumbers[static_cast<unsigned char>(byte)];
    return letter < letters ? letters_[letter].data() : nullptr;
}

} // namespace tidyro
