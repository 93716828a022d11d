#include "MatrixSupport.h"
#include "SparseSupport.h"

#include <cctype>
#include <filesystem>

// Two folders of small files, by format; adding a file adds a test.
//
//   malformed/<format>/<fault>-<place>.*   no matrix; <place> is the byte, record or line of the fault
//   wellformed/<format>/*                  all of them the matrix   4 -1  0
//                                                                  -1  4 -2
//                                                                   0 -2  5

namespace {

namespace fs = std::filesystem;

struct Format {
  char const* name;
  int code;
  char const* place; ///< what the errors count
};
constexpr Format formats[] = {{"fortran", 0, "record"},
                              {"block", 1, "byte"},
                              {"text", 2, "line"},
                              {"chunked", 6, "byte"},
                              {"dense", 7, "byte"}};

struct ExchangeFile {
  Format format;
  fs::path path;
};

std::vector<ExchangeFile> FilesIn(char const* folder) {
  std::vector<ExchangeFile> files;
  for (Format const& format : formats) {
    fs::path const path = fs::path(ORX_TEST_FILES) / folder / format.name;
    if (!fs::exists(path)) continue;
    for (auto const& entry : fs::directory_iterator(path))
      files.push_back({format, entry.path()});
  }
  return files;
}

std::string NameOf(testing::TestParamInfo<ExchangeFile> const& test) {
  std::string name = std::string(test.param.format.name) + "_" + test.param.path.stem().string();
  std::replace_if(
      name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
  return name;
}

class Malformed : public testing::TestWithParam<ExchangeFile> {};

TEST_P(Malformed, IsAnErrorWithPathAndPlaceAndLeavesTheMatrix) {
  auto const& [format, path] = GetParam();
  std::string const stem = path.stem().string(), place = stem.substr(stem.rfind('-') + 1);
  std::vector<double> const diagonal{1, 2};
  auto const matrix = ORXSrvSparseMatrixTestAccess::Adopt({0, 1, 1}, {1}, {7}, &diagonal, 3, 2);

  std::string const text = Raised([&] { matrix->Import(path.c_str(), format.code); });

  std::string const expected = "202 ORXSrvSparseImExPorter: Failed to open file " + path.string() + ", " +
                               format.place + " " + place + ": ";
  EXPECT_EQ(text.substr(0, expected.size()), expected) << text;
  EXPECT_NE(text.find(" expected"), std::string::npos) << text;
  EXPECT_NE(text.find(", found "), std::string::npos) << text;
  EXPECT_EQ(EntriesOf(*matrix), (Entries{{0, 0, 1}, {1, 1, 2}, {0, 1, 7}, {1, 0, 7}}));
  EXPECT_EQ(matrix->NumberOfNonzeros(), 3);
  EXPECT_EQ(ORXSrvSparseMatrixTestAccess::SymmetryState(*matrix), 1);
}
INSTANTIATE_TEST_SUITE_P(Files, Malformed, testing::ValuesIn(FilesIn("malformed")), NameOf);

class Wellformed : public testing::TestWithParam<ExchangeFile> {};

TEST_P(Wellformed, IsTheSameMatrix) {
  ORXSrvSparseMatrix matrix(7, 7);
  Assemble(matrix, {{6, 6, 1.0}});

  matrix.Import(GetParam().path.c_str(), GetParam().format.code);

  std::vector<double> image(9);
  for (ORXSrvSparseMatrixEntry const& e : EntriesOf(matrix))
    image.at(e.row * 3 + e.column) += e.value;
  EXPECT_EQ(image, (std::vector<double>{4, -1, 0, -1, 4, -2, 0, -2, 5}));
  EXPECT_EQ(SizeOf(matrix), (std::pair{3, 3}));
}
INSTANTIATE_TEST_SUITE_P(Files, Wellformed, testing::ValuesIn(FilesIn("wellformed")), NameOf);

} // namespace
