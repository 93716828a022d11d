#pragma once

#include "host/impl/HostError.h"
#include "host/impl/Kinds.h"

#include <string>

// What every entry point does around its work; the generated code calls these.

namespace orx::host {

/// With true, errors leave the entry points as exceptions.
void SetRaising(bool raise) noexcept;

/// Reports the exception that is being handled: keeps its text, and sets `stat` to its number, or throws it
/// again, or without `stat` prints it and ends the program.
void Report(char const* entryPoint, int* stat);

/// Marks that an entry point is at work. Raises wrongOrder when one is already, which a progress function
/// called back from.
class Activity {
public:
  explicit Activity(char const* entryPoint);
  Activity(Activity const&) = delete;
  Activity& operator=(Activity const&) = delete;
  ~Activity();
};

/// Performs the work of an entry point.
template<class Work>
void Answer(char const* entryPoint, int* stat, Work const& work) {
  try {
    Activity const activity(entryPoint);
    work();
    if (stat != nullptr) *stat = 0;
  } catch (...) {
    Report(entryPoint, stat);
  }
}

[[noreturn]] void RaiseNull(char const* argument);

template<class T>
T* Required(char const* argument, T* pointer) {
  if (pointer == nullptr) RaiseNull(argument);
  return pointer;
}

template<class Kind>
Kind& Live(char const* argument, std::int64_t const* handle) {
  return Find<Kind>(argument, *Required(argument, handle));
}

/// The zero-based position that a number from 1 stands for. Raises wrongArgument for a number outside of 1
/// ... count.
int PositionOf(char const* argument, int number, int count);
/// True for a flag of 1, false for one of 0; wrongArgument for anything else.
bool Flag(char const* argument, int flag);
/// Raises wrongArgument for a negative number.
int CountOf(char const* argument, int count);

/// Raises wrongArgument for a number of bytes below 1.
std::int64_t MemoryOf(std::int64_t bytes);

struct Shape {
  int rows, columns, rowBlock, columnBlock;
};
/// The shape of a new block matrix, its blocks not larger than itself. Raises wrongArgument for a number
/// below 1.
Shape ShapeOf(int rows, int columns, int rowBlock, int columnBlock);

} // namespace orx::host
