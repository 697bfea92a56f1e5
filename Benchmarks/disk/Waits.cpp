// A library to be preloaded, which counts what a program and its children ask of the disk, and can
// make it slower:
//
//     LD_PRELOAD=libkivresource-waits.so KIVRESOURCE_WAITS=FILE [KIVRESOURCE_WAIT_MICROSECONDS=N]
//     ...
//
// FILE holds two counters of 64 bits, in the machine's order: the waits for the disk (fsync,
// fdatasync, syncfs, sync, sync_file_range with a wait, msync with MS_SYNC), and the renames onto
// resources_config.json. N is added to each wait. What does not go through the C library, such as
// io_uring, is not seen: the device's flushes tell of it.

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

namespace {

struct Counters {
  std::atomic<std::uint64_t> waits;
  std::atomic<std::uint64_t> listSaves;
};
static_assert(std::atomic<std::uint64_t>::is_always_lock_free, "processes share the counters");

Counters* mapCounters() {
  const char* name = std::getenv("KIVRESOURCE_WAITS");
  const int descriptor = name == nullptr ? -1 : ::open(name, O_RDWR | O_CLOEXEC);
  if (descriptor >= 0) {
    void* memory =
        ::mmap(nullptr, sizeof(Counters), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    ::close(descriptor);
    if (memory != MAP_FAILED) return static_cast<Counters*>(memory);
  }
  std::fputs("libkivresource-waits: KIVRESOURCE_WAITS names no file to count in\n", stderr);
  std::abort();
}

Counters& counters() {
  static Counters* const mapped = mapCounters();
  return *mapped;
}

void pauseAsOnASlowDisk() {
  static const long microseconds = [] {
    const char* text = std::getenv("KIVRESOURCE_WAIT_MICROSECONDS");
    return text == nullptr ? 0 : std::atol(text);
  }();
  if (microseconds == 0) return;
  timespec left{microseconds / 1000000, microseconds % 1000000 * 1000};
  while (::nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

template <class Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

/// Counts a wait, and calls the C library's function.
template <class Function, class... Arguments>
auto wait(const char* name, Arguments... arguments) {
  ++counters().waits;
  pauseAsOnASlowDisk();
  return next<Function>(name)(arguments...);
}

/// Counts the rename if it has succeeded.
int noteRename(int result, std::string_view target) {
  if (result == 0 && target.ends_with("resources_config.json")) ++counters().listSaves;
  return result;
}

}  // namespace

extern "C" {

int fsync(int descriptor) {
  return wait<decltype(::fsync)>("fsync", descriptor);
}

int fdatasync(int descriptor) {
  return wait<decltype(::fdatasync)>("fdatasync", descriptor);
}

int syncfs(int descriptor) noexcept {
  return wait<int(int)>("syncfs", descriptor);
}

void sync() noexcept {
  wait<void()>("sync");
}

int sync_file_range(int descriptor, off64_t offset, off64_t length, unsigned flags) {
  constexpr unsigned waits = SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WAIT_AFTER;
  using Function = int(int, off64_t, off64_t, unsigned);
  if ((flags & waits) != 0)
    return wait<Function>("sync_file_range", descriptor, offset, length, flags);
  return next<Function>("sync_file_range")(descriptor, offset, length, flags);
}

int msync(void* memory, size_t length, int flags) {
  using Function = int(void*, size_t, int);
  if ((flags & MS_SYNC) != 0) return wait<Function>("msync", memory, length, flags);
  return next<Function>("msync")(memory, length, flags);
}

int rename(const char* from, const char* to) noexcept {
  return noteRename(next<int(const char*, const char*)>("rename")(from, to), to);
}

int renameat(int fromDirectory, const char* from, int toDirectory, const char* to) noexcept {
  using Function = int(int, const char*, int, const char*);
  return noteRename(next<Function>("renameat")(fromDirectory, from, toDirectory, to), to);
}

int renameat2(int fromDirectory, const char* from, int toDirectory, const char* to,
              unsigned flags) noexcept {
  using Function = int(int, const char*, int, const char*, unsigned);
  return noteRename(next<Function>("renameat2")(fromDirectory, from, toDirectory, to, flags), to);
}

}  // extern "C"
