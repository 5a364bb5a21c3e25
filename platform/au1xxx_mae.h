// The Au1200 media acceleration engine driver "/dev/mae": the colour space
// conversion of the video picture (YUV to RGB).
#pragma once
#include "platform/mai_types.h"

constexpr const char *MAE_DEVICE = "/dev/mae";

// Loads a colour space conversion record: twelve 32-bit coefficients. The
// driver's request, _IOW('M', 0x15, 4) as its header declares it.
constexpr unsigned long AU1XXXMAE_CSC = 0x80044d15;
constexpr u32 MAE_CSC_COEFFICIENTS = 12;
// Positions of the red, green and blue gains in the record.
constexpr u32 MAE_CSC_RED_GAIN = 0, MAE_CSC_GREEN_GAIN = 3, MAE_CSC_BLUE_GAIN = 6;
