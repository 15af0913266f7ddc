// A function marked so zeroes the registers that it used before it returns, as far as the compiler can do that (g++):
// wide ones may otherwise keep keys for long, and go to the stack with the next signal.
#pragma once

#if __has_cpp_attribute(gnu::zero_call_used_regs)
#define NAL_ZEROES_REGISTERS [[gnu::zero_call_used_regs("used")]]
#else
#define NAL_ZEROES_REGISTERS
#endif
