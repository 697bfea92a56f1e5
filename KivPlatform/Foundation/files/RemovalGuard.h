#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kiv::removal {

// The roots of the removal guard. Unless the host has set others, they are the directories whose
// contents the framework creates and removes itself. removeItem() in posix/PosixRemoval.h enforces
// them. Thread-safe.

/// While it lives, the private directory of a service is a root, for every thread.
class PrivateDirectory {
 public:
  explicit PrivateDirectory(std::string path);
  PrivateDirectory(const PrivateDirectory&) = delete;
  PrivateDirectory& operator=(const PrivateDirectory&) = delete;
  ~PrivateDirectory();

 private:
  const std::string path_;
};

/// The same until the process ends, since received bodies may outlive their client.
void addPrivateDirectory(std::string path);

/// While it lives, these directories are the framework's only roots on this thread. They are those
/// of one cache, so that removing a resource of that cache cannot remove a file of another.
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
