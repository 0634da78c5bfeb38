// Graphs of scans: which ones hang together, and which pairs of them to register. The reference shows this. Exits with
// 0 when every result is as expected.
#include <VoAlgorithms/VoAlgorithms.h>

#include <cmath>
#include <cstdio>
#include <iostream>
#include <vector>

int main()
{
    // [tree]
    // Pairs of scans that overlap; the better they fit, the lower the weight.
    VoAlgo::CDiGraph graph;
    graph.Reset(5);
    graph.AddEdge(0, 1, 0.2F); // edge 0
    graph.AddEdge(1, 2, 0.9F); // edge 1
    graph.AddEdge(2, 0, 0.3F); // edge 2, and so on: in any order
    graph.AddEdge(3, 4, 0.1F);
    std::vector<std::size_t> tree;
    const double total =
        graph.ComputeMinimumSpanningTree(tree); // edges 0, 2, 3: scan 3 and 4 have no way to the others

    graph.ComputeShortestPaths(1); // along the directions of the edges
    std::vector<std::size_t> path;
    if (graph.GetPath(0, path)) std::printf("%zu edges, %g\n", path.size(), graph.GetDistance(0)); // 1 and 2: 1.2
    // [tree]

    // [order]
    std::vector<unsigned> component, nodes;
    const unsigned count = graph.ComputeStronglyConnectedComponents(component); // {3}, {4} and the circle {0, 1, 2}
    if (!graph.ComputeTopologicalOrder(nodes)) std::printf("a cycle of %zu scans\n", nodes.size()); // 0, 1, 2

    VoAlgo::CDiGraph::DotStyle style;
    style.nodeNames = {"front", "left", "back", "lid", "lid \"inside\""};
    style.component = component;
    style.highlighted = tree;
    graph.WriteDot(std::cout, style); // for: dot -Tsvg
    // [order]
    const bool isRight = tree == std::vector<std::size_t>{0, 2, 3} && std::abs(total - 0.6) < 1e-6 && count == 3 &&
                         path == std::vector<std::size_t>{1, 2} && nodes == std::vector<unsigned>{0, 1, 2};
    if (!isRight) std::fprintf(stderr, "a graph gave a wrong result\n");
    return isRight ? 0 : 1;
}
