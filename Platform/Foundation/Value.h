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

#include "Platform/Foundation/Export.h"

namespace kiv {

class Array;
class Dictionary;

namespace detail {
struct StringBlock;
struct ArrayBlock;
struct DictionaryBlock;
}  // namespace detail

/// One JSON value: null, a boolean, a signed, unsigned or floating number, a string, an array or
/// a dictionary.
///
/// A value type of 16 bytes. Copies share their contents and copy on write, so a deep copy costs
/// next to nothing and no change of one copy ever reaches another. Looked into through accessors
/// that never throw: the wrong kind answers nothing, zero or an empty container.
///
/// Different copies may be used from different threads; one object must not be changed while
/// another thread uses it.
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

  Value() noexcept : kind_(Kind::null), bits_{} {}
  Value(std::nullptr_t) noexcept : Value() {}
  Value(std::nullopt_t) noexcept : Value() {}
  Value(std::same_as<bool> auto boolean) noexcept : kind_(Kind::boolean) {
    bits_.boolean = boolean;
  }
  template <std::integral Integer>
  requires(!std::same_as<Integer, bool>) Value(Integer number)
  noexcept {
    if (std::signed_integral<Integer> && number < Integer{0}) {
      kind_ = Kind::signedInteger;
      bits_.signedInteger = static_cast<std::int64_t>(number);
    } else {
      kind_ = Kind::unsignedInteger;
      bits_.unsignedInteger = static_cast<std::uint64_t>(number);
    }
  }
  Value(double number) noexcept : kind_(Kind::floating) { bits_.floating = number; }
  Value(std::string_view string);
  Value(const std::string& string) : Value(std::string_view(string)) {}
  Value(const char* string) : Value(std::string_view(string)) {}
  Value(Array array) noexcept;
  Value(Dictionary dictionary) noexcept;
  /// Nothing becomes null.
  template <class T>
  requires(!std::same_as<T, Value>) Value(const std::optional<T>& value) : Value() {
    if (value) *this = Value(*value);
  }

  Value(const Value& other) noexcept;
  Value(Value&& other) noexcept : kind_(other.kind_), bits_(other.bits_) {
    other.kind_ = Kind::null;
  }
  Value& operator=(const Value& other) noexcept;
  Value& operator=(Value&& other) noexcept;
  ~Value();

  [[nodiscard]] Kind kind() const noexcept { return kind_; }
  [[nodiscard]] bool isNull() const noexcept { return kind_ == Kind::null; }
  [[nodiscard]] bool isBoolean() const noexcept { return kind_ == Kind::boolean; }
  /// True for every number and for the booleans, which count as the numbers 1 and 0.
  [[nodiscard]] bool isNumber() const noexcept {
    return kind_ >= Kind::boolean && kind_ <= Kind::floating;
  }
  [[nodiscard]] bool isString() const noexcept { return kind_ == Kind::string; }
  [[nodiscard]] bool isArray() const noexcept { return kind_ == Kind::array; }
  [[nodiscard]] bool isDictionary() const noexcept { return kind_ == Kind::dictionary; }

  /// The boolean; a number is true unless it is zero; everything else is false.
  [[nodiscard]] bool boolean() const noexcept;
  /// The number as an unsigned 64-bit integer. A fraction is cut off towards zero, a negative
  /// integer wraps modulo 2^64, and a floating number beyond the 64-bit range takes the nearest
  /// end of that range: 2^64-1 above, the pattern of -2^63 below. What is no number reads as 0.
  [[nodiscard]] std::uint64_t unsignedInteger() const noexcept;
  /// The number as a double; what is no number reads as 0.
  [[nodiscard]] double floating() const noexcept;
  /// The number in single precision, clamped to what a float can hold; no number reads as 0.
  [[nodiscard]] float singlePrecision() const noexcept;
  /// The characters of a string, UTF-8, valid as long as this value holds them; otherwise empty.
  [[nodiscard]] std::string_view stringView() const noexcept;
  [[nodiscard]] std::string string() const { return std::string(stringView()); }
  /// The array, or an empty one.
  [[nodiscard]] const Array& array() const noexcept;
  /// The dictionary, or an empty one.
  [[nodiscard]] const Dictionary& dictionary() const noexcept;

