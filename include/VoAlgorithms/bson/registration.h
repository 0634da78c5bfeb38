#pragma once

/// @file
/// Documents of the registration's records, under the name by which hosts include them.

#include "VoAlgorithms/documents/records.h"
