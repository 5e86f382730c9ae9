#include "qn/platform/registry_database_internal.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <thread>

#include "qn/platform/error_internal.h"

namespace qn {
namespace {

constexpr int kApplicationId = 0x514E5247;
constexpr int kVersion = 1;

// A database is ours if it holds exactly this.
constexpr char kDataTable[] =
    "CREATE TABLE data(key INTEGER NOT NULL, folded BLOB NOT NULL, name BLOB NOT NULL, "
    "type INTEGER NOT NULL, data BLOB NOT NULL, PRIMARY KEY(key, folded)) WITHOUT ROWID";
constexpr char kKeysTable[] =
    "CREATE TABLE keys(id INTEGER PRIMARY KEY AUTOINCREMENT, parent INTEGER NOT NULL, folded BLOB NOT NULL, "
    "name BLOB NOT NULL, UNIQUE(parent, folded))";

[[noreturn]] void Throw(int code, sqlite3* connection) {
  if ((code & 0xFF) == SQLITE_NOMEM) throw std::bad_alloc();
  // A failing commit leaves no system error with the connection, hence the look at errno, which callers
  // clear.
  const int last = errno;
  const int system = connection ? sqlite3_system_errno(connection) : 0;
  throw RegistryFailure{code, system != 0 ? system : last};
}

void Check(int code, sqlite3* connection) {
  if (code != SQLITE_OK) Throw(code, connection);
}

using Connection = std::unique_ptr<sqlite3, RegistryCloser>;

int Open(const std::string& path, Connection* connection) {
  constexpr int kFlags =
      SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_PRIVATECACHE | SQLITE_OPEN_EXRESCODE;
  sqlite3* opened = nullptr;
  const int code = sqlite3_open_v2(path.c_str(), &opened, kFlags, nullptr);
  connection->reset(opened);
  return code;
}

sqlite3_file* FileOf(sqlite3* connection) {
  sqlite3_file* file = nullptr;
  sqlite3_file_control(connection, "main", SQLITE_FCNTL_FILE_POINTER, &file);
  return file;
}

// Whether a file is missing or empty whose journal tells that it had pages. SQLite would remove the journal
// then, which holds the last that is left. The journal of a database that was being made counts no pages.
bool IsLost(const std::string& path) {
  struct stat info;
  if (stat(path.c_str(), &info) == 0 && info.st_size != 0) return false;
  const int journal = open((path + "-journal").c_str(), O_RDONLY | O_CLOEXEC);
  if (journal < 0) return false;
  constexpr off_t kPagesAt = 16;
  uint32_t pages = 0;
  const bool known = pread(journal, &pages, sizeof pages, kPagesAt) == sizeof pages;
  close(journal);
  return known && pages != 0;
}

// Names are stored with the high byte first, so that their bytes order as their characters do.
void AppendCharacter(std::string& bytes, char16_t c) {
  bytes += static_cast<char>(c >> 8);
  bytes += static_cast<char>(c & 0xFF);
}

std::string StoredName(std::u16string_view name) {
  std::string bytes;
  bytes.reserve(2 * name.size());
  for (const char16_t c : name) AppendCharacter(bytes, c);
  return bytes;
}

}  // namespace

std::string FoldedName(std::u16string_view name) {
  std::string bytes;
  bytes.reserve(2 * name.size());
  for (const char16_t c : name) {
    AppendCharacter(bytes, c >= u'a' && c <= u'z' ? static_cast<char16_t>(c - u'a' + u'A') : c);
  }
  return bytes;
}

DWORD ErrorFromFailure(const RegistryFailure& failure) {
  switch (failure.code & 0xFF) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_PROTOCOL:
      return ERROR_BUSY;
    case SQLITE_FULL:
      return ERROR_DISK_FULL;
    case SQLITE_READONLY:
    case SQLITE_PERM:
    case SQLITE_AUTH:
      return ERROR_ACCESS_DENIED;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
    case SQLITE_FORMAT:
      return ERROR_BADDB;
    default:
      return RegistrySystemError(failure.systemError);
  }
}

DWORD RegistrySystemError(int error) {
  // A file that may not grow is a full disk to whoever writes settings.
  if (error == EFBIG) return ERROR_DISK_FULL;
  return error == EROFS ? ERROR_ACCESS_DENIED : ErrorFromErrno(error);
}

