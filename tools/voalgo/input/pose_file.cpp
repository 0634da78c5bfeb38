#include "input/pose_file.h"

#include "exchange/files/files.h"
#include "exchange/files/input_error.h"
#include "exchange/files/parse_number.h"
#include "platform/finite.h"
#include "platform/format.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <optional>
#include <vector>

namespace voalgo {

namespace {

std::vector<double> ReadNumbers(const std::string& path)
{
    const std::string text = ReadText(path);
    std::vector<double> numbers;
    for (std::size_t i = 0; i < text.size();) {
        i = text.find_first_not_of(" \t\r\n,;", i);
        if (i == std::string::npos) break;
        if (text[i] == '#') {
            i = std::min(text.find('\n', i), text.size());
            continue;
        }
        const std::size_t end = std::min(text.find_first_of(" \t\r\n,;#", i), text.size());
        const std::string word = text.substr(i, end - i);
        const std::optional<double> value = ParseNumber(word);
        if (!value) throw InputError(path + ": not a number: \"" + word.substr(0, 40) + "\"");
        numbers.push_back(*value);
        i = end;
    }
    return numbers;
}

/// Largest deviation of R·Rᵀ from the identity.
double RotationError(const VoAlgo::CbMatrix4Rd& m)
{
    double error = 0.0;
    for (unsigned r = 0; r < 3; ++r)
        for (unsigned c = 0; c < 3; ++c) {
            const double dot = m(r, 0) * m(c, 0) + m(r, 1) * m(c, 1) + m(r, 2) * m(c, 2);
            error = std::max(error, std::abs(dot - (r == c ? 1.0 : 0.0)));
        }
    return error;
}

double Determinant(const VoAlgo::CbMatrix4Rd& m)
{
    return m(0, 0) * (m(1, 1) * m(2, 2) - m(1, 2) * m(2, 1)) - m(0, 1) * (m(1, 0) * m(2, 2) - m(1, 2) * m(2, 0)) +
           m(0, 2) * (m(1, 0) * m(2, 1) - m(1, 1) * m(2, 0));
}

/// The shortest decimal number that reads back as the same double.
std::string Shortest(double value)
{
    char digits[32];
    const auto result = std::to_chars(digits, digits + sizeof(digits), value);
    return {digits, result.ptr};
}

} // namespace

std::string PoseText(const PoseMatrix& pose)
{
    std::string text;
    for (const auto& row : pose)
        text += Shortest(row[0]) + ' ' + Shortest(row[1]) + ' ' + Shortest(row[2]) + ' ' + Shortest(row[3]) + '\n';
    return text;
}

VoAlgo::CbMatrix4Rd ReadPose(const std::string& path, const LengthUnit& unit)
{
    const std::vector<double> m = ReadNumbers(path);
    if (m.size() != 16)
        throw InputError(path + VoAlgo::Format(": a pose has 16 numbers, but this file has %zu", m.size()));
    if (m[12] != 0.0 || m[13] != 0.0 || m[14] != 0.0 || m[15] != 1.0)
        throw InputError(path + ": the last row of a pose must be 0 0 0 1");
    VoAlgo::CbMatrix4Rd pose;
    std::copy(m.begin(), m.end(), pose.Data());
    for (unsigned r = 0; r < 3; ++r) pose(r, 3) *= unit.mm;
    if (!VoAlgo::AllFinite(pose.Data(), 16)) throw InputError(path + ": the pose is not finite");
    if (RotationError(pose) > 1e-3 || Determinant(pose) < 0.0)
        throw InputError(path + ": the upper left 3x3 block is not a rotation");
    return pose;
}

} // namespace voalgo
