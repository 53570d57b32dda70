#include "driver/results.h"

Results results;
