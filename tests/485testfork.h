// Test 4: RS-485 loopback.
#pragma once

// Sends a pattern through the RS-485 line while a forked process receives it, judges, reports and
// exits. Returns 0 in the calling process. Ends the process when the line cannot be opened or set
// up.
int rs485_test();

// Waits for the verdict of a receiver that is still judging because its sender timed out; at most
// 100 ms.
void rs485_await_verdict();
