// LCD/TV output switch over the board driver "/dev/i2cdrv".
#include "hw/lcd_tv_switch.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>

namespace {

// Driver requests, type character 't' (0x74), encoded the MIPS way
// (direction in bits 29-31: 1 none, 4 write; size in bits 16-28).
constexpr u32 I2CDRV_WRITE = 0x80147400;          // _IOW('t', 0, sI2CMessage_t)
constexpr u32 I2CDRV_LCD_OUT = 0x2000740B;        // _IO('t', 11)
constexpr u32 I2CDRV_TV_COMPOSITE = 0x2000740C;   // _IO('t', 12)
constexpr u32 I2CDRV_TV_COMPONENT = 0x2000740D;   // _IO('t', 13)
constexpr u32 I2CDRV_TV_POSITION = 0x80147410;    // _IOW('t', 16, sI2CMessage_t)

const char I2CDRV_DEVICE[] = "/dev/i2cdrv";

// The driver's descriptor; 0 when closed, so a request without an open
// driver goes to descriptor 0 and its failure goes unnoticed.
s32 i2cdrv = 0;

}  // namespace

s32 i2cdrv_open() {
  i2cdrv = open(I2CDRV_DEVICE, O_RDWR | O_NONBLOCK);
  if (i2cdrv == -1) {
    printf("ERROR: irdrv kernel module could not be opened\n");
    return -1;
  }
  printf("i2cdrv Driver open Succes!! device number : %d\n", i2cdrv);
  return 0;
}

s32 i2cdrv_close() {
  close(i2cdrv);
  i2cdrv = 0;
  return 0;
}

s32 i2c_Write(u32 dev_addr, u32 sub_addr, u32 wData, u32 nBytes) {
  sI2CMessage_t msg{};
  msg.ucDev_addr = dev_addr;
  msg.ucSub_addr = sub_addr;
  msg.wData = wData;
  msg.nBytes = nBytes;
  ioctl(i2cdrv, I2CDRV_WRITE, &msg);
  return 0;
}

void LCD_Out() {
  printf("LCD__!!\n");
  ioctl(i2cdrv, I2CDRV_LCD_OUT);
}

void TV_Out_composite() {
  printf("TV__!!\n");
  ioctl(i2cdrv, I2CDRV_TV_COMPOSITE);
}

void TV_Out_component() {
  printf("TV_Out_component!!\n");
  ioctl(i2cdrv, I2CDRV_TV_COMPONENT);
}

// The encoder takes the picture origin in the message's address fields.
s32 TV_OutPositionMove(u32 x_pos, u32 y_pos) {
  printf("TV Screen X Position = %x Y Position = %x Move\n", x_pos, y_pos);
  if (x_pos >= TV_POS_X_MIN && x_pos <= TV_POS_X_MAX && y_pos <= TV_POS_Y_MAX) {
    sI2CMessage_t msg{};
    msg.ucDev_addr = x_pos;
    msg.ucSub_addr = y_pos;
    ioctl(i2cdrv, I2CDRV_TV_POSITION, &msg);
    return 0;
  }
  printf("%s error\n", "TV_OutPositionMove");
  return 1;
}
