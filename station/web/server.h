// The routes of docs/api.md: who may ask, what is served, and the pages themselves.

#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>

#include "station/web/http.h"

namespace station::web {

// An answer other than 200: its code is the "error" of the JSON object.
struct Refusal : std::runtime_error {
    Refusal(int http_status, const std::string& code)
        : std::runtime_error(code), status(http_status) {}
    int status;
};

using Query = std::map<std::string, std::string>;

// What the routes ask for. Each may throw Refusal; a function that is empty gives 404.
struct Backend {
    std::function<nlohmann::json()> state;
    std::function<void(const std::string& text)> scan;
    std::function<void(const std::string& attempt, const std::string& serial,
                       const std::string& question, const std::string& answer)>
        answer;
    std::function<void(const std::string& attempt)> stop;
    std::function<void(const std::string& mark)> mark;
    std::function<void(const std::string& of, const std::string& defect, const std::string& text,
                       const std::string& badge)>
        repair;
    std::function<nlohmann::json(const std::string& id)> replay;
    std::function<nlohmann::json(const std::string& id)> attempt;
    std::function<std::string(const std::string& id)> journal;  // its bytes
    std::function<nlohmann::json(const std::string& serial)> board;
    std::function<nlohmann::json(const Query&)> yield;
    std::function<nlohmann::json(const Query&)> list;
};

// Tokens: empty where none is asked for.
struct Tokens {
    std::string look;
    std::string operate;  // may look, too
    [[nodiscard]] bool needed() const { return !look.empty() || !operate.empty(); }
};

// Reads "look TOKEN" and "operate TOKEN", one a line. Throws std::runtime_error for anything else,
// for a token of fewer than 16 characters, and when either is missing.
Tokens read_tokens(const std::filesystem::path& file);

bool is_loopback(std::string_view address);

// Answers one request: checks Host, Origin and token, then calls the backend or gives a page.
class Server {
  public:
    Server(Backend backend, Tokens tokens)
        : backend_(std::move(backend)), tokens_(std::move(tokens)) {}
    Response handle(const Request& request) const;

  private:
    enum class Right { none, look, operate };
    [[nodiscard]] Right right_of(const Request& request) const;
    [[nodiscard]] Response route(const Request& request) const;
    [[nodiscard]] Response get(const Request& request) const;
    [[nodiscard]] Response post(const Request& request) const;

    Backend backend_;
    Tokens tokens_;
};

// A file of the page, compiled in.
struct Asset {
    std::string_view name;
    std::string_view type;
    std::string_view content;
};
const Asset* find_asset(std::string_view name);

}  // namespace station::web
