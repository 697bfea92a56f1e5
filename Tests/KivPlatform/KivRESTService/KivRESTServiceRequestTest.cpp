#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/KivRESTServiceErrors.h"
#include "KivPlatform/KivRESTService/KivRESTServiceRequest.h"

namespace {

using Headers = KivRESTServiceRequest::Headers;

class KivRESTServiceRequestTest : public testing::Test {
 protected:
  KivRESTServiceRequest request() {
    return {kiv::URL::fromString("http://ads.test/a?key=1").value(), 2, 1,
            [this](std::optional<Headers> headers, std::string refusal) {
              ++answers_;
              headers_ = std::move(headers);
              refusal_ = std::move(refusal);
            }};
  }

  std::atomic<int> answers_ = 0;
  std::optional<Headers> headers_;
  std::string refusal_;
};

TEST_F(KivRESTServiceRequestTest, TellsWhatIsAboutToBeSent) {
  const auto one = request();
  EXPECT_EQ(one.url().absoluteString(), "http://ads.test/a?key=1");
  EXPECT_EQ(one.tries(), 2);
  EXPECT_EQ(one.redirects(), 1);
  EXPECT_EQ(answers_, 0);
}

TEST_F(KivRESTServiceRequestTest, IsSentWithItsHeaders) {
  EXPECT_TRUE(request().send({{"A", "1"}, {"B", "2"}}));
  EXPECT_EQ(answers_, 1);
  ASSERT_TRUE(headers_ && headers_->size() == 2);
  EXPECT_EQ((*headers_)[1].name, "B");
  EXPECT_EQ((*headers_)[1].value, "2");
}

TEST_F(KivRESTServiceRequestTest, MayBeSentWithoutHeaders) {
  EXPECT_TRUE(request().send());
  ASSERT_TRUE(headers_);
  EXPECT_TRUE(headers_->empty());
}

TEST_F(KivRESTServiceRequestTest, OnlyTheFirstAnswerCounts) {
  {
    const auto one = request();
    EXPECT_TRUE(one.send({{"A", "1"}}));
    EXPECT_TRUE(one.send({{"A", "2"}}));
    one.refuse();
    EXPECT_FALSE(one.send({{"", "3"}}));
  }
  EXPECT_EQ(answers_, 1);
  ASSERT_TRUE(headers_);
  EXPECT_EQ(headers_->front().value, "1");
}

TEST_F(KivRESTServiceRequestTest, IsRefusedWithTheLastCopyAndNotBefore) {
  auto first = std::make_optional(request());
  auto second = first;
  first.reset();
  EXPECT_EQ(answers_, 0);
  second.reset();
  EXPECT_EQ(answers_, 1);
  EXPECT_FALSE(headers_);
  EXPECT_EQ(refusal_, "");
}

TEST_F(KivRESTServiceRequestTest, AHeaderThatMayNotBeAddedRefusesIt) {
  const auto one = request();
  const auto status = one.send({{"Authorization", "secret\r\n"}});
  ASSERT_FALSE(status);
  EXPECT_EQ(status.error().domain, KivRESTServiceErrorDomain);
  EXPECT_EQ(status.error().code, static_cast<int>(KivRESTServiceErrorCode::refusedRequest));
  EXPECT_EQ(status.error().localizedDescription(),
            "Could not load \"http://ads.test/a\": header 1 of the host has a control character in "
            "its value.");
  EXPECT_EQ(answers_, 1);
  EXPECT_FALSE(headers_);
  EXPECT_EQ(refusal_, "header 1 of the host has a control character in its value");
}

TEST_F(KivRESTServiceRequestTest, IsAnsweredOnceByManyThreads) {
  for (int round = 0; round < 100; ++round) {
    answers_ = 0;
    std::vector<std::thread> threads;
    {
      const auto one = request();
      threads.emplace_back([one] { one.refuse(); });
      threads.emplace_back([one] { EXPECT_TRUE(one.send()); });
      threads.emplace_back([one] { EXPECT_TRUE(one.send({{"A", "1"}})); });
      threads.emplace_back([one] {});
    }
    for (std::thread& thread : threads)
      thread.join();
    EXPECT_EQ(answers_, 1);
  }
}

}  // namespace
