#pragma once

#include "KivPlatform/Foundation/values/StringList.h"
#include "KivResource/KivResourceObject.h"

/// A video promotion: a title, a market link, votes and a rating for the host to show, and two
/// files, an icon and a video.
///
/// The link of a file that is missing is in `fileLinks`. When the file is attached, its local path
/// is added to `filePaths`, to its property, and to the resource dictionary instead of the link.
/// This is not undone: if a file is deleted later, filesExist() is false, but the two lists do not
/// change.
class KIV_EXPORT KivResourceVideo : public KivResource {
 public:
  /// A promotion of the dictionary, or nullptr if the dictionary is not valid. Beyond the common
  /// keys it must have the strings "title", "market_url", "image" and "video_file_landscape".
  static std::shared_ptr<KivResourceVideo> initWithDictionary_engine(
      const kiv::Dictionary& dictionary, const std::string& engine);

  /// True if the dictionary has the keys of this kind; the common keys are not checked.
  [[nodiscard]] bool isValidResourceVideoDictionary(const kiv::Dictionary& dictionary) const;
  /// Those keys, with the usual video.
  static kiv::KindKeys requiredKeys();
  /// Chooses the video that this resource uses: sets `requiredVideoField`.
  virtual void selectRequiredVideoField();

  [[nodiscard]] bool filesExist() const override;
  [[nodiscard]] std::vector<std::string> missingFilesLinks() const override;
  [[nodiscard]] std::vector<std::string> useFilePaths() const override;
  void setPath(const std::string& path) override;
  [[nodiscard]] bool looksForOwnFilesOnly() const override;
  [[nodiscard]] std::optional<kiv::Value> valueForProperty(std::string_view name) const override;

  /// Replaces `fileLinks` by a list without the links that end with the string, even within a
  /// longer name. Does nothing if there is none.
  void removeLinkForFileName(const std::string& fileName);
  /// Appends the path to `filePaths`, unless the list contains it.
  void addPath(const std::string& path);

  /// The title, for the host.
  [[nodiscard]] std::string title() const { return title_.string(); }
  void setTitle(std::string_view title) { title_ = title; }

  /// The link to the market, for the host; never downloaded.
  [[nodiscard]] std::string marketLink() const { return marketLink_.string(); }
  void setMarketLink(std::string_view marketLink) { marketLink_ = marketLink; }

  /// Local path of the icon; nothing until it is attached.
  [[nodiscard]] std::optional<std::string> icon() const { return optionalString(icon_); }
  void setIcon(const std::optional<std::string>& icon) { icon_ = icon; }

  /// Local path of the selected video; nothing until it is attached.
  [[nodiscard]] std::optional<std::string> video() const { return optionalString(video_); }
  void setVideo(const std::optional<std::string>& video) { video_ = video; }

  /// The number of votes; 0 if the dictionary has no number.
  [[nodiscard]] std::uint64_t votes() const noexcept { return votes_; }
  void setVotes(std::uint64_t votes) noexcept { votes_ = votes; }

  /// The rating in single precision: 4.7 is 4.699999809265137. 0.0 if the dictionary has no number.
  [[nodiscard]] double rating() const noexcept { return rating_; }
  void setRating(double rating) noexcept { rating_ = rating; }

  /// Links of the missing files: the icon's, then the video's. May be changed in place. The setter
  /// does not copy; nullptr means an empty list.
  [[nodiscard]] const std::shared_ptr<kiv::StringList>& fileLinks() const noexcept {
    return fileLinks_;
  }
  void setFileLinks(std::shared_ptr<kiv::StringList> fileLinks) noexcept {
    fileLinks_ = std::move(fileLinks);
  }

  /// Local paths of the attached files, in the order of attachment. May be changed in place. The
  /// setter does not copy; nullptr means an empty list.
  [[nodiscard]] const std::shared_ptr<kiv::StringList>& filePaths() const noexcept {
    return filePaths_;
  }
  void setFilePaths(std::shared_ptr<kiv::StringList> filePaths);

  /// Also reports changes of the list `filePaths`.
  void setOnChange(const std::shared_ptr<kiv::ChangeFlag>& flag) override;

  /// The resource dictionary's key of the selected video.
  [[nodiscard]] std::string requiredVideoField() const { return requiredVideoField_.string(); }
  void setRequiredVideoField(std::string_view field) { requiredVideoField_ = field; }

 protected:
  KivResourceVideo() = default;
  bool setUp(const kiv::Dictionary& dictionary, const std::string& engine) override;
  [[nodiscard]] std::shared_ptr<KivResource> emptyInstance() const override;

 private:
  void addPathValue(const kiv::Value& path);
  /// The local path of a file that exists; otherwise null, and the link is added to `fileLinks`.
  kiv::Value findFile(const kiv::Value& pathOrLink);
  /// Attaches a stored file under its key of the dictionary; `property` is its icon or video.
  void takeFile_forKey(const kiv::Value& path, std::string_view key, kiv::Value& property);

  kiv::Value title_;
  kiv::Value marketLink_;
  kiv::Value icon_;
  kiv::Value video_;
  std::uint64_t votes_ = 0;
  double rating_ = 0;
  std::shared_ptr<kiv::StringList> fileLinks_;
  std::shared_ptr<kiv::StringList> filePaths_;
  kiv::Value requiredVideoField_;
};
