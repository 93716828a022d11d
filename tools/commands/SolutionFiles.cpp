#include "tools/commands/SolutionFiles.h"

#include "tools/commands/SolveReport.h"
#include "tools/terminal/Text.h"

#include <vector>

namespace orx::tool {
namespace {

std::vector<double> RowOf(Columns const& columns, int row) {
  std::vector<double> values(static_cast<std::size_t>(columns.count));
  for (int j = 0; j < columns.count; ++j)
    values[j] = columns.Column(j)[row];
  return values;
}

std::string DisplacementsText(Columns const& displacements) {
  std::string text = HeadText("displacement", displacements.count);
  for (int i = 0; i < displacements.rows; ++i)
    text += RowText(i, RowOf(displacements, i));
  return text;
}

std::string ReactionsText(std::vector<HeldUnknown> const& held, Columns const& reactions) {
  std::string text = HeadText("reaction", reactions.count);
  for (int i = 0; i < reactions.rows; ++i)
    text += RowText(held[i].unknown, RowOf(reactions, i));
  return text;
}

void AddRow(ORXSrvSparseMatrix& matrix, int unknown, Columns const& columns, int row) {
  for (int j = 0; j < columns.count; ++j)
    matrix.AddData(static_cast<std::uint32_t>(unknown), static_cast<std::uint32_t>(j),
                   columns.Column(j)[row]);
}

ORXSrvSparseMatrix MatrixOf(Columns const& displacements) {
  ORXSrvSparseMatrix matrix(displacements.rows, displacements.count);
  for (int i = 0; i < displacements.rows; ++i)
    AddRow(matrix, i, displacements, i);
  matrix.EndAssembly();
  return matrix;
}

ORXSrvSparseMatrix MatrixOf(std::vector<HeldUnknown> const& held, Columns const& reactions, int order) {
  ORXSrvSparseMatrix matrix(order, reactions.count);
  for (int i = 0; i < reactions.rows; ++i)
    AddRow(matrix, held[i].unknown, reactions, i);
  matrix.EndAssembly();
  return matrix;
}

} // namespace

SolutionFiles::SolutionFiles(SolveOptions const& o) : m_options(o) {
  std::vector<std::string> const inputs{o.stiffnessPath, o.loadsPath, o.heldPath};
  if (!o.outPath.empty()) m_displacements.emplace("OUT", o.outPath, inputs);
  if (!o.reactionsPath.empty()) m_reactions.emplace("--reactions", o.reactionsPath, inputs);
}

void SolutionFiles::Write(std::vector<HeldUnknown> const& held, StaticSolution const& s,
                          std::span<int const> labels, std::function<void(std::string const&)> const& print) {
  if (!m_displacements) print(DisplacementsText(s.displacements));
  if (!m_reactions && !held.empty()) print(ReactionsText(held, s.reactions));
  if (m_displacements) {
    m_displacements->Write("displacements", MatrixOf(s.displacements), labels);
    print(Note("displacements: " + m_options.outPath + ", unknowns by loads"));
  }
  if (!m_reactions) return;
  m_reactions->Write("reactions", MatrixOf(held, s.reactions, s.displacements.rows), labels);
  print(Note("reactions: " + m_options.reactionsPath + ", unknowns by loads"));
}

} // namespace orx::tool
