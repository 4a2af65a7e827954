#include "Rooms/Find/Services/Matching/NeedleFinder.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#if defined(__x86_64__)
#include <immintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#endif

#include "Platform/Machine/Processor.h"

namespace tidyro {

namespace {

/// How often a byte stands in folded names: the larger the more often. From the names of a Linux
/// and a macOS system; what is not among them is rare.
unsigned frequency(char byte) {
    constexpr std::string_view common = "etaonrisl_cdpm.-hu1bgf02yvk3x5w4j86q79z";
    const std::size_t at = common.find(byte);
    return at == std::string_view::npos ? 0 : static_cast<unsigned>(common.size() - at);
}

constexpr std::size_t headSize = sizeof(std::uint64_t);

} // namespace

NeedleFinder::NeedleFinder(std::string needle)
    : needle_(std::move(needle)), form_(bestForm()), nameForm_(bestNameForm()) {
    const auto rarer = [&](std::size_t a, std::size_t b) {
        return frequency(needle_[a]) < frequency(needle_[b]);
    };
    for (std::size_t i = 1; i < needle_.size(); ++i) {
        if (rarer(i, first_)) first_ = i;
    }
    second_ = first_ == 0 ? needle_.size() - 1 : 0;
    for (std::size_t i = 0; i < needle_.size(); ++i) {
        if (i != first_ && rarer(i, second_)) second_ = i;
    }
    const std::size_t head = std::min(needle_.size(), headSize);
    std::memcpy(&head_, needle_.data(), head);
    std::memset(&headMask_, 0xFF, head);
}

std::size_t NeedleFinder::find(std::string_view text, std::size_t from) const {
    const std::size_t at = text.find(needle_, from);
    return at == std::string_view::npos ? text.size() : at;
}

/// At a place behind which eight bytes can be read, and as many as the needle has.
bool NeedleFinder::isAt(const char* place) const {
    std::uint64_t head = 0;
    std::memcpy(&head, place, headSize);
    if (((head ^ head_) & headMask_) != 0) return false;
    return needle_.size() <= headSize ||
           std::memcmp(place + headSize, needle_.data() + headSize, needle_.size() - headSize) == 0;
}

std::size_t NeedleFinder::findSomePlainly(std::string_view text, std::size_t& from,
                                          std::span<std::uint32_t> places) const {
    std::size_t count = 0;
    for (from = find(text, from); from < text.size() && count < places.size();
         from = find(text, from + 1)) {
        places[count++] = static_cast<std::uint32_t>(from);
    }
    return count;
}

std::size_t NeedleFinder::plainForm(const NeedleFinder& self, std::string_view text,
                                    std::size_t& from, std::span<std::uint32_t> places) {
    return self.findSomePlainly(text, from, places);
}

NeedleFinder::InNames NeedleFinder::inNamesPlainly(const NeedleFinder& self, std::uint64_t asked,
                                                   const Names& names) {
    InNames found;
    for (; asked != 0; asked &= asked - 1) {
        const auto i = static_cast<unsigned>(std::countr_zero(asked));
        const std::string_view name =
            names.text.substr(names.starts[i], names.starts[i + 1] - names.starts[i]);
        const std::size_t at = name.find(self.needle_);
        found.holding |= std::uint64_t{at != std::string_view::npos} << i;
        const bool isBehindDot = name.starts_with('.') && name.substr(1).starts_with(self.needle_);
        found.beginning |= std::uint64_t{at == 0 || isBehindDot} << i;
    }
    return found;
}

#if defined(__x86_64__)

namespace {

constexpr std::size_t half = 32; ///< bytes that are compared at once

/// A bit for each place where the one byte and the other stand.
__attribute__((target("avx2"))) inline std::uint32_t
bothAt(const char* atFirst, const char* atSecond, __m256i first, __m256i second) {
    const auto load = reinterpret_cast<const __m256i*>(atFirst);
    const auto other = reinterpret_cast<const __m256i*>(atSecond);
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(
        _mm256_and_si256(_mm256_cmpeq_epi8(first, _mm256_loadu_si256(load)),
                         _mm256_cmpeq_epi8(second, _mm256_loadu_si256(other)))));
}

} // namespace

