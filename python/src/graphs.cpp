#include "VoAlgorithms/clustering/cdigraph.h"
#include "VoAlgorithms/clustering/cdisjointsets.h"
#include "arrays.h"
#include "module.h"
#include "scalars.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace voalgo::python {

using VoAlgo::CDiGraph;
using VoAlgo::CDisjointSets;

namespace {

using Indices = py::array_t<std::int64_t, py::array::c_style | py::array::forcecast>;

/// Rows of two numbers of nodes; any array without elements counts as no rows.
Indices ReadPairs(const py::object& argument, const char* name, std::uint32_t nodes)
{
    const std::string argumentName = name;
    const py::array array = py::array::ensure(argument);
    if (!array) throw py::type_error(argumentName + ": must be an array of whole numbers, is " + TypeOf(argument));
    if (array.size() == 0) return Indices(std::vector<py::ssize_t>{0, 2});
    if (array.dtype().kind() != 'i' && array.dtype().kind() != 'u')
        throw py::type_error(argumentName + ": dtype must be that of whole numbers, is " +
                             py::str(array.dtype()).cast<std::string>());
    if (array.ndim() != 2 || array.shape(1) != 2)
        throw py::value_error(argumentName + ": shape must be (m, 2), is " +
                              py::str(array.attr("shape")).cast<std::string>());
    Indices pairs(array);
    const std::int64_t* const end = pairs.data() + pairs.size();
    const auto* const wrong =
        std::find_if(pairs.data(), end, [&](std::int64_t node) { return node < 0 || node >= nodes; });
    if (wrong != end)
        throw py::value_error(argumentName + ": row " + std::to_string((wrong - pairs.data()) / 2) + " names node " +
                              std::to_string(*wrong) + " of " + std::to_string(nodes));
    return pairs;
}

/// The arguments of one graph. Its edges have weight 0 when there are no weights.
struct Arguments {
    std::uint32_t nodes;
    Indices edges;
    std::optional<Floats> weights;

    Arguments(const Whole& numNodes, const py::object& edgeRows)
        : nodes(ReadCount(numNodes, "nodes")), edges(ReadPairs(edgeRows, "edges", nodes))
    {
        if (nodes == CDiGraph::None) throw py::value_error("nodes: must be at most 4294967294");
    }
    Arguments(const Whole& numNodes, const py::object& edgeRows, const py::object& weightOfEdge, float smallest)
        : Arguments(numNodes, edgeRows)
    {
        weights = ReadFloats(weightOfEdge, "weights", 0);
        RequireSameLength(static_cast<std::size_t>(edges.shape(0)), "edges",
                          static_cast<std::size_t>(weights->shape(0)), "weights");
        const float* const end = weights->data() + weights->size();
        if (std::any_of(weights->data(), end, [](float w) { return std::isnan(w); }))
            throw py::value_error("weights: must not be NaN");
        if (std::any_of(weights->data(), end, [&](float w) { return w < smallest; }))
            throw py::value_error("weights: must be 0 or more");
    }

