#include "Rooms/Find/Services/Index/FindKinds.h"

#include <gtest/gtest.h>

namespace tidyro {
namespace {

TEST(FindExtensions, KnowsPackages) {
    EXPECT_TRUE(FindExtensions::isPackage("Mail.APP"));
    EXPECT_FALSE(FindExtensions::isPackage("Mail"));
}

} // namespace
} // namespace tidyro
