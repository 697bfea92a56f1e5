// Linux and macOS, and what other POSIX systems have in common with them.

#include "KivPlatform/Foundation/system/OperatingSystem.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <memory>
#include <pthread.h>
#include <pwd.h>
#include <string_view>
#include <syslog.h>
#include <unistd.h>
#include <vector>

#if defined(__linux__)
#include <sys/syscall.h>
#elif defined(__APPLE__)
#include <dlfcn.h>
#include <sys/sysctl.h>
#endif

#include "KivPlatform/Foundation/files/Path.h"

namespace kiv::system {

bool isMainThread() noexcept {
#if defined(__APPLE__)
  return pthread_main_np() != 0;
#else
  return syscall(SYS_gettid) == getpid();
#endif
}

void nameThisThread(const char* name) noexcept {
#if defined(__APPLE__)
  pthread_setname_np(name);
#else
  pthread_setname_np(pthread_self(), name);
#endif
}

void blockBrokenPipeSignalOnThisThread() noexcept {
  // Blocked, not ignored: the signal's disposition belongs to the host. A pending signal ends with
  // the thread.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

std::chrono::nanoseconds timeWithSleep() noexcept {
#if defined(CLOCK_BOOTTIME)
  constexpr clockid_t clock = CLOCK_BOOTTIME;
#else
  constexpr clockid_t clock = CLOCK_MONOTONIC;  // includes sleep on macOS
#endif
  timespec time{};
  ::clock_gettime(clock, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

std::chrono::nanoseconds processorTimeOfThisThread() noexcept {
  timespec time{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

std::string bootID() {
#if defined(__APPLE__)
  char text[64] = {};
  std::size_t size = sizeof text;
  return ::sysctlbyname("kern.bootsessionuuid", text, &size, nullptr, 0) == 0 ? text : "";
#else
  std::string identifier;
  std::ifstream("/proc/sys/kernel/random/boot_id") >> identifier;
  return identifier;
#endif
}

#if defined(__APPLE__)

std::optional<std::string> directoryOfThisLibrary() {
  Dl_info info{};
  const auto* const here = reinterpret_cast<const void*>(&directoryOfThisLibrary);
  if (dladdr(here, &info) == 0 || !info.dli_fname) return std::nullopt;
  // A relative name would be resolved against the current directory.
  if (*info.dli_fname != '/') return std::nullopt;
  const std::unique_ptr<char, decltype(&free)> resolved(realpath(info.dli_fname, nullptr), &free);
  if (!resolved) return std::nullopt;
  return std::string(path::deletingLastPathComponent(resolved.get()));
}

#else

namespace {

/// True if a line of /proc/self/maps, "start-end permissions ...", covers the address.
bool isMappingOf(std::uintptr_t address, std::string_view line) {
  std::uintptr_t start = 0;
  std::uintptr_t end = 0;
  const char* const last = line.data() + line.size();
  const auto first = std::from_chars(line.data(), last, start, 16);
  if (first.ec != std::errc() || first.ptr == last || *first.ptr != '-') return false;
  if (std::from_chars(first.ptr + 1, last, end, 16).ec != std::errc()) return false;
  return start <= address && address < end;
}

}  // namespace

// Not dladdr: in a static program it returns argv[0], which the caller chooses.
std::optional<std::string> directoryOfThisLibrary() {
  const auto here = reinterpret_cast<std::uintptr_t>(&directoryOfThisLibrary);
  std::ifstream mappings("/proc/self/maps");
  for (std::string line; std::getline(mappings, line);) {
    if (!isMappingOf(here, line)) continue;
    // The path is the last field, and the only one with a slash. If the file was replaced, "
    // (deleted)" follows its name.
    const auto path = line.find('/');
    if (path == std::string::npos) return std::nullopt;
    return std::string(path::deletingLastPathComponent(std::string_view(line).substr(path)));
  }
  return std::nullopt;
}

#endif

std::string programName() {
#if defined(__APPLE__)
  return getprogname();
#else
  return program_invocation_short_name;
#endif
}

namespace {

std::string absolutePathInEnvironment(const char* variable) {
  const char* const value = std::getenv(variable);
  return value && *value == '/' ? value : "";
}

std::string homeDirectory() {
  if (std::string home = absolutePathInEnvironment("HOME"); !home.empty()) return home;
  std::vector<char> buffer(16 * 1024);
  passwd record{};
  passwd* found = nullptr;
  getpwuid_r(getuid(), &record, buffer.data(), buffer.size(), &found);
  return found && found->pw_dir && *found->pw_dir == '/' ? found->pw_dir : "";
}

/// The directory that the variable names, or else the one under the user's home.
std::string userDirectory(const char* variable, std::string_view underHome) {
  if (std::string path = absolutePathInEnvironment(variable); !path.empty()) return path;
  const std::string home = homeDirectory();
  return home.empty() ? home : path::appendingPathComponent(home, underHome);
}

}  // namespace

std::string userDataDirectory() {
#if defined(__APPLE__)
  return userDirectory("", "Library/Application Support");
#else
  return userDirectory("XDG_DATA_HOME", ".local/share");
#endif
}

std::string userCacheDirectory() {
#if defined(__APPLE__)
  return userDirectory("", "Library/Caches");
#else
  return userDirectory("XDG_CACHE_HOME", ".cache");
#endif
}

void writeLog(const std::string& line) {
  syslog(LOG_USER | LOG_NOTICE, "%s", line.c_str());
}

}  // namespace kiv::system
