#pragma once

#include "KivResource/KivResource.h"

namespace kiv::session {

/// The configuration that a call `follow` names, and how it is followed.
struct FollowedConfiguration {
  URL url;
  KivConfigurationUpdaterOptions options = {};

  /// Reads the members of the call. The error's message names the first one that is not valid.
  static Result<FollowedConfiguration> read(const Dictionary& call);
};

}  // namespace kiv::session
