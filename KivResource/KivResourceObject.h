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

/// The keys that a kind asks for in a resource dictionary, beyond those that every kind has.
struct KindKeys {
  std::vector<std::string_view> strings;  ///< Each must hold a string.
  std::vector<std::string_view> files;  ///< Those of the strings that are links or paths of files.
};

}  // namespace kiv

/// One advertising resource: the fields that all kinds share, the dictionary that describes it, and
/// the operations through which the manager brings its files.
///
/// A resource is made from a resource dictionary and keeps its own copy of it as its persistent
/// form. When a file has been stored, the kind replaces the link in that dictionary by the file's
/// local path. Saved lists and copies are made of the dictionary alone, so a property that is set
/// without changing the dictionary is neither saved nor copied. This class itself needs no files
/// and is complete from the start; a kind that needs files overrides the file operations.
///
/// Queue: a resource has no lock and belongs to no queue. Only one thread may use a resource while
/// it changes. The manager changes a resource only while its files load, on the manager's queue.
/// Once the manager has announced a resource as complete, several threads may read it: an operation
/// that has nothing to change writes nothing, not even the same value.
///
/// Deriving a kind: override setUp() and the file operations, and valueForProperty() for its
/// properties; and give it an operation that yields `initialised(std::make_shared<Kind>(),
/// dictionary, engine)`. A kind without a public default constructor overrides emptyInstance() too,
/// so that it can be copied. An override must not throw.
///
/// The registry finds resources through an index, which asks a resource when it is taken in and
/// again after noteChange(). So a kind calls noteChange() after each change of what its
/// useFilePaths() yields. Identifier and type need no call: the index takes them from resourceID()
/// and type(), whose setters report the change, whatever an override of valueForProperty() answers
/// for them.
class KIV_EXPORT KivResource {
 public:
  /// A resource of the dictionary, or nullptr if that is not acceptable. `engine` is the string
  /// that chose the kind; the dictionary is not asked for it. Nothing is logged.
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

  /// True if every file that the resource needs now lies on disk.
  [[nodiscard]] virtual bool filesExist() const;
  /// The links, as the dictionary gives them, of the files still to be fetched. The last path
  /// component of a link is the name under which its file is stored.
  [[nodiscard]] virtual std::vector<std::string> missingFilesLinks() const;
  /// The local paths of the files that the resource uses.
  [[nodiscard]] virtual std::vector<std::string> useFilePaths() const;
  /// Takes in the absolute local path of a file that was found or stored for one of the links. A
  /// path that belongs to none of the links, or at which there is no file, is ignored.
  virtual void setPath(const std::string& path);

  /// A new resource of the receiver's own class, made anew of the current dictionary and engine, or
  /// nullptr if the dictionary is not acceptable any more, or if the class cannot be copied.
  /// `options` and properties that the dictionary does not hold are not carried over. The argument
  /// has no meaning.
  [[nodiscard]] virtual std::shared_ptr<KivResource> copyWithZone(void* zone = nullptr) const;
  /// True if copyWithZone() knows how to make an instance of the receiver's own class: by its
  /// emptyInstance(), or by its default constructor where initialised() has seen the class.
  [[nodiscard]] bool isCopyable() const;

  /// The value of the property of that name: null for one that is none, nothing if the class has
  /// no such property.
  [[nodiscard]] virtual std::optional<kiv::Value> valueForProperty(std::string_view name) const;

  /// Has every later change of the identifier, the type or the file paths set the flag, which is
  /// held weakly. A registry calls this before it takes the resource in. An override, of a kind
  /// that hands out mutable lists of its paths, calls its base's.
  virtual void setOnChange(const std::shared_ptr<kiv::ChangeFlag>& flag) { changeFlags_.add(flag); }

  /// Name of the resource, for the host.
  [[nodiscard]] std::string name() const { return name_.string(); }
  void setName(std::string_view name) { name_ = name; }

