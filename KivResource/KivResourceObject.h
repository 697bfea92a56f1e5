#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/ChangeFlag.h"
#include "KivPlatform/Foundation/values/Value.h"

namespace kiv {

/// The keys that a kind requires in a resource dictionary, beyond the common ones.
struct KindKeys {
  std::vector<std::string_view> strings;  ///< Each must hold a string.
  std::vector<std::string_view> files;  ///< Those of the strings that are links or paths of files.
};

}  // namespace kiv

/// One advertising resource: the fields that all kinds share, the dictionary that describes it, and
/// the operations through which the manager brings its files.
///
/// A resource is created from a resource dictionary and keeps a copy of it as its persistent form.
/// When a file has been stored, the kind replaces the link in that dictionary by the file's local
/// path. Saved lists and copies are made of the dictionary only, so a property that is set without
/// changing the dictionary is neither saved nor copied. This class itself needs no files and is
/// complete from the start; a kind that needs files overrides the file operations.
///
/// Queue: a resource has no lock and belongs to no queue. Only one thread may use a resource while
/// it changes. The manager changes a resource only while its files load, on the manager's queue.
/// Once the manager has announced a resource as complete, several threads may read it: an operation
/// that has nothing to change writes nothing, not even the same value.
///
/// To derive a kind, override setUp() and the file operations, and valueForProperty() for its
/// properties. Add an operation that returns `initialised(std::make_shared<Kind>(), dictionary,
/// engine)`. A kind without a public default constructor must also override emptyInstance(), so
/// that it can be copied. Overrides must not throw.
///
/// The registry has indexes of identifiers, types and file names, which it updates after
/// noteChange(). So a kind must call noteChange() whenever the result of its useFilePaths()
/// changes. The setters of identifier and type do so themselves; the indexes use these fields, not
/// an override of valueForProperty().
class KIV_EXPORT KivResource {
 public:
  /// A resource of the dictionary, or nullptr if the dictionary is not valid. `engine` is the
  /// string that chose the kind; it is not read from the dictionary. Nothing is logged.
  static std::shared_ptr<KivResource> initWithDictionary_engine(const kiv::Dictionary& dictionary,
                                                                const std::string& engine);

  /// True if the dictionary has what every resource needs: the strings "name", "type" and
  /// "banner_id", the numbers "priority" and "updated". Booleans count as numbers.
  static bool isValidResourceDictionary(const kiv::Dictionary& dictionary);
  /// The keys of those strings and numbers.
  static constexpr std::array<std::string_view, 3> requiredStrings = {"name", "type", "banner_id"};
  static constexpr std::array<std::string_view, 2> requiredNumbers = {"priority", "updated"};

  KivResource(const KivResource&) = delete;
  KivResource& operator=(const KivResource&) = delete;
  virtual ~KivResource();

  /// True if all files of the resource exist on disk now.
  [[nodiscard]] virtual bool filesExist() const;
  /// The links of the files that are still missing, as in the dictionary. The last path component
  /// of a link is the name under which its file is stored.
  [[nodiscard]] virtual std::vector<std::string> missingFilesLinks() const;
  /// The local paths of the files that the resource uses.
  [[nodiscard]] virtual std::vector<std::string> useFilePaths() const;
  /// Attaches the file at the absolute path, which was found or stored for one of the links. A path
  /// that belongs to none of the links, or at which there is no file, is ignored.
  virtual void setPath(const std::string& path);
  /// True if the operations above look for no other files than those of useFilePaths(), and
  /// setPath() for the one that it is given. Otherwise the manager saves the list, and removes the
  /// files of replaced versions, before it calls them, which takes longer.
  ///
  /// A derived class may look for other files, so a class answers for itself alone: it compares
  /// `typeid(*this)` with its own type. A kind that does not override this gets false.
  [[nodiscard]] virtual bool looksForOwnFilesOnly() const;

  /// A new resource of the same class, created from the current dictionary and engine; nullptr if
  /// the dictionary is no longer valid, or the class cannot be copied. `options`, and properties
  /// that are not in the dictionary, are not copied. The argument is ignored.
  [[nodiscard]] virtual std::shared_ptr<KivResource> copyWithZone(void* zone = nullptr) const;
  /// True if copyWithZone() can create an instance of this class: with its emptyInstance(), or with
  /// its default constructor if initialised() was called for the class.
  [[nodiscard]] bool isCopyable() const;

  /// The value of the property of that name, which may be null; nothing if the class has no such
  /// property.
  [[nodiscard]] virtual std::optional<kiv::Value> valueForProperty(std::string_view name) const;

  /// Adds a flag that each later change of identifier, type or file paths sets. It is held weakly.
  /// A registry calls this before it adds the resource. A kind that returns mutable lists of its
  /// paths overrides this, and calls the base's.
  virtual void setOnChange(const std::shared_ptr<kiv::ChangeFlag>& flag) { changeFlags_.add(flag); }

  /// Name of the resource, for the host.
  [[nodiscard]] std::string name() const { return name_.string(); }
  void setName(std::string_view name) { name_ = name; }

  /// Category of the resource, by which passes and queries can select.
  [[nodiscard]] std::string type() const { return type_.string(); }
  void setType(std::string_view type) {
    type_ = type;
    noteChange();
  }

  /// The string that chose the kind.
  [[nodiscard]] std::string engine() const { return engine_.string(); }
  void setEngine(std::string_view engine) { engine_ = engine; }

