#include "Platform/Machine/SealedBox.h"

#include <span>
#include <string>

#include <gtest/gtest.h>

namespace tidyro::platform {
namespace {

TEST(SealedBox, OpensOnlyWhatItsKeySealed) {
    for (const std::size_t length : {16U, 24U, 32U}) {
        const std::string key = randomBytes(length);
        const auto bytes = std::as_bytes(std::span(key));
        for (const std::string& contents : {std::string(), std::string(3'000'000, '\xFF')}) {
            const std::string box = seal(bytes, contents);
            EXPECT_EQ(box.size(), contents.size() + 28);
            EXPECT_NE(seal(bytes, contents), box) << "a nonce was used again";
            EXPECT_EQ(openSealed(bytes, box), contents);
            for (const std::size_t at : {std::size_t{0}, box.size() / 2, box.size() - 1}) {
                std::string changed = box;
                changed[at] = static_cast<char>(changed[at] ^ 1);
                EXPECT_EQ(openSealed(bytes, changed), std::nullopt);
            }
            EXPECT_EQ(openSealed(bytes, std::string_view(box).substr(0, box.size() - 1)),
                      std::nullopt);
        }
    }
    const std::string key = randomBytes(32);
    for (const std::size_t pieces : {0U, 1U, 3U}) {
        Sealing sealing(std::as_bytes(std::span(key)));
        std::string box;
        for (std::size_t i = 0; i < pieces; ++i) box += sealing.add(std::string(i * 7, 'x'));
        box += sealing.end();
        EXPECT_EQ(openSealed(std::as_bytes(std::span(key)), box),
                  std::string(pieces * (pieces - (pieces > 0 ? 1 : 0)) / 2 * 7, 'x'));
    }
    // A published example: everything is zero.
    const std::string zeros(16, '\0');
    const std::string_view box("\x03\x88\xda\xce\x60\xb6\xa3\x92\xf3\x28\xc2\xb9\x71\xb2\xfe\x78"
                               "\xab\x6e\x47\xd4\x2c\xec\x13\xbd\xf5\x3a\x67\xb2\x12\x57\xbd\xdf",
                               32);
    EXPECT_EQ(openSealed(std::as_bytes(std::span(zeros)), std::string(12, '\0').append(box)),
              zeros);
    EXPECT_FALSE(isUsableKeyLength(0));
    EXPECT_FALSE(isUsableKeyLength(31));
}

} // namespace
} // namespace tidyro::platform
