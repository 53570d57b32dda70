// One connection to the index's database, SQLite or PostgreSQL, and what the two do differently.
#pragma once

// Debian's SOCI was built with Boost; its headers need Boost only for types that are not used here.
#include <soci/soci-config.h>
#undef SOCI_HAVE_BOOST
#include <soci/soci.h>

#include <string>
#include <string_view>
#include <tuple>
#include <variant>
#include <vector>

namespace station::index {

// What PostgreSQL cannot keep in a text - bytes that are no UTF-8, and zero - becomes \xNN, and a
// backslash \\; anything else stays. decode undoes it.
std::string encode(std::string_view bytes);
std::string decode(std::string_view text);
// The length of the UTF-8 character at the beginning; 0 = there is none.
std::size_t character_length(std::string_view text);

// How long a statement waits for a database that is away or locked.
constexpr int kPatience_s = 2;

// Throws std::runtime_error, which names the database but no password, when it is away, locked, or
// made by a newer program. Any later exception leaves the connection unusable.
class Database {
  public:
    // postgresql://..., or the path of an SQLite file, which is made if it is not there.
    explicit Database(const std::string& url);

    soci::session& session() { return session_; }
    bool is_sqlite() const { return sqlite_; }

    // One writer at a time, across all stations: begin waits for the others, at most kPatience_s.
    void begin_write();
    void commit();
    void rollback() noexcept;

    // Lets this role of PostgreSQL add attempts and read, and neither change nor delete one.
    void grant(const std::string& role);

  private:
    void migrate();

    bool sqlite_;
    soci::session session_;
};

bool is_postgresql(std::string_view url);
std::string without_password(std::string url);

// The versions of the schema; each brings a database from the one before to its own.
std::vector<std::vector<std::string>> schema_steps(bool sqlite);

using Value = std::variant<long long, std::string>;

inline long long encoded(long long value) { return value; }
inline std::string encoded(const std::string& value) { return encode(value); }

inline void decode_in_place(long long&) {}
inline void decode_in_place(int&) {}
inline void decode_in_place(std::string& text) {
    if (text.find('\\') != std::string::npos) text = decode(text);
}

// Calls `row` with the columns of each row. The text names the values in their order: :v1, :v2 ...
template <class... Columns, class Row>
void select(Database& database, const std::string& text, const std::vector<Value>& values,
            Row row) {
    std::tuple<Columns...> columns;
    std::vector<Value> bound = values;
    soci::statement statement(database.session());
    statement.alloc();
    std::apply([&](auto&... column) { (statement.exchange(soci::into(column)), ...); }, columns);
    for (Value& value : bound) {
        if (auto* string = std::get_if<std::string>(&value)) {
            *string = encode(*string);
            statement.exchange(soci::use(*string));
        } else {
            statement.exchange(soci::use(std::get<long long>(value)));
        }
    }
    statement.prepare(text);
    statement.define_and_bind();
    statement.execute(false);
    while (statement.fetch()) {
        std::apply([](auto&... column) { (decode_in_place(column), ...); }, columns);
        std::apply(row, columns);
    }
}

// A statement without a result, prepared once and executed with other values again and again.
template <class... Values>
class Command {
  public:
    Command(Database& database, const std::string& text) : statement_(database.session()) {
        statement_.alloc();
        std::apply([&](auto&... value) { (statement_.exchange(soci::use(value)), ...); }, values_);
        statement_.prepare(text);
        statement_.define_and_bind();
    }

    void operator()(const Values&... values) {
        values_ = std::make_tuple(encoded(values)...);
        statement_.execute(true);
    }

  private:
    std::tuple<Values...> values_;
    soci::statement statement_;
};

// The same with a row as the result.
template <class Row, class... Values>
class Prepared {
  public:
    Prepared(Database& database, const std::string& text) : statement_(database.session()) {
        statement_.alloc();
        std::apply([&](auto&... column) { (statement_.exchange(soci::into(column)), ...); },
                   columns_);
        std::apply([&](auto&... value) { (statement_.exchange(soci::use(value)), ...); }, values_);
        statement_.prepare(text);
        statement_.define_and_bind();
    }

    // Returns whether there is such a row.
    bool operator()(const Values&... values) {
        values_ = std::make_tuple(encoded(values)...);
        const bool found = statement_.execute(true);
        row_ = columns_;
        // A statement that is not read to its end keeps SQLite's snapshot, and the next writer out.
        while (statement_.fetch()) {
        }
        std::apply([](auto&... column) { (decode_in_place(column), ...); }, row_);
        return found;
    }
    // The latest row that was found.
    const Row& row() const { return row_; }

  private:
    Row columns_, row_;
    std::tuple<Values...> values_;
    soci::statement statement_;
};

// "(:v1,:v2,:v3)"
std::string placeholders(int count);

}  // namespace station::index