__attribute__((target("avx2,bmi,popcnt"))) std::size_t
NeedleFinder::wideForm(const NeedleFinder& self, std::string_view text, std::size_t& from,
                       std::span<std::uint32_t> places) {
    constexpr std::size_t width = 64;
    const __m256i first = _mm256_set1_epi8(self.needle_[self.first_]);
    const __m256i second = _mm256_set1_epi8(self.needle_[self.second_]);
    const std::size_t reach = width + std::max(self.needle_.size(), headSize);
    const bool isShort = self.needle_.size() <= 2; // then the two bytes are all of it
    std::size_t count = 0;
    for (; from + reach <= text.size(); from += width) {
        const char* place = text.data() + from;
        std::uint64_t both = bothAt(place + self.first_, place + self.second_, first, second) |
                             std::uint64_t{bothAt(place + half + self.first_,
                                                  place + half + self.second_, first, second)}
                                 << half;
        if (count + width > places.size()) return count;
        if (isShort) {
            const auto found = static_cast<std::size_t>(std::popcount(both));
            std::uint32_t* to = places.data() + count;
            for (std::size_t i = 0; i < 2; ++i) {
                to[i] = static_cast<std::uint32_t>(from) +
                        static_cast<std::uint32_t>(std::countr_zero(both));
                both &= both - 1;
            }
            for (std::size_t i = 2; i < found; ++i) {
                to[i] = static_cast<std::uint32_t>(from) +
                        static_cast<std::uint32_t>(std::countr_zero(both));
                both &= both - 1;
            }
            count += found;
            continue;
        }
        for (; both != 0; both &= both - 1) {
            const auto bit = static_cast<std::size_t>(std::countr_zero(both));
            places[count] = static_cast<std::uint32_t>(from + bit);
            if (self.isAt(place + bit)) ++count;
        }
    }
    return count + self.findSomePlainly(text, from, places.subspan(count));
}

NeedleFinder::Form NeedleFinder::bestForm() {
    static const Form best = platform::hasAVX2() ? &wideForm : &plainForm;
    return best;
}

/// One name whose needle may begin behind the bytes that are looked at in one go.
__attribute__((target("avx2,bmi,bmi2"))) bool NeedleFinder::isInLongName(const char* name,
                                                                         std::size_t places) const {
    const __m256i first = _mm256_set1_epi8(needle_[first_]);
    const __m256i second = _mm256_set1_epi8(needle_[second_]);
    for (std::size_t at = half; at < places; at += half) {
        std::uint32_t both =
            _bzhi_u32(bothAt(name + at + first_, name + at + second_, first, second),
                      static_cast<std::uint32_t>(std::min(places - at, half)));
        for (; both != 0; both &= both - 1) {
            if (isAt(name + at + std::countr_zero(both))) return true;
        }
    }
    return false;
}

