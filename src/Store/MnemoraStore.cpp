#include "Store/MnemoraStore.h"

#include "Log.h"
#include "Platform/CoreServices.h"
#include "Store/DatabaseFile.h"
#include "Store/LostPages.h"
#include "Store/PageReadAhead.h"
#include "Store/Statement.h"
#include "Text/Characters.h"
#include "Text/Encoding.h"

#include <cstring>
#include <sqlite3.h>
#include <utility>

namespace mnemora {
namespace {

/// A blob shorter than one element is no vector.
constexpr std::size_t elementSize = sizeof(float);

std::string embedBasis(const std::optional<std::string>& person,
                       const std::optional<std::string>& title,
                       const std::optional<std::string>& body) {
    std::string basis;
    for (const auto* part : {&person, &title, &body}) {
        if (!part->has_value() || (*part)->empty())
            continue;
        if (!basis.empty())
            basis += ". ";
        basis += **part;
    }
    return basis;
}

/// What will be embedded of a row of id, person, title and body, and no more: thousands of whole
/// bodies would not fit the memory.
std::string embeddedPart(const RowReader& row) {
    const std::string basis = embedBasis(row.text(1), row.text(2), row.text(3));
    return std::string(firstCharacters(basis, NLSentenceEmbedder::maxCharacters));
}

/// Whether the last call met a file that is none, or not the one that was opened: it was cut
/// short or written over.
bool isDamaged(sqlite3* db) {
    const int code = sqlite3_errcode(db);
    return db != nullptr && (code == SQLITE_CORRUPT || code == SQLITE_NOTADB);
}

void bindAll(const Statement& statement, const std::vector<BindValue>& values) {
    for (size_t i = 0; i < values.size(); ++i) {
        const int index = static_cast<int>(i) + 1;
        if (const auto* text = std::get_if<std::string>(&values[i]))
            statement.bind(index, *text);
        else if (const auto* real = std::get_if<double>(&values[i]))
            statement.bind(index, *real);
        else if (const auto* integer = std::get_if<std::int64_t>(&values[i]))
            statement.bind(index, *integer);
        else
            sqlite3_bind_null(statement.get(), index);
    }
}

} // namespace

std::int64_t RowReader::integer(int column) const {
    return sqlite3_column_int64(statement_, column);
}

double RowReader::real(int column) const {
    return sqlite3_column_double(statement_, column);
}

std::optional<std::string> RowReader::text(int column) const {
    const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
    if (bytes == nullptr)
        return std::nullopt;
    const auto size = static_cast<size_t>(sqlite3_column_bytes(statement_, column));
    return cleanText({bytes, size});
}

MnemoraStore::MnemoraStore() : MnemoraStore(std::make_unique<NLSentenceEmbedder>("en")) {}

MnemoraStore::MnemoraStore(std::unique_ptr<Embedder> embedder)
    : q_("app.mnemora.Mnemora.store"), embedder_(std::move(embedder)) {
    db_ = openDatabase(dbPath());
}

MnemoraStore::~MnemoraStore() {
    // Behind the jobs that still wait; one that comes later finds no connection.
    q_.sync([this] { sqlite3_close(std::exchange(db_, nullptr)); });
}

std::string MnemoraStore::dbPath() {
    return databasePath().string();
}

bool MnemoraStore::sync(const std::function<void()>& job) {
    bool wasLost = false;
    q_.sync([&] {
        job();
        wasLost = hasLostPages() || isDamaged(db_);
        if (!wasLost)
            return;
        sqlite3_close(db_);
        forgetLostPages();
        db_ = openDatabase(dbPath());
        mapped_ = false;
    });
    return wasLost;
}

void MnemoraStore::forEachRow(const std::string& sql, const std::vector<BindValue>& bind,
                              const std::function<void(const RowReader&)>& visit) {
    sync([&] {
        const Statement statement(db_, sql);
        if (!statement) {
            logError(std::string("prepare failed: ") + databaseError(db_));
            return;
        }
        bindAll(statement, bind);
        const RowReader row(statement.get());
        while (statement.stepToRow())
            visit(row);
    });
}

bool MnemoraStore::insert(const MnemoraEvent& event, double dedupWindow) {
    bool stored = false;
    const auto attempt = [&] {
        const auto id = insertOnQueue(event, dedupWindow);
        stored = id.has_value();
        if (id)
            storeEmbeddingOnQueue(*id, embedBasis(event.person, event.title, event.body));
    };
    if (sync(attempt) && !stored)
        sync(attempt);
    return stored;
}

std::optional<std::int64_t> MnemoraStore::insertOnQueue(const MnemoraEvent& event,
                                                        double dedupWindow) {
    const std::string hash = event.hash();
    if (recentlyHas(hash, dedupWindow))
        return std::nullopt;
    const Statement statement(
        db_, "INSERT INTO events (ts, source, app, bundle, kind, person, title, url, body, hash)\n"
             "VALUES (?,?,?,?,?,?,?,?,?,?);");
    if (!statement)
        return std::nullopt;
    statement.bind(1, event.ts);
    statement.bind(2, event.source);
    statement.bind(3, event.app);
    statement.bind(4, event.bundle);
    statement.bind(5, event.kind);
    statement.bind(6, event.person);
    statement.bind(7, event.title);
    statement.bind(8, event.url);
    statement.bind(9, event.body);
    statement.bind(10, hash);
    if (!statement.stepToDone())
        return std::nullopt;
    return sqlite3_last_insert_rowid(db_);
}

bool MnemoraStore::recentlyHas(const std::string& hash, double within) const {
    const Statement statement(db_, "SELECT 1 FROM events WHERE hash = ? AND ts >= ? LIMIT 1;");
    if (!statement)
        return false;
    statement.bind(1, hash);
    statement.bind(2, coreServices().clock->now() - within);
    return statement.stepToRow();
}

bool MnemoraStore::storeEmbeddingOnQueue(std::int64_t eventId, std::string_view text) {
    if (!embedder_->isAvailable())
        return true;
    const auto vector = embedder_->embed(text);
    if (!vector || vector->empty())
        return true;
    // The event may have been erased meanwhile: then nothing of it may come back.
    const Statement statement(db_, "INSERT OR REPLACE INTO embeddings (event_id, dim, vec)\n"
                                   "SELECT id, ?, ? FROM events WHERE id = ?;");
    if (!statement)
        return false;
    statement.bind(1, static_cast<std::int64_t>(vector->size()));
    statement.bind(2, std::as_bytes(std::span(*vector)));
    statement.bind(3, eventId);
    // What could not be written is found again by the next start's backfill.
    return statement.stepToDone();
}

void MnemoraStore::backfillEmbeddings() {
    if (!embedder_->isAvailable())
        return;
    sync([this] { backfillOnQueue(); });
}

void MnemoraStore::backfillOnQueue() {
    std::vector<std::pair<std::int64_t, std::string>> missing;
    {
        const Statement statement(db_, "SELECT e.id, e.person, e.title, e.body FROM events e\n"
                                       "LEFT JOIN embeddings em ON em.event_id = e.id\n"
                                       "WHERE em.event_id IS NULL;");
        const RowReader row(statement.get());
        while (statement && statement.stepToRow())
            missing.emplace_back(row.integer(0), embeddedPart(row));
    }
    // A file that takes no vector now (locked for longer than we wait, full, read-only) would cost
    // the same wait for each of the others.
    for (const auto& [id, text] : missing)
        if (!storeEmbeddingOnQueue(id, text))
            break;
    if (!missing.empty())
        logInfo("backfilled " + std::to_string(missing.size()) + " embeddings");
}

std::vector<SemanticMatch> MnemoraStore::semanticTopK(std::span<const float> query,
                                                      std::int64_t limit) {
    BestMatches best(limit > 0 ? static_cast<size_t>(limit) : 0);
    sync([&] {
        const SimilarityScorer scorer(query);
        // The connection's lock is taken once: every step and column read takes it again, which
        // costs next to nothing for the thread that holds it.
        const ConnectionLock lock(db_);
        if (!std::exchange(mapped_, true))
            mapForScanning(db_);
        const ReadAheadScope readAhead;
        const Statement statement(db_, "SELECT event_id, vec FROM embeddings;");
        while (statement && statement.stepToRow()) {
            const auto vector = statement.blob(1);
            if (vector.size() < elementSize)
                continue;
            const float score = scorer.score(vector);
            if (best.wouldKeep(score))
                best.add(sqlite3_column_int64(statement.get(), 0), score);
        }
    });
    return std::move(best).sorted();
}

} // namespace mnemora
