#pragma once

#include "bench/BlockOfVectors.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <random>
#include <string>
#include <vector>

// What the programs that work on the matrix in a folder have in common.

namespace bench {

/// "products [symmetric] FOLDER COUNT...": what a program is asked to time.
struct ProductsTask {
  bool isSymmetric;
  std::string folder;
  std::vector<int> counts; ///< of vectors

  explicit ProductsTask(std::vector<std::string> const& words) : isSymmetric(words[1] == "symmetric") {
    std::size_t const first = isSymmetric ? 2 : 1;
    folder = words[first];
    for (std::size_t k = first + 1; k < words.size(); ++k)
      counts.push_back(std::stoi(words[k]));
  }
};

/// Compressed rows of a square matrix, out of the files ia.bin, ja.bin and a.bin.
struct RowsOfFolder {
  LargeArray<int> ia, ja;
  LargeArray<double> a;
  int rows;

  explicit RowsOfFolder(std::string const& folder)
      : ia(Read<int>(folder + "/ia.bin")), ja(Read<int>(folder + "/ja.bin")),
        a(Read<double>(folder + "/a.bin")), rows(static_cast<int>(ia.Size()) - 1) {}

private:
  /// Ends the program when there is no such file.
  template<class T>
  static LargeArray<T> Read(std::string const& path) {
    std::FILE* const file = std::fopen(path.c_str(), "rb");
    if (file != nullptr && std::fseek(file, 0, SEEK_END) == 0) {
      LargeArray<T> array(static_cast<std::size_t>(std::ftell(file)) / sizeof(T));
      std::rewind(file);
      bool const isRead = std::fread(array.Data(), sizeof(T), array.Size(), file) == array.Size();
      std::fclose(file);
      if (isRead) return array;
    }
    std::fprintf(stderr, "cannot read %s\n", path.c_str());
    std::exit(1);
  }
};

/// The permutation of the claims: element k is the old number of row k.
inline std::vector<int> ScrambledRows(int rows) {
  std::vector<int> perm(static_cast<std::size_t>(rows));
  std::iota(perm.begin(), perm.end(), 0);
  std::shuffle(perm.begin(), perm.end(), std::mt19937(7));
  return perm;
}

/// Sum of value * (row % 7 + 1) * (column % 5 + 1), exact for the values of the claims.
inline double ChecksumOfRows(int rows, int const* ia, int const* ja, double const* a) {
  double sum = 0.0;
  for (int i = 0; i < rows; ++i)
    for (int k = ia[i]; k < ia[i + 1]; ++k)
      sum += a[k] * ((i % 7 + 1) * (ja[k] % 5 + 1));
  return sum;
}

/// The median seconds of three runs of a task that returns a result to be destroyed, which is not timed.
template<class Task, class Destroy>
double MedianSecondsOfNew(Task const& task, Destroy const& destroy) {
  std::vector<double> seconds(3);
  destroy(task());
  for (double& s : seconds) {
    double const start = Now();
    auto const result = task();
    s = Now() - start;
    destroy(result);
  }
  std::nth_element(seconds.begin(), seconds.begin() + 1, seconds.end());
  return seconds[1];
}

inline void PrintTiming(char const* task, double seconds, double checksum) {
  std::printf("%s %.9f\n%s_checksum %.17g\n", task, seconds, task, checksum);
}

} // namespace bench
