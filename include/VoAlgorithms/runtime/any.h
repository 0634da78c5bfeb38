#pragma once

/// @file
/// Any, under the name by which hosts include it; it stands on documents.

#include "VoAlgorithms/documents/any.h"
