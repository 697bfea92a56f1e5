// A lock whose file cannot be looked at. The system's call fails in a process of its own.

#include <array>
#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <string>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "KivPlatform/Foundation/files/FileManager.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace kiv {
namespace {

/// From now on, looking at an item by its path fails in this process with that error.
bool failToLook(int error) {
  const auto fail = SECCOMP_RET_ERRNO | static_cast<unsigned>(error);
  std::array filter{
      sock_filter BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_newfstatat, 0, 3),
      sock_filter BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[3])),
      sock_filter BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, AT_SYMLINK_NOFOLLOW, 0, 1),
      sock_filter BPF_STMT(BPF_RET | BPF_K, fail),
      sock_filter BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog program{filter.size(), filter.data()};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

constexpr int isLocked = 250;
constexpr int isNoTest = 251;

/// What comes of the lock in a process where looking fails with that error: the error of the lock,
/// or one of the two above; less than zero where the process does not come to an end.
int lockWhereLookingFailsWith(int error, const std::string& path) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);  // ends the process where the lock is tried for ever
    if (!failToLook(error)) _exit(isNoTest);
    const auto lock = FileManager::defaultManager().lockFileAtPath(path);
    _exit(lock ? isLocked : static_cast<int>(lock.error().code));
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child) return isNoTest;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(FileManagerLockFaultTest, AFileThatCannotBeLookedAtIsAnError) {
  const test::TemporaryDirectory directory;
  EXPECT_EQ(lockWhereLookingFailsWith(EACCES, directory.path("lock")), EACCES);
  EXPECT_TRUE(FileManager::defaultManager().lockFileAtPath(directory.path("lock")));
}

TEST(FileManagerLockFaultTest, AFileThatIsGoneEachTimeIsAnErrorToo) {
  const test::TemporaryDirectory directory;
  EXPECT_EQ(lockWhereLookingFailsWith(ENOENT, directory.path("lock")), ENOENT);
}

}  // namespace
}  // namespace kiv
