#include "qn/platform/registry_database_internal.h"

#include <sqlite3.h>
#include <sys/vfs.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <new>

#include "qn/platform/error_internal.h"

namespace qn {
namespace {

constexpr int kApplicationId = 0x514E5247;
constexpr int kVersion = 1;
constexpr int kWaitMilliseconds = 10'000;

// A database is ours if it holds exactly this.
constexpr char kDataTable[] =
    "CREATE TABLE data(key INTEGER NOT NULL, folded BLOB NOT NULL, name BLOB NOT NULL, "
    "type INTEGER NOT NULL, data BLOB NOT NULL, PRIMARY KEY(key, folded)) WITHOUT ROWID";
constexpr char kKeysTable[] =
    "CREATE TABLE keys(id INTEGER PRIMARY KEY AUTOINCREMENT, parent INTEGER NOT NULL, folded BLOB NOT NULL, "
    "name BLOB NOT NULL, UNIQUE(parent, folded))";

// SQLite's log keeps its index in memory that all users share, which only one machine's processes can do.
// FUSE is taken for a network: what lies behind it cannot be seen from here.
bool IsOnNetwork(const std::string& path) {
  constexpr uint32_t kNetworks[] = {
      0x6969,      // NFS
      0x517B,      // SMB
      0xFF534D42,  // CIFS
      0xFE534D42,  // SMB 2
      0x01021997,  // 9P
      0x65735546,  // FUSE
      0x00C36400,  // Ceph
      0x5346414F,  // AFS
      0x6B414653,  // AFS of the kernel
      0x73757245,  // Coda
      0x7461636F,  // OCFS2
      0x01161970,  // GFS2
      0x0BD00BD0,  // Lustre
      0x47504653,  // GPFS
      0x19830326,  // BeeGFS
      0x786F4256,  // folders shared with a virtual machine
      0xBACBACBC, 0x7C7C6673,
  };
  struct statfs info;
  const std::string folder = path.substr(0, path.rfind('/') + 1);
  if (statfs(folder.c_str(), &info) != 0) return true;
  const auto type = static_cast<uint32_t>(info.f_type);
  return std::find(std::begin(kNetworks), std::end(kNetworks), type) != std::end(kNetworks);
}

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

// A path as SQLite reads it in a URI.
std::string UriOf(const std::string& path) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string uri = "file://";
  for (const char c : path) {
    if (c == '%' || c == '?' || c == '#') {
      uri += {'%', kDigits[c >> 4], kDigits[c & 15]};
    } else {
      uri += c;
    }
  }
  return uri + "?immutable=1";
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
      return ERROR_BADDB;
    default:
      break;
  }
  // A file that may not grow is a full disk to whoever writes settings.
  if (failure.systemError == EFBIG) return ERROR_DISK_FULL;
  if (failure.systemError == EROFS) return ERROR_ACCESS_DENIED;
  return ErrorFromErrno(failure.systemError);
}

bool IsDamage(const RegistryFailure& failure) {
  const int code = failure.code & 0xFF;
  return code == SQLITE_CORRUPT || code == SQLITE_NOTADB;
}

bool IsLackOfCompanions(const RegistryFailure& failure) {
  const int code = failure.code & 0xFF;
  return code == SQLITE_CANTOPEN || code == SQLITE_READONLY || code == SQLITE_FULL || code == SQLITE_IOERR;
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
    "SELECT id FROM keys WHERE parent = ?1 AND folded = ?2",
    "INSERT INTO keys(parent, folded, name) VALUES(?1, ?2, ?3)",
    "SELECT 1 FROM keys WHERE parent = ?1 LIMIT 1",
    "SELECT name FROM keys WHERE parent = ?1 ORDER BY folded LIMIT 1 OFFSET ?2",
    "DELETE FROM data WHERE key IN " QN_TREE,
    "DELETE FROM keys WHERE id <> ?2 AND id IN " QN_TREE,
    "SELECT name, type, data FROM data WHERE key = ?1 AND folded = ?2",
    ("INSERT INTO data(key, folded, name, type, data) VALUES(?1, ?2, ?3, ?4, ?5)"
     " ON CONFLICT(key, folded) DO UPDATE SET type = excluded.type, data = excluded.data"),
    "DELETE FROM data WHERE key = ?1 AND folded = ?2",
    "SELECT name, type, data FROM data WHERE key = ?1 ORDER BY folded LIMIT 1 OFFSET ?2",
};

