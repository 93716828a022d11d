#include "tools/mpi/Operand.h"

#include "tools/mpi/SourceOnRanks.h"

#include "tools/terminal/Memory.h"
#include "tools/terminal/Text.h"

#include <optional>

namespace orx::mpi {

using tool::ExitCode;
using tool::Format;
using tool::InputFile;
using tool::StoredMatrix;
using tool::ToolError;

namespace {

/// Ranks that share the memory of this one's machine.
int RanksOfMachine(Ranks const& ranks) {
  MPI_Comm machine = MPI_COMM_NULL;
  int count = 1;
  MPI_Comm_split_type(ranks.Communicator(), MPI_COMM_TYPE_SHARED, ranks.Rank(), MPI_INFO_NULL, &machine);
  MPI_Comm_size(machine, &count);
  MPI_Comm_free(&machine);
  return count;
}

} // namespace

Operand::Operand(std::string const& name, std::string const& role, Ranks const& ranks) {
  ranks.OnRoot([&] { Find(name, role); });
  ranks.Broadcast(m_name);
  ranks.Broadcast(m_path);
  ranks.Broadcast(m_drawer);
  ranks.Broadcast(m_shape);
}

std::string Operand::Text(char const* letter) const {
  return tool::Note(Format("%s: %s, %s%s, %d x %d", letter, m_name.c_str(), IsSparse() ? "sparse" : "dense",
                           m_shape.isSymmetric ? " symmetric" : "", Rows(), Columns()));
}

void Operand::Find(std::string const& name, std::string const& role) {
  InputFile const file(name);
  if (!tool::HoldsDatabase(file.Path()))
    throw ToolError(ExitCode::UnusableInput, "'" + name + "' is no database; expected matrices of databases");
  RefuseUnfinishedCommit(file.Path());
  tool::OpenToRead(m_database, file.Path());
  m_stored = tool::FindMatrix(m_database, file.Path(), file.MatrixName(), role);
  m_name = tool::FullName(file, m_stored);
  m_path = file.Path();
  m_drawer = m_stored.DrawerPath();
  m_shape = {m_stored.rows, m_stored.columns, m_stored.IsSparse(),
             m_stored.kind == StoredMatrix::Kind::SparseSymmetric ||
                 m_stored.kind == StoredMatrix::Kind::DenseSymmetric};
}

void RequireRoom(double cells, char const* what, Ranks const& ranks) {
  int const neighbours = RanksOfMachine(ranks);
  double const needed = 8.0 * cells / ranks.Count() * neighbours;
  ranks.OnEach([&] {
    std::optional<std::uint64_t> const available = tool::AvailableMemory();
    if (!available || needed <= static_cast<double>(*available)) return;
    throw ToolError(ExitCode::Failure,
                    Format("the shares of %d ranks of %s need %s of memory on a machine, %s are available; "
                           "expected more machines",
                           neighbours, what, tool::Gigabytes(needed).c_str(),
                           tool::Gigabytes(static_cast<double>(*available)).c_str()));
  });
}

} // namespace orx::mpi
