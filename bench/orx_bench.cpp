// orx_bench [WORD]: measures the claims about speed, or those whose text contains the word, and prints them
// as a table. Exit code 1 when something failed to run or results disagree; a claim that is short is no
// failure.

#include "bench/Claims.h"
#include "bench/Python.h"
#include "module/ORXSrvLinearAlgebra.h"

#include <Eigen/Core>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <gnu/libc-version.h>
#include <string>
#include <unistd.h>

namespace {

std::string ProcessorModel() {
  std::ifstream file("/proc/cpuinfo");
  for (std::string line; std::getline(file, line);)
    if (line.starts_with("model name")) return line.substr(line.find(':') + 2);
  return "unknown processor";
}

void PrintMachine() {
  double load = 0.0;
  getloadavg(&load, 1);
  std::printf("machine   %s, %ld processors, load %.2f\n", ProcessorModel().c_str(),
              sysconf(_SC_NPROCESSORS_ONLN), load);
  std::printf("built by  g++ %s, %s\n", __VERSION__, ORX_BENCH_BUILD_TYPE);
}

void PrintPeers() {
  std::printf("peers     glibc %s, Eigen %d.%d.%d", gnu_get_libc_version(), EIGEN_WORLD_VERSION,
              EIGEN_MAJOR_VERSION, EIGEN_MINOR_VERSION);
  if (*ORX_BENCH_PETSC_VERSION != '\0') {
    std::printf(", PETSc %s", ORX_BENCH_PETSC_VERSION);
  } else {
    std::printf(", PETSc absent");
  }
  std::string const python = bench::PythonWithSciPy();
  if (python.empty()) {
    std::printf(", SciPy absent\n");
  } else {
    auto const versions = bench::RunProgram(bench::TextPeersCommand(python) + " version");
    std::printf(", SciPy %s, NumPy %s\n", versions.at("scipy").c_str(), versions.at("numpy").c_str());
  }
}

void PrintMethod() {
  std::puts(
      "runs      ours and the peer's in turn, medians over the pairs (ours : peer's); before a run that "
      "takes much memory,\n"
      "          memory is touched and returned, so that neither waits for the host of a virtual machine");
}

void WarnOutsideRelease() {
  if (std::strcmp(ORX_BENCH_BUILD_TYPE, "Release") == 0) return;
  std::fputs("\n*** THIS IS NOT A RELEASE BUILD: THE FIGURES BELOW SAY NOTHING ***\n", stdout);
}

int Run(char const* word) {
  int tally = 0;
  ORXSrvLinearAlgebra_initialize(tally);
  PrintMachine();
  PrintPeers();
  PrintMethod();
  WarnOutsideRelease();
  std::printf("\n");
  bench::Report report(word);
  report.Heading();
  bench::ClaimMatrixOverheads(report);
  bench::ClaimElementOperations(report);
  bench::ClaimAssembly(report);
  bench::ClaimTextTriplets(report);
  bench::ClaimExchangeFiles(report);
  bench::ClaimDatabaseValues(report);
  bench::ClaimDatabaseCommits(report);
  bench::ClaimDenseProducts(report);
  bench::ClaimSymmetricBlocks(report);
  bench::ClaimMatrixRegistry(report);
  bench::ClaimSparseKernels(report);
  bench::ClaimSparseOperations(report);
  bench::ClaimSparseModes(report);
  bench::ClaimManyRanks(report);
  report.Summary();
  ORXSrvLinearAlgebra_finalize(tally);
  return report.ExitCode();
}

} // namespace

int main(int argc, char** argv) {
  if (argc > 2) {
    std::fprintf(stderr, "usage: %s [WORD]\n", argv[0]);
    return 2;
  }
  try {
    return Run(argc == 2 ? argv[1] : "");
  } catch (std::exception const& e) {
    std::fprintf(stderr, "orx_bench: %s\n", e.what());
    return 1;
  }
}
