#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <random>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "Tests/KivPlatform/KivStorageService/StorageServiceFixture.h"
#include "Tests/KivPlatform/KivStorageService/WholeVersions.h"

extern char** environ;

namespace kiv::test {
namespace {

/// A running StorageWriter. The destructor kills it unless it was stopped.
class Writer {
 public:
  Writer(const std::string& root, const std::string& sort, const std::string& version) {
    int input[2];
    int output[2];
    // Close-on-exec, so that no other child keeps this one's standard input open.
    if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0)
      throw std::runtime_error("no pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    std::string words[] = {KIVRESOURCE_STORAGE_WRITER, root, sort, version};
    char* arguments[] = {words[0].data(), words[1].data(), words[2].data(), words[3].data(),
                         nullptr};
    if (posix_spawn(&process_, arguments[0], &actions, nullptr, arguments, environ) != 0) {
      throw std::runtime_error("cannot start " + words[0]);
    }
    posix_spawn_file_actions_destroy(&actions);
    ::close(input[0]);
    ::close(output[1]);
    input_ = input[1];
    output_ = output[0];
  }
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;
  ~Writer() {
    if (process_ > 0) kill();
  }

  /// Waits until its first save is done.
  bool isReady() const {
    char line[6] = {};
    return ::read(output_, line, sizeof line) == 6;
  }
  void kill() {
    ::kill(process_, SIGKILL);
    wait();
  }
  /// Closes its standard input and waits for it to exit. Returns the exit status.
  int stop() {
    ::close(std::exchange(input_, -1));
    return wait();
  }

 private:
  int wait() {
    int status = 0;
    waitpid(std::exchange(process_, -1), &status, 0);
    if (input_ >= 0) ::close(input_);
    ::close(output_);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  pid_t process_ = -1;
  int input_ = -1;
  int output_ = -1;
};

class StorageProcessesTest : public StorageServiceFixture {
 protected:
  /// True if the archive's directory contains exactly the files of one version.
  [[nodiscard]] bool holdsAWholeArchive() const {
    const Tree found = treeOf(stored("promo"));
    const std::string version = found.contains("index.html") ? found.at("index.html") : "";
    int files = 0;
    for (const auto& [path, bytes] : found) {
      if (path.ends_with('/')) continue;
      ++files;
      if (bytes != version) return false;
    }
    return files == filesOfAWholeArchive;
  }
  [[nodiscard]] bool holdsAWholeFile() const {
    const auto bytes = contents("a.bin");
    return bytes && isWholeFile(*bytes);
  }
};

/// Busy-waits for a short random time while the other process works, so that the kill hits a
/// different step in each round. The expected result does not depend on it.
void workForAWhile(std::mt19937& chance) {
  volatile std::uint64_t sum = 0;
  for (std::uint64_t i = chance() % 20'000'000; i > 0; --i)
    sum = sum + i;
}

TEST_F(StorageProcessesTest, KilledInTheMiddleOfSavesTheStoredIsWhole) {
  const auto seed = static_cast<std::uint32_t>(testing::UnitTest::GetInstance()->random_seed());
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 chance(seed);
  KivStorageService::setRootPath("");
  for (int round = 0; round < 24; ++round) {
    Writer writer(root(), round % 2 == 0 ? "archives" : "files", std::to_string(round) + ".");
    ASSERT_TRUE(writer.isReady());
    workForAWhile(chance);
    writer.kill();
    EXPECT_TRUE(round % 2 == 0 ? holdsAWholeArchive() : holdsAWholeFile()) << "round " << round;
    restart();
    EXPECT_EQ(temporaries(), Tree{}) << "round " << round;
    KivStorageService::setRootPath("");
  }
}

TEST_F(StorageProcessesTest, AStartLeavesAloneWhatALivingProcessIsWriting) {
  KivStorageService::setRootPath("");
  Writer writer(root(), "hold", "1");
  ASSERT_TRUE(writer.isReady());
  KivStorageService::setRootPath(root());
  EXPECT_FALSE(save("mine", "x"));
  restart();
  EXPECT_EQ(writer.stop(), 0) << "its temporary was gone";
  EXPECT_EQ(contents("held"), "half");
  restart();
  EXPECT_EQ(temporaries(), Tree{});
}

TEST_F(StorageProcessesTest, AStartSweepsWhatAKilledProcessWasWriting) {
  KivStorageService::setRootPath("");
  Writer writer(root(), "hold", "1");
  ASSERT_TRUE(writer.isReady());
  writer.kill();
  EXPECT_FALSE(temporaries().empty());
  KivStorageService::setRootPath(root());
  EXPECT_EQ(temporaries(), Tree{});
  EXPECT_TRUE(holdsAWholeFile());
}

TEST_F(StorageProcessesTest, TwoProcessesThatSaveTheSameNamesNeverMixThem) {
  for (const std::string sort : {"archives", "files"}) {
    KivStorageService::setRootPath("");
    Writer one(root(), sort, "one.");
    Writer other(root(), sort, "other.");
    ASSERT_TRUE(one.isReady());
    ASSERT_TRUE(other.isReady());
    for (int start = 0; start < 20; ++start)
      restart();  // stands for a third process, which only cleans up
    EXPECT_EQ(one.stop(), 0);
    EXPECT_EQ(other.stop(), 0);
    EXPECT_TRUE(sort == "files" ? holdsAWholeFile() : holdsAWholeArchive());
    restart();
    EXPECT_EQ(temporaries(), Tree{});
  }
}

TEST_F(StorageProcessesTest, ThreadsThatSaveTheSameNamesNeverMixThem) {
  std::vector<std::thread> threads;
  for (const std::string version : {"a", "b", "c", "d"}) {
    threads.emplace_back([version] {
      for (int i = 0; i < 10; ++i) {
        EXPECT_FALSE(save("promo.zip", wholeArchive(version + std::to_string(i))));
        EXPECT_FALSE(save("a.bin", wholeFile(version + std::to_string(i))));
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_TRUE(holdsAWholeArchive());
  EXPECT_TRUE(holdsAWholeFile());
  restart();
  EXPECT_EQ(temporaries(), Tree{});
}

}  // namespace
}  // namespace kiv::test
