#include "driver/results.h"

Results results;

namespace {

std::atomic<std::uint32_t> own_rs485_verdict;

}  // namespace

std::atomic<std::uint32_t>* g_rs485_verdict = &own_rs485_verdict;
