#include "station/web/server.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>

namespace station::web {
namespace {

using nlohmann::json;

constexpr std::size_t kLongestParameter = 256;
constexpr std::size_t kLongestDefect = 4096;  // a change of the simulated board
constexpr std::size_t kShortestToken = 16;

Response refusal(int status, const std::string& code) {
    return {status, "application/json", json{{"error", code}}.dump(), {}};
}

std::string header(const Request& request, const std::string& name) {
    const auto found = request.headers.find(name);
    return found == request.headers.end() ? "" : found->second;
}

// The host of "host:port", "[v6]:port" or either without a port.
std::string_view host_of(std::string_view authority) {
    if (authority.starts_with('[')) return authority.substr(1, authority.find(']') - 1);
    return authority.substr(0, authority.find(':'));
}

bool is_number(const std::string& host) {
    std::array<unsigned char, sizeof(in6_addr)> bytes{};
    return inet_pton(AF_INET, host.c_str(), bytes.data()) == 1
           || inet_pton(AF_INET6, host.c_str(), bytes.data()) == 1;
}

// A page of another site that gives its own name our address still says its own name here.
bool is_own_host(const Request& request) {
    const std::string authority = header(request, "host");
    const std::string host(host_of(authority));
    if (host.empty()) return false;
    if (host == "localhost" || is_number(host)) return true;
    std::array<char, 256> own{};
    return gethostname(own.data(), own.size() - 1) == 0 && host == own.data();
}

bool is_own_origin(const Request& request) {
    const std::string origin = header(request, "origin");
    const std::string site = header(request, "sec-fetch-site");
    if (!site.empty() && site != "same-origin" && site != "none") return false;
    return origin.empty() || origin == "http://" + header(request, "host");
}

// In a time that does not tell how many characters fit.
bool same(std::string_view given, std::string_view token) {
    if (token.empty() || given.size() != token.size()) return false;
    unsigned difference = 0;
    for (std::size_t i = 0; i < token.size(); ++i)
        difference |= static_cast<unsigned char>(given[i]) ^ static_cast<unsigned char>(token[i]);
    return difference == 0;
}

std::string cookie(const Request& request, std::string_view name) {
    std::string_view rest = request.headers.contains("cookie")
                                ? std::string_view(request.headers.at("cookie"))
                                : std::string_view();
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find(';'), rest.size());
        std::string_view one = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        while (one.starts_with(' '))
            one.remove_prefix(1);
        if (one.starts_with(name) && one.substr(name.size()).starts_with('='))
            return std::string(one.substr(name.size() + 1));
    }
    return "";
}

void harden(Response& response) {
    response.headers.emplace_back(
        "Content-Security-Policy",
        "default-src 'none'; script-src 'self'; style-src 'self'; img-src data:; connect-src "
        "'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'");
    response.headers.emplace_back("X-Content-Type-Options", "nosniff");
    response.headers.emplace_back("Referrer-Policy", "no-referrer");
    response.headers.emplace_back("Cache-Control", "no-store");
}

bool is_utf8(const std::string& text) {
    try {
        (void)json(text).dump();
        return true;
    } catch (const json::exception&) {
        return false;
    }
}

// What no route and no record can take, and no answer could repeat.
bool is_malformed(const Request& request) {
    return !request.path.starts_with('/') || !is_utf8(request.path)
           || std::any_of(request.query.begin(), request.query.end(), [](const auto& parameter) {
                  return !is_utf8(parameter.first) || !is_utf8(parameter.second);
              });
}

std::string parameter(const Query& query, const std::string& name) {
    const auto found = query.find(name);
    if (found == query.end() || found->second.empty()) throw Refusal(400, "missing-" + name);
    if (found->second.size() > kLongestParameter) throw Refusal(400, "too-long");
    return found->second;
}

std::string member(const json& object, const std::string& name,
                   std::size_t longest = kLongestParameter) {
    const auto found = object.find(name);
    if (found == object.end() || !found->is_string()) throw Refusal(400, "missing-" + name);
    auto text = found->get<std::string>();
    if (text.size() > longest) throw Refusal(400, "too-long");
    return text;
}

Response as_json(const json& value) {
    return {
        200, "application/json", value.dump(-1, ' ', false, json::error_handler_t::replace), {}};
}

template <typename Function>
const Function& there(const Function& function) {
    if (!function) throw Refusal(404, "not-found");
    return function;
}

}  // namespace

