#pragma once

#include "core/atr_String.h"
#include "sim/impl/Records.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace orx::sim {

class OpenDatabase;

/// A context of an open file: its records, what of them the file does not have yet, and, while a transaction
/// is open, how to undo what was done since. Numbers of abandoned objects are not used again, so that an
/// identifier never comes to mean another object. Numbers of temporary ones come from the other end (-2, -3,
/// ... for sets), so that they take none away from the file.
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
  std::string Path() const; ///< "/context_0"

  // Finding; a number without a record raises staleIdentifier

  CollectionRecord& CollectionAt(int number) const;
  /// Its labels are there.
  SetRecord& SetAt(int number) const;
  std::shared_ptr<DistributionRecord> const& DistributionAt(std::uint32_t handle) const;
  /// The record of a collection of this context, colour variants included.
  CollectionRecord& Find(ORXSimCollectionID const& id) const;
  SetRecord& Find(ORXSimCSetID const& id) const;

  ORXSimCollectionID CollectionID(int number, int color) const;

  // Changing; an error leaves everything as it was

  ORXSimCollectionID AddCollection(int size, ORXSimTypeID type);
  /// The set with these members, found or made; labels that the collection lacks are added to it.
  ORXSimCSetID AddSet(ORXSimCollectionID const& collection, ORXSimIndexSet members, bool isTemporary);
  /// The members of one set, then those of another of the same collection. It is temporary.
  ORXSimCSetID AddJoinedSet(ORXSimCollectionID const& collection, int front, ORXSimCSetID const& back);
  void AddColor(ORXSimCollectionID const& collection, int color);
  int AddType(char const* name);
  ORXSimDistributionID AddDistribution(std::vector<ORXSimIDMinor> grid, ORXSimRangeType range,
                                       ORXSimTypeID type, bool isTemporary);
  /// Gives the distribution its drawer in the place of one that it may have.
  void InstallDrawer(DistributionRecord& distribution, std::shared_ptr<Drawer> drawer);
  /// The drawer has become longer: along `dim` stands this set now.
  void RecordExtension(DistributionRecord& distribution, int dim, int set);
  /// Once for each time that the temporary set was asked for; then it is gone, unless a drawer stands on it.
  void DropSet(ORXSimCSetID const& id);
  /// The temporary distribution and its cells are gone. No transaction brings it back.
  void DropDistribution(ORXSimDistributionID const& id);

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

  // Saving and loading: see CatalogStorage.h

  struct Unsaved {
    bool isContext = true; ///< the context itself
    std::set<int> collections;
    std::set<int> sets;
    std::set<std::uint32_t> distributions; ///< handles
  };
  Unsaved const& WhatIsUnsaved() const noexcept { return m_unsaved; }
  std::size_t SavedTypes() const noexcept { return m_savedTypes; }
  /// The number of a set in the file; a temporary one gets it now.
  int FileNumberOf(int set);
  /// The nearest set before it, among those it continues, that is in the file or to be saved; -1: none.
  int SavedHeadOf(int set) const;
  bool IsSetSaved(int set) const { return m_sets.at(set)->isSaved; }
  int SizeOfSet(int set) const { return m_sets.at(set)->size; }
  bool HasSet(int set) const { return m_sets.contains(set); }
  int CollectionOfSet(int set) const { return m_sets.at(set)->collection; }
  void MarkSaved();
  /// What was read is in the file, or, of a file in a former format, not yet as this one has it.
  void MarkLoaded() noexcept { m_unsaved.isContext = false; }
  void MarkUnsaved();
  void MarkNothingUnsaved() noexcept;

  using Collections = std::map<int, std::unique_ptr<CollectionRecord>>;
  using Sets = std::map<int, std::shared_ptr<SetRecord>>;
  using Distributions = std::map<std::uint32_t, std::shared_ptr<DistributionRecord>>;
  Collections const& AllCollections() const noexcept { return m_collections; }
  Distributions const& AllDistributions() const noexcept { return m_distributions; }
  std::vector<atr_String> const& Types() const noexcept { return m_types; }

  // Records that were read. Raise staleIdentifier for a number that they refer to and that is not there.

  void LoadType(char const* name) { m_types.emplace_back(name), ++m_savedTypes; }
  void LoadCollection(int number, CollectionRecord record);
  /// With its labels, or with `saved` and `head`. Its `size` and `digest` follow.
  void LoadSet(int number, SetRecord record);
  void LoadDistribution(std::uint32_t handle, std::shared_ptr<DistributionRecord> record);
  /// To be cut to its size by the next commit.
  void LoadUnsaved(std::uint32_t handle) { m_unsaved.distributions.insert(handle); }
  /// Where the lists of loaded sets are.
  void KeepSavedNumbers(std::vector<int> numbers) { m_savedNumbers = std::move(numbers); }
  std::span<int const> SavedNumbers() const noexcept { return m_savedNumbers; }

private:
  template<class Change>
  void Changing(std::function<void()> undo, Change&& change);
  SetRecord* FindSet(CollectionRecord const& collection, ORXSimIndexSet const& members, int& number) const;
  ORXSimCSetID Identify(ORXSimCollectionID const& collection, int set) const;
  ORXSimCSetID FindOrAddSet(ORXSimCollectionID const& collection, ORXSimIndexSet members, bool isTemporary,
                            bool hasNewLabels);
  int NewSetNumber(bool isTemporary);
  void InsertSet(int number, std::shared_ptr<SetRecord> record);
  void RemoveSet(int number) noexcept;
  void RemoveDistribution(std::uint32_t handle) noexcept;
  void AddMembers(CollectionRecord& collection, ORXSimIndexSet const& labels);
  void Keep(int set);
  void ReadMembers(SetRecord& set) const;
  ORXSimIndexSet OwnLabels(SetRecord const& set) const;

  OpenDatabase& m_database;
  int m_number;
  ORXSimNamespaceID m_namespace;
  Collections m_collections; ///< by number
  Sets m_sets;
  Distributions m_distributions; ///< by handle
  std::vector<atr_String> m_types;
  // The next numbers.
  std::int64_t m_nextCollection = 0;
  std::int64_t m_nextSet = 0;
  std::int64_t m_nextTemporarySet = -2;
  std::int64_t m_nextDistribution = 0;
  std::uint32_t m_nextTemporaryHandle = ~0u;
  Unsaved m_unsaved;
  std::size_t m_savedTypes = 0;
  std::vector<int> m_savedNumbers; ///< of the file when it was opened
  bool m_hasTransaction = false;
  int m_transaction = 0;                     ///< number of the last one
  std::vector<std::function<void()>> m_undo; ///< to be run from the back
};

} // namespace orx::sim
