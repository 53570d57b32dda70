// The process entry of q7.
#pragma once

// Runs q7 with the arguments of its command line; returns its exit status. Does not return where
// a routine ends the process.
int q7_main(int argc, char** argv);
