#include "VoAlgorithms/verdict/scan.h"

namespace prereg {
namespace {

template <class T>
std::vector<kdtree::Vector<3>> Vectors(const T* xyz, std::size_t n)
{
    std::vector<kdtree::Vector<3>> vectors(n);
    for (kdtree::Vector<3>& v : vectors) {
        v = {static_cast<float>(xyz[0]), static_cast<float>(xyz[1]), static_cast<float>(xyz[2])};
        xyz += 3;
    }
    return vectors;
}

template <class T>
Scan ScanFrom(const T* points, std::size_t n, const T* normals)
{
    Scan scan;
    scan.points = Vectors(points, n);
    if (normals != nullptr) scan.normals = Vectors(normals, n);
    return scan;
}

} // namespace

Scan Scan::From(const float* points, std::size_t n, const float* normals)
{
    return ScanFrom(points, n, normals);
}

Scan Scan::From(const double* points, std::size_t n, const double* normals)
{
    return ScanFrom(points, n, normals);
}

} // namespace prereg