bool IsDamage(const RegistryFailure& failure) {
  const int code = failure.code & 0xFF;
  // Our statements do not change, so what SQLite calls an error in them is a file whose format or tables it
  // does not take, and they break no rule of sound tables.
  return code == SQLITE_CORRUPT || code == SQLITE_NOTADB || code == SQLITE_ERROR || code == SQLITE_CONSTRAINT;
}

bool RegistryDeadline::Wait() const {
  if (std::chrono::steady_clock::now() >= end_) return false;
  std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return true;
}

void RegistryCloser::operator()(sqlite3* connection) const {
  sqlite3_close(connection);
}

void RegistryCloser::operator()(sqlite3_stmt* statement) const {
  sqlite3_finalize(statement);
}

RegistryIdentity RegistryIdentity::Of(const std::string& path) {
  struct stat info;
  if (stat(path.c_str(), &info) != 0) return {};
  return {info.st_dev, info.st_ino};
}

RegistryRow::~RegistryRow() {
  sqlite3_reset(statement_);
}

void RegistryRow::Bind(int position, int64_t number) {
  Check(sqlite3_bind_int64(statement_, position, number), sqlite3_db_handle(statement_));
}

void RegistryRow::Bind(int position, std::string_view bytes) {
  // A null address would store SQLite's null, not an empty blob.
  Check(sqlite3_bind_blob64(statement_, position, bytes.data() ? bytes.data() : "", bytes.size(),
                            SQLITE_STATIC),
        sqlite3_db_handle(statement_));
}

bool RegistryRow::Step() {
  errno = 0;
  const int code = sqlite3_step(statement_);
  if (code != SQLITE_ROW && code != SQLITE_DONE) Throw(code, sqlite3_db_handle(statement_));
  return found_ = code == SQLITE_ROW;
}

int64_t RegistryRow::Number(int column) const {
  return sqlite3_column_int64(statement_, column);
}

std::string_view RegistryRow::Bytes(int column) const {
  if (sqlite3_column_type(statement_, column) != SQLITE_BLOB) Throw(SQLITE_CORRUPT, nullptr);
  const auto* const bytes = static_cast<const char*>(sqlite3_column_blob(statement_, column));
  return {bytes, static_cast<size_t>(sqlite3_column_bytes(statement_, column))};
}

std::u16string RegistryRow::Name(int column) const {
  const std::string_view bytes = Bytes(column);
  if (bytes.size() % 2 != 0) Throw(SQLITE_CORRUPT, nullptr);
  std::u16string name(bytes.size() / 2, u'\0');
  for (size_t i = 0; i < name.size(); ++i) {
    name[i] = static_cast<char16_t>(static_cast<uint8_t>(bytes[2 * i]) << 8 |
                                    static_cast<uint8_t>(bytes[2 * i + 1]));
  }
  return name;
}

// The ids of a key and of all below it. UNION leaves out what it has met, so a circle in a forged file ends.
#define QN_TREE                            \
  "(WITH RECURSIVE tree(id) AS (SELECT ?1" \
  " UNION SELECT keys.id FROM keys JOIN tree ON keys.parent = tree.id) SELECT id FROM tree)"

const char* const RegistryDatabase::kSql[kStatements] = {
    "BEGIN IMMEDIATE",
    "COMMIT",
    "ROLLBACK",
    "SELECT 1 FROM keys WHERE id = ?1",
    // With the name, which the index lacks, SQLite finds out that a key of the index is none of the table.
    "SELECT id, name FROM keys WHERE parent = ?1 AND folded = ?2",
    "INSERT INTO keys(parent, folded, name) VALUES(?1, ?2, ?3)",
    "DELETE FROM data WHERE key IN " QN_TREE,
    "DELETE FROM keys WHERE id <> ?2 AND id IN " QN_TREE,
    "SELECT type, data FROM data WHERE key = ?1 AND folded = ?2",
    ("INSERT INTO data(key, folded, name, type, data) VALUES(?1, ?2, ?3, ?4, ?5)"
     " ON CONFLICT(key, folded) DO UPDATE SET type = excluded.type, data = excluded.data"),
    "DELETE FROM data WHERE key = ?1 AND folded = ?2",
    "SELECT name FROM keys WHERE parent = ?1 ORDER BY folded LIMIT 1 OFFSET ?2",
    "SELECT name, type, data FROM data WHERE key = ?1 ORDER BY folded LIMIT 1 OFFSET ?2",
};

