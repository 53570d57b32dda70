// Test 5: alarm outputs looped back into the alarm inputs by a fixture.
#pragma once

// Checks that no input is active while the outputs are released, then that each output drives
// exactly the inputs wired to it. Returns the number of failures, or -1 when the control device
// cannot be opened.
int alarm_io_test();
