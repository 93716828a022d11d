#include "tools/formats/HeaderlessText.h"

#include "tools/formats/TextLines.h"

#include "mtx/layouts/TextFields.h"

#include <algorithm>
#include <climits>
#include <vector>

namespace orx::tool {
namespace {

/// An index has to leave room for a dimension that counts it.
constexpr std::int64_t largestIndex = INT_MAX - 1;

ORXSrvSparseMatrix ReadLines(std::string const& path, int base, char separator, char const* form) {
  TextLines lines(path);
  ORXSrvSparseMatrix matrix(0, 0);
  while (lines.Next(separator)) {
    lines.RequireFields(3, form);
    std::int64_t const row = lines.Integer(0, "a row", base, largestIndex + base);
    std::int64_t const column = lines.Integer(1, "a column", base, largestIndex + base);
    matrix.AddData(static_cast<std::uint32_t>(row - base), static_cast<std::uint32_t>(column - base),
                   lines.Value(2));
  }
  EndAssembly(path, matrix);
  return matrix;
}

struct NodeDofEntry {
  std::int32_t node;
  std::int32_t dof;
  std::int32_t columnNode; ///< or the column itself
  std::int32_t columnDof;  ///< 0 where the column is meant
  double value;
};

/// What is read before it is known how many degrees of freedom a node has.
class NodeDofFile {
public:
  NodeDofFile(std::string const& path, int dofsPerNode)
      : m_path(path), m_lines(path), m_dofsPerNode(dofsPerNode) {
    while (m_lines.Next(','))
      ReadLine();
  }

  ORXSrvSparseMatrix Assemble() const {
    ORXSrvSparseMatrix matrix(0, 0);
    for (NodeDofEntry const& e : m_entries) {
      auto const columnOfRectangle = static_cast<std::uint32_t>(e.columnNode);
      matrix.AddData(Unknown(e.node, e.dof),
                     e.columnDof == 0 ? columnOfRectangle : Unknown(e.columnNode, e.columnDof), e.value);
    }
    EndAssembly(m_path, matrix);
    return matrix;
  }

private:
  void ReadLine() {
    m_lines.RequireFields(5, "node,dof,node,dof,value");
    NodeDofEntry entry{};
    ReadDof(0, entry.node, entry.dof);
    bool const isColumn = m_lines.Field(3) == "0";
    if (!m_entries.empty() && isColumn != (m_entries.front().columnDof == 0))
      m_lines.Fail(isColumn ? "a degree of freedom as in the lines before" : "0 as in the lines before",
                   Quoted(m_lines.Field(3)));
    if (isColumn)
      entry.columnNode = static_cast<std::int32_t>(m_lines.Integer(2, "a column", 0, largestIndex));
    else
      ReadDof(2, entry.columnNode, entry.columnDof);
    entry.value = m_lines.Value(4);
    m_entries.push_back(entry);
  }

  void ReadDof(int position, std::int32_t& node, std::int32_t& dof) {
    std::int64_t const most = m_dofsPerNode > 0 ? m_dofsPerNode : mostDofs;
    node = static_cast<std::int32_t>(m_lines.Integer(position, "a node", 1, largestIndex / most));
    dof = static_cast<std::int32_t>(m_lines.Integer(position + 1, "a degree of freedom", 1, most));
    m_largestDof = std::max(m_largestDof, dof);
  }

  /// Nodes are limited so that it fits.
  std::uint32_t Unknown(std::int32_t node, std::int32_t dof) const {
    return static_cast<std::uint32_t>((node - 1) * (m_dofsPerNode > 0 ? m_dofsPerNode : m_largestDof) + dof -
                                      1);
  }

  /// Unless said otherwise; more than any element has, and few enough for twenty million nodes.
  static constexpr std::int64_t mostDofs = 100;

  std::string m_path;
  TextLines m_lines;
  int m_dofsPerNode;
  std::int32_t m_largestDof = 1;
  std::vector<NodeDofEntry> m_entries;
};

} // namespace

ORXSrvSparseMatrix ReadTriplets(std::string const& path, int base) {
  return ReadLines(path, base, ' ', "row column value");
}

ORXSrvSparseMatrix ReadCommas(std::string const& path, int base) {
  return ReadLines(path, base, ',', "row,column,value");
}

ORXSrvSparseMatrix ReadNodeDofs(std::string const& path, int dofsPerNode) {
  return NodeDofFile(path, dofsPerNode).Assemble();
}

} // namespace orx::tool