#undef QN_TREE

// Changes are kept from half-done writes by a rollback journal, not by a write-ahead log. A log that was
// killed holds values that are reported as written: a flipped bit in it drops them without a sign, the
// database alone (copied, or on a medium that cannot be written) lacks them, and its index in shared memory
// rules out network file systems. Settings are too few for its speed to count.
RegistryDatabase::RegistryDatabase(const std::string& path, Access mode, const RegistryDeadline& deadline)
    : identity_(RegistryIdentity::Of(path)) {
  if (IsLost(path)) Throw(SQLITE_CORRUPT, nullptr);
  Check(Open(path, &connection_), connection_.get());
  sqlite3* const opened = connection_.get();
  // SQLite takes a file of a newer format for one that is merely not to be written. What a journal puts right
  // is not looked at yet.
  uint8_t writeFormat = 0;
  sqlite3_file* const file = FileOf(opened);
  file->pMethods->xRead(file, &writeFormat, 1, 18);
  if (writeFormat > 2 && access((path + "-journal").c_str(), F_OK) != 0) Throw(SQLITE_NOTADB, nullptr);

  // A forged file may hold code that would run with our statements.
  for (const int feature :
       {SQLITE_DBCONFIG_ENABLE_TRIGGER, SQLITE_DBCONFIG_ENABLE_VIEW, SQLITE_DBCONFIG_TRUSTED_SCHEMA}) {
    sqlite3_db_config(opened, feature, 0, nullptr);
  }
  const auto wait = [](void* until, int) {
    return static_cast<const RegistryDeadline*>(until)->Wait() ? 1 : 0;
  };
  sqlite3_busy_handler(opened, wait, const_cast<RegistryDeadline*>(&deadline));

  Execute("PRAGMA cell_size_check = ON");
  // EXTRA adds to FULL that the journal's removal reaches the disk: only with it is a write done for good.
  Execute("PRAGMA synchronous = EXTRA");
  Execute(mode == Access::kWrite ? "BEGIN IMMEDIATE" : "BEGIN");
  const bool ours = HasTables();
  if (!ours && mode == Access::kWrite) MakeTables();
  Execute("COMMIT");
  if (!ours && mode == Access::kRead) return;
  // Another program can have made it keep a log.
  if (!IsReadOnly()) Execute("PRAGMA journal_mode = DELETE");
  for (size_t i = 0; i < kStatements; ++i) statements_[i] = Prepare(kSql[i]);
  root_ = Ask("SELECT id, name FROM keys WHERE parent = 0");
  if (root_ == 0) Throw(SQLITE_CORRUPT, nullptr);
}

RegistryDatabase::StatementPointer RegistryDatabase::Prepare(const char* sql) const {
  sqlite3_stmt* statement = nullptr;
  Check(sqlite3_prepare_v3(connection_.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr),
        connection_.get());
  return StatementPointer(statement);
}

void RegistryDatabase::Execute(const char* sql) const {
  errno = 0;
  Check(sqlite3_exec(connection_.get(), sql, nullptr, nullptr, nullptr), connection_.get());
}

int64_t RegistryDatabase::Ask(const char* sql) const {
  const StatementPointer statement = Prepare(sql);
  RegistryRow row(statement.get());
  return row.Step() ? row.Number(0) : 0;
}

// True for our tables, false for an empty database; all else throws. What is ours in part is damaged, and
// what is not ours at all may be whole.
bool RegistryDatabase::HasTables() const {
  const int64_t application = Ask("PRAGMA application_id");
  const int64_t version = Ask("PRAGMA user_version");
  if (application == kApplicationId && version > kVersion) Throw(SQLITE_AUTH, nullptr);
  const StatementPointer statement = Prepare(
      "SELECT CAST(coalesce(group_concat(sql, ''), '') AS BLOB) FROM"
      " (SELECT sql FROM sqlite_schema WHERE substr(name, 1, 7) <> 'sqlite_' ORDER BY name)");
  RegistryRow row(statement.get());
  row.Step();
  const std::string_view tables = row.Bytes(0);
  if (tables.empty() && application == 0 && version == 0) return false;
  const bool ours = tables == std::string(kDataTable) + kKeysTable;
  if (ours && application == kApplicationId && version == kVersion) return true;
  Throw(ours || application == kApplicationId ? SQLITE_CORRUPT : SQLITE_FORMAT, nullptr);
}

