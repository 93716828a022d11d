#include "ToolSupport.h"

#include <algorithm>
#include <cmath>

// Published stiffness and mass matrices, with their lowest eigenvalues known to 25 digits. Each folder holds
// {K,M}.{full,lower}.txt and ref.json; without the data these tests are skipped.

namespace {

/// What is needed of ref.json: numbers by name, searched from a section's name on.
class Reference {
public:
  explicit Reference(std::filesystem::path const& file) {
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    m_text = text.str();
  }

  double Number(std::string const& section, std::string const& name) const {
    return std::strtod(m_text.c_str() + ValueOf(section, name), nullptr);
  }
  /// A list of numbers in quotes.
  std::vector<long double> QuotedNumbers(std::string const& section, std::string const& name) const {
    std::vector<long double> numbers;
    std::size_t at = ValueOf(section, name);
    std::size_t const end = m_text.find(']', at);
    for (at = m_text.find('"', at); at < end; at = m_text.find('"', m_text.find('"', at + 1) + 1))
      numbers.push_back(std::strtold(m_text.c_str() + at + 1, nullptr));
    return numbers;
  }

private:
  std::size_t ValueOf(std::string const& section, std::string const& name) const {
    std::size_t const begin = m_text.find("\"" + section + "\": {");
    std::size_t const found = m_text.find("\"" + name + "\":", begin);
    if (begin == std::string::npos || found == std::string::npos) throw std::runtime_error("no " + name);
    return found + name.size() + 3;
  }

  std::string m_text;
};

class PublishedPairs : public testing::Test {
protected:
  void SetUp() override {
    if (!std::filesystem::is_directory(ORX_TEST_DATA)) GTEST_SKIP() << "no folder " ORX_TEST_DATA;
    for (auto const& folder : std::filesystem::directory_iterator(ORX_TEST_DATA))
      if (std::filesystem::exists(folder.path() / "K.full.txt")) m_folders.push_back(folder.path());
    std::sort(m_folders.begin(), m_folders.end());
    ASSERT_FALSE(m_folders.empty()) << ORX_TEST_DATA;
  }

  std::vector<std::filesystem::path> m_folders;
};

/// The value behind a label of the program's output.
double Labelled(std::string const& output, std::string const& label) {
  std::size_t const at = output.find("\n" + label);
  if (at == std::string::npos) return std::nan("");
  return std::strtod(output.c_str() + at + 1 + label.size(), nullptr);
}

TEST_F(PublishedPairs, LowestEigenvaluesAreAsAccurateAsTheDataAllow) {
  for (auto const& folder : m_folders)
    for (std::string const form : {"full", "lower"}) {
      SCOPED_TRACE(folder.filename().string() + " " + form);
      Reference const reference(folder / "ref.json");
      auto const expected = reference.QuotedNumbers("generalized", "lowest");
      double const scale = reference.Number("generalized", "lapack_double_reldiff_max");

      RunResult const result = RunTool("modes -n 20 '" + (folder / ("K." + form + ".txt")).string() + "' '" +
                                       (folder / ("M." + form + ".txt")).string() + "'");

      EXPECT_EQ(result.exitCode, 0) << result.err;
      auto const modes = ReadModes(result.out);
      ASSERT_EQ(expected.size(), 20U);
      ASSERT_EQ(modes.size(), expected.size());
      for (std::size_t i = 0; i < modes.size(); ++i)
        EXPECT_LE(static_cast<double>(std::fabs(modes[i].eigenvalue / expected[i] - 1.0L)), 10 * scale)
            << "mode " << i + 1;
    }
}

TEST_F(PublishedPairs, InfoAgreesWithThePublishedFigures) {
  for (auto const& folder : m_folders)
    for (std::string const name : {"K", "M"}) {
      SCOPED_TRACE(folder.filename().string() + " " + name);
      Reference const reference(folder / "ref.json");

      std::string const info = RunTool("info '" + (folder / (name + ".full.txt")).string() + "'").out;

      auto const expectSame = [&](std::string const& label, std::string const& key) {
        double const expected = reference.Number(name, key);
        EXPECT_NEAR(Labelled(info, label), expected, 1e-13 * expected) << label;
      };
      expectSame("shape:", "rows");
      expectSame("stored entries:", "stored_full");
      expectSame("stored zeros:", "explicit_zeros_full");
      expectSame("bandwidth:           lower", "bandwidth_lower");
      expectSame("1-norm:", "norm_1");
      expectSame("infinity-norm:", "norm_inf");
      expectSame("Frobenius norm:", "norm_fro");
      expectSame("largest magnitude:", "max_abs");
    }
}

} // namespace
