#pragma once

#include "platform/log.h"

// The logging channels of the library; a source file reports through one of them.

namespace VoAlgo::channels {

/// Point sets, overlap estimates and ICP.
inline const Logging::CLogger& Registration()
{
    static const Logging::CLogger& logger = Logging::GetLogger("KEP.Registration");
    return logger;
}

/// Closed-form solvers and the cluster analysis of features.
inline const Logging::CLogger& PreRegistration()
{
    static const Logging::CLogger& logger = Logging::GetLogger("KEP.PreRegistration");
    return logger;
}

/// Features, feature point sets, polygons and the pre-registration itself.
inline const Logging::CLogger& Features()
{
    static const Logging::CLogger& logger = Logging::GetLogger("KEP.PreRegistration.FPFH");
    return logger;
}

} // namespace VoAlgo::channels
