#pragma once

#include "core/orx_export.h"

/// A request for data. The library's user implements it and decides which data are fetched, and from where.
/// The user makes it, owns it and deletes it through this class; the library makes no requests of its own.
///
///     constructed --Start--> started --(IsComplete returns true)--> complete
///                               \--Cancel--> as constructed
class ORX_EXPORT ORXSrvDataRequest {
public:
  ORXSrvDataRequest() noexcept;
  ORXSrvDataRequest(ORXSrvDataRequest const&) = delete;
  ORXSrvDataRequest& operator=(ORXSrvDataRequest const&) = delete;
  virtual ~ORXSrvDataRequest();

  // The order of these declarations is that of the virtual table, and stays.

  /// Begins to fetch the data; a request that has been started goes on.
  virtual void Start() = 0;
  /// True when all data are there.
  virtual bool IsComplete() const = 0;
  /// Gives up: data that are not there by now will not come.
  virtual void Cancel() = 0;
};