    /// Needs no lock of the interpreter.
    [[nodiscard]] CDiGraph Build() const
    {
        CDiGraph graph;
        graph.Reset(nodes);
        const std::int64_t* ends = edges.data();
        for (py::ssize_t e = 0; e < edges.shape(0); ++e, ends += 2)
            graph.AddEdge(static_cast<unsigned>(ends[0]), static_cast<unsigned>(ends[1]),
                          weights ? weights->data()[e] : 0.0F);
        return graph;
    }
};

template <class To, class From>
py::array_t<To> ToArray(const std::vector<From>& values)
{
    py::array_t<To> array(static_cast<py::ssize_t>(values.size()));
    std::transform(values.begin(), values.end(), array.mutable_data(), [](From v) { return static_cast<To>(v); });
    return array;
}

py::array_t<std::uint32_t> StrongComponents(const Whole& nodes, const py::object& edges)
{
    const Arguments arguments(nodes, edges);
    std::vector<unsigned> component;
    {
        const py::gil_scoped_release release;
        arguments.Build().ComputeStronglyConnectedComponents(component);
    }
    return ToArray<std::uint32_t>(component);
}

py::tuple SpanningTree(const Whole& nodes, const py::object& edges, const py::object& weights)
{
    const Arguments arguments(nodes, edges, weights, -CDiGraph::Infinity);
    std::vector<std::size_t> tree;
    double total = 0.0;
    {
        const py::gil_scoped_release release;
        total = arguments.Build().ComputeMinimumSpanningTree(tree);
    }
    return py::make_tuple(ToArray<std::int64_t>(tree), total);
}

std::uint32_t ReadNode(const Whole& node, const char* name, std::uint32_t nodes)
{
    return static_cast<std::uint32_t>(ReadWhole(node, name, 0, std::int64_t{nodes} - 1));
}

py::tuple ShortestPaths(const Whole& nodes, const py::object& edges, const py::object& weights, const Whole& source)
{
    const Arguments arguments(nodes, edges, weights, 0.0F);
    const std::uint32_t from = ReadNode(source, "source", arguments.nodes);
    py::array_t<float> distances(static_cast<py::ssize_t>(arguments.nodes));
    py::array_t<std::int64_t> predecessors(static_cast<py::ssize_t>(arguments.nodes));
    float* const distance = distances.mutable_data();
    std::int64_t* const predecessor = predecessors.mutable_data();
    {
        const py::gil_scoped_release release;
        CDiGraph graph = arguments.Build();
        graph.ComputeShortestPaths(from);
        for (std::uint32_t node = 0; node < arguments.nodes; ++node) {
            distance[node] = graph.GetDistance(node);
            const unsigned before = graph.GetPredecessor(node);
            predecessor[node] = before == CDiGraph::None ? -1 : std::int64_t{before};
        }
    }
    return py::make_tuple(distances, predecessors);
}

py::tuple ShortestPath(const Whole& nodes, const py::object& edges, const py::object& weights, const Whole& source,
                       const Whole& target)
{
    const Arguments arguments(nodes, edges, weights, 0.0F);
    const std::uint32_t from = ReadNode(source, "source", arguments.nodes);
    const std::uint32_t to = ReadNode(target, "target", arguments.nodes);
    std::vector<std::size_t> path;
    float length = 0.0F;
    {
        const py::gil_scoped_release release;
        CDiGraph graph = arguments.Build();
        graph.ComputeShortestPaths(from, to);
        graph.GetPath(to, path);
        length = graph.GetDistance(to);
    }
    return py::make_tuple(ToArray<std::int64_t>(path), length);
}

py::tuple TopologicalOrder(const Whole& nodes, const py::object& edges)
{
    const Arguments arguments(nodes, edges);
    std::vector<unsigned> order;
    bool isOrder = false;
    {
        const py::gil_scoped_release release;
        isOrder = arguments.Build().ComputeTopologicalOrder(order);
    }
    return py::make_tuple(isOrder, ToArray<std::uint32_t>(order));
}

/// Uniting many pairs releases the interpreter's lock; the mutex keeps other calls away meanwhile.
class Sets {
public:
    explicit Sets(std::uint32_t n) : sets_(n) {}

    template <class Call>
    auto With(Call call)
    {
        const std::lock_guard guard(mutex_);
        return call(sets_);
    }
    [[nodiscard]] std::uint32_t Size() const { return static_cast<std::uint32_t>(sets_.Size()); }
    std::size_t UnitePairs(const Indices& pairs)
    {
        const py::gil_scoped_release release;
        return With([&](CDisjointSets& sets) {
            const std::size_t before = sets.NumSets();
            for (const std::int64_t* p = pairs.data(); p != pairs.data() + pairs.size(); p += 2)
                sets.Unite(static_cast<std::size_t>(p[0]), static_cast<std::size_t>(p[1]));
            return before - sets.NumSets();
        });
    }

private:
    CDisjointSets sets_;
    std::mutex mutex_;
};

std::unique_ptr<Sets> MakeSets(const Whole& n)
{
    return std::make_unique<Sets>(static_cast<std::uint32_t>(ReadWhole(n, "n", 0, 0x7FFFFFFF)));
}

/// What is pickled: each element beside the representative of its set.
Indices StateOf(Sets& s)
{
    Indices state(std::vector<py::ssize_t>{s.Size(), 2});
    s.With([row = state.mutable_data()](CDisjointSets& sets) mutable {
        for (std::size_t i = 0; i < sets.Size(); ++i) {
            *row++ = sets.Find(i);
            *row++ = static_cast<std::int64_t>(i);
        }
    });
    return state;
}

/// A representative that takes in one element after another remains the representative.
std::unique_ptr<Sets> SetsOf(const Indices& state)
{
    const auto n = static_cast<std::uint32_t>(state.shape(0));
    auto sets = std::make_unique<Sets>(n);
    sets->UnitePairs(ReadPairs(state, "state", n));
    return sets;
}

void DefineSets(py::module_& m)
{
    const auto ask = [](Sets& s, const Whole& element, auto question) {
        const std::uint32_t i = ReadNode(element, "element", s.Size());
        return s.With([&](CDisjointSets& sets) { return question(sets, i); });
    };
    py::class_<Sets>(
        m, "DisjointSets",
        R"(Disjoint sets of the numbers 0 to n - 1, each at first in a set of its own; they can be united, not split.)")
        .def(py::init(&MakeSets), py::arg("n"))
        .def(
            "find",
            [ask](Sets& s, const Whole& element) {
                return ask(s, element, [](CDisjointSets& sets, std::uint32_t i) { return sets.Find(i); });
            },
            py::arg("element"), "The representative of the element's set: the same for all its members.")
        .def(
            "size_of",
            [ask](Sets& s, const Whole& element) {
                return ask(s, element, [](CDisjointSets& sets, std::uint32_t i) { return sets.SizeOf(i); });
            },
            py::arg("element"), "Number of elements in the element's set.")
        .def(
            "unite",
            [](Sets& s, const Whole& a, const Whole& b) {
                const std::uint32_t i = ReadNode(a, "a", s.Size()), j = ReadNode(b, "b", s.Size());
                return s.With([&](CDisjointSets& sets) { return sets.Unite(i, j); });
            },
            py::arg("a"), py::arg("b"),
            R"(Unites the sets of a and b; True when they were apart.

The larger set keeps its representative; of equal ones, that of a.)")
        .def(
            "unite_pairs",
            [](Sets& s, const py::object& pairs) { return s.UnitePairs(ReadPairs(pairs, "pairs", s.Size())); },
            py::arg("pairs"),
            R"(Unites the sets of both elements of each row, one row after another.

Parameters
----------
pairs : (m, 2) array of whole numbers

Returns
-------
int
    By how many the number of sets fell.)")
        .def_property_readonly(
            "num_sets", [](Sets& s) { return s.With([](CDisjointSets& sets) { return sets.NumSets(); }); },
            "int: number of sets.")
        .def_property_readonly(
            "labels",
            [](Sets& s) {
                const auto groups = s.With([](CDisjointSets& sets) { return sets.GetGroups(); });
                return ToArray<std::uint32_t>(groups.setOf);
            },
            "(n,) array of uint32, made anew: the set of each element. Sets are numbered by their smallest member.")
        .def("__len__", &Sets::Size)
        .def("__repr__",
             [](Sets& s) {
                 const std::size_t count = s.With([](CDisjointSets& sets) { return sets.NumSets(); });
                 return "<DisjointSets: " + std::to_string(count) + " of " + std::to_string(s.Size()) + ">";
             })
        .def(py::pickle(&StateOf, &SetsOf));
}

} // namespace

