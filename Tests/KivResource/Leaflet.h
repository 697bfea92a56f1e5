#pragma once

#include <memory>
#include <string>
#include <vector>

#include "KivResource/KivResourceObject.h"

namespace kiv::test {

/// A kind of a host with one file, the link under "leaflet".
class Leaflet : public KivResource {
 public:
  static std::shared_ptr<KivResource> make(const Dictionary& dictionary,
                                           const std::string& engine) {
    return initialised(std::make_shared<Leaflet>(), dictionary, engine);
  }
  [[nodiscard]] bool filesExist() const override { return fileExistsAt(linkForKey("leaflet")); }
  [[nodiscard]] std::vector<std::string> missingFilesLinks() const override {
    return filesExist() ? std::vector<std::string>() : listOf(linkForKey("leaflet"));
  }
  [[nodiscard]] std::vector<std::string> useFilePaths() const override {
    return filesExist() ? listOf(linkForKey("leaflet")) : std::vector<std::string>();
  }
  void setPath(const std::string& path) override {
    recordPath_forKey(Value(path), "leaflet");
    noteChange();
  }

 protected:
  bool setUp(const Dictionary& dictionary, const std::string& engine) override {
    return KivResource::setUp(dictionary, engine) && hasString(dictionary, "leaflet");
  }
};

}  // namespace kiv::test
