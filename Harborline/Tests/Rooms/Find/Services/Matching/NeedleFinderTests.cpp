#include "Rooms/Find/Services/Matching/NeedleFinder.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "Rooms/Find/Services/Search/FindRandomTrees.h"

namespace tidyro {
namespace {

/// A copy of a text in memory that ends where it does, at an address that leaves a given rest: what
/// reads beyond it is seen by the sanitizers.
class TightText {
  public:
    TightText(std::string_view text, std::size_t shift)
        : bytes_(std::make_unique<char[]>(shift + text.size())),
          text_(bytes_.get() + shift, text.size()) {
        std::memcpy(bytes_.get() + shift, text.data(), text.size());
    }
    [[nodiscard]] std::string_view text() const { return text_; }

  private:
    std::unique_ptr<char[]>
        bytes_; // NOLINT(modernize-avoid-c-arrays): exactly as long as asked for
    std::string_view text_;
};

using Places = std::vector<std::uint32_t>;

/// All places, taken as few at a time as it may be done.
template <class Find>
Places allPlaces(std::string_view text, const Find& findSome) {
    Places all;
    std::array<std::uint32_t, 64> some{};
    for (std::size_t from = 0; from < text.size();) {
        const std::size_t count = findSome(text, from, some);
        all.insert(all.end(), some.begin(), some.begin() + static_cast<std::ptrdiff_t>(count));
    }
    return all;
}

void expectSamePlaces(std::string_view needle, std::string_view text) {
    Places expected;
    for (std::size_t at = text.find(needle); at != std::string_view::npos;
         at = text.find(needle, at + 1)) {
        expected.push_back(static_cast<std::uint32_t>(at));
    }
    const NeedleFinder finder{std::string(needle)};
    ASSERT_EQ(allPlaces(text, [&](auto&&... how) { return finder.findSome(how...); }), expected)
        << needle << " in " << text;
    ASSERT_EQ(allPlaces(text, [&](auto&&... how) { return finder.findSomePlainly(how...); }),
              expected)
        << needle << " in " << text;
}

std::string randomText(testing::RandomSource& random, std::string_view letters,
                       std::size_t length) {
    std::string text;
    while (text.size() < length) text += random.oneOf(letters);
    return text;
}

TEST(NeedleFinder, FindsWhatAPlainSearchFinds) {
    constexpr std::array<std::string_view, 4> alphabets{"ab", "aZ\xFF", "etaon.-_x", "aaaaaaab"};
    testing::RandomSource random(11);
    for (std::size_t length = 1; length <= 70; ++length) {
        for (int i = 0; i < 24; ++i) {
            const std::string_view letters = random.oneOf(alphabets);
            std::string needle = randomText(random, letters, length);
            std::string text = randomText(random, letters, random.below(400));
            switch (i % 6) {
            case 0: text += needle; break;                       // at the end
            case 1: text.insert(0, needle); break;               // at the beginning
            case 2: text += needle + needle; break;              // side by side
            case 3: text += needle.substr(0, length - 1); break; // cut off
            case 4:                                              // over one another
                needle = std::string(length, 'a');
                text += std::string(length + random.below(40), 'a');
                break;
            default: break;
            }
            expectSamePlaces(needle, TightText(text, random.below(65)).text());
            if (HasFatalFailure()) return;
        }
    }
}

TEST(NeedleFinder, FindsAtEveryPlaceOfEveryAlignment) {
    for (const std::string needle :
         {"q", "qx", "readme", "lib-with_a.long_name-of-40-letters_or-so"}) {
        for (std::size_t shift = 0; shift < 32; ++shift) {
            for (std::size_t before = 0; before < 70; ++before) {
                const std::string text = std::string(before, 'e') + needle;
                expectSamePlaces(needle, TightText(text, shift).text());
                expectSamePlaces(needle,
                                 TightText(text + std::string(150, 'e') + needle, shift).text());
                if (HasFatalFailure()) return;
            }
        }
    }
}

TEST(NeedleFinder, TellsWhichNamesHoldANeedle) {
    constexpr std::size_t names = NeedleFinder::Names::count;
    testing::RandomSource random(12);
    for (int round = 0; round < 400; ++round) {
        const std::string_view letters = round % 2 == 0 ? "ab" : "etaon.-_x";
        const std::string needle = randomText(random, letters, 1 + random.below(40));
        std::string text;
        std::vector<std::uint32_t> starts{0};
        NeedleFinder::InNames expected;
        for (std::size_t i = 0; i < names; ++i) {
            // What lies over two names stands in neither.
            std::string name = randomText(random, letters, random.below(random.oneIn(4) ? 90 : 12));
            if (random.oneIn(3)) name += needle;
            if (random.oneIn(4)) name.insert(0, needle);
            if (random.oneIn(5)) name += needle.substr(0, needle.size() / 2 + 1);
            expected.holding |= std::uint64_t{name.find(needle) != std::string::npos} << i;
            const bool isBehindDot = name.starts_with('.') && name.substr(1).starts_with(needle);
            expected.beginning |= std::uint64_t{name.starts_with(needle) || isBehindDot} << i;
            text += name;
            starts.push_back(static_cast<std::uint32_t>(text.size()));
        }
        if (random.oneIn(2)) text += needle + std::string(random.below(80), 'e'); // further names
        const TightText tight(text, random.below(33));
        const NeedleFinder finder(needle);
        const std::uint64_t asked = random.oneIn(2) ? ~std::uint64_t{0} : 0xF0F0'1234'8001'AAAA;
        expected.holding &= asked;
        expected.beginning &= asked;
        const NeedleFinder::Names block{.text = tight.text(), .starts = starts.data()};
        ASSERT_EQ(finder.inNames(asked, block), expected) << needle << " in " << text;
        ASSERT_EQ(NeedleFinder::inNamesPlainly(finder, asked, block), expected) << needle;
    }
}

} // namespace
} // namespace tidyro
