#pragma once

/// @file
/// The only place that states the version; the build system and the tool read it from here.

///@{
/// Version of the headers, and its three parts.
#define VOALGO_VERSION_MAJOR 0
#define VOALGO_VERSION_MINOR 1
#define VOALGO_VERSION_PATCH 0
#define VOALGO_VERSION "0.1.0"
///@}

/// Incremented whenever programs must be recompiled; part of the shared library's name.
#define VOALGO_ABI_VERSION 1
