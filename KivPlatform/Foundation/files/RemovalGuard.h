#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kiv::removal {

// The directories whose contents the framework creates and removes itself are the roots of the
// removal guard, unless the host has set others. removeItem() in posix/PosixRemoval.h enforces the
// roots. Thread-safe.

/// As long as it lives, the private directory of a service is a root, for every thread.
class PrivateDirectory {
 public:
  explicit PrivateDirectory(std::string path);
  PrivateDirectory(const PrivateDirectory&) = delete;
  PrivateDirectory& operator=(const PrivateDirectory&) = delete;
  ~PrivateDirectory();

 private:
  const std::string path_;
};

/// The same for as long as the process lives: received bodies may outlive their client.
void addPrivateDirectory(std::string path);

/// As long as it lives, these directories are the framework's only roots on this thread: those of
/// one cache, so that a resource of that cache cannot have a file of another one removed.
class Confinement {
 public:
  explicit Confinement(std::vector<std::string> directories);
  Confinement(const Confinement&) = delete;
  Confinement& operator=(const Confinement&) = delete;
  ~Confinement();

 private:
  const std::vector<std::string> directories_;
  const std::vector<std::string>* const former_;
};

/// Makes the framework's own directories the roots again.
void restoreOwnDirectories();
/// Sets the host's roots; std::nullopt turns the guard off.
void setRoots(std::optional<std::vector<std::string>> roots);
/// The roots for this thread now; nothing if the guard is off.
std::optional<std::vector<std::string>> roots();

}  // namespace kiv::removal