  /// Identifier, which the versions of one resource share.
  [[nodiscard]] std::string resourceID() const { return resourceID_.string(); }
  void setResourceID(std::string_view resourceID) {
    resourceID_ = resourceID;
    noteChange();
  }

  /// Another identifier, for the host; "undefined" if the dictionary has none.
  [[nodiscard]] std::string uid() const { return uid_.string(); }
  void setUid(std::string_view uid) { uid_ = uid; }

  /// Priority of the resource's downloads; the largest comes first.
  [[nodiscard]] std::uint64_t priority() const noexcept { return priority_; }
  void setPriority(std::uint64_t priority) noexcept { priority_ = priority; }

  /// Version stamp: of two resources with one identifier, the one with the greater stamp is newer.
  [[nodiscard]] std::uint64_t updated() const noexcept { return updated_; }
  void setUpdated(std::uint64_t updated) noexcept { updated_ = updated; }
  /// True if this is a newer version than `other`; false if the stamps are equal.
  [[nodiscard]] bool isNewerThan(const KivResource& other) const noexcept {
    return updated_ > other.updated_;
  }

  /// The persistent form, which may be changed in place. The setter does not copy; nullptr means an
  /// empty dictionary.
  [[nodiscard]] const std::shared_ptr<kiv::Dictionary>& resourceDictionary() const noexcept {
    return resourceDictionary_;
  }
  void setResourceDictionary(std::shared_ptr<kiv::Dictionary> dictionary) noexcept {
    resourceDictionary_ = std::move(dictionary);
  }

  /// For the host's use; nullptr until the host sets it. Neither copied nor saved.
  [[nodiscard]] const std::shared_ptr<kiv::Dictionary>& options() const noexcept {
    return options_;
  }
  void setOptions(std::shared_ptr<kiv::Dictionary> options) noexcept {
    options_ = std::move(options);
  }

 protected:
  /// An instance without contents, to be set up.
  KivResource();

  /// Initialises a new instance from the dictionary; false if the dictionary is not valid, and the
  /// instance is discarded. An override calls the base's first.
  virtual bool setUp(const kiv::Dictionary& dictionary, const std::string& engine);

  /// A new empty instance of the same class. Not needed for a class with a public default
  /// constructor.
  [[nodiscard]] virtual std::shared_ptr<KivResource> emptyInstance() const;

  /// Calls setUp() of the new instance. Returns the instance, or nullptr if that failed.
  template <class Kind>
  static std::shared_ptr<Kind> initialised(std::shared_ptr<Kind> resource,
                                           const kiv::Dictionary& dictionary,
                                           const std::string& engine) {
    if constexpr (std::is_default_constructible_v<Kind>) {
      [[maybe_unused]] static const bool isKnown = noteConstructor(typeid(Kind), &construct<Kind>);
    }
    KivResource& base = *resource;
    return base.setUp(dictionary, engine) ? std::move(resource) : nullptr;
  }

  /// True if the dictionary holds a string under the key.
  static bool hasString(const kiv::Dictionary& dictionary, std::string_view key);
  /// True if a regular file exists at the path, as KivResourceLookup finds it; false for null.
  static bool fileExistsAt(const kiv::Value& path);
  /// A list with the string, or an empty list if it is null.
  static std::vector<std::string> listOf(const kiv::Value& string);
  /// The string, or nothing if it is null.
  static std::optional<std::string> optionalString(const kiv::Value& string);

  /// The dictionary's value of the key: null, a link, or the local path that replaced it.
  [[nodiscard]] const kiv::Value& linkForKey(std::string_view key) const;
  /// Replaces the link under the key by a local path, unless it is there already.
  void recordPath_forKey(const kiv::Value& path, std::string_view key);

  /// Sets a field and reports the change, unless the field has that value already.
  template <class Field>
  void update(Field& field, const Field& value) {
    if (field == value) return;
    field = value;
    noteChange();
  }

  /// Reports a change of identifier, type or file paths to the registries that contain the
  /// resource. Each rebuilds its indexes at the next query, which costs about as much as one
  /// iteration. Call it after the change, on the same thread.
  void noteChange() noexcept { changeFlags_.set(); }
  /// The flags that noteChange() sets.
  [[nodiscard]] const kiv::ChangeFlags& changeFlags() const noexcept { return changeFlags_; }

 private:
  using Constructor = std::shared_ptr<KivResource> (*)();
  template <class Kind>
  static std::shared_ptr<KivResource> construct() {
    return std::shared_ptr<KivResource>(new Kind);
  }
  /// Remembers the constructor of the class for copyWithZone().
  static bool noteConstructor(const std::type_info& type, Constructor constructor);
  /// A new instance of the same class, or nullptr if none can be created.
  [[nodiscard]] std::shared_ptr<KivResource> instanceOfOwnClass() const;

  // Strings are values, which share their characters with the dictionary.
  kiv::Value name_;
  kiv::Value type_;
  kiv::Value engine_;
  kiv::Value resourceID_;
  kiv::Value uid_;
  std::uint64_t priority_ = 0;
  std::uint64_t updated_ = 0;
  kiv::ChangeFlags changeFlags_;
  std::shared_ptr<kiv::Dictionary> resourceDictionary_;
  std::shared_ptr<kiv::Dictionary> options_;
};
