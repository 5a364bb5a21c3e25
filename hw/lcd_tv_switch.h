// Display output switch: the built-in LCD, composite or component TV out,
// and the position of the picture on a TV. The board driver behind
// "/dev/i2cdrv" programs the video encoder over I2C; this module only names
// the action. Open the driver around each use.
#pragma once
#include "platform/mai_types.h"

// Argument of the I2C write and TV position requests: five 32-bit words.
struct sI2CMessage_t {
  u32 ucDev_addr;  // I2C device address (TV position: X)
  u32 ucSub_addr;  // register address (TV position: Y)
  u32 wData;       // value to write
  u32 rData;       // 32-bit address of a u32 result; unused here
  u32 nBytes;      // bytes to transfer
};
static_assert(sizeof(sI2CMessage_t) == 20, "the driver expects a 20-byte record");

// Accepted TV picture position range.
constexpr u32 TV_POS_X_MIN = 88;
constexpr u32 TV_POS_X_MAX = 172;
constexpr u32 TV_POS_Y_MAX = 40;

s32 i2cdrv_open();   // 0, or -1 when the driver cannot be opened
s32 i2cdrv_close();  // 0
s32 i2c_Write(u32 dev_addr, u32 sub_addr, u32 wData, u32 nBytes);  // 0; the driver's answer is not checked
void LCD_Out();
void TV_Out_composite();
void TV_Out_component();
s32 TV_OutPositionMove(u32 x_pos, u32 y_pos);  // 0 moved, 1 out of range
