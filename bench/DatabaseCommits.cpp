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

// A durable commit of small objects against SQLite's: the same number of rows with the same numbers in them,
// rollback journal and full synchronization, which is what it does unless told otherwise.

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

} // namespace

void ClaimDatabaseCommits(Report& report) {
  for (int const objects : {1, 100}) {
    std::string const claim = Format("database: durable commit of %d member sets: time / SQLite", objects);
    if (!report.Wants(claim)) continue;
    report.Try(claim, [&] {
      OurCommits ours;
      SqliteCommits sqlite;
      Pairs const pairs =
          MeasurePairs([&] { return ours.Run(objects); }, [&] { return sqlite.Run(objects); }, 3.0, 10);
      report.Line(claim, Format("%.2f : %.2f ms", pairs.ours * 1e3, pairs.peers * 1e3), pairs.ratio, "", {});
    });
  }
}

} // namespace bench
