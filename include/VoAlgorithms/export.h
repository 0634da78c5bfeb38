#pragma once

/// VOALGO_API marks what the shared library exports. Building the library defines VOALGO_BUILDING; building or using
/// the static twin defines VOALGO_STATIC.
#if defined(VOALGO_STATIC)
#define VOALGO_API
#elif defined(_WIN32)
#if defined(VOALGO_BUILDING)
#define VOALGO_API __declspec(dllexport)
#else
#define VOALGO_API __declspec(dllimport)
#endif
#else
#define VOALGO_API __attribute__((visibility("default")))
#endif
