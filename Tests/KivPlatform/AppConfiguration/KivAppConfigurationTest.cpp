#include <atomic>
#include <optional>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "KivPlatform/AppConfiguration/KivAppConfiguration.h"

namespace {

/// Restores the configuration of the process after the test.
class KivAppConfigurationTest : public testing::Test {
 protected:
  void TearDown() override {
    configuration_->setMainACSDomain(main_);
    configuration_->setReserveACSDomain(reserve_);
  }

  const std::shared_ptr<KivAppConfiguration> configuration_ = KivAppConfiguration::sharedInstance();

 private:
  const std::optional<std::string> main_ = configuration_->mainACSDomain();
  const std::optional<std::string> reserve_ = configuration_->reserveACSDomain();
};

TEST_F(KivAppConfigurationTest, IsOneObject) {
  ASSERT_TRUE(configuration_);
  EXPECT_EQ(configuration_, KivAppConfiguration::sharedInstance());
  std::shared_ptr<KivAppConfiguration> seenElsewhere;
  std::thread([&] { seenElsewhere = KivAppConfiguration::sharedInstance(); }).join();
  EXPECT_EQ(configuration_, seenElsewhere);
}

TEST_F(KivAppConfigurationTest, DomainsAreSetApartAndTakenBack) {
  configuration_->setMainACSDomain("http://main.example");
  configuration_->setReserveACSDomain(std::nullopt);
  EXPECT_EQ(configuration_->mainACSDomain(), "http://main.example");
  EXPECT_EQ(configuration_->reserveACSDomain(), std::nullopt);
  configuration_->setReserveACSDomain("http://reserve.example");
  configuration_->setMainACSDomain(std::nullopt);
  EXPECT_EQ(configuration_->mainACSDomain(), std::nullopt);
  EXPECT_EQ(configuration_->reserveACSDomain(), "http://reserve.example");
}

TEST_F(KivAppConfigurationTest, AnEmptyDomainIsNotAnAbsentOne) {
  configuration_->setMainACSDomain("");
  EXPECT_EQ(configuration_->mainACSDomain(), "");
}

TEST_F(KivAppConfigurationTest, DomainsAreKeptAsTheyWereGiven) {
  for (const char* const domain : {"ads.example", "HTTPS://Ads.Example/", " no url "}) {
    configuration_->setMainACSDomain(domain);
    EXPECT_EQ(configuration_->mainACSDomain(), domain);
  }
}

TEST_F(KivAppConfigurationTest, IsReadWholeWhileAnotherThreadChangesIt) {
  const std::string one(1000, 'a');
  const std::string other(2000, 'b');
  configuration_->setMainACSDomain(one);
  std::atomic<bool> done = false;
  std::thread writer([&] {
    for (int round = 0; round < 1000; ++round) {
      configuration_->setMainACSDomain(round % 2 == 0 ? other : one);
    }
    done = true;
  });
  bool alwaysWhole = true;
  while (!done) {
    const auto domain = configuration_->mainACSDomain();
    alwaysWhole = alwaysWhole && (domain == one || domain == other);
  }
  writer.join();
  EXPECT_TRUE(alwaysWhole);
}

}  // namespace
