#include "VoAlgorithms/numerics/ctrafo.h"

#include "VoAlgorithms/numerics/symsolvers.h"
#include "numerics/detail_rotation.h"
#include "platform/format.h"

#include <cmath>
#include <cstdio>
#include <limits>
#include <stdexcept>
#include <type_traits>
#include <vector>

namespace VoAlgo {

static_assert(std::is_trivially_copyable_v<CTrafo> && sizeof(CTrafo) == 64 && alignof(CTrafo) == 16);

namespace {

using Vector3 = CTrafo::Vector3;

Vector3 ToFloat(double x, double y, double z)
{
    return {static_cast<float>(x), static_cast<float>(y), static_cast<float>(z)};
}

CTrafo FromRotation(const double (*r)[3], const Vector3& translation)
{
    return {ToFloat(r[0][0], r[0][1], r[0][2]), ToFloat(r[1][0], r[1][1], r[1][2]), ToFloat(r[2][0], r[2][1], r[2][2]),
            translation};
}

template <typename Matrix>
CTrafo FromMatrix(const Matrix& m)
{
    return {ToFloat(m(0, 0), m(0, 1), m(0, 2)), ToFloat(m(1, 0), m(1, 1), m(1, 2)), ToFloat(m(2, 0), m(2, 1), m(2, 2)),
            ToFloat(m(0, 3), m(1, 3), m(2, 3))};
}

template <typename Matrix>
Matrix ToMatrix(const CTrafo& trafo)
{
    Matrix m;
    for (unsigned row = 0; row < 4; ++row)
        for (unsigned col = 0; col < 4; ++col) m(row, col) = trafo(row, col);
    return m;
}

void Pack(const Vector3* points, unsigned n, std::vector<double>& packed)
{
    packed.reserve(std::size_t{3} * n);
    for (unsigned i = 0; i < n; ++i) packed.insert(packed.end(), {points[i].x, points[i].y, points[i].z});
}

} // namespace

CTrafo::CTrafo(const Vector3& eulerAngles, const Vector3& translation) : CTrafo()
{
    const float ca = std::cos(eulerAngles.x), sa = std::sin(eulerAngles.x);
    const float cb = std::cos(eulerAngles.y), sb = std::sin(eulerAngles.y);
    const float cc = std::cos(eulerAngles.z), sc = std::sin(eulerAngles.z);
    rows_[0] = {cc * cb, cc * sb * sa - sc * ca, cc * sb * ca + sc * sa};
    rows_[1] = {sc * cb, sc * sb * sa + cc * ca, sc * sb * ca - cc * sa};
    rows_[2] = {-sb, cb * sa, cb * ca};
    rows_[3] = translation;
}

CTrafo::CTrafo(const Quaternion& rotation, const Vector3& translation)
{
    double r[3][3];
    detail::RotationOfQuaternion(rotation.w, rotation.x, rotation.y, rotation.z, r);
    *this = FromRotation(r, translation);
}

CTrafo::CTrafo(const CbMatrix4Rd& m) : CTrafo(FromMatrix(m)) {}

CTrafo::CTrafo(const CbMatrix4Rf& m) : CTrafo(FromMatrix(m)) {}

CTrafo CTrafo::Invalid()
{
    constexpr float NaN = std::numeric_limits<float>::quiet_NaN();
    const Vector3 row(NaN, NaN, NaN);
    return {row, row, row, row};
}

float CTrafo::operator()(unsigned row, unsigned col) const
{
    if (row > 3 || col > 3) throw std::invalid_argument("invalid row or column index");
    if (row == 3) return col == 3 ? 1.0F : 0.0F;
    return col == 3 ? rows_[3][row] : rows_[row][col];
}

CTrafo::operator CbMatrix4Rd() const
{
    return ToMatrix<CbMatrix4Rd>(*this);
}

CTrafo::operator CbMatrix4Rf() const
{
    return ToMatrix<CbMatrix4Rf>(*this);
}

CTrafo CTrafo::operator*(const CTrafo& other) const
{
    const auto row = [&](const Vector3& r) {
        return (other.rows_[0] * r.x + other.rows_[1] * r.y) + other.rows_[2] * r.z;
    };
    return {row(rows_[0]), row(rows_[1]), row(rows_[2]), *this * other.rows_[3]};
}

CTrafo CTrafo::GetInverse(bool rigid) const
{
    if (rigid) {
        CTrafo inverse = GetTransposedRotationPart();
        inverse.rows_[3] = -inverse.Rotate(rows_[3]);
        return inverse;
    }
    const double a = rows_[0].x, b = rows_[0].y, c = rows_[0].z;
    const double d = rows_[1].x, e = rows_[1].y, f = rows_[1].z;
    const double g = rows_[2].x, h = rows_[2].y, i = rows_[2].z;
    const double det = a * (e * i - f * h) - b * (d * i - f * g) + c * (d * h - e * g);
    if (std::abs(det) < static_cast<double>(std::numeric_limits<float>::epsilon())) return Identity();
    const double m[3][3] = {{(e * i - f * h) / det, (c * h - b * i) / det, (b * f - c * e) / det},
                            {(f * g - d * i) / det, (a * i - c * g) / det, (c * d - a * f) / det},
                            {(d * h - e * g) / det, (b * g - a * h) / det, (a * e - b * d) / det}};
    const auto t = detail::Multiply(m, {rows_[3].x, rows_[3].y, rows_[3].z});
    return FromRotation(m, ToFloat(-t[0], -t[1], -t[2]));
}

CTrafo CTrafo::GetRotationPart(bool /*rigid*/) const
{
    return {rows_[0], rows_[1], rows_[2], Vector3()};
}

CTrafo CTrafo::GetTransposedRotationPart(bool /*rigid*/) const
{
    return {Vector3(rows_[0].x, rows_[1].x, rows_[2].x), Vector3(rows_[0].y, rows_[1].y, rows_[2].y),
            Vector3(rows_[0].z, rows_[1].z, rows_[2].z), Vector3()};
}

CTrafo CTrafo::Translate(const Vector3& v) const
{
    return {rows_[0], rows_[1], rows_[2], rows_[3] + v};
}

CTrafo CTrafo::Scale(const Vector3& v) const
{
    return {rows_[0] * v.x, rows_[1] * v.y, rows_[2] * v.z,
            Vector3(rows_[3].x * v.x, rows_[3].y * v.y, rows_[3].z * v.z)};
}

Quaternion CTrafo::GetQuaternion() const
{
    return {rows_[0].x, rows_[0].y, rows_[0].z, rows_[1].x, rows_[1].y, rows_[1].z, rows_[2].x, rows_[2].y, rows_[2].z};
}

CTrafo::Vector3 CTrafo::GetEulerAngles() const
{
    const double r[3][3] = {{rows_[0].x, rows_[0].y, rows_[0].z},
                            {rows_[1].x, rows_[1].y, rows_[1].z},
                            {rows_[2].x, rows_[2].y, rows_[2].z}};
    const auto angles = detail::EulerAnglesOfRotation(r);
    return ToFloat(angles[0], angles[1], angles[2]);
}

float CTrafo::GetRotationDistance(const CTrafo& other) const
{
    const double distance = GetQuaternion().Distance(other.GetQuaternion());
    return std::isnan(distance) ? std::numeric_limits<float>::infinity() : static_cast<float>(distance);
}

CTrafo CTrafo::Lerp(const CTrafo& other, double s) const
{
    return {GetQuaternion().Slerp(other.GetQuaternion(), s),
            rows_[3] + (other.rows_[3] - rows_[3]) * static_cast<float>(s)};
}

CTrafo CTrafo::Mean(const CTrafo* trafos, std::size_t n)
{
    if (trafos == nullptr || n == 0) return Invalid();
    const Quaternion first = trafos[0].GetQuaternion();
    Quaternion sum(0, 0, 0, 0);
    double x = 0, y = 0, z = 0;
    for (std::size_t i = 0; i < n; ++i) {
        Quaternion q = trafos[i].GetQuaternion();
        if (q.Dot(first) < 0) q = -q;
        sum = {sum.w + q.w, sum.x + q.x, sum.y + q.y, sum.z + q.z};
        x += trafos[i].rows_[3].x;
        y += trafos[i].rows_[3].y;
        z += trafos[i].rows_[3].z;
    }
    const auto count = static_cast<double>(n);
    const CTrafo mean(sum.GetNormalized(), ToFloat(x / count, y / count, z / count));
    return mean ? mean : Invalid();
}

CTrafo CTrafo::LeastSquaresFit(const Vector3* a, const Vector3* b, unsigned n, const double* weights)
{
    if (a == nullptr || b == nullptr) return Invalid();
    std::vector<double> packedA, packedB;
    Pack(a, n, packedA);
    Pack(b, n, packedB);
    double quaternion[4], rotation[3][3], translation[3];
    if (!symsolvers::Procrustes(packedA.data(), packedB.data(), weights, quaternion, rotation, translation, n))
        return Invalid();
    return FromRotation(rotation, ToFloat(translation[0], translation[1], translation[2]));
}

void CTrafo::Dump() const
{
    for (unsigned row = 0; row < 4; ++row) {
        for (unsigned col = 0; col < 4; ++col)
            std::fputs(Format(" %5.3f", static_cast<double>((*this)(row, col))).c_str(), stdout);
        std::printf("\n");
    }
}

} // namespace VoAlgo
