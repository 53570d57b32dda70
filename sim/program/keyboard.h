// What the person in front of a paced run types. From a terminal each key counts by itself: Enter
// answers the console, others are keys of the front panel. From a file or a pipe, lines go to the
// console.
#pragma once

#include <termios.h>

#include <string>
#include <string_view>

namespace sim {

extern const char kKeyboardHelp[];  // a line
std::string panel_key_help();       // each character with the panel key that it presses

class Keyboard {
  public:
    // Puts the terminal into its mode, when standard input is one and it is to be used.
    explicit Keyboard(bool used);
    ~Keyboard();
    Keyboard(const Keyboard&) = delete;
    Keyboard& operator=(const Keyboard&) = delete;

    bool is_terminal() const { return is_terminal_; }

    // Passes on what can be read; false at the end of input.
    bool take_input();

  private:
    void take_keys(std::string_view keys);

    termios before_{};  // the terminal's own mode
    bool is_terminal_;
    std::string line_;  // that has come only by half
};

}  // namespace sim