void RegistryDatabase::MakeTables() const {
  Execute(kDataTable);
  Execute(kKeysTable);
  // The random beginning is that of all later ids. It leaves room for 2^62 of them.
  Execute("INSERT INTO keys VALUES((random() & 0x3FFFFFFFFFFFFFFF) + 1, 0, x'', x'')");
  Execute(("PRAGMA application_id = " + std::to_string(kApplicationId)).c_str());
  Execute(("PRAGMA user_version = " + std::to_string(kVersion)).c_str());
}

bool RegistryDatabase::IsReadOnly() const {
  return sqlite3_db_readonly(connection_.get(), "main") != 0;
}

bool RegistryDatabase::HasKey(int64_t key) {
  RegistryRow row = Use(kHasKey);
  row.Bind(1, key);
  return row.Step();
}

int64_t RegistryDatabase::FindKey(int64_t parent, std::u16string_view name) {
  const std::string folded = FoldedName(name);
  RegistryRow row = Use(kFindKey);
  row.Bind(1, parent);
  row.Bind(2, folded);
  return row.Step() ? row.Number(0) : 0;
}

int64_t RegistryDatabase::AddKey(int64_t parent, std::u16string_view name) {
  const std::string folded = FoldedName(name);
  const std::string stored = StoredName(name);
  RegistryRow row = Use(kAddKey);
  row.Bind(1, parent);
  row.Bind(2, folded);
  row.Bind(3, stored);
  row.Step();
  return sqlite3_last_insert_rowid(connection_.get());
}

void RegistryDatabase::DeleteTree(int64_t key, bool keep) {
  RegistryRow values = Use(kDeleteValues);
  values.Bind(1, key);
  values.Step();
  RegistryRow keys = Use(kDeleteKeys);
  keys.Bind(1, key);
  keys.Bind(2, keep ? key : 0);
  keys.Step();
}

RegistryRow RegistryDatabase::FindValue(int64_t key, std::string_view folded) {
  RegistryRow row = Use(kFindValue);
  row.Bind(1, key);
  row.Bind(2, folded);
  row.Step();
  return row;
}

void RegistryDatabase::SetValue(int64_t key, std::u16string_view name, DWORD type, std::string_view data) {
  const std::string folded = FoldedName(name);
  const std::string stored = StoredName(name);
  RegistryRow row = Use(kSetValue);
  row.Bind(1, key);
  row.Bind(2, folded);
  row.Bind(3, stored);
  row.Bind(4, int64_t{type});
  row.Bind(5, data);
  row.Step();
}

bool RegistryDatabase::DeleteValue(int64_t key, std::u16string_view name) {
  const std::string folded = FoldedName(name);
  RegistryRow row = Use(kDeleteValue);
  row.Bind(1, key);
  row.Bind(2, folded);
  row.Step();
  return sqlite3_changes(connection_.get()) != 0;
}

RegistryRow RegistryDatabase::RowAt(Statement statement, int64_t key, DWORD index) {
  RegistryRow row = Use(statement);
  row.Bind(1, key);
  row.Bind(2, int64_t{index});
  row.Step();
  return row;
}

RegistryRow RegistryDatabase::KeyAt(int64_t parent, DWORD index) {
  return RowAt(kKeyAt, parent, index);
}

RegistryRow RegistryDatabase::ValueAt(int64_t key, DWORD index) {
  return RowAt(kValueAt, key, index);
}

RegistryDatabase::Transaction::Transaction(RegistryDatabase& database) : database_(database) {
  database_.Use(kBegin).Step();
}

RegistryDatabase::Transaction::~Transaction() {
  // Some failures end the transaction by themselves.
  if (sqlite3_get_autocommit(database_.connection_.get())) return;
  sqlite3_stmt* const rollback = database_.statements_[kRollback].get();
  sqlite3_step(rollback);
  sqlite3_reset(rollback);
}

void RegistryDatabase::Transaction::Commit() {
  database_.Use(kCommit).Step();
}

}  // namespace qn
