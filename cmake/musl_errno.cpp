// musl inside a program of another C library: its functions use that library's errno.
extern "C" {
int* __errno_location();
int* ___errno_location() { return __errno_location(); }  // musl's own name for it
}
