// SPDX-License-Identifier: Apache-2.0
#include "gallery.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sqlite3.h>
#include <unistd.h>
#include <zlib.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "files.h"
#include "model_search.h"
#include "report.h"

namespace kelnn_cli {
namespace {

namespace fs = std::filesystem;

constexpr int kApplication = 0x6b6e6761;  // says that a file of SQLite is a gallery
constexpr int kVersion = 1;
constexpr char kTables[] =
    "CREATE TABLE network (digest TEXT NOT NULL);"
    "CREATE TABLE face (id INTEGER PRIMARY KEY, name TEXT NOT NULL, picture TEXT NOT NULL,"
    " feature BLOB NOT NULL, UNIQUE (name, feature));";  // 256 floats, low byte first

constexpr char kDamaged[] = "a damaged gallery";

std::string digest_of(const std::string& network) {
  const Bytes bytes = read_file(network);
  const auto sum = crc32_z(0, bytes.data(), bytes.size());
  return fmt::format("{} bytes, CRC-32 {:08x}", bytes.size(), sum);
}

// SQLite makes files that everybody may read. False: it is there already.
bool make_private_file(const std::string& path) {
  const fs::path directory = fs::path(path).parent_path();
  std::error_code error;
  if (!directory.empty()) fs::create_directories(directory, error);
  const int descriptor = open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600);
  if (descriptor >= 0) return close(descriptor) == 0;
  if (errno != EEXIST) {
    throw Failure(path, fmt::format("cannot be made: {}", std::strerror(errno)));
  }
  return false;
}

}  // namespace

void Gallery::Close::operator()(sqlite3* database) const { sqlite3_close(database); }

