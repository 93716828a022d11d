#pragma once

#include "file/TransactionalFile.h"
#include "sim/impl/store/Hdf5.h"

#include <memory>
#include <optional>
#include <string>

/// A file of the store, opened by HDF5 through the driver. Closing drops what was not committed. Failures are
/// Hdf5Failure and FileError.
class Session {
public:
  static Session Create(std::string const& path, bool isScratch = false);
  static Session Open(std::string const& path, bool readOnly = false);
  Session(Session&&) = default;
  Session& operator=(Session&&) = delete;
  ~Session();

  hid_t Id() const { return m_hdf5.Get(); }
  orx::file::TransactionalFile& File() const { return *m_file; }
  void Flush() const;
  void Commit() const;
  /// The failure of the file that HDF5 met last.
  std::optional<orx::file::FileError> Failure() const;
  /// Closes and opens it for HDF5 only.
  void Reopen();

private:
  Session(std::unique_ptr<orx::file::TransactionalFile> file, std::string const& path);

  std::string m_path;
  std::unique_ptr<orx::file::TransactionalFile> m_file;
  orx::store::Handle m_hdf5;
};

/// One of a row of transactions 0, 1, 2, ..., not committed yet. It makes groups, attributes, small sets
/// inside of the metadata, chunked values, and a few values that share pages with metadata and are written
/// past HDF5; it extends a dataset of its forerunner, and deletes the forerunner's group in two steps.
void Change(Session const& session, int number);

/// All names, shapes, attributes and values, as text; without the trash.
std::string Describe(hid_t file);
/// The same through HDF5's own driver, of a copy, because of its locks; "refused" when it does not open that.
std::string DescribeWithPlainHdf5(std::string const& path);
