#include "tools/mpi/Ranks.h"

#include "tools/commands/Perform.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <thread>

namespace orx::mpi {
namespace {

using tool::ExitCode;
using tool::ToolError;

constexpr std::chrono::seconds patience(2);

} // namespace

Ranks::Ranks(MPI_Comm communicator) : m_communicator(communicator), m_meeting(MPI_COMM_NULL) {
  MPI_Comm_rank(communicator, &m_rank);
  MPI_Comm_size(communicator, &m_count);
  MPI_Comm_dup(communicator, &m_meeting);
}

Ranks::~Ranks() { MPI_Comm_free(&m_meeting); }

void Ranks::OnEach(std::function<void()> const& work) const {
  std::optional<ToolError> const error = tool::FailureOf(work);
  int const none = m_count;
  int speaker = error ? m_rank : none;
  MPI_Allreduce(MPI_IN_PLACE, &speaker, 1, MPI_INT, MPI_MIN, m_communicator);
  if (speaker == none) return;
  int code = error ? static_cast<int>(error->Code()) : 0;
  std::string text = error ? error->what() : "";
  auto length = static_cast<int>(text.size());
  MPI_Bcast(&code, 1, MPI_INT, speaker, m_communicator);
  MPI_Bcast(&length, 1, MPI_INT, speaker, m_communicator);
  text.resize(static_cast<std::size_t>(length));
  MPI_Bcast(text.data(), length, MPI_CHAR, speaker, m_communicator);
  m_isErrorShared = true;
  throw ToolError(static_cast<ExitCode>(code), text);
}

void Ranks::OnRoot(std::function<void()> const& work) const {
  OnEach([&] {
    if (IsRoot()) work();
  });
}

Range Ranks::ShareOf(int rank, int length) const noexcept {
  int const least = length / m_count;
  int const longer = length % m_count;
  return {rank * least + std::min(rank, longer), least + (rank < longer ? 1 : 0)};
}

int Ranks::OwnerOf(int row, int length) const noexcept {
  int const least = length / m_count;
  int const longer = length % m_count;
  int const rowsOfLonger = longer * (least + 1);
  return row < rowsOfLonger ? row / (least + 1) : longer + (row - rowsOfLonger) / least;
}

std::int64_t Ranks::Sum(std::int64_t value) const {
  MPI_Allreduce(MPI_IN_PLACE, &value, 1, MPI_INT64_T, MPI_SUM, m_communicator);
  return value;
}

double Ranks::Sum(double value) const {
  MPI_Allreduce(MPI_IN_PLACE, &value, 1, MPI_DOUBLE, MPI_SUM, m_communicator);
  return value;
}

std::int64_t Ranks::Largest(std::int64_t value) const {
  MPI_Allreduce(MPI_IN_PLACE, &value, 1, MPI_INT64_T, MPI_MAX, m_communicator);
  return value;
}

double Ranks::Largest(double value) const {
  MPI_Allreduce(MPI_IN_PLACE, &value, 1, MPI_DOUBLE, MPI_MAX, m_communicator);
  return value;
}

void Ranks::Broadcast(std::string& text) const {
  auto length = static_cast<int>(text.size());
  Broadcast(length);
  text.resize(static_cast<std::size_t>(length));
  MPI_Bcast(text.data(), length, MPI_CHAR, 0, m_communicator);
}

bool Ranks::Meet(int& speaker) const {
  speaker = 0;
  if (m_isErrorShared) return true;
  int const own = m_rank;
  MPI_Request request = MPI_REQUEST_NULL;
  MPI_Iallreduce(&own, &speaker, 1, MPI_INT, MPI_MIN, m_meeting, &request);
  auto const end = std::chrono::steady_clock::now() + patience;
  int isThere = 0;
  while (true) {
    MPI_Test(&request, &isThere, MPI_STATUS_IGNORE);
    if (isThere != 0) return true;
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

} // namespace orx::mpi
