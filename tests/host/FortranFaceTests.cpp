#include "tests/support/Raised.h"
#include "tests/support/TemporaryFolder.h"

#include "module/ORXSrvLastError.h"
#include "module/ORXSrvMatrixRegistry.h"
#include "mtx/ORXSrvMatrix.h"
#include "mtx/ORXSrvMatrixContainer.h"

#include <new>
#include <vector>

extern "C" {
double fortran_value_of(void* container, int const* id, int const* rows, int const* columns, int const* i,
                        int const* j);
int fortran_try_to_sum(void* container, int const* id, double* total, char* text, int const* length);
void fortran_own_container(void);
double fortran_solution_error(void);
void fortran_use_host(int const* n, char const* path, int const* length, double* x, int* stat);
}

namespace {

/// A container with one matrix, which holds 1, 2, 3 ... by columns.
class Registered : Uncopied {
public:
  Registered(int id, int rows, int columns, int rowChunk, int columnChunk) {
    std::vector<double> values;
    for (int k = 0; k < rows * columns; ++k)
      values.push_back(k + 1);
    ORXSrvMatrix const source(rows, columns, values.data());
    static_cast<ORXSrvMatrixContainer*>(m_container)
        ->Create(id, rows, columns, rowChunk, columnChunk)
        .SetValues(0, rows - 1, 0, columns - 1, source);
  }
  ~Registered() { ORXSRVMATRIXCONTAINERDELETE(m_container); }
  void* Handle() const { return m_container; }

private:
  WorkingFolder m_folder; // goes last
  void* const m_container = ORXSRVMATRIXCONTAINERCREATE();
};

std::string LastError() {
  int const length = 200;
  char text[200];
  ORXSRVLASTERROR(text, &length);
  return text;
}

TEST(FortranFace, ReadsRegisteredMatricesByColumns) {
  Registered const registered(5, 3, 2, 2, 1);
  int const id = 5, rows = 3, columns = 2;
  for (int j = 1; j <= columns; ++j)
    for (int i = 1; i <= rows; ++i)
      EXPECT_EQ(fortran_value_of(registered.Handle(), &id, &rows, &columns, &i, &j), i + 3 * (j - 1));
}

TEST(FortranFace, AHostCatchesWhatPassesThroughFortran) {
  Registered const registered(5, 2, 2, 2, 2);
  int const unknown = 6, one = 1;
  int code = 0;
  try {
    fortran_value_of(registered.Handle(), &unknown, &one, &one, &one, &one);
  } catch (ORXSimException const& e) {
    code = e.Code();
    EXPECT_EQ(e.AsString().AsText(), LastError());
  }
  EXPECT_EQ(code, ORXSimException::invalidArgument);
  EXPECT_EQ(LastError(), "The matrix container has no matrix 6.");
}

TEST(FortranFace, FortranLearnsWhatWentWrong) {
  Registered const registered(5, 2, 2, 1, 2);
  int const known = 5, unknown = -1, length = 20;
  char text[length];
  double total = 0.0;
  EXPECT_NE(fortran_try_to_sum(registered.Handle(), &unknown, &total, text, &length), 0);
  EXPECT_EQ(total, -1.0);
  EXPECT_EQ(std::string(text, length), "The matrix container");
  EXPECT_EQ(fortran_try_to_sum(registered.Handle(), &known, &total, text, &length), 0);
  EXPECT_EQ(total, 1 + 2 + 3 + 4);
}

TEST(FortranFace, AnythingThrownHasATextAndShortBuffersCutIt) {
  EXPECT_EQ(ORXSRVTRY([](void*) { throw std::bad_alloc(); }, nullptr), -1);
  EXPECT_EQ(LastError(), "std::bad_alloc");
  EXPECT_EQ(ORXSRVTRY([](void*) { throw 7; }, nullptr), -1);
  std::string const whole = "An exception of unknown type.";
  EXPECT_EQ(LastError(), whole);
  char text[] = "########";
  int length = 4;
  EXPECT_EQ(ORXSRVLASTERROR(text, &length), static_cast<int>(whole.size()));
  EXPECT_STREQ(text, "An ");
  EXPECT_EQ(text[4], '#');
  length = 0;
  EXPECT_EQ(ORXSRVLASTERROR(nullptr, &length), static_cast<int>(whole.size()));
}

TEST(FortranFace, ContainersComeAndGo) {
  WorkingFolder const folder;
  fortran_own_container();
  EXPECT_TRUE(folder.Files().empty());
}

TEST(FortranFace, WorksFromElementsToAFile) {
  WorkingFolder const folder;
  int const n = 200, length = 10;
  double x[2] = {};
  int stat = 0;
  fortran_use_host(&n, "result.sim", &length, x, &stat);
  EXPECT_EQ(stat, 301); // stopped by its progress function
  EXPECT_NEAR(x[0], 1.0, 1e-12);
  EXPECT_NEAR(x[1], n, 1e-10);
  EXPECT_EQ(folder.Files(), (std::set<std::string>{"result.sim"}));
}

TEST(FortranFace, CallsTheCallLayer) { EXPECT_LE(fortran_solution_error(), 1e-15); }

} // namespace
