#include "bench/Claims.h"
#include "bench/Process.h"

#include "core/ORXUnicodeString.h"
#include "sim/ORXSimCollection.h"
#include "sim/ORXSimContext.h"
#include "sim/ORXSimDatabase.h"
#include "sim/ORXSimTransaction.h"

#include <cstdio>
#include <filesystem>
#include <sqlite3.h>
#include <stdexcept>
#include <string>
#include <unistd.h>

// What a database of small objects costs: opening it, and a durable commit against SQLite's: the same number
// of rows with the same numbers in them, rollback journal and full synchronization, which is what it does
// unless told otherwise.

namespace bench {
namespace {

std::string Path(char const* name) {
  return (std::filesystem::current_path() / (Format("orx_bench_%d_", getpid()) + name)).string();
}

class OurCommits {
public:
  OurCommits() : m_path(Path("commits.sim")) {
    m_database.CreateFile(ORXUnicodeString(m_path.c_str()), ORXSimDatabase::replaceExisting, -1);
    m_context = m_database.CreateContext({});
    ORXSimTransaction transaction(m_context);
    m_collection = ORXSimContext(m_context).CreateCollection(0, ORXSimTypeID(-1));
    transaction.Commit();
  }
  OurCommits(OurCommits const&) = delete;
  OurCommits& operator=(OurCommits const&) = delete;
  ~OurCommits() {
    m_database.Close();
    std::filesystem::remove(m_path);
  }

  double Run(int objects) {
    double const start = Now();
    ORXSimTransaction transaction(m_context);
    for (int k = 0; k < objects; ++k, ++m_next) {
      int const labels[] = {m_next, m_next + 7, m_next + 2};
      ORXSimCollection(m_collection).CreateOrderedCSet(labels, 3);
    }
    transaction.Commit();
    return Now() - start;
  }

private:
  std::string m_path;
  ORXSimDatabase m_database;
  ORXSimContextID m_context;
  ORXSimCollectionID m_collection;
  int m_next = 0;
};

class SqliteCommits {
public:
  SqliteCommits() : m_path(Path("commits.sqlite")) {
    std::filesystem::remove(m_path);
    if (sqlite3_open(m_path.c_str(), &m_database) != SQLITE_OK)
      throw std::runtime_error("sqlite3_open failed");
    Execute("create table sets (a integer, b integer, c integer)");
    sqlite3_prepare_v2(m_database, "insert into sets values (?, ?, ?)", -1, &m_insert, nullptr);
  }
  SqliteCommits(SqliteCommits const&) = delete;
  SqliteCommits& operator=(SqliteCommits const&) = delete;
  ~SqliteCommits() {
    sqlite3_finalize(m_insert);
    sqlite3_close(m_database);
    std::filesystem::remove(m_path);
  }

  double Run(int objects) {
    double const start = Now();
    Execute("begin");
    for (int k = 0; k < objects; ++k, ++m_next) {
      sqlite3_bind_int(m_insert, 1, m_next);
      sqlite3_bind_int(m_insert, 2, m_next + 7);
      sqlite3_bind_int(m_insert, 3, m_next + 2);
      sqlite3_step(m_insert);
      sqlite3_reset(m_insert);
    }
    Execute("commit");
    return Now() - start;
  }

private:
  void Execute(char const* statement) {
    if (sqlite3_exec(m_database, statement, nullptr, nullptr, nullptr) != SQLITE_OK)
      throw std::runtime_error(std::string(statement) + ": " + sqlite3_errmsg(m_database));
  }

  std::string m_path;
  sqlite3* m_database = nullptr;
  sqlite3_stmt* m_insert = nullptr;
  int m_next = 0;
};

/// A file with so many distributions of three doubles each, without drawers.
class ManyDistributions {
public:
  explicit ManyDistributions(int count) : m_path(Path("many.sim")) {
    ORXSimDatabase database;
    database.CreateFile(ORXUnicodeString(m_path.c_str()), ORXSimDatabase::replaceExisting, -1);
    ORXSimContext const context(database.CreateContext({}));
    ORXSimGrid const grid({context.CreateCollection(3, ORXSimTypeID(-1))});
    for (int k = 0; k < count; ++k)
      context.CreateDistribution(grid, ORXSimRangeType(ORXSimTypeKey::Double), {});
    database.Close();
  }
  ManyDistributions(ManyDistributions const&) = delete;
  ManyDistributions& operator=(ManyDistributions const&) = delete;
  ~ManyDistributions() { std::filesystem::remove(m_path); }

  double Open() const {
    double const start = Now();
    ORXSimDatabase database;
    database.OpenFile(ORXUnicodeString(m_path.c_str()), true);
    return Now() - start;
  }

private:
  std::string m_path;
};

void MeasureOpening(Report& report) {
  constexpr int count = 20000;
  std::string const claim = Format("database: opening a file of %d distributions", count);
  if (!report.Wants(claim)) return;
  ManyDistributions const file(count);
  auto const open = [&] { return file.Open(); };
  report.Line(claim, "", MeasurePairs(open, open, 2.0, 3).ours, "s", AtMost(0.5));
}

} // namespace

void ClaimDatabaseCommits(Report& report) {
  report.Try("opening a database", [&] { MeasureOpening(report); });
  for (int const objects : {1, 100}) {
    std::string const claim = Format("database: durable commit of %d member sets: time / SQLite", objects);
    if (!report.Wants(claim)) continue;
    report.Try(claim, [&] {
      OurCommits ours;
      SqliteCommits sqlite;
      Pairs const pairs =
          MeasurePairs([&] { return ours.Run(objects); }, [&] { return sqlite.Run(objects); }, 3.0, 10);
      report.Line(claim, Format("%.2f : %.2f ms", pairs.ours * 1e3, pairs.peers * 1e3), pairs.ratio, "",
                  objects == 1 ? Goal{} : AtMost(3.0));
    });
  }
}

} // namespace bench
