#include "KivPlatform/Foundation/values/StringList.h"

#include <algorithm>
#include <utility>

namespace kiv {

StringList::StringList(std::initializer_list<std::string_view> strings) {
  assign(strings);
}

bool StringList::contains(std::string_view string) const noexcept {
  return std::any_of(strings_.begin(), strings_.end(),
                     [&](const Value& value) { return value.stringView() == string; });
}

void StringList::push_back(const Value& string) {
  // values() promises strings, so any other value becomes an empty one.
  strings_.append(string.isString() ? string : Value(""));
  changeFlags_.set();
}

void StringList::assign(std::initializer_list<std::string_view> strings) {
  Array others;
  for (const std::string_view string : strings)
    others.append(string);
  strings_ = std::move(others);
  changeFlags_.set();
}

}  // namespace kiv
