// Test 8: the disks on the SATA, eSATA and miniSAS ports.
#pragma once

void sata_disk_test();

void sata_port_report();
void minisas_report();

// True for the name of a /dev entry that is the miniSAS disk.
bool sas_name_filter(const char* name);

// Internal SATA ports as the capability table gives them; may be negative.
int internal_sata_ports();
