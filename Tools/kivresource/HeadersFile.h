#pragma once

#include <optional>
#include <string>
#include <vector>

#include "KivResource/KivResource.h"
#include "Tools/kivresource/Options.h"

namespace tool {

/// The headers of the file that --headers names, and the servers that may see them. They are read
/// from a file, since the arguments of a process can be seen by others.
class HeadersFile {
 public:
  /// Reads the file; no headers if none is named. Returns nothing and prints a line to standard
  /// error, without any part of a header, if the file cannot be read or has a wrong line.
  static std::optional<HeadersFile> read(const Options& options);

  /// Lets the client add the headers to its requests to the main server, the reserve server and,
  /// for watch, the server of the configuration, and to no others. Without headers it does nothing.
  void addTo(KivRESTService& client) const;

 private:
  KivRESTServiceRequest::Headers headers_;
  std::vector<std::string> origins_;
};

}  // namespace tool