template <bool isShort>
__attribute__((target("avx2,bmi,bmi2"))) NeedleFinder::InNames
NeedleFinder::wideNameForm(const NeedleFinder& self, std::uint64_t asked, const Names& names) {
    // Behind the last name as many bytes have to be there as are looked at in one go, even where
    // the name is shorter than the needle.
    if (names.text.size() < names.starts[Names::count] + self.needle_.size() + half + headSize) {
        return inNamesPlainly(self, asked, names);
    }
    const __m256i first = _mm256_set1_epi8(self.needle_[self.first_]);
    const __m256i second = _mm256_set1_epi8(self.needle_[self.second_]);
    const char* text = names.text.data();
    const char* atFirst = text + self.first_;
    const char* atSecond = text + self.second_;
    const auto length = static_cast<std::uint32_t>(self.needle_.size());
    std::uint64_t holding = 0;
    std::uint64_t beginning = 0;
    std::uint64_t longer = 0; // than what is looked at in one go
    for (; asked != 0; asked &= asked - 1) {
        const auto i = static_cast<unsigned>(std::countr_zero(asked));
        const std::uint32_t start = names.starts[i];
        const std::uint32_t bytes = names.starts[i + 1] - start;
        const std::uint32_t places = bytes < length ? 0 : bytes - length + 1;
        // Without a branch: whether a name holds two bytes nobody can predict.
        std::uint32_t both = _bzhi_u32(bothAt(atFirst + start, atSecond + start, first, second),
                                       std::min<std::uint32_t>(places, half));
        if constexpr (!isShort) { // else the two bytes are all of it
            while (both != 0 && !self.isAt(text + start + std::countr_zero(both))) both &= both - 1;
        }
        holding |= std::uint64_t{both != 0} << i;
        const std::uint32_t isHidden = text[start] == '.' ? 1U : 0U;
        beginning |= std::uint64_t{(both | (both >> 1U & isHidden)) & 1U} << i;
        longer |= std::uint64_t{places > half} << i;
    }
    for (longer &= ~holding; longer != 0; longer &= longer - 1) {
        const auto i = static_cast<unsigned>(std::countr_zero(longer));
        const std::uint32_t start = names.starts[i];
        const bool isIn = self.isInLongName(text + start, names.starts[i + 1] - start - length + 1);
        holding |= std::uint64_t{isIn} << i;
    }
    return {.holding = holding, .beginning = beginning};
}

NeedleFinder::NameForm NeedleFinder::bestNameForm() const {
    if (!platform::hasAVX2()) return &inNamesPlainly;
    return needle_.size() <= 2 ? &wideNameForm<true> : &wideNameForm<false>;
}

#elif defined(__aarch64__)

std::size_t NeedleFinder::wideForm(const NeedleFinder& self, std::string_view text,
                                   std::size_t& from, std::span<std::uint32_t> places) {
    constexpr std::size_t width = 16;
    const uint8x16_t first = vdupq_n_u8(static_cast<std::uint8_t>(self.needle_[self.first_]));
    const uint8x16_t second = vdupq_n_u8(static_cast<std::uint8_t>(self.needle_[self.second_]));
    const std::size_t reach = width + std::max(self.needle_.size(), headSize);
    const bool isShort = self.needle_.size() <= 2; // then the two bytes are all of it
    std::size_t count = 0;
    for (; from + reach <= text.size(); from += width) {
        const char* place = text.data() + from;
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(place);
        const uint8x16_t both = vandq_u8(vceqq_u8(first, vld1q_u8(bytes + self.first_)),
                                         vceqq_u8(second, vld1q_u8(bytes + self.second_)));
        // Four bits a byte: this processor has no instruction that gathers single ones.
        std::uint64_t nibbles =
            vget_lane_u64(vreinterpret_u64_u8(vshrn_n_u16(vreinterpretq_u16_u8(both), 4)), 0);
        if (nibbles == 0) continue;
        if (count + width > places.size()) return count;
        while (nibbles != 0) {
            const auto bit = static_cast<std::size_t>(std::countr_zero(nibbles)) / 4;
            places[count] = static_cast<std::uint32_t>(from + bit);
            if (isShort || self.isAt(place + bit)) ++count;
            nibbles &= ~(std::uint64_t{15} << (4 * bit));
        }
    }
    return count + self.findSomePlainly(text, from, places.subspan(count));
}

NeedleFinder::Form NeedleFinder::bestForm() { return &wideForm; }

NeedleFinder::NameForm NeedleFinder::bestNameForm() const { return &inNamesPlainly; }

#else

std::size_t NeedleFinder::wideForm(const NeedleFinder& self, std::string_view text,
                                   std::size_t& from, std::span<std::uint32_t> places) {
    return self.findSomePlainly(text, from, places);
}

NeedleFinder::Form NeedleFinder::bestForm() { return &plainForm; }

NeedleFinder::NameForm NeedleFinder::bestNameForm() const { return &inNamesPlainly; }

#endif

} // namespace tidyro
