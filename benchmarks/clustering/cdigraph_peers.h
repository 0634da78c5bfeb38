#pragma once

#include <memory>
#include <vector>

struct BenchEdge {
    unsigned from, to;
    float weight;
};

/// A large graph in one of several libraries, built as that library likes it best.
class BenchGraph {
public:
    BenchGraph() = default;
    BenchGraph(const BenchGraph&) = delete;
    BenchGraph& operator=(const BenchGraph&) = delete;
    virtual ~BenchGraph() = default;

    virtual void ShortestPaths() = 0; // from node 0
    virtual unsigned StrongComponents() = 0;
    virtual double SpanningTree() = 0;
};

std::unique_ptr<BenchGraph> MakeBoostGraph(unsigned nodes, const std::vector<BenchEdge>& edges);
std::unique_ptr<BenchGraph> MakeLemonGraph(unsigned nodes, const std::vector<BenchEdge>& edges);
