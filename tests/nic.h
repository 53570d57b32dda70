// Test 11: link and speed of the network ports.
#pragma once

// Examines the board's ports, eth0 to eth3 at most. Returns 0, or -1 when the query socket cannot
// be created; what it finds is in the network verdict.
int nic_test();

// Result of nic_link_check and nic_speed_check when the driver refuses the query.
constexpr int kQueryFailed = 2;
constexpr int kLinkUp = 1;

int nic_link_check(int socket, const char* name);   // kLinkUp, 0 = down, kQueryFailed
int nic_speed_check(int socket, const char* name);  // 0 = 1000 Mbit/s, -1 = other, kQueryFailed
