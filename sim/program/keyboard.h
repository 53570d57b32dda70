// The keyboard of a paced run. At a terminal each key acts at once: Enter answers the console, other
// keys are keys of the front panel. Lines from a file or a pipe go to the console.
#pragma once

#include <termios.h>

#include <string>
#include <string_view>

namespace sim {

std::string panel_key_help();  // each character with the panel key that it presses

class Keyboard {
  public:
    // Puts the terminal into key mode, if standard input is one and is to be used.
    explicit Keyboard(bool used);
    ~Keyboard();
    Keyboard(const Keyboard&) = delete;
    Keyboard& operator=(const Keyboard&) = delete;

    bool is_terminal() const { return is_terminal_; }

    // Processes pending input; false at the end of input.
    bool read_input();

  private:
    void press_keys(std::string_view keys);

    termios before_{};  // the terminal's own mode
    bool is_terminal_;
    std::string line_;  // incomplete so far
};

}  // namespace sim
