// Nearest points, points in a box, and containers with keys. Exits with 0 when every result is as expected.
#include <VoAlgorithms/VoAlgorithms.h>

#include <cstdint>
#include <cstdio>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

void Expect(bool isTrue, const char* what)
{
    if (!isTrue) throw std::runtime_error(std::string(what) + " gave a wrong result");
}

void SearchGrid()
{
    // [grid]
    VoAlgo::CSearchGrid grid({{0, 0, 0}, {1, 0, 0}, {0, 2, 0}}); // chooses its cells
    grid.Add({{5, 5, 5}});                                       // number 3

    const int nearest = grid.Nearest({4, 4, 4}, 3.0F * 3.0F); // 3
    std::vector<int> around;
    grid.AllWithin({0, 0, 0}, 1.0F * 1.0F, around); // 0 and 1
    std::vector<VoAlgo::CSearchGrid::Neighbour> two;
    grid.NearestK({0, 3, 0}, 2, std::numeric_limits<float>::infinity(), two); // 2 at 1 mm, then 0 at 3 mm
    std::vector<int> inBox;
    grid.InBox({{-1, 0, 0}, {1, 2, 0}}, inBox); // 0, 1 and 2
    // [grid]
    Expect(nearest == 3 && around.size() == 2 && two[0].first == 2 && two[1].second == 9 && inBox.size() == 3,
           "the grid");
}

void NearestPoints()
{
    // [nearest]
    const std::vector<kdtree::Vector<3>> points = {{0, 0, 0}, {1, 0, 0}, {0, 2, 0}};
    const kdtree::TKdTree<3, 48> tree(points.data(), points.size());
    const kdtree::Vector<3> place(0.5F, 0, 0);
    std::vector<kdtree::TKdTree<3, 48>::Neighbour> two;
    tree.NearestK(&place.x, 2, 1.0F * 1.0F, two); // 0, then 1: as near, but of a higher index
    // [nearest]
    Expect(two.size() == 2 && two[0] == std::pair(0, 0.25F) && two[1] == std::pair(1, 0.25F), "the tree");
}

void HashContainers()
{
    // [hash]
    VoAlgo::THashMap<std::string, int> pointsOf;
    pointsOf["front"] = 81'000;
    int& back = pointsOf["back"]; // stays where it is, whatever is added or erased
    pointsOf.Insert("top", 64'000);
    back = 92'000;
    pointsOf.Erase("front");
    int sum = 0;
    for (const auto& [scan, points] : pointsOf) sum += points; // back, then top: in the order of insertion

    VoAlgo::THashSet<std::uint64_t> seen;
    const bool isNew = seen.Insert(17) && !seen.Insert(17);
    // [hash]
    Expect(isNew, "the set");
    Expect(sum == 156'000 && pointsOf.Find("front") == nullptr, "the map");
}

int main()
try {
    SearchGrid();
    NearestPoints();
    HashContainers();
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
