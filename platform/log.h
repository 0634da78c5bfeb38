#pragma once

#include "VoAlgorithms/platform/logging.h"

/// Reports through `logger` when the level is enabled. LEVEL is Error, Warn, Info or Trace, `function` the qualified
/// name of the reporting function; the wide format string and its arguments follow.
#define VOALGO_LOG(logger, LEVEL, function, ...)                                                                       \
    do {                                                                                                               \
        if ((logger).IsLogLevelEnabled(Logging::ELogLevel::LEVEL))                                                     \
            (logger).LEVEL(function, __LINE__, __FILE__, __VA_ARGS__);                                                 \
    } while (false)
