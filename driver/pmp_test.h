// Test 10: port-multiplier firmware over the attached disks.
#pragma once

// Updates each bridge through the first of its disks that opens, resets the bridges with new
// firmware, and prints a line a bridge.
void pmp_test();
