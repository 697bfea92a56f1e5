// The program, with a server of the test.

#include <csignal>
#include <filesystem>

#include "Tests/Examples/service/ServiceFixture.h"
#include "Tests/Examples/service/ServiceProcess.h"
#include "Tests/Examples/service/WrongSettings.h"

namespace {

using namespace kiv::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;
using testing::StartsWith;

class ServiceProcessTest : public ServiceFixture {
 protected:
  /// Writes the settings, for a service that is to be started.
  std::vector<std::string> arguments() {
    return {scratch_.write("settings.json", kiv::JSON::toCompactString(settings_))};
  }
  /// Ends the service in order.
  static void expectEnd(ServiceProcess& service, int signal = SIGTERM) {
    service.sendSignal(signal);
    EXPECT_EQ(service.waitForExit(), 0) << service.log();
    EXPECT_THAT(service.log(), testing::EndsWith("<6>stopped\n"));
  }
};

TEST_F(ServiceProcessTest, LoadsPublishesAndEnds) {
  serveFile("a.png", "a");
  server_.serve("/c.json", configuration({banner("a")}));
  ServiceProcess service(arguments());
  ASSERT_TRUE(service.waitForLine("pass 1 done: 1 items, 1 added")) << service.log();
  expectEnd(service);
  EXPECT_THAT(service.log(), HasSubstr("<6>started in " + directory() + " with 0 resources\n"));
  // Also the lines of the framework have a priority.
  EXPECT_THAT(service.log(), HasSubstr("\n<5>"));
  EXPECT_THAT(index(), ElementsAre(Pair("a", stored("a.png"))));
  EXPECT_EQ(readFile(stored("a.png")), "a");

  ServiceProcess next(arguments());
  ASSERT_TRUE(next.waitForLine("started in " + directory() + " with 1 resources")) << next.log();
  ASSERT_TRUE(next.waitForLine("pass 1 done: 1 items, 1 unchanged")) << next.log();
  expectEnd(next, SIGINT);
  EXPECT_EQ(server_.requests("/files/a.png").size(), 1U);
}

TEST_F(ServiceProcessTest, ARotatedTokenIsUsedByBothClients) {
  settings_.set("tokenFile", scratch_.write("token", "secret-1\n"));
  serveFile("a.png", "a");
  serveFile("b.png", "b");
  server_.serve("/c.json", {configuration({banner("a")}), configuration({banner("b")})});
  ServiceProcess service(arguments());
  ASSERT_TRUE(service.waitForLine("pass 1 done")) << service.log();
  scratch_.write("token.next", "secret-2\n");
  std::filesystem::rename(scratch_.path("token.next"), scratch_.path("token"));
  service.sendSignal(SIGUSR1);
  ASSERT_TRUE(service.waitForLine("pass 2 done")) << service.log();
  expectEnd(service);
  const auto checks = server_.requests("/c.json");
  ASSERT_EQ(checks.size(), 2U);
  EXPECT_EQ(checks[0].header("Authorization"), "Bearer secret-1");
  EXPECT_EQ(checks[1].header("Authorization"), "Bearer secret-2");
  EXPECT_EQ(server_.requests("/files/a.png").at(0).header("Authorization"), "Bearer secret-1");
  EXPECT_EQ(server_.requests("/files/b.png").at(0).header("Authorization"), "Bearer secret-2");
  EXPECT_THAT(service.log(), HasSubstr("<6>the token has changed\n"));
  EXPECT_THAT(service.log(), Not(HasSubstr("secret")));
}

TEST_F(ServiceProcessTest, ARedirectToAnotherOriginGetsNoToken) {
  LoopbackServer other;
  other.serve("/a.png", Response::ok("a"));
  other.serve("/c.json", configuration({banner("a")}));
  settings_.set("tokenFile", scratch_.write("token", "secret"));
  server_.serve("/c.json", Response::redirect(302, other.url("/c.json")));
  server_.serve("/files/a.png", Response::redirect(307, other.url("/a.png")));
  ServiceProcess service(arguments());
  ASSERT_TRUE(service.waitForLine("pass 1 done: 1 items, 1 added")) << service.log();
  expectEnd(service);
  ASSERT_EQ(other.requests().size(), 2U);
  for (const auto& request : other.requests())
    EXPECT_EQ(request.header("Authorization"), std::nullopt) << request.path;
  for (const auto& request : server_.requests())
    EXPECT_EQ(request.header("Authorization"), "Bearer secret") << request.path;
  EXPECT_THAT(service.log(), Not(HasSubstr("secret")));
}

TEST_F(ServiceProcessTest, AHeldServiceAsksNobodyUntilItIsTold) {
  scratch_.write("service/hold", "");
  serveFile("a.png", "a");
  server_.serve("/c.json", configuration({banner("a")}));
  ServiceProcess service(arguments());
  ASSERT_TRUE(service.waitForLine("downloads are held")) << service.log();
  EXPECT_THAT(server_.requests(), IsEmpty());
  std::filesystem::remove(directory() + "/hold");
  service.sendSignal(SIGUSR1);
  ASSERT_TRUE(service.waitForLine("pass 1 done: 1 items, 1 added")) << service.log();
  expectEnd(service);
}

TEST_F(ServiceProcessTest, AHeldServiceEnds) {
  scratch_.write("service/hold", "");
  ServiceProcess service(arguments());
  ASSERT_TRUE(service.waitForLine("downloads are held")) << service.log();
  expectEnd(service);
  EXPECT_THAT(server_.requests(), IsEmpty());
}

TEST_F(ServiceProcessTest, HangUpFetchesWhatHasChanged) {
  server_.serve("/files/a.png", {Response::ok("old").header("ETag", "\"1\""),
                                 Response::ok("new").header("ETag", "\"2\"")});
  server_.serve("/c.json", configuration({banner("a")}));
  ServiceProcess service(arguments());
  ASSERT_TRUE(service.waitForLine("pass 1 done")) << service.log();
  service.sendSignal(SIGHUP);
  ASSERT_TRUE(service.waitForLine("<6>replaced: " + stored("a.png"))) << service.log();
  ASSERT_TRUE(service.waitForLine("revalidation done: 1 files, 1 replaced")) << service.log();
  EXPECT_EQ(readFile(stored("a.png")), "new");
  EXPECT_EQ(server_.requests("/files/a.png").at(1).header("If-None-Match"), "\"1\"");
  expectEnd(service);
}

TEST_F(ServiceProcessTest, EndsWhileAFileHangs) {
  const Gate gate;
  serveFile("a.png", "a");
  server_.serve("/files/b.png", Response::ok("b").after(gate));
  server_.serve("/c.json", configuration({banner("a"), banner("b")}));
  ServiceProcess service(arguments());
  ASSERT_TRUE(server_.waitForRequests("/files/b.png", 1));
  expectEnd(service);
}

TEST_F(ServiceProcessTest, EndsWhileTheConfigurationHangs) {
  server_.serve("/c.json", configuration({banner("a")}).stallAt(3));
  ServiceProcess service(arguments());
  ASSERT_TRUE(server_.waitForRequests("/c.json", 1));
  expectEnd(service, SIGINT);
}

TEST_F(ServiceProcessTest, EndsWhileARevalidationHangs) {
  const Gate gate;
  server_.serve("/files/a.png", {Response::ok("old"), Response::ok("new").after(gate)});
  server_.serve("/c.json", configuration({banner("a")}));
  ServiceProcess service(arguments());
  ASSERT_TRUE(service.waitForLine("pass 1 done")) << service.log();
  service.sendSignal(SIGHUP);
  ASSERT_TRUE(server_.waitForRequests("/files/a.png", 2));
  expectEnd(service);
  EXPECT_THAT(service.log(), HasSubstr("revalidation stopped"));
  EXPECT_EQ(readFile(stored("a.png")), "old");
}

TEST_F(ServiceProcessTest, AKilledServiceGoesOn) {
  const Gate gate;
  serveFile("a.png", "a");
  server_.serve("/files/b.png", {Response::ok("b").after(gate), Response::ok("b")});
  server_.serve("/c.json", configuration({banner("a"), banner("b")}));
  {
    ServiceProcess service(arguments());
    ASSERT_TRUE(server_.waitForRequests("/files/b.png", 1));
    service.sendSignal(SIGKILL);
    EXPECT_EQ(service.waitForExit(), std::nullopt);
  }
  ServiceProcess service(arguments());
  ASSERT_TRUE(service.waitForLine("pass 1 done: 2 items")) << service.log();
  expectEnd(service);
  EXPECT_THAT(index(), testing::UnorderedElementsAre(Pair("a", stored("a.png")),
                                                     Pair("b", stored("b.png"))));
  EXPECT_EQ(readFile(stored("a.png")) + readFile(stored("b.png")), "ab");
}

TEST_F(ServiceProcessTest, TheLimitIsKeptAfterEachPass) {
  settings_.set("limit", 1);
  serveFile("a.png", "a");
  serveFile("b.png", "b");
  server_.serve("/c.json",
                {configuration({banner("a"), banner("b")}), configuration({banner("b")})});
  ServiceProcess service(arguments());
  ASSERT_TRUE(service.waitForLine("pass 1 done")) << service.log();
  service.sendSignal(SIGUSR1);
  ASSERT_TRUE(service.waitForLine("<6>trim: 0 resources and 1 files removed")) << service.log();
  expectEnd(service);
  EXPECT_FALSE(std::filesystem::exists(stored("a.png")));
  EXPECT_THAT(index(), ElementsAre(Pair("b", stored("b.png"))));
}

TEST_F(ServiceProcessTest, ADirectoryHasOneService) {
  server_.serve("/c.json", configuration({}));
  ServiceProcess service(arguments());
  ASSERT_TRUE(service.waitForLine("check updated")) << service.log();
  ServiceProcess second(arguments());
  EXPECT_EQ(second.waitForExit(), 1);
  EXPECT_EQ(second.log(), "<3>another service uses the directory " + directory() + "\n");
  expectEnd(service);
}

TEST_F(ServiceProcessTest, WrongSettingsEndItWithTwo) {
  for (const auto& wrong : wrongSettings(directory())) {
    const auto path = scratch_.write("settings.json", wrong.text);
    ServiceProcess service({path});
    EXPECT_EQ(service.waitForExit(), 2) << wrong.text;
    EXPECT_THAT(service.log(), StartsWith("<3>" + path + ": ")) << wrong.text;
    EXPECT_THAT(service.log(), HasSubstr(wrong.message)) << wrong.text;
  }
  EXPECT_FALSE(std::filesystem::exists(directory()));
}

TEST_F(ServiceProcessTest, WrongArgumentsEndItWithTwo) {
  const std::vector<std::vector<std::string>> wrong{
      {}, {scratch_.path("missing.json")}, {scratch_.path()}, {"a.json", "b.json"}};
  for (const auto& words : wrong) {
    ServiceProcess service(words);
    EXPECT_EQ(service.waitForExit(), 2);
    EXPECT_THAT(service.log(), StartsWith("<3>"));
  }
}

}  // namespace
