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
  // What is no string would not be one for those who look at the values.
  strings_.append(string.isString() ? string : Value(""));
  noteChange();
}

void StringList::assign(std::initializer_list<std::string_view> strings) {
  Array others;
  for (const std::string_view string : strings)
    others.append(string);
  strings_ = std::move(others);
  noteChange();
}

}  // namespace kiv
