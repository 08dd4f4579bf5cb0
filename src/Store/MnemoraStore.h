#pragma once
// The one owner of the database. Everything the program remembers is a row of one SQLite file;
// every statement after construction runs on one serial queue, and every public operation waits
// for its own. The capture process and any number of tool servers each hold a store on the file.

#include "Store/Embedder.h"
#include "Store/Models.h"
#include "Store/VectorScan.h"
#include "Support/SerialQueue.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace mnemora {

/// A value bound to a statement's parameter; monostate binds NULL.
using BindValue = std::variant<std::monostate, std::string, double, std::int64_t>;

/// Reads the current row of a stepped statement; column indices count from 0.
class RowReader {
  public:
    explicit RowReader(sqlite3_stmt* statement) : statement_(statement) {}

    [[nodiscard]] std::int64_t integer(int column) const;
    [[nodiscard]] double real(int column) const;
    /// The column as valid UTF-8 without NUL, a number in its text form; absent for SQL NULL.
    [[nodiscard]] std::optional<std::string> text(int column) const;

  private:
    sqlite3_stmt* statement_;
};

/// Construction never fails visibly: a database that can't be opened leaves a memory that answers
/// empty to everything, with an error line for each query.
///
/// Any thread may call the public operations, except from inside one of them: a job that waits
/// for the queue it runs on would wait for ever (caught in debug builds).
class MnemoraStore {
  public:
    MnemoraStore();
    /// For tests and benchmarks: an embedder of their own in place of the platform's.
    explicit MnemoraStore(std::unique_ptr<Embedder> embedder);
    ~MnemoraStore();
    MnemoraStore(const MnemoraStore&) = delete;
    MnemoraStore& operator=(const MnemoraStore&) = delete;

    /// Full path of the database file, from the user's data folder; computed at each call.
    [[nodiscard]] static std::string dbPath();

    /// Runs one statement and returns one mapped value per row, in SQLite's order. `map` runs on
    /// the queue and only reads. A statement that doesn't prepare gives an error line and an
    /// empty list; an error while stepping ends the list.
    template <class Map>
    auto query(const std::string& sql, const std::vector<BindValue>& bind, Map map)
        -> std::vector<decltype(map(std::declval<const RowReader&>()))> {
        std::vector<decltype(map(std::declval<const RowReader&>()))> rows;
        forEachRow(sql, bind, [&](const RowReader& row) { rows.push_back(map(row)); });
        return rows;
    }

    /// Stores the event unless the same content was stored within the last `dedupWindow` seconds;
    /// its embedding follows in the same job. True exactly when a row was written.
    bool insert(const MnemoraEvent& event, double dedupWindow);

    /// Embeds every event that has no vector yet and says how many there were; nothing to do and
    /// nothing said without a model.
    void backfillEmbeddings();

    /// The `limit` stored vectors most similar to `query`, best first; equal scores by rising id.
    /// A full scan; a vector of another length scores 0.
    [[nodiscard]] std::vector<SemanticMatch> semanticTopK(std::span<const float> query,
                                                          std::int64_t limit);

    /// The sentence embedder; used on the queue, and on the session's thread for queries.
    [[nodiscard]] Embedder& embedder() { return *embedder_; }

  private:
    void forEachRow(const std::string& sql, const std::vector<BindValue>& bind,
                    const std::function<void(const RowReader&)>& visit);

    /// Runs a job on q_. True when the file turned out to have been cut short or written over
    /// under us; it has then been opened anew, and a job that failed may be worth another try.
    bool sync(const std::function<void()>& job);

    // Only inside a job on q_:
    [[nodiscard]] std::optional<std::int64_t> insertOnQueue(const MnemoraEvent& event,
                                                            double dedupWindow);
    [[nodiscard]] bool recentlyHas(const std::string& hash, double within) const;
    /// False only when there was a vector and it could not be written.
    bool storeEmbeddingOnQueue(std::int64_t eventId, std::string_view text);
    void backfillOnQueue();

    sqlite3* db_ = nullptr; // set by construction, then used on q_ only
    bool mapped_ = false;   // used on q_ only
    SerialQueue q_;
    std::unique_ptr<Embedder> embedder_;
};

} // namespace mnemora
