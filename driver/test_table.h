// The tests that `q7 -o` runs, a row each: the first is number 1.
#pragma once

#include <span>

struct NumberedTest {
    const char* usage;  // its line in the usage text
    void (*run)();
    unsigned pause_ms = 0;  // once, before the first repetition
};

std::span<const NumberedTest> numbered_tests();
