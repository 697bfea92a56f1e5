#pragma once

#include "KivResource/KivResourceObject.h"

/// An HTML page: a single HTML file, or an archive that is unpacked to a folder with its name, in
/// which "index.html" is the page.
///
/// The resource dictionary has the page's link under "html" until the page is attached, then its
/// local path. This is not undone: if the page is deleted later, filesExist() is false, but
/// missingFilesLinks() and useFilePaths() depend on `fileIsLoaded` only.
class KIV_EXPORT KivResourceWeb : public KivResource {
 public:
  /// A page of the dictionary, or nullptr if the dictionary is not valid. Beyond the common keys it
  /// must have the string "html".
  static std::shared_ptr<KivResourceWeb> initWithDictionary_engine(
      const kiv::Dictionary& dictionary, const std::string& engine);

  /// True if the dictionary has the key of this kind; the common keys are not checked.
  [[nodiscard]] bool isValidResourceFullscreenDictionary(const kiv::Dictionary& dictionary) const;
  /// Those keys.
  static kiv::KindKeys requiredKeys();

  [[nodiscard]] bool filesExist() const override;
  [[nodiscard]] std::vector<std::string> missingFilesLinks() const override;
  [[nodiscard]] std::vector<std::string> useFilePaths() const override;
  void setPath(const std::string& path) override;
  [[nodiscard]] bool looksForOwnFilesOnly() const override;
  [[nodiscard]] std::optional<kiv::Value> valueForProperty(std::string_view name) const override;

  /// Local path of the page; nothing until it is attached.
  [[nodiscard]] std::optional<std::string> html() const { return optionalString(html_); }
  void setHtml(const std::optional<std::string>& html) {
    html_ = html;
    noteChange();
  }

  /// True once the page was seen on disk.
  [[nodiscard]] bool fileIsLoaded() const noexcept { return fileIsLoaded_; }
  void setFileIsLoaded(bool fileIsLoaded) noexcept {
    fileIsLoaded_ = fileIsLoaded;
    noteChange();
  }

 protected:
  KivResourceWeb() = default;
  bool setUp(const kiv::Dictionary& dictionary, const std::string& engine) override;
  [[nodiscard]] std::shared_ptr<KivResource> emptyInstance() const override;

 private:
  kiv::Value html_;
  bool fileIsLoaded_ = false;
};
