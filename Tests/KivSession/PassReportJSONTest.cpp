// What a host sends as credentials is not in what it is told of a pass, nor in what the pass
// leaves.

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/values/JSON.h"
#include "KivResource/KivResourceRESTModule.h"
#include "KivSession/PassReportJSON.h"
#include "Tests/KivResource/RealClientFixture.h"
#include "Tests/KivResource/passes/PassReportFixture.h"
#include "Tests/Support/Secrets.h"

namespace kiv::test {
namespace {

const std::string token = "t0ken-of-the-host";
const std::string password = "pa55word";

class PassReportJSONTest : public WithReports<RealClientFixture> {
 protected:
  PassReportJSONTest() {
    useServer("http://user:" + password + "@" + server.url().substr(sizeof "http://" - 1));
    manager->loader()->restService()->setRequestHandler([](const KivRESTServiceRequest& request) {
      EXPECT_TRUE(request.send({{"Authorization", "Bearer " + token}}));
    });
  }
};

TEST_F(PassReportJSONTest, HoldsNoCredentials) {
  server.serve("/good.png", Response::ok("1234"));
  server.serve(
      "/cut.mp4",
      Response::ok(std::string(3'000'000, 'v')).header("ETag", "\"1\"").closeAt(2'000'000));
  server.serve("/lost.png", Response::redirect(302, "http://user:" + password + "@127.0.0.1:1/"));
  follow(KivResourcePass::update(
      config({banner("good", 1, "good.png"), banner("no", 1, "no.png"),
              banner("lost", 1, "lost.png"), video("cut", 1, "good.png", "cut.mp4")})));
  ASSERT_TRUE(waitForFinishes());
  const auto report = takeReport();
  EXPECT_EQ(report.count(KivResourcePassEntryOutcome::failed), 3U);
  for (const Request& request : server.requests())
    EXPECT_EQ(request.header("Authorization"), "Bearer " + token);
  const std::vector<std::string> secrets{token, password};
  const std::string line = JSON::toCompactString(session::passReportLine(report, {}));
  EXPECT_NE(line.find("failedTries"), std::string::npos);
  expectNoSecret(secrets, line, "the line");
  for (const std::string& logged : log.lines())
    expectNoSecret(secrets, logged, "the log");
  for (const std::string& event : observer->events)
    expectNoSecret(secrets, event, "an event");
  expectNoSecretOnDisk(secrets, root());
}

}  // namespace
}  // namespace kiv::test
