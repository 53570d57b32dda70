// What the headers of a libstdc++ that was built for the GNU C library expect of it, for musl.
// Included before everything else.
#pragma once

#define __GLIBC_PREREQ(major, minor) 0  // os_defines.h asks for newer functions: there are none
#define __locale_t locale_t             // c++locale.h
#define __uselocale uselocale           // c++locale.h

#include <bits/c++config.h>
#undef _GLIBCXX_USE_PTHREAD_COND_CLOCKWAIT  // std_mutex.h would call pthread_cond_clockwait