// A line of SQL and its values; what it gives is read row by row.
class Gallery::Statement {
 public:
  Statement(const Gallery& gallery, const char* sql) : gallery_(gallery) {
    check(sqlite3_prepare_v2(gallery.database_.get(), sql, -1, &statement_, nullptr));
  }
  ~Statement() { sqlite3_finalize(statement_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  Statement& with(int place, const std::string& text) {
    check(sqlite3_bind_text(statement_, place, text.data(), static_cast<int>(text.size()),
                            SQLITE_TRANSIENT));
    return *this;
  }
  Statement& with(int place, const kel_nn::Feature& feature) {
    check(sqlite3_bind_blob(statement_, place, feature.data(), sizeof(feature), SQLITE_TRANSIENT));
    return *this;
  }
  bool next() {  // false: there is no further row
    const int result = sqlite3_step(statement_);
    if (result != SQLITE_ROW && result != SQLITE_DONE) check(result);
    return result == SQLITE_ROW;
  }
  int run() {  // how many rows it changed
    next();
    return sqlite3_changes(gallery_.database_.get());
  }
  int number(int column) const { return sqlite3_column_int(statement_, column); }
  std::string text(int column) const {
    const void* bytes = sqlite3_column_blob(statement_, column);
    return {static_cast<const char*>(bytes),
            bytes ? static_cast<size_t>(sqlite3_column_bytes(statement_, column)) : 0};
  }

 private:
  void check(int result) const {
    if (result == SQLITE_OK) return;
    throw Failure(gallery_.path_, result == SQLITE_NOTADB
                                      ? "no gallery"
                                      : sqlite3_errmsg(gallery_.database_.get()));
  }

  const Gallery& gallery_;
  sqlite3_stmt* statement_ = nullptr;
};

Gallery::Gallery(const std::string& path, Use use, const std::string& network) : path_(path) {
  if (use == Use::kWrite) own_file_.path = make_private_file(path) ? path : "";
  sqlite3* opened = nullptr;
  const int result =
      sqlite3_open_v2(path.c_str(), &opened,
                      use == Use::kWrite ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY, nullptr);
  database_.reset(opened);
  if (result != SQLITE_OK) {
    std::error_code error;
    throw Failure(path, fs::exists(path, error) || error
                            ? sqlite3_errmsg(opened)
                            : "there is no gallery; kelnn enroll NAME PICTURES... begins one");
  }
  sqlite3_busy_timeout(opened, 5000);  // another kelnn may be writing
  if (use == Use::kWrite) Statement(*this, "BEGIN IMMEDIATE").run();
  begin_or_check(use, network);
}

Gallery::~Gallery() = default;

Gallery::Unkept::~Unkept() {
  std::error_code error;
  if (!path.empty()) fs::remove(path, error);
}

void Gallery::begin_or_check(Use use, const std::string& network) {
  const auto setting = [this](const char* name) {
    Statement asked(*this, name);
    return asked.next() ? asked.number(0) : 0;
  };
  Statement tables(*this, "SELECT count(*) FROM sqlite_master");
  tables.next();
  const std::string digest = network.empty() ? "" : digest_of(network);
  if (tables.number(0) == 0 && use == Use::kWrite && !digest.empty()) {
    if (sqlite3_exec(database_.get(), kTables, nullptr, nullptr, nullptr) != SQLITE_OK)
      throw Failure(path_, sqlite3_errmsg(database_.get()));
    Statement(*this, fmt::format("PRAGMA application_id = {}", kApplication).c_str()).run();
    Statement(*this, fmt::format("PRAGMA user_version = {}", kVersion).c_str()).run();
    Statement(*this, "INSERT INTO network VALUES (?1)").with(1, digest).run();
  }
  if (setting("PRAGMA application_id") != kApplication) throw Failure(path_, "no gallery");
  if (setting("PRAGMA user_version") > kVersion)
    throw Failure(path_, "a gallery of a later version of kelnn");
  Statement begun(*this, "SELECT digest FROM network");
  if (!digest.empty() && !(begun.next() && begun.text(0) == digest)) {
    throw Failure(path_,
                  fmt::format("a gallery of another network ({}) than {} ({}), whose features "
                              "cannot be compared. To do: name that network's directory with "
                              "--root, or enroll anew with another --gallery",
                              begun.text(0), network, digest));
  }
  const std::string odd = fmt::format(
      "SELECT 1 FROM face WHERE length(CAST(feature AS BLOB)) <> {}", sizeof(kel_nn::Feature));
  if (Statement(*this, odd.c_str()).next()) throw Failure(path_, kDamaged);
}

bool Gallery::add(const std::string& name, const std::string& picture,
                  const kel_nn::Feature& feature) {
  return Statement(*this, "INSERT OR IGNORE INTO face (name, picture, feature) VALUES (?1, ?2, ?3)")
             .with(1, name)
             .with(2, picture)
             .with(3, feature)
             .run() > 0;
}

int Gallery::remove(const std::string& name) {
  return Statement(*this, "DELETE FROM face WHERE name = ?1").with(1, name).run();
}

void Gallery::keep() {
  Statement(*this, "COMMIT").run();
  own_file_.path.clear();
}

std::vector<std::pair<std::string, int>> Gallery::people() const {
  std::vector<std::pair<std::string, int>> people;
  Statement rows(*this, "SELECT name, count(*) FROM face GROUP BY name ORDER BY name");
  while (rows.next()) people.emplace_back(rows.text(0), rows.number(1));
  return people;
}

KnownFaces Gallery::faces() const {
  KnownFaces known;
  Statement rows(*this, "SELECT name, feature FROM face ORDER BY id");
  kel_nn::Feature feature;
  while (rows.next()) {
    const std::string bytes = rows.text(1);
    if (bytes.size() != sizeof(feature)) throw Failure(path_, kDamaged);  // since it was opened
    std::memcpy(feature.data(), bytes.data(), sizeof(feature));
    known.add(rows.text(0), feature);
  }
  return known;
}

void KnownFaces::add(const std::string& name, const kel_nn::Feature& feature) {
  index_.add(feature);
  names_.push_back(name);
}

Match KnownFaces::nearest(const kel_nn::Feature& feature) const {
  const FeatureIndex::Nearest nearest = index_.nearest(feature);
  return {names_[nearest.number], nearest.similarity};
}

std::string gallery_of_user() { return user_directory() + "gallery.db"; }

}  // namespace kelnn_cli