Tokens read_tokens(const std::filesystem::path& file) {
    std::ifstream in(file);
    if (!in) throw std::runtime_error(file.string() + ": cannot be read");
    Tokens tokens;
    std::string word;
    std::string token;
    while (in >> word >> token) {
        if (token.size() < kShortestToken)
            throw std::runtime_error(file.string() + ": a token has fewer than 16 characters");
        if (word == "look")
            tokens.look = token;
        else if (word == "operate")
            tokens.operate = token;
        else
            throw std::runtime_error(file.string() + ": unknown word " + word);
    }
    if (tokens.look.empty() || tokens.operate.empty())
        throw std::runtime_error(file.string() + ": needs a line look TOKEN and operate TOKEN");
    return tokens;
}

bool is_loopback(std::string_view address) {
    return address.starts_with("127.") || address == "::1" || address == "localhost";
}

Server::Right Server::right_of(const Request& request) const {
    if (!tokens_.needed()) return Right::operate;
    std::string given = cookie(request, "q7");
    const std::string authorization = header(request, "authorization");
    if (authorization.starts_with("Bearer ")) given = authorization.substr(7);
    if (same(given, tokens_.operate)) return Right::operate;
    return same(given, tokens_.look) ? Right::look : Right::none;
}

Response Server::get(const Request& request) const {
    const std::string& path = request.path;
    if (path == "/api/state") return as_json(there(backend_.state)());
    if (path == "/api/events") return {200, "text/event-stream", "", {}, true};
    if (path == "/api/attempt")
        return as_json(there(backend_.attempt)(parameter(request.query, "id")));
    if (path == "/api/replay")
        return as_json(there(backend_.replay)(parameter(request.query, "id")));
    if (path == "/api/board")
        return as_json(there(backend_.board)(parameter(request.query, "serial")));
    if (path == "/api/yield") return as_json(there(backend_.yield)(request.query));
    if (path == "/api/list") return as_json(there(backend_.list)(request.query));
    if (path == "/api/journal")
        return {200,
                "text/plain; charset=utf-8",
                there(backend_.journal)(parameter(request.query, "id")),
                {}};
    if (path.starts_with("/api/")) throw Refusal(404, "not-found");
    std::string name = path == "/" ? "index.html" : path.substr(1);
    if (name.find('.') == std::string::npos) name += ".html";
    const Asset* asset = find_asset(name);
    if (asset == nullptr) throw Refusal(404, "not-found");
    return {200, std::string(asset->type), std::string(asset->content), {}};
}

Response Server::post(const Request& request) const {
    if (!header(request, "content-type").starts_with("application/json"))
        throw Refusal(415, "not-json");
    const json body = json::parse(request.body, nullptr, false);
    if (!body.is_object()) throw Refusal(400, "not-json");
    if (request.path == "/api/scan")
        there(backend_.scan)(member(body, "text"));
    else if (request.path == "/api/answer")
        there(backend_.answer)(member(body, "attempt"), member(body, "serial"),
                               member(body, "question"), member(body, "answer"));
    else if (request.path == "/api/stop")
        there(backend_.stop)(member(body, "attempt"));
    else if (request.path == "/api/mark")
        there(backend_.mark)(member(body, "mark"));
    else if (request.path == "/api/repair")
        there(backend_.repair)(member(body, "of"), member(body, "defect", kLongestDefect),
                               member(body, "text"), member(body, "badge"));
    else
        throw Refusal(404, "not-found");
    return as_json(json::object());
}

Response Server::route(const Request& request) const {
    if (!is_own_host(request)) throw Refusal(421, "host");
    if (!is_own_origin(request)) throw Refusal(403, "origin");
    if (is_malformed(request)) throw Refusal(400, "malformed");
    // A link with a token signs in: the token moves from the address bar into a cookie.
    if (const auto token = request.query.find("token");
        request.method == "GET" && token != request.query.end()
        && (same(token->second, tokens_.look) || same(token->second, tokens_.operate)))
        return {303,
                "text/plain",
                "",
                {{"Location", request.path.starts_with("//") ? "/" : request.path},
                 {"Set-Cookie", "q7=" + token->second + "; Path=/; HttpOnly; SameSite=Strict"}}};
    const Right right = right_of(request);
    if (right == Right::none) throw Refusal(401, "token");
    if (request.method == "GET" || request.method == "HEAD") return get(request);
    if (request.method != "POST") throw Refusal(405, "method");
    if (right != Right::operate) throw Refusal(403, "not-allowed");
    return post(request);
}

Response Server::handle(const Request& request) const {
    Response response;
    try {
        response = route(request);
    } catch (const Refusal& refused) {
        response = refusal(refused.status, refused.what());
    } catch (const std::exception& error) {
        response = refusal(500, "failed");
    }
    harden(response);
    return response;
}

}  // namespace station::web
