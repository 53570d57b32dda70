// Test 4: RS-485 loopback.
#pragma once

// Sends a pattern through the RS-485 line while a forked process receives it, judges, reports and
// exits. Returns 0 in the calling process. Ends the process when the line cannot be opened or set
// up.
int rs485_test();
