#include "station/index/database.h"

#include <stdexcept>

// As soci-postgresql.h and soci-sqlite3.h declare them, without their need for the headers of the
// databases.
extern "C" const soci::backend_factory* factory_postgresql();
extern "C" const soci::backend_factory* factory_sqlite3();

namespace station::index {
namespace {

// The lock of PostgreSQL that makes writers of an index take turns; any number of our own.
constexpr const char* kWriterLock = "7101";

int hexadecimal(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    return -1;
}

// The limits that hold before a first statement can set them.
std::string bounded(const std::string& url) {
    const std::string limit = std::to_string(kPatience_s);
    return url + (url.find('?') == std::string::npos ? "?" : "&") + "connect_timeout=" + limit
           + "&tcp_user_timeout=" + limit + "000";
}

soci::session connect(const std::string& url) {
    if (is_postgresql(url)) return {*factory_postgresql(), bounded(url)};
    if (url.find_first_of("\" ") != std::string::npos) {
        throw std::runtime_error("no blanks or quotes are possible in an index's name");
    }
    return {*factory_sqlite3(), "db=" + url + " timeout=" + std::to_string(kPatience_s)};
}

}  // namespace

std::size_t character_length(std::string_view text) {
    const auto byte = [&](std::size_t i) -> unsigned {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
    };
    const unsigned first = byte(0);
    const std::size_t length = first < 0x80                     ? 1
                               : first >= 0xC2 && first <= 0xDF ? 2
                               : first >= 0xE0 && first <= 0xEF ? 3
                               : first >= 0xF0 && first <= 0xF4 ? 4
                                                                : 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return 0;
    }
    // Longer than need be, a half of a pair, or beyond the last character.
    if ((first == 0xE0 && byte(1) < 0xA0) || (first == 0xED && byte(1) > 0x9F)
        || (first == 0xF0 && byte(1) < 0x90) || (first == 0xF4 && byte(1) > 0x8F) || first == 0) {
        return 0;
    }
    return length;
}

std::string encode(std::string_view bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size());
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t length = character_length(bytes.substr(at));
        if (length == 0) {
            const auto byte = static_cast<unsigned char>(bytes[at]);
            text += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
            ++at;
            continue;
        }
        if (bytes[at] == '\\') text += '\\';
        text += bytes.substr(at, length);
        at += length;
    }
    return text;
}

std::string decode(std::string_view text) {
    std::string bytes;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '\\' && text.substr(at + 1, 1) == "\\") {
            ++at;
        } else if (text[at] == '\\' && at + 3 < text.size() && text[at + 1] == 'x') {
            bytes += static_cast<char>(hexadecimal(text[at + 2]) << 4 | hexadecimal(text[at + 3]));
            at += 3;
            continue;
        }
        bytes += text[at];
    }
    return bytes;
}

bool is_postgresql(std::string_view url) {
    return url.starts_with("postgresql://") || url.starts_with("postgres://");
}

std::string without_password(std::string url) {
    const std::size_t start = url.find("://"), at = url.rfind('@');
    if (!is_postgresql(url)) return url;
    if (at != std::string::npos) {
        const std::size_t colon = url.find(':', start + 3);
        if (colon < at) url.erase(colon, at - colon);
    }
    const std::size_t word = url.find("password=");
    if (word != std::string::npos) url.erase(word, url.find('&', word) - word);
    return url;
}

std::string placeholders(int count) {
    std::string list = "(";
    for (int i = 1; i <= count; ++i)
        list += (i == 1 ? ":v" : ",:v") + std::to_string(i);
    return list + ")";
}

Database::Database(const std::string& url) try
    : sqlite_(!is_postgresql(url)), session_(connect(url)) {
    if (sqlite_) {
        session_ << "PRAGMA journal_mode=WAL";
        session_ << "PRAGMA synchronous=FULL";       // a commit is on the disk
        session_ << "PRAGMA recursive_triggers=ON";  // REPLACE would delete without them
    } else {
        const std::string limit = std::to_string(kPatience_s) + "s'";
        session_ << "SET client_encoding='UTF8'";
        session_ << "SET client_min_messages=error";  // the rest would go to standard error
        session_ << "SET lock_timeout='" + limit;
        std::string encoding;
        session_ << "SHOW server_encoding", soci::into(encoding);
        if (encoding != "UTF8") throw std::runtime_error("its encoding is not UTF8: " + encoding);
    }
    migrate();
} catch (const std::exception& problem) {
    throw std::runtime_error("index " + without_password(url) + ": " + problem.what());
}

void Database::begin_write() {
    session_ << (sqlite_ ? "BEGIN IMMEDIATE" : "BEGIN");
    if (!sqlite_) session_ << std::string("SELECT pg_advisory_xact_lock(") + kWriterLock + ")";
}

void Database::commit() { session_ << "COMMIT"; }

void Database::rollback() noexcept {
    try {
        session_ << "ROLLBACK";
    } catch (const std::exception&) {  // the connection is lost: the database does it by itself
        return;
    }
}

// The version is read before anything is locked, so that an account without rights to make tables
// can open a database that is ready.
void Database::migrate() {
    const auto version = [&] {
        int found = 0;
        session_ << (sqlite_ ? "SELECT count(*) FROM sqlite_master WHERE name='q7_schema'"
                             : "SELECT count(*) FROM pg_tables WHERE tablename='q7_schema'"
                               " AND schemaname=current_schema()"),
            soci::into(found);
        if (found != 0) session_ << "SELECT max(version) FROM q7_schema", soci::into(found);
        return found;
    };
    const auto steps = schema_steps(sqlite_);
    const int latest = int(steps.size());
    int now = version();
    if (now == latest) return;
    begin_write();
    try {
        now = version();  // another station may have been quicker
        if (now > latest) {
            throw std::runtime_error("made by a newer program, version " + std::to_string(now));
        }
        for (; now < latest; ++now) {
            for (const std::string& statement : steps[std::size_t(now)])
                session_ << statement;
            session_ << "INSERT INTO q7_schema(version) VALUES (" << now + 1 << ")";
        }
        commit();
    } catch (...) {
        rollback();
        throw;
    }
}

void Database::grant(const std::string& role) {
    if (sqlite_) throw std::runtime_error("SQLite has no accounts");
    if (role.empty() || role.find('"') != std::string::npos) {
        throw std::runtime_error("no role: " + role);
    }
    const std::string to = " TO \"" + role + "\"";
    begin_write();
    try {
        session_ << "GRANT SELECT ON q7_schema" + to;
        session_ << "GRANT SELECT, INSERT ON plans, attempts, items, reasons, causes, measurements,"
                    " repairs, addresses, choices"
                        + to;
        session_ << "GRANT SELECT, INSERT, UPDATE ON boards, tallies" + to;
        commit();
    } catch (...) {
        rollback();
        throw;
    }
}

}  // namespace station::index
