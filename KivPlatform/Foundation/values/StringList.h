#pragma once

#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "KivPlatform/Foundation/Export.h"
#include "KivPlatform/Foundation/values/ChangeFlag.h"
#include "KivPlatform/Foundation/values/Value.h"

namespace kiv {

/// A mutable list of strings that reports its changes through flags. The strings are stored as
/// values, which share their characters with the dictionaries they came from. Not thread-safe.
class KIV_EXPORT StringList {
 public:
  class const_iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = std::string;
    using difference_type = std::ptrdiff_t;
    using pointer = const std::string*;
    using reference = std::string;

    explicit const_iterator(const Value* place) : place_(place) {}
    std::string operator*() const { return place_->string(); }
    const_iterator& operator++() {
      ++place_;
      return *this;
    }
    const_iterator operator++(int) { return const_iterator(place_++); }
    friend bool operator==(const const_iterator&, const const_iterator&) = default;

   private:
    const Value* place_;
  };

  StringList() noexcept = default;
  StringList(std::initializer_list<std::string_view> strings);
  // Not copyable, because a copy would set the flags of the original.
  StringList(const StringList&) = delete;
  StringList& operator=(const StringList&) = delete;
  ~StringList() = default;

  [[nodiscard]] std::size_t size() const noexcept { return strings_.size(); }
  [[nodiscard]] bool empty() const noexcept { return strings_.empty(); }
  /// The string at the index, valid until the next change; empty if out of range.
  [[nodiscard]] std::string_view operator[](std::size_t index) const noexcept {
    return strings_[index].stringView();
  }
  [[nodiscard]] bool contains(std::string_view string) const noexcept;
  [[nodiscard]] const_iterator begin() const { return const_iterator(strings_.begin()); }
  [[nodiscard]] const_iterator end() const { return const_iterator(strings_.end()); }
  /// A copy of the strings.
  [[nodiscard]] std::vector<std::string> strings() const { return {begin(), end()}; }
  /// The strings as values, without copying their characters.
  [[nodiscard]] const Array& values() const noexcept { return strings_; }

  /// Appends the string. A value of another kind is appended as an empty string.
  void push_back(const Value& string);
  /// Replaces the contents.
  void assign(std::initializer_list<std::string_view> strings);
  void clear() { assign({}); }

  /// The flags that every change of the list sets.
  [[nodiscard]] ChangeFlags& changeFlags() noexcept { return changeFlags_; }

  friend bool operator==(const StringList& a, const StringList& b) noexcept {
    return a.strings_ == b.strings_;
  }
  friend bool operator==(const StringList& a, const std::vector<std::string>& b) {
    return a.strings() == b;
  }

 private:
  Array strings_;
  ChangeFlags changeFlags_;
};

}  // namespace kiv
