// A lock guards the domains: the manager's queue reads them for each download, and any thread may
// set them.

#include "KivPlatform/AppConfiguration/KivAppConfiguration.h"

#include <utility>

#include "KivPlatform/Foundation/Mutex.h"

std::shared_ptr<KivAppConfiguration> KivAppConfiguration::sharedInstance() {
  // Never destroyed: a download may still read it while the process exits.
  static auto& instance = *new std::shared_ptr<KivAppConfiguration>(new KivAppConfiguration);
  return instance;
}

std::optional<std::string> KivAppConfiguration::mainACSDomain() const {
  const kiv::MutexLock lock(mutex_);
  return mainDomain_;
}

void KivAppConfiguration::setMainACSDomain(std::optional<std::string> domain) {
  const kiv::MutexLock lock(mutex_);
  mainDomain_ = std::move(domain);
}

std::optional<std::string> KivAppConfiguration::reserveACSDomain() const {
  const kiv::MutexLock lock(mutex_);
  return reserveDomain_;
}

void KivAppConfiguration::setReserveACSDomain(std::optional<std::string> domain) {
  const kiv::MutexLock lock(mutex_);
  reserveDomain_ = std::move(domain);
}
