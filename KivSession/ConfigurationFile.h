#pragma once

#include <string>

#include "KivPlatform/Foundation/values/Result.h"
#include "KivPlatform/Foundation/values/Value.h"

namespace kiv::session {

/// Reads the configuration from the file at the path, which may name a pipe. The error's message is
/// one line that begins with the path; for invalid JSON it has line and column. What has no array
/// "items" is no configuration.
Result<Value> readConfigurationFile(const std::string& path);
/// The same, but nothing else than a regular file: a session must not wait for a pipe or a device
/// that has no end.
Result<Value> readRegularConfigurationFile(const std::string& path);

/// The same from an open descriptor, to its end. `name` stands for the path in the message.
Result<Value> readConfiguration(int descriptor, const std::string& name);

}  // namespace kiv::session