#undef QN_TREE

void RegistryDatabase::Closer::operator()(sqlite3* connection) const {
  sqlite3_close(connection);
}

void RegistryDatabase::Closer::operator()(sqlite3_stmt* statement) const {
  sqlite3_finalize(statement);
}

RegistryDatabase::RegistryDatabase(const std::string& path, Access access) {
  const bool immutable = access == Access::kImmutable;
  int flags = SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_PRIVATECACHE | SQLITE_OPEN_EXRESCODE;
  flags |= immutable ? SQLITE_OPEN_READONLY | SQLITE_OPEN_URI : SQLITE_OPEN_READWRITE;
  if (access == Access::kWrite) flags |= SQLITE_OPEN_CREATE;
  sqlite3* opened = nullptr;
  const int code = sqlite3_open_v2(immutable ? UriOf(path).c_str() : path.c_str(), &opened, flags, nullptr);
  connection_.reset(opened);
  Check(code, opened);

  // A forged file may hold code that would run with our statements.
  for (const int feature :
       {SQLITE_DBCONFIG_ENABLE_TRIGGER, SQLITE_DBCONFIG_ENABLE_VIEW, SQLITE_DBCONFIG_TRUSTED_SCHEMA}) {
    sqlite3_db_config(opened, feature, 0, nullptr);
  }
  sqlite3_busy_timeout(opened, kWaitMilliseconds);

  // Without other users a log's index is not shared, so a log that a file brought along can be ended.
  const bool network = !immutable && IsOnNetwork(path);
  if (network) Execute("PRAGMA locking_mode = EXCLUSIVE");
  Execute("PRAGMA cell_size_check = ON");
  const bool ours = HasTables();
  if (!ours && access != Access::kWrite) return;
  if (!IsReadOnly()) Execute(network ? "PRAGMA journal_mode = DELETE" : "PRAGMA journal_mode = WAL");
  if (network) Execute("PRAGMA locking_mode = NORMAL");
  // EXTRA adds to FULL that a journal's removal reaches the disk: only with it is the write done for good.
  Execute("PRAGMA synchronous = EXTRA");
  if (!ours) {
    Execute("BEGIN IMMEDIATE");
    Execute(kDataTable);
    Execute(kKeysTable);
    // The random beginning is that of all later ids. It leaves room for 2^62 of them.
    Execute("INSERT INTO keys VALUES((random() & 0x3FFFFFFFFFFFFFFF) + 1, 0, x'', x'')");
    Execute(("PRAGMA application_id = " + std::to_string(kApplicationId)).c_str());
    Execute(("PRAGMA user_version = " + std::to_string(kVersion)).c_str());
    Execute("COMMIT");
  }
  for (size_t i = 0; i < kStatements; ++i) statements_[i] = Prepare(kSql[i]);
  root_ = Ask("SELECT id FROM keys WHERE parent = 0");
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

// True for our tables, false for an empty database; all else throws.
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
  if (!ours || application != kApplicationId || version != kVersion) Throw(SQLITE_NOTADB, nullptr);
  return true;
}

bool RegistryDatabase::IsReadOnly() const {
  return sqlite3_db_readonly(connection_.get(), "main") != 0;
}

void RegistryDatabase::Abandon() {
  sqlite3_db_config(connection_.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
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

bool RegistryDatabase::HasSubkeys(int64_t key) {
  RegistryRow row = Use(kHasSubkeys);
  row.Bind(1, key);
  return row.Step();
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

RegistryRow RegistryDatabase::KeyAt(int64_t parent, DWORD index) {
  RegistryRow row = Use(kKeyAt);
  row.Bind(1, parent);
  row.Bind(2, int64_t{index});
  row.Step();
  return row;
}

RegistryRow RegistryDatabase::ValueAt(int64_t key, DWORD index) {
  RegistryRow row = Use(kValueAt);
  row.Bind(1, key);
  row.Bind(2, int64_t{index});
  row.Step();
  return row;
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
