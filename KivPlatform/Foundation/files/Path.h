#pragma once

#include <string>
#include <string_view>

#include "KivPlatform/Foundation/Export.h"

/// Operations on path strings: UTF-8 text with "/" between components, both local paths and paths
/// in URLs. They never access the disk.
namespace kiv::path {

/// The text after the last "/"; the whole string if there is none. Empty for "a/".
KIV_EXPORT std::string_view lastPathComponent(std::string_view path KIV_LIFETIME_BOUND) noexcept;

/// The text before the last component, without the separator; "/" for a child of the root.
KIV_EXPORT std::string_view deletingLastPathComponent(
    std::string_view path KIV_LIFETIME_BOUND) noexcept;

/// The text after the last "." of the last component, empty if there is none.
KIV_EXPORT std::string_view pathExtension(std::string_view path KIV_LIFETIME_BOUND) noexcept;

/// The path without its extension and the "." before it: "a.b.zip" becomes "a.b", ".zip" becomes
/// empty.
KIV_EXPORT std::string_view deletingPathExtension(
    std::string_view path KIV_LIFETIME_BOUND) noexcept;

/// Joins the two with exactly one "/", whether or not `path` ends or `component` begins with one.
/// An empty path yields the component alone.
KIV_EXPORT std::string appendingPathComponent(std::string_view path, std::string_view component);

}  // namespace kiv::path
