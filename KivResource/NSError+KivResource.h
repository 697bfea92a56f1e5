#pragma once

#include <cstdint>
#include <string_view>

// Domains and codes of the errors that the manager and the download module make. They are part of
// the interface: a code is never given a second meaning.

/// Domain of the manager's own errors.
inline constexpr std::string_view KivResourceErrorDomain = "kiv.KivResource";
/// A pass was refused, because files of an earlier one are still being downloaded.
inline constexpr std::int64_t DownloadQueueIsBusyKivResourceErrorCode = 100;
/// The list was not saved: the one on disk cannot be read, and could not be renamed.
inline constexpr std::int64_t SavedListInDoubtKivResourceErrorCode = 103;

/// Domain of the errors that the download module makes.
inline constexpr std::string_view KivResourceRESTModuleErrorDomain =
    "kiv.KivResource.KivResourceRESTModule";
/// No request could be made from the main domain and the file's link.
inline constexpr std::int64_t CreateURLRequestErrorCode = 101;
/// The transfer ended without an error, but with a status other than 200.
inline constexpr std::int64_t InvalidResponseStatusErrorCode = 102;
