#pragma once

// Exports a name from the shared library; all other names are hidden.
#if defined(KIVRESOURCE_STATIC)
#define KIV_EXPORT
#elif defined(_WIN32)
#if defined(KIVRESOURCE_BUILDING)
#define KIV_EXPORT __declspec(dllexport)
#else
#define KIV_EXPORT __declspec(dllimport)
#endif
#else
#define KIV_EXPORT __attribute__((visibility("default")))
#endif

// The result of the function refers to this argument or, after a member function, to its object.
// clang warns if that is a temporary that ends too early.
#if defined(__clang__)
#define KIV_LIFETIME_BOUND [[clang::lifetimebound]]
#else
#define KIV_LIFETIME_BOUND
#endif
