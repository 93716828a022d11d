#include "tools/commands/Perform.h"

#include "tools/formats/OutputFile.h"
#include "tools/terminal/Program.h"

#include "core/ORXBasException.h"
#include "core/mem_Allocator.h"
#include "module/ORXSrvLinearAlgebra.h"

#include <cstdio>
#include <exception>
#include <new>

namespace orx::tool {
namespace {

void PrintError(std::string const& text) { std::fputs(text.c_str(), stderr); }

} // namespace

std::optional<ToolError> FailureOf(std::function<void()> const& work) {
  try {
    ORXSrvLinearAlgebraSession const session;
    work();
    return {};
  } catch (ToolError const& e) {
    return e;
  } catch (ORXBasException const& e) {
    return ToolError(ExitCode::Failure, e.AsString().AsText());
  } catch (mem_OutOfMemory const& e) {
    return ToolError(ExitCode::Failure, e.what());
  } catch (std::bad_alloc const&) {
    return ToolError(ExitCode::Failure, "out of memory");
  } catch (std::exception const& e) {
    return ToolError(ExitCode::Failure, e.what());
  }
}

int Fail(ExitCode code, std::string const& message) {
  std::fprintf(stderr, "%s: %s\n", ProgramName().c_str(), message.c_str());
  return static_cast<int>(code);
}

int Perform(std::function<void()> const& work) {
  std::optional<ToolError> const failure = FailureOf(work);
  return failure ? Fail(failure->Code(), failure->what()) : static_cast<int>(ExitCode::Success);
}

Print PrintBeside(std::string const& outPath) { return outPath == "-" ? Print(PrintError) : Print(PrintOut); }

} // namespace orx::tool
