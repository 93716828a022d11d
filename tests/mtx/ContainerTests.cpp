#include "tests/support/Raised.h"
#include "tests/support/TemporaryFolder.h"

#include "mtx/ORXSrvMatrix.h"
#include "mtx/ORXSrvMatrixContainer.h"
#include "sim/ORXSimCSet.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace {

std::vector<double> AllValues(ORXSrvDenseMatrix const& matrix) {
  std::vector<double> values(static_cast<std::size_t>(matrix.NumberOfRows()) * matrix.NumberOfColumns());
  matrix.GetAllValues(values.data());
  return values;
}

void SetAllValues(ORXSrvDenseMatrix& matrix, std::vector<double> values) {
  ORXSrvMatrix const source(matrix.NumberOfRows(), matrix.NumberOfColumns(), values.data());
  matrix.SetValues(0, matrix.NumberOfRows() - 1, 0, matrix.NumberOfColumns() - 1, source);
}

TEST(MatrixContainer, KeepsMatricesUnderTheirIdentifiers) {
  WorkingFolder const folder;
  ORXSrvMatrixContainer container;
  SetAllValues(container.Create(7, 3, 2, 2, 100), {1, 2, 3, 4, 5, 6});
  int const labels[] = {40, 10};
  SetAllValues(container.Create(-2, 2, 2, labels, nullptr, 1, 1), {9, 8, 7, 6});

  EXPECT_EQ(container.Size(), 2);
  EXPECT_TRUE(container.IsMember(7));
  EXPECT_FALSE(container.IsMember(0));
  EXPECT_EQ(AllValues(container.Get(7)), (std::vector<double>{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(AllValues(container.Get(-2)), (std::vector<double>{9, 8, 7, 6}));
  EXPECT_EQ(container.Get(7).NumberOfRowBlocks(), 2);
  int found[2] = {};
  ORXSimCSet(container.Get(-2).RowCSetID()).OrderedMembers(found);
  EXPECT_EQ(found[0], 40);
  EXPECT_EQ(CodeOf([&] { container.Get(8); }), ORXSimException::invalidArgument);
}

TEST(MatrixContainer, ATakenIdentifierKeepsItsMatrix) {
  WorkingFolder const folder;
  ORXSrvMatrixContainer container;
  ORXSrvDenseMatrix& first = container.Create(1, 2, 2, 2, 2);
  std::unique_ptr<ORXSrvDenseMatrix> const second(&container.Create(1, 3, 3, 3, 3));

  EXPECT_EQ(container.Size(), 1);
  EXPECT_EQ(&container.Get(1), &first);
  EXPECT_EQ(second->NumberOfRows(), 3);
}

TEST(MatrixContainer, ARemovedIdentifierStaysTaken) {
  WorkingFolder const folder;
  ORXSrvMatrixContainer container;
  container.Create(1, 2, 2, 2, 2);
  container.Remove(1);
  container.Remove(2);

  EXPECT_TRUE(container.IsMember(1));
  EXPECT_EQ(container.Size(), 1);
  EXPECT_EQ(CodeOf([&] { container.Get(1); }), ORXSimException::invalidArgument);
}

TEST(MatrixContainer, AFailedCreationLeavesTheRegistryAsItWas) {
  WorkingFolder const folder;
  ORXSrvMatrixContainer container;
  int const negative[] = {3, -1};
  EXPECT_NE(CodeOf([&] { container.Create(1, 2, 2, negative, nullptr, 2, 2); }), 0);
  EXPECT_FALSE(container.IsMember(1));
  SetAllValues(container.Create(1, 2, 2, 2, 2), {1, 2, 3, 4});
  EXPECT_EQ(AllValues(container.Get(1)), (std::vector<double>{1, 2, 3, 4}));
}

} // namespace
