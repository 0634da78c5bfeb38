#pragma once

/// VOALGO_API marks what the shared library exports. A build of the library defines VOALGO_BUILDING, the static twin
/// VOALGO_STATIC.
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
