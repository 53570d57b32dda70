// One connection to the index's database, SQLite or PostgreSQL, and what the two do differently.
#pragma once

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

// Calls `row` with the columns of each row. The text names the values in their order: :v1, :v2 ...
template <class... Columns, class Row>
void select(Database& database, const std::string& text, const std::vector<Value>& values, Row row) {
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
    const auto decoded = [](auto& column) -> auto& {
        if constexpr (std::is_same_v<std::decay_t<decltype(column)>, std::string>) {
            if (column.find('\\') != std::string::npos) column = decode(column);
        }
        return column;
    };
    while (statement.fetch()) {
        std::apply([&](auto&... column) { row(decoded(column)...); }, columns);
    }
}

// A statement that is prepared once and executed with other values again and again.
template <class... Values>
class Command {
  public:
    // `text` ends where the list of values belongs, or holds :v1, :v2 ... itself.
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
    static long long encoded(long long value) { return value; }
    static std::string encoded(const std::string& value) { return encode(value); }

    std::tuple<Values...> values_;
    soci::statement statement_;
};

// "(:v1,:v2,:v3)"
std::string placeholders(int count);

}  // namespace station::index
