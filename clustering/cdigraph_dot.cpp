#include "VoAlgorithms/clustering/cdigraph.h"

#include <algorithm>
#include <charconv>
#include <numeric>
#include <ostream>
#include <stdexcept>
#include <string_view>

namespace VoAlgo {
namespace {

/// Backslashes begin escapes and ampersands name characters, but in a text from outside they mean themselves.
std::string Quoted(std::string_view text)
{
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            (quoted += '\\') += c;
        else if (c == '&')
            quoted += "&amp;";
        else if (c == '\n')
            quoted += "\\n";
        else
            quoted += static_cast<unsigned char>(c) < 0x20 ? ' ' : c;
    }
    return quoted += '"';
}

/// The shortest digits that read back as the same number.
std::string ToText(float value)
{
    char digits[32];
    return {digits, std::to_chars(digits, digits + sizeof digits, value).ptr};
}

void Require(bool holds, const char* list)
{
    if (!holds)
        throw std::invalid_argument(std::string("directed graph: style.") + list +
                                    " has another length than the graph");
}

/// Frames the nodes of equal component, where there are several.
void WriteClusters(std::ostream& out, const std::vector<unsigned>& component)
{
    std::vector<unsigned> nodes(component.size());
    std::iota(nodes.begin(), nodes.end(), 0U);
    std::stable_sort(nodes.begin(), nodes.end(), [&](unsigned a, unsigned b) { return component[a] < component[b]; });
    for (auto begin = nodes.begin(); begin != nodes.end();) {
        const unsigned number = component[*begin];
        const auto end = std::find_if(begin, nodes.end(), [&](unsigned node) { return component[node] != number; });
        if (end - begin > 1) {
            const std::string name = std::to_string(number);
            out << "  subgraph cluster_" << name << " { label=" << name << ";";
            for (; begin != end; ++begin) out << ' ' << std::to_string(*begin) << ';';
            out << " }\n";
        }
        begin = end;
    }
}

} // namespace

void CDiGraph::WriteDot(std::ostream& out, const DotStyle& style) const
{
    Require(style.nodeNames.empty() || style.nodeNames.size() == NumNodes(), "nodeNames");
    Require(style.edgeLabels.empty() || style.edgeLabels.size() == NumEdges(), "edgeLabels");
    Require(style.component.empty() || style.component.size() == NumNodes(), "component");
    std::vector<bool> isBoldNode(NumNodes()), isBoldEdge(NumEdges());
    for (const std::size_t number : style.highlighted) {
        const Edge edge = GetEdge(number);
        isBoldEdge[number] = isBoldNode[edge.from] = isBoldNode[edge.to] = true;
    }
    const char* const bold = " penwidth=3";
    // Numbers as texts: those of a stream follow its locale.
    out << "digraph {\n";
    for (std::size_t node = 0; node < NumNodes(); ++node) {
        const std::string number = std::to_string(node);
        out << "  " + number + " [label=" + (style.nodeNames.empty() ? number : Quoted(style.nodeNames[node])) +
                   (isBoldNode[node] ? bold : "") + "];\n";
    }
    WriteClusters(out, style.component);
    const std::vector<unsigned> sources = listSources();
    for (std::size_t e = 0; e < NumEdges(); ++e)
        out << "  " + std::to_string(sources[e]) + " -> " + std::to_string(edges_[e].to) +
                   " [label=" + Quoted(style.edgeLabels.empty() ? ToText(edges_[e].weight) : style.edgeLabels[e]) +
                   (isBoldEdge[e] ? bold : "") + "];\n";
    out << "}\n";
}

} // namespace VoAlgo
