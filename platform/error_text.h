#pragma once

// The GNU C library's text for an errno value, whichever library q7 is built with. Valid until the
// next call; not thread-safe.
const char* error_text(int error);
