// Shows a run in the order of its events: q7's console on standard output, its errors and report
// records on standard error. A paced run also shows LEDs and buzzer: at a terminal as a picture, else
// as lines on standard error.
#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <string_view>

#include "sim/program/led_view.h"
#include "sim/world.h"

namespace sim {

enum class Texts { utf8, gbk };
enum class Records { shown, sent };  // sent: to a reader of their own

void write_all(int fd, std::string_view bytes);  // stops when the reader has gone

class Screen {
  public:
    // Records go to `file` if it is open.
    Screen(std::ofstream& file, Records records, Texts texts, bool announces_devices);

    // Shows what is new. The descriptors are the product's two output streams.
    void show(int console, int errors);

    void finish();  // shows an incomplete character

  private:
    struct Stream {  // of the product
        int shown_on;
        std::size_t position = 0;  // bytes read
        std::string rest{};        // an incomplete character
    };

    void print(Stream& stream, int fd, std::size_t limit);
    void show_record(std::string_view record) const;

    std::ofstream& file_;
    Records records_;
    Texts texts_;
    bool announces_devices_;
    LedView leds_;
    std::size_t next_event_ = 0;
    Stream console_, errors_;
};

}  // namespace sim
