#pragma once

#include "VoAlgorithms/export.h"
#include "VoAlgorithms/raster/imageview.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace VoAlgo {

/// The squared distance where the mask is 0 everywhere.
inline constexpr std::uint64_t InfiniteDistanceSq = UINT64_MAX;
/// The index of a nearest pixel where there is none.
inline constexpr std::size_t NoPixel = SIZE_MAX;

/// Squared Euclidean distances of all pixels to the nearest one of a mask that is not 0, between centres, row after
/// row; InfiniteDistanceSq everywhere when the mask has none. This and all below are exact, and independent of the
/// number of threads (0: as many as the machine has). The vectors are resized to the number of pixels.
///
/// Two passes of linear time: along columns, then along rows by the lower envelope of parabolas; rows whose pixels are
/// all near one are searched directly. The result's memory holds what lies between the passes. Fresh memory can cost
/// more time than all else: pass the same vector again.
/// Sources: A. Meijster, J. B. T. M. Roerdink, W. H. Hesselink, Math. Morphology (2000) 331–340; P. F. Felzenszwalb,
/// D. P. Huttenlocher, Theory of Computing 8 (2012) 415–428.
VOALGO_API void DistanceTransform(const MaskView& mask, std::vector<std::uint64_t>& squared, unsigned numThreads = 1);

/// The same, and the index y·width + x of the nearest pixel (of equally near ones that with the smallest x, then y);
/// NoPixel everywhere when there is none.
VOALGO_API void DistanceTransform(const MaskView& mask, std::vector<std::uint64_t>& squared,
                                  std::vector<std::size_t>& nearest, unsigned numThreads = 1);

/// The same for pixels of unequal width and height, as squared distances in their unit, rounded; infinity when there is
/// no pixel. Throws std::invalid_argument unless both are positive and finite.
VOALGO_API void DistanceTransform(const MaskView& mask, double pixelWidth, double pixelHeight,
                                  std::vector<double>& squared, unsigned numThreads = 1);

/// Outside the mask the squared distance to the nearest pixel of it, inside minus that to the nearest pixel outside.
/// INT64_MAX everywhere for a mask without pixels, −INT64_MAX for one without a zero.
VOALGO_API void SignedDistanceTransform(const MaskView& mask, std::vector<std::int64_t>& squared,
                                        unsigned numThreads = 1);

/// The mask of all pixels within a distance (of a disc that moves over the mask): 1 where the squared Euclidean
/// distance is at most `limitSq`, else 0.
VOALGO_API void PixelsWithin(const MaskView& mask, std::uint64_t limitSq, std::vector<std::uint8_t>& within,
                             unsigned numThreads = 1);

///@{
/// Numbers of steps from pixel to pixel, not squared: of horizontal and vertical ones (city block), or of diagonal ones
/// as well (chessboard). UINT32_MAX everywhere when the mask has no pixel. On the caller's thread.
VOALGO_API void CityBlockTransform(const MaskView& mask, std::vector<std::uint32_t>& distance);
VOALGO_API void ChessboardTransform(const MaskView& mask, std::vector<std::uint32_t>& distance);
///@}

} // namespace VoAlgo
