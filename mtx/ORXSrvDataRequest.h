#pragma once

#include "core/orx_export.h"

/// A request for data that the library's user implements: what is fetched, and from where, is its own. It is
/// made by the user, belongs to the user, and is deleted through this class. Nothing in the library makes
/// requests of its own.
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
  /// Whether all data are there.
  virtual bool IsComplete() const = 0;
  /// Gives up: data that are not there by now will not come.
  virtual void Cancel() = 0;
};
