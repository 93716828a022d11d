#include "DenseSupport.h"

namespace {

TEST(MatrixContainer, KeepsMatricesUnderTheirIdentifiers) {
  WorkingFolder const folder;
  ORXSrvMatrixContainer container;
  Number(container.Create(7, 3, 2, 2, 100));
  int const labels[] = {40, 10};
  Number(container.Create(-2, 2, 2, labels, nullptr, 1, 1));

  EXPECT_EQ(container.Size(), 2);
  EXPECT_TRUE(container.IsMember(7));
  EXPECT_FALSE(container.IsMember(0));
  EXPECT_EQ(All(container.Get(7)), (Doubles{0, 100, 200, 1, 101, 201}));
  EXPECT_EQ(All(container.Get(-2)), (Doubles{0, 100, 1, 101}));
  EXPECT_EQ(container.Get(7).NumberOfRowBlocks(), 2);
  EXPECT_EQ(Labels(container.Get(-2).RowCSetID()), (std::vector{40, 10}));
  EXPECT_CODE(invalidArgument, container.Get(8));
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
  EXPECT_CODE(invalidArgument, container.Get(1));
}

TEST(MatrixContainer, AFailedCreationLeavesTheRegistryAsItWas) {
  WorkingFolder const folder;
  ORXSrvMatrixContainer container;
  int const negative[] = {3, -1};
  EXPECT_NE(CodeOf([&] { container.Create(1, 2, 2, negative, nullptr, 2, 2); }), 0);
  EXPECT_FALSE(container.IsMember(1));
  Number(container.Create(1, 2, 2, 2, 2));
  EXPECT_EQ(All(container.Get(1)), (Doubles{0, 100, 1, 101}));
}

} // namespace
