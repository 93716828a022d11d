#pragma once

#include "core/atr_String.h"
#include "sim/impl/Records.h"

#include <functional>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace orx::sim {

class OpenDatabase;

/// A context of an open file: its records, what of them the file does not have yet, and, while a transaction
/// is open, how to undo what was done since. Numbers of abandoned objects are not used again, so that an
/// identifier never comes to mean another object.
class Context {
public:
  Context(OpenDatabase& database, int number, ORXSimNamespaceID space);
  Context(Context const&) = delete;
  Context& operator=(Context const&) = delete;
  /// Handles that outlive the file find their records without a context.
  ~Context();

  OpenDatabase& Database() const noexcept { return m_database; }
  int Number() const noexcept { return m_number; }
  ORXSimContextID ID() const noexcept;
  ORXSimNamespaceID Namespace() const noexcept { return m_namespace; }
  std::string Name() const; ///< "context 0 of FILE"

  // Finding; a number without a record raises staleIdentifier

  CollectionRecord& CollectionAt(int number) const;
  SetRecord& SetAt(int number) const;
  std::shared_ptr<DistributionRecord> const& DistributionAt(std::uint32_t handle) const;
  /// The record of a collection of this context, colour variants included.
  CollectionRecord& Find(ORXSimCollectionID const& id) const;
  SetRecord& Find(ORXSimCSetID const& id) const;

  ORXSimCollectionID CollectionID(int number, int color) const;

  // Changing

  ORXSimCollectionID AddCollection(int size, ORXSimTypeID type);
  /// The set with these members, found or made; labels that the collection lacks are added to it.
  ORXSimCSetID AddSet(ORXSimCollectionID const& collection, ORXSimIndexSet members, bool isTemporary);
  void AddColor(ORXSimCollectionID const& collection, int color);
  int AddType(char const* name);
  ORXSimDistributionID AddDistribution(std::vector<ORXSimIDMinor> grid, ORXSimRangeType range,
                                       ORXSimTypeID type, bool isTemporary);
  /// Gives the distribution its drawer in the place of one that it may have.
  void InstallDrawer(DistributionRecord& distribution, std::shared_ptr<Drawer> drawer);
  /// The drawer has become longer: along `dim` stands this set now.
  void RecordExtension(DistributionRecord& distribution, int dim, int set);

  // Transactions

  bool HasTransaction() const noexcept { return m_hasTransaction; }
  /// Whether that one is open; closing a file may have ended it and failed.
  bool HasTransaction(int number) const noexcept { return m_hasTransaction && number == m_transaction; }
  /// Returns its number.
  int BeginTransaction() noexcept {
    m_hasTransaction = true;
    return ++m_transaction;
  }
  void EndTransaction() noexcept;
  /// Undoes what was done since BeginTransaction, and ends it.
  void AbandonTransaction() noexcept;
  /// Temporary distributions lose their drawers. No transaction is open.
  void DropTemporaries() noexcept;

  // Saving and loading: see store/CatalogStorage.h

  struct Unsaved {
    bool isContext = true; ///< the context itself
    bool areTypes = false;
    std::set<int> collections;
    std::set<int> sets;
    std::set<int> distributions;
  };
  Unsaved const& WhatIsUnsaved() const noexcept { return m_unsaved; }
  void MarkSaved();

  std::vector<std::unique_ptr<CollectionRecord>>& Collections() noexcept { return m_collections; }
  std::vector<std::unique_ptr<SetRecord>>& Sets() noexcept { return m_sets; }
  std::vector<std::shared_ptr<DistributionRecord>>& Distributions() noexcept { return m_distributions; }
  std::vector<atr_String>& Types() noexcept { return m_types; }

private:
  void Undoing(std::function<void()> step);
  int FindSet(CollectionRecord const& collection, ORXSimIndexSet const& members) const;
  void AddMembers(int collection, ORXSimIndexSet const& labels);
  void Keep(int set);

  OpenDatabase& m_database;
  int m_number;
  ORXSimNamespaceID m_namespace;
  // By number; null: abandoned, or never there.
  std::vector<std::unique_ptr<CollectionRecord>> m_collections;
  std::vector<std::unique_ptr<SetRecord>> m_sets;
  std::vector<std::shared_ptr<DistributionRecord>> m_distributions; ///< by handle - 1
  std::vector<atr_String> m_types;
  Unsaved m_unsaved;
  bool m_hasTransaction = false;
  int m_transaction = 0;                     ///< number of the last one
  std::vector<std::function<void()>> m_undo; ///< to be run from the back
};

} // namespace orx::sim
