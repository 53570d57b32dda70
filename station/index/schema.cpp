// The tables of the index. A step that was once released is never changed: what comes later is a
// step behind it.
#include "station/index/database.h"

namespace station::index {
namespace {

// INT is an integer of 64 bits; CLUSTERED keeps the rows in the order of the primary key.
constexpr const char* kTables[] = {
    "CREATE TABLE q7_schema (version INT PRIMARY KEY)",

    "CREATE TABLE plans ("
    " number INT PRIMARY KEY, name TEXT NOT NULL, revision INT NOT NULL, hash TEXT NOT NULL "
    "UNIQUE)",

    // `number` counts in the order of arrival. Times are milliseconds of UTC since 1970, zones
    // minutes east, `day` is 20261123 by the station's calendar. `failing`: all items that are not
    // PASS, sorted.
    "CREATE TABLE attempts ("
    " number INT PRIMARY KEY, id TEXT NOT NULL UNIQUE, serial TEXT NOT NULL, model TEXT NOT NULL,"
    " station TEXT NOT NULL, operator TEXT NOT NULL, started INT NOT NULL,"
    " started_zone INT NOT NULL, ended INT NOT NULL, ended_zone INT NOT NULL, day INT NOT NULL,"
    " verdict TEXT NOT NULL, mark TEXT NOT NULL, proof TEXT NOT NULL, plan INT NOT NULL,"
    " journal TEXT NOT NULL, program TEXT NOT NULL, agent TEXT NOT NULL, q7 TEXT NOT NULL,"
    " unexplained INT NOT NULL, first_item TEXT NOT NULL, failing TEXT NOT NULL,"
    " indexed INT NOT NULL)",
    "CREATE INDEX attempts_of_board ON attempts(serial, model, started, id)",
    "CREATE INDEX attempts_in_time ON attempts(started, id)",
    "CREATE INDEX attempts_left_out ON attempts(day, started)"
    " WHERE verdict = 'INCOMPLETE' OR mark <> 'production'",

    "CREATE TABLE items ("
    " attempt INT, place INT, name TEXT NOT NULL, verdict TEXT NOT NULL,"
    " PRIMARY KEY(attempt, place)) CLUSTERED",
    "CREATE TABLE reasons ("
    " attempt INT, item INT, place INT, code TEXT NOT NULL, verdict TEXT NOT NULL,"
    " fact TEXT NOT NULL, text TEXT NOT NULL, value TEXT NOT NULL, wanted TEXT NOT NULL,"
    " unit TEXT NOT NULL, low TEXT NOT NULL, high TEXT NOT NULL, line INT NOT NULL,"
    " PRIMARY KEY(attempt, item, place)) CLUSTERED",
    "CREATE TABLE causes ("
    " attempt INT, place INT, defect TEXT NOT NULL, exact INT NOT NULL, look_at TEXT NOT NULL,"
    " PRIMARY KEY(attempt, place)) CLUSTERED",
    "CREATE TABLE measurements ("
    " attempt INT, fact TEXT, value INT NOT NULL, unit TEXT NOT NULL,"
    " PRIMARY KEY(attempt, fact)) CLUSTERED",
    "CREATE TABLE repairs ("
    " attempt INT, place INT, of_id TEXT NOT NULL, defect TEXT NOT NULL, text TEXT NOT NULL,"
    " operator TEXT NOT NULL, at INT NOT NULL, at_zone INT NOT NULL,"
    " PRIMARY KEY(attempt, place)) CLUSTERED",
    "CREATE TABLE addresses (attempt INT, address TEXT, PRIMARY KEY(attempt, address)) CLUSTERED",
    "CREATE INDEX addresses_seen ON addresses(address, attempt)",

    // Made from the tables above, and can be made again. A board is a serial number and model with
    // its first and its last counted attempt: of production, and not INCOMPLETE.
    "CREATE TABLE boards ("
    " serial TEXT, model TEXT, first INT NOT NULL, first_id TEXT NOT NULL,"
    " first_started INT NOT NULL, day INT NOT NULL, station TEXT NOT NULL, plan INT NOT NULL,"
    " verdict TEXT NOT NULL, item TEXT NOT NULL, item_verdict TEXT NOT NULL, cause TEXT NOT NULL,"
    " last_id TEXT NOT NULL, last_started INT NOT NULL, final TEXT NOT NULL,"
    " PRIMARY KEY(serial, model)) CLUSTERED",
    "CREATE INDEX boards_by_day ON boards(day, model, station)",
    "CREATE INDEX boards_by_item ON boards(item, day) WHERE verdict <> 'PASS'",
    "CREATE INDEX boards_by_cause ON boards(cause, day) WHERE verdict <> 'PASS'",
    "CREATE INDEX boards_not_final ON boards(day) WHERE final <> 'PASS'",

    // Numbers of boards by their first attempt (kinds board, item, cause, drift), and of attempts
    // that no yield counts (left-out). Of board, `name` is the day; of drift, `final` is the unit.
    // The key has the order in which the yield page groups.
    "CREATE TABLE tallies ("
    " kind TEXT, name TEXT, station TEXT, day INT, model TEXT, plan INT, verdict TEXT, final TEXT,"
    " value INT, boards INT NOT NULL,"
    " PRIMARY KEY(kind, name, station, day, model, plan, verdict, final, value)) CLUSTERED",
    // The models, stations and measured facts that there are.
    "CREATE TABLE choices (kind TEXT, name TEXT, unit TEXT, PRIMARY KEY(kind, name, unit)) "
    "CLUSTERED",
};

constexpr const char* kKept[] = {"plans",  "attempts",     "items",   "reasons",
                                 "causes", "measurements", "repairs", "addresses"};

// Nothing is deleted or overwritten, by mistake at least: who owns the database can drop these.
std::vector<std::string> guards(bool sqlite) {
    std::vector<std::string> statements;
    if (!sqlite) {
        statements.emplace_back(
            "CREATE FUNCTION q7_keep() RETURNS trigger LANGUAGE plpgsql AS"
            " $$ BEGIN RAISE EXCEPTION 'the index keeps what it has'; END $$");
    }
    for (const std::string table : kKept) {
        if (sqlite) {
            for (const char* change : {"UPDATE", "DELETE"}) {
                std::string statement = "CREATE TRIGGER keep_" + table;
                statement.append("_").append(change).append(" BEFORE ").append(change);
                statement.append(" ON ").append(table);
                statement.append(" BEGIN SELECT RAISE(ABORT, 'the index keeps what it has'); END");
                statements.push_back(std::move(statement));
            }
        } else {
            std::string statement = "CREATE TRIGGER keep_" + table;
            statement.append(" BEFORE UPDATE OR DELETE OR TRUNCATE ON ").append(table);
            statement.append(" EXECUTE FUNCTION q7_keep()");
            statements.push_back(std::move(statement));
        }
    }
    return statements;
}

std::string for_database(std::string text, bool sqlite) {
    const auto replace = [&](const std::string& word, const std::string& by) {
        for (std::size_t at = 0; (at = text.find(word, at)) != std::string::npos; at += by.size()) {
            text.replace(at, word.size(), by);
        }
    };
    replace(" INT", sqlite ? " INTEGER" : " BIGINT");
    replace(" CLUSTERED", sqlite ? " WITHOUT ROWID" : "");
    if (!sqlite) replace(" TEXT", " VARCHAR COLLATE \"C\"");  // the order of SQLite and of C++
    return text;
}

}  // namespace

std::vector<std::vector<std::string>> schema_steps(bool sqlite) {
    std::vector<std::string> first;
    for (const char* table : kTables)
        first.push_back(for_database(table, sqlite));
    for (std::string& guard : guards(sqlite))
        first.push_back(std::move(guard));
    return {std::move(first)};
}

}  // namespace station::index
