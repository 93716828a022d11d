#include "sim/impl/store/DatabaseFile.h"

#include "file/ScratchFiles.h"
#include "file/TransactionalFile.h"
#include "sim/impl/RaiseError.h"
#include "sim/impl/store/Guarded.h"
#include "sim/impl/store/Hdf5.h"
#include "sim/impl/store/Hdf5Driver.h"
#include "sim/impl/store/LinkCheck.h"

#include <cerrno>
#include <exception>
#include <new>

namespace orx::store {

namespace {

constexpr char formatName[] = "orx simulation database";
constexpr char trashGroup[] = "/trash";
constexpr char pendingGroup[] = "/pending";

std::uint16_t CodeOf(file::FileError const& error) {
  int const reason = error.Error();
  if (error.Kind() == file::FileError::Access::Write) return ORXSimException::writeFailed;
  if (reason == EUCLEAN) return ORXSimException::damaged;
  if (error.Kind() == file::FileError::Access::Read) return ORXSimException::readFailed;
  return reason == EWOULDBLOCK || reason == EBUSY ? ORXSimException::fileInUse : ORXSimException::notOpened;
}

/// Raises an exception of the file unit as an ORXSimException.
[[noreturn]] void RaiseFileFailure(std::exception_ptr const& failure) {
  try {
    std::rethrow_exception(failure);
  } catch (file::FileError const& error) {
    sim::RaiseError(CodeOf(error), error.what());
  }
}

/// Raises DamageFound when a group lies inside more than `depth` others: HDF5 visits nested groups
/// recursively, and a damaged file could exhaust the stack.
void RequireShallow(DatabaseFile const& file, std::string const& path, int depth) {
  H5O_info_t info;
  for (auto const& name : NamesIn(file, path)) {
    std::string const inner = std::string(path).append("/").append(name);
    H5L_info_t link;
    CheckedRead(H5Lget_info(file.Id(), inner.c_str(), &link, H5P_DEFAULT), "looking at " + inner);
    if (link.type != H5L_TYPE_HARD) continue;
    CheckedRead(H5Oget_info_by_name2(file.Id(), inner.c_str(), &info, H5O_INFO_BASIC, H5P_DEFAULT),
                "looking at " + inner);
    if (info.type != H5O_TYPE_GROUP) continue;
    if (depth == 0) throw DamageFound{inner + " is a group inside of too many others"};
    RequireShallow(file, inner, depth - 1);
  }
}

Handle OpenRoot(hid_t file) {
  return CheckedReadId(H5Gopen2(file, "/", H5P_DEFAULT), "opening the root group");
}

void RemoveGroup(DatabaseFile const& file, char const* path) {
  if (file.HasObject(path)) Checked(H5Ldelete(file.Id(), path, H5P_DEFAULT), std::string("removing ") + path);
}

/// Removes a group that was in the file when it was opened. Such a group may hold sparse drawers and, in the
/// former format, groups of labels, but nothing deeper.
void RemoveForeignGroup(DatabaseFile const& file, char const* path) {
  if (!file.HasObject(path)) return;
  RequireShallow(file, path, 1);
  RemoveGroup(file, path);
}

} // namespace

DatabaseFile::DatabaseFile(std::string path, bool isReadOnly, bool isScratch)
    : m_path(std::move(path)), m_isReadOnly(isReadOnly), m_isScratch(isScratch), m_version(formatVersion) {}

DatabaseFile::~DatabaseFile() {
  if (m_bytes != nullptr) m_bytes->Discard();
}

std::unique_ptr<DatabaseFile> DatabaseFile::Create(std::string const& path, bool isScratch,
                                                   bool replacesExisting) {
  if (isScratch) file::SweepFolderOf(path);
  std::unique_ptr<DatabaseFile> file(new DatabaseFile(path, false, isScratch));
  Guarded(*file, [&] { file->m_bytes = file::TransactionalFile::Create(path, isScratch, replacesExisting); });
  try {
    file->MakeFormat();
    if (isScratch) Guarded(*file, [&] { file::MarkAsScratch(file->m_bytes->File()); });
    file->Commit();
  } catch (...) {
    if (isScratch) file->Unlink(); // the file was never a database
    throw;
  }
  return file;
}

std::unique_ptr<DatabaseFile> DatabaseFile::Open(std::string const& path, bool readOnly) {
  std::unique_ptr<DatabaseFile> file(new DatabaseFile(path, readOnly, false));
  Guarded(*file, [&] {
    file->m_bytes = file::TransactionalFile::Open(path, readOnly);
    Handle const access(MakeFileAccess(*file->m_bytes));
    unsigned const mode = readOnly ? H5F_ACC_RDONLY : H5F_ACC_RDWR;
    hid_t const id = H5Fopen(path.c_str(), mode, access.Get());
    if (id < 0) file->RaiseNotHdf5();
    file->m_hdf5 = Handle(id);
    file->CheckFormat();
    file->m_bytes->File().PrepareMapping();
    if (!readOnly)
      for (char const* const group : {trashGroup, pendingGroup})
        RemoveForeignGroup(*file, group);
  });
  return file;
}

void DatabaseFile::RaiseNotHdf5() const {
  Hdf5Failure failure = LastHdf5Failure("opening the file");
  if (m_bytes->LastFailure() != nullptr || failure.kind == Hdf5Failure::Kind::Memory)
    throw Hdf5Failure(std::move(failure));
  throw DamageFound{"it is damaged, or not an HDF5 file (" + failure.cause + ")"};
}

void DatabaseFile::Unlink() noexcept { m_bytes->File().Unlink(); }

void DatabaseFile::MakeFormat() {
  Guarded(*this, [&] {
    Handle const access(MakeFileAccess(*m_bytes));
    Handle const creation(MakeFileCreation());
    m_hdf5 = CheckedId(H5Fcreate(m_path.c_str(), H5F_ACC_TRUNC, creation.Get(), access.Get()),
                       "creating the file");
    Handle const root = OpenRoot(Id());
    WriteAttribute(root, "format", std::string(formatName));
    WriteAttribute(root, "format_version", formatVersion);
    m_version = formatVersion;
  });
}

void DatabaseFile::CheckFormat() {
  Handle const creation = CheckedReadId(H5Fget_create_plist(Id()), "reading the properties of the file");
  hsize_t userBlock = 0;
  CheckedRead(H5Pget_userblock(creation.Get(), &userBlock), "reading the properties of the file");
  // HDF5 1.10 does not add the user block to the offsets of chunks that it returns.
  if (userBlock != 0)
    throw DamageFound{"it begins with a user block of " + std::to_string(userBlock) +
                      " bytes, expected none"};
  Handle const root = OpenRoot(Id());
  if (!HasAttribute(root, "format") || ReadText(root, "format") != formatName)
    throw DamageFound{"it is an HDF5 file, but not a simulation database"};
  m_version = ReadInteger(root, "format_version");
  if (m_version < 1 || m_version > formatVersion)
    throw DamageFound{"its format has version " + std::to_string(m_version) + ", expected 1 to " +
                      std::to_string(formatVersion)};
}

void DatabaseFile::ForgetFailure() const noexcept {
  if (m_bytes != nullptr) m_bytes->ForgetFailure();
}

void DatabaseFile::RaiseTranslated() const {
  try {
    throw;
  } catch (file::FileError const&) {
    RaiseFileFailure(std::current_exception());
  } catch (DamageFound const& damage) {
    sim::RaiseError(ORXSimException::damaged, "Reading " + m_path + " failed: " + damage.text + ".");
  } catch (Hdf5Failure const& failure) {
    if (m_bytes->LastFailure() != nullptr) RaiseFileFailure(m_bytes->LastFailure());
    if (failure.kind == Hdf5Failure::Kind::Memory) throw std::bad_alloc();
    sim::RaiseError(failure.kind == Hdf5Failure::Kind::Damage ? ORXSimException::damaged
                                                              : ORXSimException::internalError,
                    m_path + ": " + failure.what + " failed: " + failure.cause + ".");
  }
  // An ORXSimException or std::bad_alloc passes through unchanged.
}

std::string DatabaseFile::PendingPath() {
  EmptyCommittedTrash();
  if (!HasObject(pendingGroup))
    CheckedId(H5Gcreate2(Id(), pendingGroup, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT), "creating a group");
  return std::string(pendingGroup) + "/" + std::to_string(m_pending++);
}

void DatabaseFile::MoveObject(std::string const& from, std::string const& to) {
  std::string const what = std::string("moving ").append(from).append(" to ").append(to);
  Handle const properties = CheckedId(H5Pcreate(H5P_LINK_CREATE), what);
  Checked(H5Pset_create_intermediate_group(properties.Get(), 1), what);
  Checked(H5Lmove(Id(), from.c_str(), Id(), to.c_str(), properties.Get(), H5P_DEFAULT), what);
}

void DatabaseFile::RemoveObject(std::string const& path) noexcept {
  QuietErrors const quiet;
  H5Ldelete(Id(), path.c_str(), H5P_DEFAULT);
}

bool DatabaseFile::HasObject(std::string const& path) const {
  return CheckedRead(H5Lexists(Id(), path.c_str(), H5P_DEFAULT), "looking for " + path) > 0;
}

std::string DatabaseFile::TrashPath() {
  EmptyCommittedTrash();
  return std::string(trashGroup) + "/" + std::to_string(m_trashed++);
}

/// Removes the group of pending objects when it is empty, so that it does not stay in the file.
void DatabaseFile::RemovePendingGroupWhenEmpty() {
  H5G_info_t info;
  if (m_pending == m_pendingChecked || !HasObject(pendingGroup)) return;
  CheckedRead(H5Gget_info_by_name(Id(), pendingGroup, &info, H5P_DEFAULT), "counting waiting objects");
  if (info.nlinks > 0) return;
  RemoveGroup(*this, pendingGroup);
  m_pendingChecked = m_pending;
}

/// Removes the trash. Called only when a new object needs space: trash that a session leaves is removed by
/// the next opening for writing, which can then use the space. A failure wastes space until the next opening.
void DatabaseFile::EmptyCommittedTrash() noexcept {
  if (!m_isTrashCommitted) return;
  m_isTrashCommitted = false;
  m_trashed = 0;
  RemoveObject(trashGroup);
}

void DatabaseFile::WriteVersion(int version) {
  Handle const root = OpenRoot(Id());
  WriteAttribute(root, "format_version", version);
  m_version = version;
}

void DatabaseFile::PrepareCommit() {
  RemovePendingGroupWhenEmpty();
  if (checksEveryCommit) CheckLinks(Id());
  // With the second flush HDF5 frees the rest of its last block of metadata.
  for (int k = 0; k < 2; ++k)
    Checked(H5Fflush(Id(), H5F_SCOPE_LOCAL), "writing the structure");
}

void DatabaseFile::Commit() {
  Guarded(*this, [&] {
    if (!m_isScratch) PrepareCommit();
    m_bytes->Commit();
    NoteCommit();
  });
}

void DatabaseFile::CommitForClose() {
  Guarded(*this, [&] {
    PrepareCommit();
    m_bytes->CommitForClose();
    NoteCommit();
  });
}

void DatabaseFile::CopyTo(std::string const& path, bool replacesExisting) {
  Guarded(*this, [&] { m_bytes->CopyTo(path, replacesExisting); });
}

} // namespace orx::store
