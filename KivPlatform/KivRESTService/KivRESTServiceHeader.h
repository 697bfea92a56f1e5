#pragma once

#include <string>

/// A header field of a request.
struct KivRESTServiceHeader {
  std::string name;
  std::string value;
};
