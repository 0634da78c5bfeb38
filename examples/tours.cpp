// The shortest way around some places to measure: exits with 0 when the result is as expected.
#include <VoAlgorithms/VoAlgorithms.h>

#include <cstdio>
#include <vector>

int main()
{
    // [tour]
    std::vector<kdtree::Vector<3>> places; // 20 × 20, in mm
    for (unsigned i = 0; i < 400; ++i)
        places.emplace_back(static_cast<float>(i % 20), static_cast<float>(i * 7 % 400 / 20), 0.0F);
    VoAlgo::CTSPSolver solver(places);
    solver.SetClosed(false); // an open path ...
    solver.SetEnds(0, {});   // ... that begins at place 0 and ends anywhere
    solver.SetRounds(1000);  // more rounds, shorter paths
    const std::vector<unsigned> order = solver.Solve();
    const double length = solver.GetLength();     // mm
    const double atMostTooLong = solver.GetGap(); // 0.02: no path is more than 2 % shorter
    // [tour]
    std::printf("%u places, %.1f mm, gap %.2f %%\n", solver.NumCities(), length, 100 * atMostTooLong);
    return order.size() == 400 && order.front() == 0 && atMostTooLong < 0.05 ? 0 : 1;
}