  /// Equality of content. Numbers and booleans are equal where their numeric values are, whatever
  /// their kinds; the order of a dictionary's keys does not matter.
  KIV_EXPORT friend bool operator==(const Value& a, const Value& b) noexcept;

 private:
  union Bits {
    bool boolean;
    std::int64_t signedInteger;
    std::uint64_t unsignedInteger;
    double floating;
    detail::StringBlock* string;
    detail::ArrayBlock* array;
    detail::DictionaryBlock* dictionary;
  };

  void retain() const noexcept;
  void release() noexcept;

  Kind kind_;
  Bits bits_;
};

/// An ordered list of values, with value semantics and shared contents (see Value).
class KIV_EXPORT Array {
 public:
  Array() noexcept = default;
  /// The listed values. Mind that `Array{other}` is an array that holds `other`, not a copy of it.
  Array(std::initializer_list<Value> values);
  Array(const Array& other) noexcept;
  Array(Array&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}
  Array& operator=(Array other) noexcept;
  ~Array();

  [[nodiscard]] std::size_t size() const noexcept;
  [[nodiscard]] bool empty() const noexcept { return size() == 0; }
  /// The value at the index; null beyond the end.
  [[nodiscard]] const Value& operator[](std::size_t index) const noexcept;
  [[nodiscard]] const Value* begin() const noexcept;
  [[nodiscard]] const Value* end() const noexcept;

  void append(Value value);
  void reserve(std::size_t capacity);

  KIV_EXPORT friend bool operator==(const Array& a, const Array& b) noexcept;

 private:
  friend class Value;
  std::vector<Value>& own();

  detail::ArrayBlock* block_ = nullptr;
};

/// String keys with their values, in order of insertion, with value semantics and shared contents
/// (see Value). Looking up a key is a short scan, or a binary search in a large dictionary.
class KIV_EXPORT Dictionary {
 public:
  /// One key with its value. The key is a string value, so that equal keys can share one string.
  struct Entry {
    Entry(Value entryKey, Value entryValue)
        : key_(std::move(entryKey)), value(std::move(entryValue)) {}
    [[nodiscard]] std::string_view key() const noexcept { return key_.stringView(); }

   private:
    friend class Dictionary;
    Value key_;

   public:
    Value value;
  };

  Dictionary() noexcept = default;
  /// The listed entries; of two with one key the later one counts.
  Dictionary(std::initializer_list<std::pair<std::string_view, Value>> entries);
  Dictionary(const Dictionary& other) noexcept;
  Dictionary(Dictionary&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}
  Dictionary& operator=(Dictionary other) noexcept;
  ~Dictionary();

  [[nodiscard]] std::size_t size() const noexcept;
  [[nodiscard]] bool empty() const noexcept { return size() == 0; }
  [[nodiscard]] bool contains(std::string_view key) const noexcept { return find(key) != nullptr; }
  /// The value under the key, or nullptr where the key is absent.
  [[nodiscard]] const Value* find(std::string_view key) const noexcept;
  /// The value under the key, or null where the key is absent.
  [[nodiscard]] const Value& operator[](std::string_view key) const noexcept;
  [[nodiscard]] const Entry* begin() const noexcept;
  [[nodiscard]] const Entry* end() const noexcept;

  /// Sets the value under the key: in place where the key is there, otherwise at the end.
  void set(std::string_view key, Value value);
  /// The same with a key that is a string value already; the dictionary then shares that string.
  void setWithSharedKey(const Value& key, Value value);
  void remove(std::string_view key);

  KIV_EXPORT friend bool operator==(const Dictionary& a, const Dictionary& b) noexcept;

 private:
  friend class Value;
  detail::DictionaryBlock& own();

  detail::DictionaryBlock* block_ = nullptr;
};

}  // namespace kiv
