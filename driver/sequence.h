// The full factory sequence.
#pragma once

// Runs every step, the summary and the ending of the mode. Ends the process itself when the
// control device cannot be prepared.
void full_sequence();
