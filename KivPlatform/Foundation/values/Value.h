#pragma once

#include <atomic>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "KivPlatform/Foundation/Export.h"

namespace kiv {

class Array;
class Dictionary;

/// A step from a value to one within it: a dictionary's key, or an array's index. Does not copy the
/// key, which must outlive the step.
class ValueStep {
 public:
  ValueStep(std::string_view key) noexcept : key_(key), isKey_(true) {}
  ValueStep(const std::string& key) noexcept : ValueStep(std::string_view(key)) {}
  ValueStep(const char* key) noexcept : ValueStep(std::string_view(key)) {}
  ValueStep(std::size_t index) noexcept : index_(index) {}
  /// A negative index leads nowhere.
  template <std::signed_integral Integer>
  ValueStep(Integer index) noexcept : index_(static_cast<std::size_t>(index)) {}

  [[nodiscard]] bool isKey() const noexcept { return isKey_; }
  [[nodiscard]] std::string_view key() const noexcept { return key_; }
  [[nodiscard]] std::size_t index() const noexcept { return index_; }

 private:
  std::string_view key_;
  std::size_t index_ = 0;
  bool isKey_ = false;
};

namespace detail {
/// A string too long for the value itself: this header, followed by the characters in the same
/// allocation. The size is in the values that refer to it.
struct StringBlock {
  std::atomic<std::uint32_t> references{1};

  [[nodiscard]] const char* characters() const noexcept {
    return reinterpret_cast<const char*>(this + 1);
  }
};
/// The same for a key, with the size.
struct KeyBlock {
  std::atomic<std::uint32_t> references{1};
  std::size_t size = 0;

  [[nodiscard]] std::string_view view() const noexcept {
    return {reinterpret_cast<const char*>(this + 1), size};
  }
};
struct ArrayBlock;
struct DictionaryBlock;
}  // namespace detail

/// One JSON value: null, a boolean, a signed, unsigned or floating number, a string, an array or
/// a dictionary.
///
/// 16 bytes. Copies share their contents and copy on write: a copy costs one reference count, and
/// changing one copy does not affect others. Strings of up to 14 bytes are stored in the value. The
/// accessors never throw: for another kind they return zero or an empty string or container. The
/// containers of a temporary are returned as copies, so that a loop over them is safe; those of any
/// other value as references into it.
///
/// Different copies may be used on different threads; one object must not be changed while another
/// thread uses it.
class KIV_EXPORT Value {
 public:
  enum class Kind : std::uint8_t {
    null,
    boolean,
    signedInteger,  ///< Negative integers only; others that fit are unsignedInteger.
    unsignedInteger,
    floating,
    string,
    array,
    dictionary
  };

  Value() noexcept : Value(Kind::null, Bits{}) {}
  Value(std::nullptr_t) noexcept : Value() {}
  Value(std::nullopt_t) noexcept : Value() {}
  Value(std::same_as<bool> auto boolean) noexcept : Value(Kind::boolean, {.boolean = boolean}) {}
  template <std::integral Integer>
  requires(!std::same_as<Integer, bool>) Value(Integer number)
  noexcept
      : Value(std::signed_integral<Integer> && number < Integer{0} ? Kind::signedInteger
                                                                   : Kind::unsignedInteger,
              {.unsignedInteger = static_cast<std::uint64_t>(number)}) {}
  Value(double number) noexcept : Value(Kind::floating, {.floating = number}) {}
  Value(std::string_view string);
  Value(const std::string& string) : Value(std::string_view(string)) {}
  Value(const char* string) : Value(std::string_view(string)) {}
  Value(Array array) noexcept;
  Value(Dictionary dictionary) noexcept;
  /// An empty optional becomes null.
  template <class T>
  requires(!std::same_as<T, Value>) Value(const std::optional<T>& value) : Value() {
    if (value) *this = Value(*value);
  }

  Value(const Value& other) noexcept : large_(other.large_) {
    if (holdsBlock()) retain();
  }
  Value(Value&& other) noexcept : large_(other.large_) { other.large_ = {Kind::null, 0, 0, 0, {}}; }
  Value& operator=(const Value& other) noexcept {
    Value copy(other);
    swap(copy);
    return *this;
  }
  Value& operator=(Value&& other) noexcept {
    // Through a temporary, since `other` may be part of contents to which this value has the last
    // reference.
    Value moved(std::move(other));
    swap(moved);
    return *this;
  }
  ~Value() {
    if (holdsBlock()) release();
  }

