#include <gtest/gtest.h>

#include "KivResource/NSError+KivResource.h"

namespace {

TEST(NSErrorKivResourceTest, TheManagerHasItsDomainAndCode) {
  EXPECT_EQ(KivResourceErrorDomain, "kiv.KivResource");
  EXPECT_EQ(DownloadQueueIsBusyKivResourceErrorCode, 100);
}

TEST(NSErrorKivResourceTest, TheDownloadModuleHasItsDomainAndCodes) {
  EXPECT_EQ(KivResourceRESTModuleErrorDomain, "kiv.KivResource.KivResourceRESTModule");
  EXPECT_EQ(CreateURLRequestErrorCode, 101);
  EXPECT_EQ(InvalidResponseStatusErrorCode, 102);
}

}  // namespace
