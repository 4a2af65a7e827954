#include "Rooms/Find/Services/NeedleFinder.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "Rooms/Find/Services/FindRandomTrees.h"

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

void expectSame(std::string_view needle, std::string_view text) {
    const NeedleFinder finder{std::string(needle)};
    for (std::size_t from = 0;; ++from) {
        const std::size_t expected = std::min(text.find(needle, from), text.size());
        ASSERT_EQ(finder.find(text, from), expected) << needle << " in " << text << " at " << from;
        ASSERT_EQ(finder.findPlainly(text, from), expected) << needle << " in " << text;
        if (expected == text.size()) return;
        from = expected;
    }
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
            std::string text = randomText(random, letters, random.below(200));
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
            expectSame(needle, TightText(text, random.below(65)).text());
            if (HasFatalFailure()) return;
        }
    }
}

TEST(NeedleFinder, FindsAtEveryPlaceOfEveryAlignment) {
    for (const std::string needle :
         {"q", "qx", "readme", "lib-with_a.long_name-of-40-letters_or-so"}) {
        for (std::size_t shift = 0; shift < 32; ++shift) {
            for (std::size_t before = 0; before < 70; ++before) {
                const TightText ends(std::string(before, 'e') + needle, shift);
                const TightText goesOn(std::string(before, 'e') + needle + "eee", shift);
                const NeedleFinder finder(needle);
                ASSERT_EQ(finder.find(ends.text(), 0), before) << needle << " at " << shift;
                ASSERT_EQ(finder.find(goesOn.text(), before), before) << needle << " at " << shift;
                ASSERT_EQ(finder.find(goesOn.text(), before + 1), goesOn.text().size()) << needle;
            }
        }
    }
}

} // namespace
} // namespace tidyro
