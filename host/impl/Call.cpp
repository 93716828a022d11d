#include "host/impl/Call.h"

#include "module/ORXSrvLastError.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace orx::host {
namespace {

bool raisesErrors = false;

/// The text of the last error.
std::string LastError() {
  int length = 0;
  length = ORXSRVLASTERROR(nullptr, &length) + 1;
  std::string text(static_cast<std::size_t>(length), '\0');
  ORXSRVLASTERROR(text.data(), &length);
  text.pop_back();
  return text;
}

[[noreturn]] void RaiseOutOfRange(char const* argument, std::int64_t number, std::string const& expected) {
  RaiseHostError(HostError::wrongArgument,
                 std::string(argument) + " is " + std::to_string(number) + "; expected " + expected + ".");
}

} // namespace

Activity::Activity(char const* entryPoint) {
  if (entryPointAtWork != nullptr)
    HostError(HostError::wrongOrder,
              std::string(entryPoint) +
                  ": called from a progress function; expected it to return 0 or 1 only.")
        .Throw(__FILE__, __LINE__);
  entryPointAtWork = entryPoint;
}

Activity::~Activity() { entryPointAtWork = nullptr; }

void SetRaising(bool raise) noexcept { raisesErrors = raise; }

void Report(char const* entryPoint, int* stat) {
  int const number = ORXSRVTRY([](void*) { throw; }, nullptr);
  if (raisesErrors) throw;
  if (stat == nullptr) {
    std::string const text = LastError(), name = std::string(entryPoint) + ": ";
    std::fprintf(stderr, "Error %d: %s%s\n", number, text.starts_with(name) ? "" : name.c_str(),
                 text.c_str());
    std::exit(EXIT_FAILURE); // NOLINT(concurrency-mt-unsafe): one thread calls
  }
  *stat = number;
}

void RaiseNull(char const* argument) {
  RaiseHostError(HostError::wrongArgument, std::string(argument) + " is a null pointer.");
}

int PositionOf(char const* argument, int number, int count) {
  if (number < 1 || number > count)
    RaiseOutOfRange(argument, number, "a number from 1 to " + std::to_string(count));
  return number - 1;
}

bool Flag(char const* argument, int flag) {
  if (flag != 0 && flag != 1) RaiseOutOfRange(argument, flag, "0 for no or 1 for yes");
  return flag == 1;
}

int CountOf(char const* argument, int count) {
  if (count < 0) RaiseOutOfRange(argument, count, "0 or more");
  return count;
}

std::int64_t MemoryOf(std::int64_t bytes) {
  if (bytes < 1) RaiseOutOfRange("bytes", bytes, "1 or more");
  return bytes;
}

Shape ShapeOf(int rows, int columns, int rowBlock, int columnBlock) {
  for (auto const& [argument, number] :
       {std::pair{"rows", rows}, std::pair{"columns", columns}, std::pair{"row_block", rowBlock},
        std::pair{"column_block", columnBlock}})
    if (number < 1) RaiseOutOfRange(argument, number, "1 or more");
  return {rows, columns, std::min(rowBlock, rows), std::min(columnBlock, columns)};
}

} // namespace orx::host
