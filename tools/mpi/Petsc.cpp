#include "tools/mpi/Petsc.h"

#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include <slepcsys.h>

#include <cstdio>

namespace orx::mpi {
namespace {

/// The text of the call that failed first, of all that its failure passes through.
std::string& FirstText() {
  static std::string text;
  return text;
}

PetscErrorCode KeepFirstText(MPI_Comm, int, char const* function, char const*, PetscErrorCode code,
                             PetscErrorType type, char const* message, void*) {
  if (type == PETSC_ERROR_INITIAL || FirstText().empty())
    FirstText() = std::string(function != nullptr ? function : "PETSc") + ": " +
                  (message != nullptr ? message : "no text");
  return code;
}

std::string GeneralText(PetscErrorCode code) {
  char const* text = nullptr;
  PetscErrorMessage(code, &text, nullptr);
  return text != nullptr ? text : tool::Format("error %d", static_cast<int>(code));
}

} // namespace

void Check(PetscErrorCode code) {
  if (code == 0) return;
  std::string const text = std::exchange(FirstText(), "");
  throw tool::ToolError(tool::ExitCode::Failure,
                        code == PETSC_ERR_MEM ? "out of memory: " + text : GeneralText(code) + ": " + text);
}

PetscSession::PetscSession(std::string const& program, std::vector<std::string> const& options) {
  // Signals end the program as they do without PETSc, whose handlers print pages.
  std::vector<std::string> words{program, "-no_signal_handler"};
  words.insert(words.end(), options.begin(), options.end());
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words)
    arguments.push_back(word.data());
  auto count = static_cast<int>(arguments.size());
  arguments.push_back(nullptr);
  char** list = arguments.data();
  if (SlepcInitialize(&count, &list, nullptr, nullptr) != 0)
    throw tool::ToolError(tool::ExitCode::Failure, "PETSc, SLEPc or MPI could not be started");
  PetscPushErrorHandler(KeepFirstText, nullptr);
}

PetscSession::~PetscSession() {
  PetscPopErrorHandler();
  SlepcFinalize();
}

void BeginEventTable() { Check(PetscLogDefaultBegin()); }

void PrintEventTable() {
  PetscViewer viewer = nullptr;
  Check(PetscViewerASCIIGetStderr(PETSC_COMM_WORLD, &viewer));
  Check(PetscLogView(viewer));
}

} // namespace orx::mpi
