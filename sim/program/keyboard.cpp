#include "sim/program/keyboard.h"

#include <unistd.h>

#include <cstdio>

#include "sim/devices/console.h"
#include "sim/devices/panel.h"
#include "sim/occurrence.h"

namespace sim {
namespace {

constexpr char kEndOfInput = 4;  // Ctrl-D

struct PanelKey {
    std::string_view typed;
    const char* key;
};

// Longer sequences first: an arrow key begins with Escape.
constexpr PanelKey kPanelKeys[] = {
    {"\x1B[A", "UP"}, {"\x1B[B", "DOWN"}, {"\x1B[C", "RIGHT"}, {"\x1B[D", "LEFT"},
    {"\x1BOA", "UP"}, {"\x1BOB", "DOWN"}, {"\x1BOC", "RIGHT"}, {"\x1BOD", "LEFT"},
    {"\x1BOP", "F1"}, {"\x1BOQ", "F2"},   {"\x1B", "ESC"},     {"x", "ESC"},
    {"e", "ENTER"},   {"u", "UP"},        {"d", "DOWN"},       {"l", "LEFT"},
    {"r", "RIGHT"},   {"a", "A"},         {"#", "#"},          {"m", "MENU"},
    {"t", "EDIT"},    {"v", "VOIP"},      {"p", "PLAY"},       {"c", "REC"},
    {"n", "PAN"},     {"i", "INFO"},      {"o", "POWER"},      {"f", "F1"},
    {"g", "F2"},      {"0", "AN0"},       {"1", "AN1"},        {"2", "AN2"},
    {"3", "AN3"},     {"4", "AN4"},       {"5", "AN5"},        {"6", "AN6"},
    {"7", "AN7"},     {"8", "AN8"},       {"9", "AN9"},        {"A", "AN10"},
    {"B", "AN11"},    {"C", "AN12"},      {"D", "AN13"},       {"E", "AN14"},
    {"F", "AN15"},    {"G", "AN16"},
};

}  // namespace

std::string panel_key_help() {
    std::string text;
    for (const auto& [typed, key] : kPanelKeys) {
        if (typed[0] != '\x1B') text += "  " + std::string(typed) + " " + key;
    }
    return text;
}

Keyboard::Keyboard(bool used) : is_terminal_(used && ::tcgetattr(STDIN_FILENO, &before_) == 0) {
    if (!is_terminal_) return;
    termios by_key = before_;
    by_key.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    ::tcsetattr(STDIN_FILENO, TCSANOW, &by_key);
    std::fputs("q7-sim: keys drive the panel (--help shows which), Enter answers the console\n",
               stderr);
}

Keyboard::~Keyboard() {
    if (is_terminal_) ::tcsetattr(STDIN_FILENO, TCSANOW, &before_);
}

bool Keyboard::read_input() {
    char buffer[4096];
    const ssize_t count = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (count <= 0 || (is_terminal_ && buffer[0] == kEndOfInput)) {
        type_line("");
        return false;
    }
    const std::string_view typed(buffer, static_cast<std::size_t>(count));
    if (is_terminal_) {
        press_keys(typed);
        return true;
    }
    line_ += typed;
    for (std::size_t end; (end = line_.find('\n')) != std::string::npos;) {
        type_line(std::string_view(line_).substr(0, end + 1));
        line_.erase(0, end + 1);
    }
    return true;
}

void Keyboard::press_keys(std::string_view keys) {
    while (!keys.empty()) {
        std::size_t used = 1;
        if (keys.front() == '\n') type_line("\n");
        const bool is_change = make_changes_of_key(keys.substr(0, 1));
        for (const auto& [typed, key] : kPanelKeys) {
            if (is_change || !keys.starts_with(typed)) continue;
            press_key(key);
            used = typed.size();
            break;
        }
        keys.remove_prefix(used);
    }
}

}  // namespace sim