  /// Category of the resource, by which the manager selects.
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

  /// Another identifier, for the host; "undefined" where the dictionary has none.
  [[nodiscard]] std::string uid() const { return uid_.string(); }
  void setUid(std::string_view uid) { uid_ = uid; }

  /// Priority of the resource's downloads; the largest comes first.
  [[nodiscard]] std::uint64_t priority() const noexcept { return priority_; }
  void setPriority(std::uint64_t priority) noexcept { priority_ = priority; }

  /// Version stamp: of two resources with one identifier, the one with the greater stamp is newer.
  [[nodiscard]] std::uint64_t updated() const noexcept { return updated_; }
  void setUpdated(std::uint64_t updated) noexcept { updated_ = updated; }

  /// The persistent form, to be changed in place. The setter keeps the given object itself; none
  /// counts as an empty one.
  [[nodiscard]] const std::shared_ptr<kiv::Dictionary>& resourceDictionary() const noexcept {
    return resourceDictionary_;
  }
  void setResourceDictionary(std::shared_ptr<kiv::Dictionary> dictionary) noexcept {
    resourceDictionary_ = std::move(dictionary);
  }

  /// Free for the host to use; none until the host sets it, neither copied nor saved.
  [[nodiscard]] const std::shared_ptr<kiv::Dictionary>& options() const noexcept {
    return options_;
  }
  void setOptions(std::shared_ptr<kiv::Dictionary> options) noexcept {
    options_ = std::move(options);
  }

 protected:
  /// An instance without contents, to be set up.
  KivResource();

  /// Fills a new instance from the dictionary; false if that is not acceptable, and the instance
  /// is then discarded. An override runs its base's set-up first.
  virtual bool setUp(const kiv::Dictionary& dictionary, const std::string& engine);

  /// A new instance without contents of the receiver's own class. Not needed for a class with a
  /// public default constructor.
  [[nodiscard]] virtual std::shared_ptr<KivResource> emptyInstance() const;

  /// The given new instance after its set-up, or nullptr if that failed.
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
  /// True if a file lies at the path now, where KivResourceLookup looks; false if there is no
  /// path.
  static bool fileExistsAt(const kiv::Value& path);
  /// A list of the one string, or an empty list where there is none.
  static std::vector<std::string> listOf(const kiv::Value& string);
  /// The string, or nothing if there is none.
  static std::optional<std::string> optionalString(const kiv::Value& string);

  /// What the resource dictionary holds under the key: null, a link, or the local path in its
  /// place.
  [[nodiscard]] const kiv::Value& linkForKey(std::string_view key) const;
  /// Writes a local path over the link under the key, unless it stands there already.
  void recordPath_forKey(const kiv::Value& path, std::string_view key);

  /// Sets a field, unless it has that value already.
  template <class Field>
  void update(Field& field, const Field& value) {
    if (field == value) return;
    field = value;
    noteChange();
  }

  /// Reports a change of the identifier, the type or the file paths to the registries that hold the
  /// resource. Each makes its index again at its next question, which costs about one walk. To be
  /// called by the thread that made the change, after it.
  void noteChange() noexcept { changeFlags_.set(); }
  /// The flags that noteChange() sets.
  [[nodiscard]] const kiv::ChangeFlags& changeFlags() const noexcept { return changeFlags_; }

 private:
  using Constructor = std::shared_ptr<KivResource> (*)();
  template <class Kind>
  static std::shared_ptr<KivResource> construct() {
    return std::shared_ptr<KivResource>(new Kind);
  }
  /// Instances of the class can be made by the constructor, which is remembered by the process.
  static bool noteConstructor(const std::type_info& type, Constructor constructor);
  /// An instance of the receiver's own class, or nullptr if none can be made.
  [[nodiscard]] std::shared_ptr<KivResource> instanceOfOwnClass() const;

  // Strings are held as values, because a value shares its characters with the dictionary that it
  // was taken from.
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
