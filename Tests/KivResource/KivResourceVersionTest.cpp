#include <string>

#include <gtest/gtest.h>

#include "KivResource/KivResourceVersion.h"

namespace {

TEST(KivResourceVersionTest, HeadersAndLibraryAreOfOneVersion) {
  EXPECT_EQ(kiv::version(), KIVRESOURCE_VERSION);
  EXPECT_EQ(std::string(KivResourceVersionString),
            "KivResource " + std::to_string(KIVRESOURCE_VERSION_MAJOR) + "." +
                std::to_string(KIVRESOURCE_VERSION_MINOR) + "." +
                std::to_string(KIVRESOURCE_VERSION_PATCH));
  EXPECT_EQ(KIVRESOURCE_VERSION / 1'000'000, KIVRESOURCE_VERSION_MAJOR);
}

}  // namespace
