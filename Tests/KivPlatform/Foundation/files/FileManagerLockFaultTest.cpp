// Locks whose file cannot be examined. The system call is made to fail in a child process.

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

/// From now on lstat() fails in this process with that error. Cannot be undone.
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

/// Takes the lock in a child process where lstat() fails with `error`. Returns the error code of
/// the lock, or one of the two values above; -1 if the child did not exit.
int lockWhereLookingFailsWith(int error, const std::string& path) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);  // in case the lock is retried forever
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
