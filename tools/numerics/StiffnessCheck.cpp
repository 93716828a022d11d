#include "tools/numerics/StiffnessCheck.h"

#include "tools/numerics/SymmetricForm.h"
#include "tools/terminal/Interruption.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace orx::tool {

DiagonalRange MeasureDiagonal(ORXSrvSparseMatrix const& matrix) {
  std::vector<double> const diagonal = DiagonalOf(matrix);
  DiagonalRange range;
  for (int i = 0; i < matrix.NumberOfRows(); ++i) {
    double const value = diagonal[i], magnitude = std::fabs(value);
    if (value < 0.0) range.negative.push_back(i);
    if (magnitude == 0.0) ++range.zeros;
    if (magnitude == 0.0) continue;
    bool const isFirst = range.largest < 0;
    if (isFirst || magnitude < std::fabs(range.smallestValue))
      range.smallest = i, range.smallestValue = value;
    if (isFirst || magnitude > std::fabs(range.largestValue)) range.largest = i, range.largestValue = value;
  }
  return range;
}

std::vector<int> FindEmptyUnknowns(ORXSrvSparseMatrix const& matrix) {
  std::vector<bool> isUsed = NonzeroRows(matrix);
  ForEachEntry(matrix.View(), [&](std::int32_t, std::int32_t column, double value) {
    if (value != 0.0) isUsed[column] = true;
  });
  std::vector<int> empty;
  for (int i = 0; i < matrix.NumberOfRows(); ++i)
    if (!isUsed[i]) empty.push_back(i);
  return empty;
}

StiffnessFacts FactorizeStiffness(ORXSrvSparseMatrix const& stiffness, std::vector<int> const& empty,
                                  std::int64_t memory) {
  WorkFolder const folder;
  ORXSrvSparseFactor factor;
  factor.SetFolder(folder.Path().c_str());
  if (memory > 0) factor.SetMemory(memory);
  factor.Factorize(stiffness);
  StiffnessFacts facts;
  facts.factor = factor.Facts();
  std::ranges::set_difference(facts.factor.nullUnknowns, empty, std::back_inserter(facts.nullUnknowns));
  facts.condition = factor.EstimateCondition();
  return facts;
}

} // namespace orx::tool
