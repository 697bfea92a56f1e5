#pragma once

#include "KivResource/KivResourceObject.h"

/// An image banner: a market link and one image file.
///
/// The resource dictionary has the image's link until the image is attached, then its local path.
/// This is not undone: if the image is deleted later, filesExist() is false, but
/// missingFilesLinks() and useFilePaths() depend on `fileIsLoaded` only.
class KIV_EXPORT KivResourceStandard : public KivResource {
 public:
  /// A banner of the dictionary, or nullptr if the dictionary is not valid. Beyond the common keys
  /// it must have the strings "market_url" and "image_728x90".
  static std::shared_ptr<KivResourceStandard> initWithDictionary_engine(
      const kiv::Dictionary& dictionary, const std::string& engine);

  /// True if the dictionary has the keys of this kind; the common keys are not checked.
  [[nodiscard]] bool isValidResourceStandardDictionary(const kiv::Dictionary& dictionary) const;
  /// Those keys, with the usual image.
  static kiv::KindKeys requiredKeys();
  /// Chooses the image that this resource uses: sets `requiredImageField`.
  virtual void setRequiredFieldsForResource();

  [[nodiscard]] bool filesExist() const override;
  [[nodiscard]] std::vector<std::string> missingFilesLinks() const override;
  [[nodiscard]] std::vector<std::string> useFilePaths() const override;
  void setPath(const std::string& path) override;
  [[nodiscard]] bool looksForOwnFilesOnly() const override;
  [[nodiscard]] std::optional<kiv::Value> valueForProperty(std::string_view name) const override;

  /// The link to the market, for the host; never downloaded.
  [[nodiscard]] std::string marketLink() const { return marketLink_.string(); }
  void setMarketLink(std::string_view marketLink) { marketLink_ = marketLink; }

  /// Local path of the image; nothing until it is attached.
  [[nodiscard]] std::optional<std::string> image() const { return optionalString(image_); }
  void setImage(const std::optional<std::string>& image) {
    image_ = image;
    noteChange();
  }

  /// True once the image was seen on disk.
  [[nodiscard]] bool fileIsLoaded() const noexcept { return fileIsLoaded_; }
  void setFileIsLoaded(bool fileIsLoaded) noexcept {
    fileIsLoaded_ = fileIsLoaded;
    noteChange();
  }

  /// The resource dictionary's key of the selected image.
  [[nodiscard]] std::string requiredImageField() const { return requiredImageField_.string(); }
  void setRequiredImageField(std::string_view field) { requiredImageField_ = field; }

 protected:
  KivResourceStandard() = default;
  bool setUp(const kiv::Dictionary& dictionary, const std::string& engine) override;
  [[nodiscard]] std::shared_ptr<KivResource> emptyInstance() const override;

 private:
  kiv::Value marketLink_;
  kiv::Value image_;
  bool fileIsLoaded_ = false;
  kiv::Value requiredImageField_;
};
