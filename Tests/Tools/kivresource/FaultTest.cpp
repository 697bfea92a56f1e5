#include <gtest/gtest.h>

#include "Tools/kivresource/Fault.h"

namespace {

using tool::Fault;

TEST(FaultTest, ReadsAStatus) {
  const auto fault = Fault::of("/a=b.png=503");
  ASSERT_TRUE(fault);
  EXPECT_EQ(fault->path, "/a=b.png");
  EXPECT_EQ(fault->status, 503);
}

TEST(FaultTest, ReadsABreakAndPutsTheSlashBeforeAPath) {
  const auto fault = Fault::of("a.png=break");
  ASSERT_TRUE(fault);
  EXPECT_EQ(fault->path, "/a.png");
  EXPECT_FALSE(fault->status);
}

TEST(FaultTest, RefusesWhatIsNoRule) {
  for (const char* rule : {"", "=", "a", "=503", "a=", "a=50x", "a=199", "a=600", "a= 503",
                           "a=99999999999", "a=Break"}) {
    EXPECT_FALSE(Fault::of(rule)) << rule;
  }
}

}  // namespace
