// One connection to a registry database: what it holds, in terms of keys and values.
//
// Key 0 is no key; the key without a parent is the hive's root. The ids of two databases never meet, because
// each begins at a random number, and within a file an id is never used again; so an id, with the file's
// identity, tells whether it still stands for the key that it was found as. Names compare by their folded
// form, which SQLite orders as bytes.
#pragma once

#include <array>
#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "qn/platform/types.h"

struct sqlite3;
struct sqlite3_stmt;

namespace qn {

// What the functions below throw when SQLite fails: its extended result code and the system's errno.
struct RegistryFailure {
  int code;
  int systemError;
};

// The published error number for a failure, and for an errno value.
DWORD ErrorFromFailure(const RegistryFailure& failure);
DWORD RegistrySystemError(int error);

// Whether a failure says that the file itself is bad.
bool IsDamage(const RegistryFailure& failure);

// How long one call waits for other processes, in all its steps.
class RegistryDeadline {
 public:
  // Sleeps for a moment; false when the time is over.
  bool Wait() const;

 private:
  std::chrono::steady_clock::time_point end_ = std::chrono::steady_clock::now() + std::chrono::seconds(10);
};

struct RegistryCloser {
  void operator()(sqlite3* connection) const;
  void operator()(sqlite3_stmt* statement) const;
};

// Which file it is that a path leads to: of a restored copy another one than of what it was copied from.
struct RegistryIdentity {
  uint64_t device = 0;
  uint64_t inode = 0;
  bool operator==(const RegistryIdentity&) const = default;

  // Zeros for none.
  static RegistryIdentity Of(const std::string& path);
};

// A row of a statement in use; false without one. The statement is free again when the row ends, so a row
// is let go of before the same question is asked again.
class RegistryRow {
 public:
  explicit RegistryRow(sqlite3_stmt* statement) : statement_(statement) {}
  RegistryRow(RegistryRow&& other) noexcept
      : statement_(std::exchange(other.statement_, nullptr)), found_(other.found_) {}
  ~RegistryRow();

  void Bind(int position, int64_t number);
  void Bind(int position, std::string_view bytes);  // not copied
  bool Step();
  explicit operator bool() const { return found_; }

  int64_t Number(int column) const;
  // Bytes of the row, valid until it ends. What is no blob is damage.
  std::string_view Bytes(int column) const;
  // A name as it was given.
  std::u16string Name(int column) const;

 private:
  sqlite3_stmt* statement_;
  bool found_ = false;
};

class RegistryDatabase {
 public:
  enum class Access {
    kRead,   // a database without tables stays without them, and has no root
    kWrite,  // makes the tables if need be
  };

  // Opens a file that exists; waits end at `deadline`, which may be changed later. Throws RegistryFailure,
  // also for tables of a newer version or of another program.
  RegistryDatabase(const std::string& path, Access mode, const RegistryDeadline& deadline);

  bool IsReadOnly() const;
  // 0 for a database without tables, which answers no other question.
  int64_t Root() const { return root_; }
  const RegistryIdentity& Identity() const { return identity_; }

  bool HasKey(int64_t key);
  int64_t FindKey(int64_t parent, std::u16string_view name);
  int64_t AddKey(int64_t parent, std::u16string_view name);
  // Removes what is below a key, its values too, and the key itself unless `keep`.
  void DeleteTree(int64_t key, bool keep);

  // The columns of a value are its type and data.
  RegistryRow FindValue(int64_t key, std::string_view folded);
  void SetValue(int64_t key, std::u16string_view name, DWORD type, std::string_view data);
  bool DeleteValue(int64_t key, std::u16string_view name);

  // What lies at a position in the order of the names: the first column is the name, a value's others are its
  // type and data.
  RegistryRow KeyAt(int64_t parent, DWORD index);
  RegistryRow ValueAt(int64_t key, DWORD index);

  // A write transaction, rolled back unless committed.
  class Transaction {
   public:
    explicit Transaction(RegistryDatabase& database);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    void Commit();

   private:
    RegistryDatabase& database_;
  };

 private:
  enum Statement : size_t {
    kBegin,
    kCommit,
    kRollback,
    kHasKey,
    kFindKey,
    kAddKey,
    kDeleteValues,
    kDeleteKeys,
    kFindValue,
    kSetValue,
    kDeleteValue,
    kKeyAt,
    kValueAt,
    kStatements,
  };
  static const char* const kSql[kStatements];

  using StatementPointer = std::unique_ptr<sqlite3_stmt, RegistryCloser>;

  StatementPointer Prepare(const char* sql) const;
  void Execute(const char* sql) const;
  int64_t Ask(const char* sql) const;
  bool HasTables() const;
  void MakeTables() const;
  RegistryRow Use(Statement statement) { return RegistryRow(statements_[statement].get()); }
  RegistryRow RowAt(Statement statement, int64_t key, DWORD index);

  std::unique_ptr<sqlite3, RegistryCloser> connection_;
  std::array<StatementPointer, kStatements> statements_;
  int64_t root_ = 0;
  RegistryIdentity identity_;
};

// The form under which a name is found: ASCII letters as capitals, as bytes that order as the characters do.
std::string FoldedName(std::u16string_view name);

}  // namespace qn
