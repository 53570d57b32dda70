// Shows a run as it goes, in the order in which things came: q7's console on standard output, its
// errors and report records on standard error, there also the panel's LEDs and the buzzer of a
// paced run: at a terminal as a picture, else as lines.
#pragma once

#include <cstddef>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

#include "sim/program/led_view.h"
#include "sim/program/text.h"
#include "sim/world.h"

namespace sim {

enum class Texts { utf8, gbk };
enum class Records { shown, sent };  // sent: to a reader of their own

void write_all(int fd, std::string_view bytes);  // or what its reader takes before it goes

class Screen {
  public:
    // Records that are to be shown go to `file` where that is open.
    Screen(std::ofstream& file, Records records, Texts texts, bool tells_devices);

    // Shows what is new. The descriptors are the product's two output streams.
    void show(int console, int errors);

    void finish();  // shows a character that has come only by half

  private:
    struct Decoders {
        GbkDecoder console, errors;
    };

    void print(int console, std::size_t limit);
    void show_record(std::string_view record);

    std::ofstream& file_;
    Records records_;
    std::optional<Decoders> decoders_;
    bool tells_devices_;
    LedView leds_;
    std::size_t next_event_ = 0, console_shown_ = 0, errors_shown_ = 0;
};

}  // namespace sim
