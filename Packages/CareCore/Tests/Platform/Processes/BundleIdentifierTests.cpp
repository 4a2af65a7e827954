#include "Platform/Processes/BundleIdentifier.h"

#include <gtest/gtest.h>

namespace tidyro::platform {
namespace {

using std::string_view_literals::operator""sv;

/// A list with the identifier among a name, a version and a list of document types.
std::string binaryList() {
    constexpr std::string_view digits =
        "62706c6973743030d40102030405090a0b5f1015434642756e646c65446f63756d656e7454797065735f1012"
        "434642756e646c654964656e7469666965725c434642756e646c654e616d655f10164c534d696e696d756d53"
        "797374656d56657273696f6ea3060606d10708516110015f1012636f6d2e6578616d706c652e456469746f72"
        "56456469746f725431312e300811293e4b64686b6d6f848b0000000000000101000000000000000c00000000"
        "000000000000000000000090";
    std::string bytes;
    for (std::size_t at = 0; at < digits.size(); at += 2) {
        bytes += static_cast<char>(std::stoi(std::string(digits.substr(at, 2)), nullptr, 16));
    }
    return bytes;
}

TEST(BundleIdentifier, IsReadFromBothForms) {
    EXPECT_EQ(bundleIdentifierIn(binaryList()), "com.example.Editor");
    EXPECT_EQ(bundleIdentifierIn("<?xml version=\"1.0\"?>\n<plist><dict>\n<key>A</key>"
                                 "<string>b</string>\n<key>CFBundleIdentifier</key>\n"
                                 "\t<string>com.example.Editor</string></dict></plist>"),
              "com.example.Editor");
}

TEST(BundleIdentifier, IsNotGuessedFromDamagedBytes) {
    for (const std::string_view text : {""sv, "bplist00"sv, "<key>CFBundleIdentifier</key>"sv,
                                        "<key>CFBundleIdentifier</key><true/><string>a</string>"sv,
                                        "<key>CFBundleIdentifier</key><string></string>"sv,
                                        "<key>CFBundleIdentifier</key><string>a"sv}) {
        EXPECT_EQ(bundleIdentifierIn(text), std::nullopt) << text;
    }
    const std::string whole = binaryList();
    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_EQ(bundleIdentifierIn(whole.substr(0, size)), std::nullopt) << size;
    }
    // Any byte may be anything: it must not lead outside the bytes, nor to more of them than there
    // are.
    for (std::size_t at = 0; at < whole.size(); ++at) {
        for (int value = 0; value < 256; ++value) {
            std::string damaged = whole;
            damaged[at] = static_cast<char>(value);
            const auto read = bundleIdentifierIn(damaged);
            EXPECT_LE(read.value_or("").size(), whole.size());
        }
    }
}

} // namespace
} // namespace tidyro::platform
