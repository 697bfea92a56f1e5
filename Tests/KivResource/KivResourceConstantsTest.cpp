#include <gtest/gtest.h>

#include "KivResource/KivResourceConstants.h"

namespace {

TEST(KivResourceConstantsTest, TheArchiveKeyIsTheSuffixAndTheEntryPage) {
  EXPECT_EQ(KivResouceArchiveKey.size(), 2U);
  EXPECT_EQ(KivResouceArchiveKey[0], ".zip");
  EXPECT_EQ(KivResouceArchiveKey[1], "index.html");
}

TEST(KivResourceConstantsTest, TheStorageModuleHasItsErrorDomain) {
  EXPECT_EQ(KivResourceStorageModuleErrorDomain, "kiv.KivResource.KivResourceStorageModule");
}

}  // namespace
