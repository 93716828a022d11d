#include "bench/Harness.h"

#include "core/ORXBasException.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {
namespace {

constexpr int claimWidth = 116;

std::string LowerCase(std::string_view text) {
  std::string lower(text);
  for (char& c : lower)
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lower;
}

bool ReadAll(int file, char* target, std::size_t bytes) {
  while (bytes > 0) {
    ssize_t const got = read(file, target, bytes);
    if (got <= 0) return false;
    target += got;
    bytes -= static_cast<std::size_t>(got);
  }
  return true;
}

/// What the exception that is being handled says.
std::string Reason() {
  try {
    throw;
  } catch (ORXBasException const& e) {
    return e.AsString().AsText();
  } catch (std::exception const& e) {
    return e.what();
  } catch (...) {
    return "an exception of unknown class";
  }
}

/// The child's part of a forked run; does not return.
[[noreturn]] void PerformInChild(std::function<void()> const& task, void const* result, std::size_t bytes,
                                 int pipe) {
  int status = 1;
  try {
    task();
    if (write(pipe, result, bytes) == static_cast<ssize_t>(bytes)) status = 0;
  } catch (...) {
    std::fprintf(stderr, "%s\n", Reason().c_str());
  }
  _exit(status);
}

} // namespace

// ---- measuring

void WarmMemory(std::int64_t bytes) {
  auto const size = static_cast<std::size_t>(bytes);
  void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return; // the run itself will tell
  madvise(memory, size, MADV_HUGEPAGE);
  std::memset(memory, 1, size);
  munmap(memory, size);
}

double Median(std::vector<double> values) {
  std::size_t const middle = values.size() / 2;
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(middle), values.end());
  double const upper = values[middle];
  if (values.size() % 2 == 1) return upper;
  return (*std::max_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(middle)) + upper) /
         2;
}

Pairs MeasurePairs(TimedRun const& ours, TimedRun const& peer, double seconds, int leastPairs) {
  constexpr int manyPairs = 10;
  if (leastPairs >= manyPairs) {
    ours();
    peer();
  }
  std::vector<double> oursSeconds, peerSeconds, ratios, differences;
  double const end = Now() + seconds;
  while (static_cast<int>(ratios.size()) < leastPairs || Now() < end) {
    // In turn first and second, else a disturbance with the period of a pair would always meet the same one.
    bool const oursFirst = ratios.size() % 2 == 0;
    if (oursFirst) oursSeconds.push_back(ours());
    peerSeconds.push_back(peer());
    if (!oursFirst) oursSeconds.push_back(ours());
    ratios.push_back(oursSeconds.back() / peerSeconds.back());
    differences.push_back(oursSeconds.back() - peerSeconds.back());
  }
  return {Median(oursSeconds), Median(peerSeconds), Median(ratios), Median(differences)};
}

void RunForked(std::function<void()> const& task, void* result, std::size_t bytes) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) throw std::runtime_error("no pipe to a forked run");
  std::fflush(nullptr); // else the child would write what is buffered here once more
  pid_t const child = fork();
  if (child < 0) throw std::runtime_error("fork failed");
  if (child == 0) PerformInChild(task, result, bytes, ends[1]);
  close(ends[1]);
  bool const complete = ReadAll(ends[0], static_cast<char*>(result), bytes);
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (!complete || status != 0) throw std::runtime_error("a forked run did not come to its end");
}

std::map<std::string, std::string> RunProgram(std::string const& command) {
  std::fflush(nullptr);
  std::FILE* const output = popen(command.c_str(), "r");
  if (output == nullptr) throw std::runtime_error("cannot run: " + command);
  std::string text;
  std::array<char, 4096> buffer{};
  while (std::size_t const got = std::fread(buffer.data(), 1, buffer.size(), output))
    text.append(buffer.data(), got);
  if (pclose(output) != 0) throw std::runtime_error("failed: " + command);
  std::map<std::string, std::string> lines;
  std::istringstream stream(text);
  for (std::string name, value; stream >> name && std::getline(stream >> std::ws, value);)
    lines[name] = value;
  return lines;
}

double Number(std::map<std::string, std::string> const& lines, std::string const& name) {
  auto const found = lines.find(name);
  if (found == lines.end()) throw std::runtime_error("a peer's program did not print " + name);
  return std::strtod(found->second.c_str(), nullptr);
}

void RequireAgreement(bool agree, std::string const& what) {
  if (!agree) throw std::runtime_error("results disagree: " + what);
}

std::string Format(char const* format, ...) {
  std::array<char, 1024> text{};
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text.data(), text.size(), format, arguments);
  va_end(arguments);
  return text.data();
}

// ---- the table

Report::Report(std::string_view word) : m_word(LowerCase(word)) {}

bool Report::Wants(std::string_view claim) const {
  return LowerCase(claim).find(m_word) != std::string::npos;
}

void Report::Heading() const { std::printf("%-*s | %10s | %9s |\n", claimWidth, "claim", "ratio", "goal"); }

void Report::Line(std::string const& claim, std::string const& figures, double value, char const* unit,
                  Goal goal) {
  if (!Wants(claim)) return;
  std::string const text = figures.empty() ? claim : claim + " (" + figures + ")";
  std::string const measured = Format(value < 10.0 ? "%.3f%s" : "%.1f%s", value, unit);
  if (goal.kind == Goal::Kind::None) return Print(text, measured, "-", "-");
  bool const atMost = goal.kind == Goal::Kind::AtMost;
  bool const reached = atMost ? value <= goal.bound : value >= goal.bound;
  ++(reached ? m_ok : m_short);
  Print(text, measured, Format("%s %g%s", atMost ? "<=" : ">=", goal.bound, unit), reached ? "ok" : "short");
}

void Report::Absent(std::string const& claim, char const* peer) {
  if (Wants(claim)) Print(claim + ": " + peer + " is not installed", "-", "-", "absent");
}

void Report::Try(std::string const& claim, std::function<void()> const& measurement) {
  try {
    measurement();
  } catch (...) {
    ++m_failures;
    Print(claim + ": " + Reason(), "-", "-", "FAILED");
  }
}

void Report::Summary() const { std::printf("%d ok, %d short, %d failed\n", m_ok, m_short, m_failures); }

void Report::Print(std::string const& claim, std::string const& value, std::string const& goal,
                   char const* verdict) const {
  std::printf("%-*s | %10s | %9s | %s\n", claimWidth, claim.c_str(), value.c_str(), goal.c_str(), verdict);
  std::fflush(stdout);
}

} // namespace bench
