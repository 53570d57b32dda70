// Test 6: the real-time clock against the system clock.
#pragma once

// Three comparisons, a second apart. Returns 1 when the clocks differed by more than 2 seconds in
// any of them, else 0; a clock that cannot be read differs.
int rtc_test();
