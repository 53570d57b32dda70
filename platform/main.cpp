#include "driver/q7.h"

int main(int argc, char** argv) { return q7_main(argc, argv); }
