// Test 1: board information.
#pragma once

// Reports what kind of board this is and what it is fitted with, and refreshes the channel and
// alarm counts of the capability table. Returns 0, or -1 when the description cannot be read.
int board_info_test();
