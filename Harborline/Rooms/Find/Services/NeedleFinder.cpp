#include "Rooms/Find/Services/NeedleFinder.h"

#include <bit>
#include <cstring>
#include <utility>

#if defined(__x86_64__)
#include <immintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#endif

namespace tidyro {

namespace {

/// How often a byte stands in folded names: the larger the more often. From the names of a Linux
/// and a macOS system; what is not among them is rare.
unsigned frequency(char byte) {
    constexpr std::string_view common = "etaonrisl_cdpm.-hu1bgf02yvk3x5w4j86q79z";
    const std::size_t at = common.find(byte);
    return at == std::string_view::npos ? 0 : static_cast<unsigned>(common.size() - at);
}

} // namespace

NeedleFinder::NeedleFinder(std::string needle) : needle_(std::move(needle)), form_(bestForm()) {
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
}

bool NeedleFinder::standsAt(const char* place) const {
    return std::memcmp(place, needle_.data(), needle_.size()) == 0;
}

std::size_t NeedleFinder::findPlainly(std::string_view text, std::size_t from) const {
    const std::size_t at = text.find(needle_, from);
    return at == std::string_view::npos ? text.size() : at;
}

std::size_t NeedleFinder::plainForm(const NeedleFinder& self, std::string_view text,
                                    std::size_t from) {
    return self.findPlainly(text, from);
}

#if defined(__x86_64__)

__attribute__((target("avx2"))) std::size_t
NeedleFinder::wideForm(const NeedleFinder& self, std::string_view text, std::size_t from) {
    constexpr std::size_t width = 32;
    const __m256i first = _mm256_set1_epi8(self.needle_[self.first_]);
    const __m256i second = _mm256_set1_epi8(self.needle_[self.second_]);
    const std::size_t length = self.needle_.size();
    std::size_t at = from;
    for (; at + width + length <= text.size(); at += width) {
        const char* place = text.data() + at;
        const __m256i atFirst =
            _mm256_loadu_si256(reinterpret_cast<const __m256i*>(place + self.first_));
        const __m256i atSecond =
            _mm256_loadu_si256(reinterpret_cast<const __m256i*>(place + self.second_));
        auto both = static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_and_si256(
            _mm256_cmpeq_epi8(first, atFirst), _mm256_cmpeq_epi8(second, atSecond))));
        for (; both != 0; both &= both - 1) {
            const auto bit = static_cast<std::size_t>(std::countr_zero(both));
            if (self.standsAt(place + bit)) return at + bit;
        }
    }
    return self.findPlainly(text, at);
}

NeedleFinder::Form NeedleFinder::bestForm() {
    static const Form best = __builtin_cpu_supports("avx2") ? &wideForm : &plainForm;
    return best;
}

#elif defined(__aarch64__)

std::size_t NeedleFinder::wideForm(const NeedleFinder& self, std::string_view text,
                                   std::size_t from) {
    constexpr std::size_t width = 16;
    const uint8x16_t first = vdupq_n_u8(static_cast<std::uint8_t>(self.needle_[self.first_]));
    const uint8x16_t second = vdupq_n_u8(static_cast<std::uint8_t>(self.needle_[self.second_]));
    const std::size_t length = self.needle_.size();
    std::size_t at = from;
    for (; at + width + length <= text.size(); at += width) {
        const char* place = text.data() + at;
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(place);
        const uint8x16_t both = vandq_u8(vceqq_u8(first, vld1q_u8(bytes + self.first_)),
                                         vceqq_u8(second, vld1q_u8(bytes + self.second_)));
        // Four bits a byte: this processor has no instruction that gathers single ones.
        std::uint64_t nibbles =
            vget_lane_u64(vreinterpret_u64_u8(vshrn_n_u16(vreinterpretq_u16_u8(both), 4)), 0);
        while (nibbles != 0) {
            const auto bit = static_cast<std::size_t>(std::countr_zero(nibbles)) / 4;
            if (self.standsAt(place + bit)) return at + bit;
            nibbles &= ~(std::uint64_t{15} << (4 * bit));
        }
    }
    return self.findPlainly(text, at);
}

NeedleFinder::Form NeedleFinder::bestForm() { return &wideForm; }

#else

std::size_t NeedleFinder::wideForm(const NeedleFinder& self, std::string_view text,
                                   std::size_t from) {
    return self.findPlainly(text, from);
}

NeedleFinder::Form NeedleFinder::bestForm() { return &plainForm; }

#endif

} // namespace tidyro
