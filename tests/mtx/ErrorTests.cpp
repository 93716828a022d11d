#include "mtx/ORXSrvMatrix.h"
#include "mtx/ORXSrvMtxOpenFileException.h"
#include "mtx/ORXSrvScratchDenseMatrix.h"
#include "mtx/ORXSrvSparseMatrix.h"
#include "mtx/impl/matrix/ORXSrvMtxErrors.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

struct Expected {
  std::shared_ptr<ORXBasException> error;
  int code;
  char const* text;
};

std::vector<Expected> AllErrors() {
  return {
      {std::make_shared<ORXSrvMtxNoSymmetricTrue>("PermuteRows"), 201,
       "ORXSrvSparseMatrix::PermuteRows symmetric:True not supported!"},
      {std::make_shared<ORXSrvMtxOpenFileException>("k.txt"), 202,
       "ORXSrvSparseImExPorter: Failed to open file k.txt."},
      {std::make_shared<ORXSrvMtxInvalidGetRange>(), 203,
       "ORXSrvDenseMatrix::GetValues invalid range values."},
      {std::make_shared<ORXSrvMtxInvalidSetRange>(), 204,
       "ORXSrvDenseMatrix::SetValues invalid range values."},
      {std::make_shared<ORXSrvMtxIllegalInput>("GetValues"), 206, "ORXSrvMatrix::GetValues - Illegal input."},
      {std::make_shared<ORXSrvMtxUnsupportedExpFmt>(), 207,
       "ORXSrvSparseImExPorter: Unsupported export format."},
      {std::make_shared<ORXSrvMtxFileWriteFailure>("disk full"), 208, "Error at writing to file: disk full"},
      {std::make_shared<ORXSrvMtxNoUnsymmetric>(), 209,
       "ORXSrvSparseMatrix::%s symmetric:True not supported!"},
      {std::make_shared<ORXSrvMtxUnsupportedImpFmt>(), 210,
       "ORXSrvSparseImExPorter: Unsupported import format."},
      {std::make_shared<ORXSrvMtxNoTranspose>(), 211,
       "ORXSrvSparseMatrix::MultiplyIndexed transpose:False not supported!"},
      {std::make_shared<ORXSrvMtxIllegalPermVect>(), 212,
       "ORXSrvMatrix::PermuteRowsInPlace - Illegal perm Vector."},
      {std::make_shared<ORXSrvMtxSolveIllegalArg>(3), 213,
       "ORXSrvMatrix::SolveEigenproblemSymmetric - Illegal function argument 3."},
      {std::make_shared<ORXSrvMtxSolveNotConverge>(), 214,
       "ORXSrvMatrix::SolveEigenproblemSymmetric - Eigensolver did not converge."},
      {std::make_shared<ORXSrvMtxSolveNotPositive>(), 215,
       "ORXSrvMatrix::SolveEigenproblemSymmetric - Matrix B is not positive-definite."},
      {std::make_shared<ORXSrvMtxDivByZero>(), 218, "ORXSrvMatrix::Factorize - division by 0."},
  };
}

TEST(Errors, CarryTheirNumbersAndTextsAndRaiseTheirOwnClassWithThePlace) {
  for (Expected const& expected : AllErrors()) {
    EXPECT_EQ(expected.error->ErrorCode(), expected.code);
    EXPECT_STREQ(expected.error->UserReport().AsText(), expected.text);
    try {
      expected.error->Throw("mtx/impl/Somewhere.cpp", expected.code);
    } catch (ORXBasException const& e) {
      EXPECT_EQ(typeid(e), typeid(*expected.error));
      EXPECT_STREQ(e.File(), "mtx/impl/Somewhere.cpp");
      EXPECT_EQ(e.Line(), expected.code);
      EXPECT_STREQ(e.AsString().AsText(), expected.text);
    }
  }
}

/// The source that the error which `call` raises names; empty without one.
template<class Call>
std::string SourceOf(Call call) {
  try {
    call();
  } catch (ORXBasException const& e) {
    return e.File();
  }
  return "";
}

TEST(Errors, NameTheSourceOfTheirClassWhereverTheCodeLies) {
  ORXSrvMatrix const a(2, 2);
  EXPECT_EQ(SourceOf([&] { static_cast<void>(a(2, 2)); }), "mtx/impl/ORXSrvMatrix.cpp");
  ORXSrvSparseMatrix sparse(2, 2);
  EXPECT_EQ(SourceOf([&] { sparse.Import("no such file", 3); }), "mtx/impl/ORXSrvSparseImExPorter.cpp");
  sparse.EndAssembly();
  int const twice[] = {0, 0};
  EXPECT_EQ(SourceOf([&] { delete sparse.Permute(twice); }), "mtx/impl/ORXSrvSparseMatrix.cpp");
  ORXSrvScratchDenseMatrix block(3, 3, 2, 2);
  ORXSrvScratchDenseMatrix const small(2, 2, 2, 2);
  EXPECT_EQ(SourceOf([&] { block.AddAssign(small); }), "mtx/impl/ORXSrvDenseMatrix.cpp");
  ORXSrvMatrix sum(2, 2);
  EXPECT_EQ(SourceOf([&] { sum.Add(1.0, block); }), "mtx/impl/ORXSrvMatrix.cpp");
}

TEST(Errors, CopyTheirTextAndKeepPercentSignsInIt) {
  std::string name = "100%s.txt";
  ORXSrvMtxOpenFileException const error(name.c_str());
  name = "changed";
  EXPECT_STREQ(error.AsString().AsText(), "ORXSrvSparseImExPorter: Failed to open file 100%s.txt.");
  EXPECT_STREQ(ORXSrvMtxFileWriteFailure(nullptr).AsString().AsText(), "Error at writing to file: ");
}

} // namespace
