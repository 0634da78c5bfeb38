#pragma once

#include "VoAlgorithms/colour/transfercurve.h"
#include "VoAlgorithms/export.h"

#include <string>
#include <string_view>

namespace VoAlgo::cs {

/// A transfer curve with what its text says of it. docs/guides/formats.md shows the text.
struct CurveText {
    CChannelTransferCurve curve; ///< in the unit of the channel
    std::string channel = {};    ///< name of the channel, UTF-8, one line; may be empty
    std::string unit = {};       ///< unit of the channel, likewise
};

/// Reads the text form of a curve (version 1). Numbers do not depend on the host's locale. Lines end with LF, CRLF or
/// CR; a byte-order mark, empty lines and comments (from "#" to the end of the line) are skipped. Throws
/// std::invalid_argument with place and reason, e.g. "line 7, column 5: not a number"; both count from 1, columns in
/// bytes. Memory grows with the text.
[[nodiscard]] VOALGO_API CurveText ReadCurve(std::string_view text);

/// The text form of a curve; ReadCurve gets the same bits from it. Throws std::invalid_argument when the name of the
/// channel or the unit holds a line end, a "#", or white space at its ends.
[[nodiscard]] VOALGO_API std::string WriteCurve(const CurveText& curve);

} // namespace VoAlgo::cs
