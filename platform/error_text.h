#pragma once

// The text of an errno value in the words of the GNU C library, with whichever library q7 is built.
// Valid until the next call; for one thread at a time.
const char* error_text(int error);