  [[nodiscard]] Kind kind() const noexcept { return large_.kind; }
  [[nodiscard]] bool isNull() const noexcept { return kind() == Kind::null; }
  [[nodiscard]] bool isBoolean() const noexcept { return kind() == Kind::boolean; }
  /// True for numbers and booleans; booleans count as the numbers 1 and 0.
  [[nodiscard]] bool isNumber() const noexcept {
    return kind() >= Kind::boolean && kind() <= Kind::floating;
  }
  [[nodiscard]] bool isString() const noexcept { return kind() == Kind::string; }
  [[nodiscard]] bool isArray() const noexcept { return kind() == Kind::array; }
  [[nodiscard]] bool isDictionary() const noexcept { return kind() == Kind::dictionary; }

  /// The boolean; a number is true unless it is zero; other kinds are false.
  [[nodiscard]] bool boolean() const noexcept;
  /// The number as an unsigned 64-bit integer; 0 for other kinds. Fractions are truncated towards
  /// zero, negative integers wrap modulo 2^64, and floating numbers out of range are clamped: to
  /// 2^64-1 above, to the pattern of -2^63 below.
  [[nodiscard]] std::uint64_t unsignedInteger() const noexcept;
  /// The number as a signed 64-bit integer; 0 for other kinds. Fractions are truncated towards
  /// zero, and numbers out of range are clamped.
  [[nodiscard]] std::int64_t signedInteger() const noexcept;
  /// The number as a double; 0 for other kinds.
  [[nodiscard]] double floating() const noexcept;
  /// The number as a float, clamped to its range; 0 for other kinds.
  [[nodiscard]] float singlePrecision() const noexcept;
  /// The characters of a string, in UTF-8, valid until this value changes; empty for other kinds.
  [[nodiscard]] std::string_view stringView() const noexcept KIV_LIFETIME_BOUND {
    if (!isString()) return {};
    if (!holdsBlock()) return {small_.characters, small_.size};
    const std::size_t size = std::size_t{large_.highSize} << 32 | large_.lowSize;
    return {large_.bits.string->characters(), size};
  }
  [[nodiscard]] std::string string() const { return std::string(stringView()); }
  /// The array, or an empty one.
  [[nodiscard]] const Array& array() const& noexcept KIV_LIFETIME_BOUND;
  [[nodiscard]] Array array() const&& noexcept;
  /// The dictionary, or an empty one.
  [[nodiscard]] const Dictionary& dictionary() const& noexcept KIV_LIFETIME_BOUND;
  [[nodiscard]] Dictionary dictionary() const&& noexcept;

  /// The value at the end of the path; null if the path leads nowhere. An empty path leads to this
  /// value.
  ///
  ///     config.at({"items", 0, "name"}).string()
  [[nodiscard]] const Value& at(std::initializer_list<ValueStep> path) const noexcept
      KIV_LIFETIME_BOUND;
  /// Replaces the value at the end of the path. If only the last key is missing, adds it to its
  /// dictionary. Otherwise, if the path leads nowhere, returns false and changes nothing. Copies
  /// only containers that are shared with other values.
  bool setAt(std::initializer_list<ValueStep> path, Value value);

  /// Compares contents. Numbers and booleans are equal if their numeric values are; the order of a
  /// dictionary's keys does not matter.
  KIV_EXPORT friend bool operator==(const Value& a, const Value& b);

 private:
  union Bits {
    bool boolean;
    std::uint64_t unsignedInteger;  // of a negative number, its two's complement
    double floating;
    detail::StringBlock* string;
    detail::ArrayBlock* array;
    detail::DictionaryBlock* dictionary;
  };
  static constexpr std::size_t longestInPlace = 14;
  /// The `size` of a value whose contents are in a block.
  static constexpr std::uint8_t inBlock = 0xff;

  // Both begin with kind and size, which can be read from either, and neither has padding, so that
  // copying one copies the other.
  struct Small {
    Kind kind;
    std::uint8_t size;
    char characters[longestInPlace];
  };
  struct Large {
    Kind kind;
    std::uint8_t size;
    std::uint16_t highSize;  // upper 16 of the 48 bits of a string's size
    std::uint32_t lowSize;
    Bits bits;
  };

  Value(Kind kind, Bits bits, std::uint8_t size = 0) noexcept : large_{kind, size, 0, 0, bits} {}
  [[nodiscard]] bool holdsBlock() const noexcept { return large_.size == inBlock; }
  [[nodiscard]] const Value* find(const ValueStep& step) const noexcept;
  Value& own(const ValueStep& step);
  void retain() const noexcept;
  void release() noexcept;
  void swap(Value& other) noexcept { std::swap(large_, other.large_); }

