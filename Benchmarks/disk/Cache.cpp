// Creates a storage root with restorable resources, those of kivresource-scale:
//
//     kivresource-disk-cache DIRECTORY COUNT
//
// The root is DIRECTORY/COUNT, and holds the configuration of its resources as config.json.

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <string>

#include "Benchmarks/scale/Workload.h"
#include "KivPlatform/Foundation/system/SystemLog.h"
#include "KivPlatform/Foundation/values/JSON.h"

int main(int count, char** arguments) {
  const std::size_t size = count == 3 ? std::strtoul(arguments[2], nullptr, 10) : 0;
  if (size == 0) {
    std::fputs("usage: kivresource-disk-cache DIRECTORY COUNT\n", stderr);
    return 2;
  }
  kiv::SystemLog::setHandler([](std::string_view) {});
  try {
    const kiv::bench::Workload workload(arguments[1], size);
    workload.putWholeList();
    std::ofstream config(std::string(arguments[1]) + "/" + std::to_string(size) + "/config.json",
                         std::ios::binary);
    config.exceptions(std::ios::failbit | std::ios::badbit);
    config << (*kiv::JSON::write(workload.config())).view();
    config.close();
    return 0;
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "kivresource-disk-cache: %s\n", exception.what());
    return 1;
  }
}
