// Tests retry failed transfers at once. The delays between attempts are tested separately.

#include <gtest/gtest.h>

#include "KivPlatform/KivRESTService/KivRESTService.h"
#include "KivPlatform/KivRESTService/policy/TransferSettings.h"

namespace {

class QuickRetries : public testing::Environment {
 public:
  void SetUp() override {
    kiv::TransferSettings settings;
    settings.firstRetryDelay = std::chrono::milliseconds(0);
    kiv::setDefaultTransferSettings(settings);
  }
};

[[maybe_unused]] const auto* const environment =
    testing::AddGlobalTestEnvironment(new QuickRetries);

}  // namespace