  union {
    Small small_;
    Large large_;
  };
};

/// An ordered list of values, with value semantics and shared contents (see Value).
class KIV_EXPORT Array {
 public:
  Array() noexcept = default;
  /// The listed values. Note that `Array{other}` is an array that contains `other`, not a copy.
  Array(std::initializer_list<Value> values);
  Array(const Array& other) noexcept;
  Array(Array&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}
  Array& operator=(Array other) noexcept;
  ~Array();

  [[nodiscard]] std::size_t size() const noexcept;
  [[nodiscard]] bool empty() const noexcept { return size() == 0; }
  /// The value at the index; null beyond the end.
  [[nodiscard]] const Value& operator[](std::size_t index) const& noexcept KIV_LIFETIME_BOUND;
  [[nodiscard]] Value operator[](std::size_t index) const&& noexcept { return (*this)[index]; }
  [[nodiscard]] const Value* begin() const noexcept;
  [[nodiscard]] const Value* end() const noexcept;

  void append(Value value);
  /// Replaces the value at the index; does nothing beyond the end.
  void set(std::size_t index, Value value);
  void reserve(std::size_t capacity);

  KIV_EXPORT friend bool operator==(const Array& a, const Array& b);

 private:
  friend class Value;
  friend struct detail::ArrayBlock;
  explicit Array(detail::ArrayBlock* block) noexcept : block_(block) {}
  std::vector<Value>& own();

  detail::ArrayBlock* block_ = nullptr;
};

/// String keys with values, in order of insertion, with value semantics and shared contents (see
/// Value). A look-up is a short scan, or a binary search in a large dictionary.
class KIV_EXPORT Dictionary {
 public:
  /// The key of an entry. Copies share the string.
  class KIV_EXPORT Key {
   public:
    explicit Key(std::string_view key);
    Key(const Key& other) noexcept;
    Key(Key&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}
    Key& operator=(Key other) noexcept {
      std::swap(block_, other.block_);
      return *this;
    }
    ~Key();
    /// Valid as long as this key or a copy of it lives.
    [[nodiscard]] std::string_view view() const noexcept KIV_LIFETIME_BOUND {
      return block_ ? block_->view() : std::string_view();
    }

   private:
    detail::KeyBlock* block_;  // nullptr once moved from
  };

  /// One key with its value.
  struct Entry {
    Entry(Key entryKey, Value entryValue)
        : key_(std::move(entryKey)), value(std::move(entryValue)) {}
    [[nodiscard]] std::string_view key() const noexcept KIV_LIFETIME_BOUND { return key_.view(); }

   private:
    friend class Dictionary;
    Key key_;

   public:
    Value value;
  };

  Dictionary() noexcept = default;
  /// The listed entries; if a key repeats, the last value counts.
  Dictionary(std::initializer_list<std::pair<std::string_view, Value>> entries);
  Dictionary(const Dictionary& other) noexcept;
  Dictionary(Dictionary&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}
  Dictionary& operator=(Dictionary other) noexcept;
  ~Dictionary();

  [[nodiscard]] std::size_t size() const noexcept;
  [[nodiscard]] bool empty() const noexcept { return size() == 0; }
  [[nodiscard]] bool contains(std::string_view key) const noexcept { return find(key) != nullptr; }
  /// The value under the key, or nullptr if the key is absent.
  [[nodiscard]] const Value* find(std::string_view key) const noexcept KIV_LIFETIME_BOUND;
  /// The value under the key, or null if the key is absent.
  [[nodiscard]] const Value& operator[](std::string_view key) const& noexcept KIV_LIFETIME_BOUND;
  [[nodiscard]] Value operator[](std::string_view key) const&& noexcept { return (*this)[key]; }
  [[nodiscard]] const Entry* begin() const noexcept;
  [[nodiscard]] const Entry* end() const noexcept;

  /// Sets the value under the key. A new key is added at the end.
  void set(std::string_view key, Value value);
  /// The same with a key that shares its string with other dictionaries.
  void set(Key key, Value value);
  /// Allocates room for that many entries.
  void reserve(std::size_t size);
  void remove(std::string_view key);

  KIV_EXPORT friend bool operator==(const Dictionary& a, const Dictionary& b);

 private:
  friend class Value;
  friend struct detail::DictionaryBlock;
  explicit Dictionary(detail::DictionaryBlock* block) noexcept : block_(block) {}
  detail::DictionaryBlock& own();

  detail::DictionaryBlock* block_ = nullptr;
};

inline Array Value::array() const&& noexcept {
  return array();
}

inline Dictionary Value::dictionary() const&& noexcept {
  return dictionary();
}

}  // namespace kiv
