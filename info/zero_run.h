// Runs of zero bytes. The head buffer of a file shorter than 1 MiB ends in
// zero fill, and some walks step through it a few bytes at a time; they
// use this to find where a run of zeros ends at memory speed instead.
#pragma once
#include "platform/mai_types.h"

// The first position in [from, to) whose byte is not zero; `to` when every
// byte there is zero (or from >= to).
u32 first_nonzero(const u8 *buffer, u32 from, u32 to);
