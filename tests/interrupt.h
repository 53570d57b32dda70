// Building blocks of the tests' SIGINT handlers: async-signal-safe calls only.
#pragma once

#include <cstddef>
#include <cstdint>

// A line of text with numbers, built without the C library and printed in one write.
class InterruptLine {
  public:
    InterruptLine& add(const char* text);
    InterruptLine& add(std::uint32_t number);
    void print() const;

  private:
    char text_[120];
    std::size_t length_ = 0;
};