void DefineGraphs(py::module_& m)
{
    m.def("strong_components", &StrongComponents, py::arg("nodes"), py::arg("edges"),
          R"(The strongly connected components of a directed graph.

Two nodes share a component when each can be reached from the other.

Parameters
----------
nodes : int
    Number of nodes; they are numbered from 0.
edges : (m, 2) array of whole numbers
    Source and target of each edge, in any order.

Returns
-------
(nodes,) array of uint32
    The component of each node. They are numbered in topological order: no edge leads to a lower number.)");
    m.def("spanning_tree", &SpanningTree, py::arg("nodes"), py::arg("edges"), py::arg("weights"),
          R"(A minimum spanning tree of a graph, or of each of its parts when it is not connected.

Parameters
----------
nodes : int
    Number of nodes; they are numbered from 0.
edges : (m, 2) array of whole numbers
    Edges without direction.
weights : (m,) array of float32 or float64
    Compared in single precision; may be negative. An edge of infinite weight is not taken. Of equal edges the first
    is preferred.

Returns
-------
(k,) array of int64
    The rows of the edges that are taken, ascending.
float
    Their total weight.)");
    m.def("shortest_paths", &ShortestPaths, py::arg("nodes"), py::arg("edges"), py::arg("weights"), py::arg("source"),
          R"(The shortest paths from one node of a directed graph to all others (Dijkstra).

Parameters
----------
nodes : int
    Number of nodes; they are numbered from 0.
edges : (m, 2) array of whole numbers
    Source and target of each edge, in any order.
weights : (m,) array of float32 or float64
    Lengths, 0 or more; added in single precision.
source : int

Returns
-------
(nodes,) array of float32
    Length of the path to each node, infinite without one.
(nodes,) array of int64
    The node before it on that path; -1 for the source and without a path.)");
    m.def("shortest_path", &ShortestPath, py::arg("nodes"), py::arg("edges"), py::arg("weights"), py::arg("source"),
          py::arg("target"),
          R"(The shortest path between two nodes of a directed graph.

Parameters
----------
nodes, edges, weights, source
    As of shortest_paths.
target : int

Returns
-------
(k,) array of int64
    The rows of the path's edges, from source to target; none without a path.
float
    Its length, infinite without a path.)");
    m.def("topological_order", &TopologicalOrder, py::arg("nodes"), py::arg("edges"),
          R"(Orders the nodes of a directed graph so that every edge leads forwards.

Parameters
----------
nodes : int
    Number of nodes; they are numbered from 0.
edges : (m, 2) array of whole numbers
    Source and target of each edge, in any order.

Returns
-------
bool
    Whether there is such an order.
(k,) array of uint32
    All nodes; of those that may come next the lowest is next. Without an order: a cycle, from its lowest node on.)");
    DefineSets(m);
}

} // namespace voalgo::python
