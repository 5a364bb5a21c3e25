// Video display control: placement, scaling and automatic fit of the picture
// through the engine's display block, its colour through the media
// acceleration engine, and the switch between the LCD and the TV out.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cstdio>

#include "api/pmx_internal.h"
#include "hw/lcd_tv_switch.h"
#include "info/byte_order.h"
#include "info/prescan.h"
#include "platform/au1xxx_mae.h"
#include "platform/mai_engine.h"

namespace {

struct Screen {
  u32 width, height;
};

constexpr Screen LCD_SCREEN{PMX_LCD_WIDTH, PMX_LCD_HEIGHT};
constexpr Screen TV_SCREEN{PMX_TV_WIDTH, PMX_TV_HEIGHT};

Screen current_screen() { return pmx.tv_out != 0 ? TV_SCREEN : LCD_SCREEN; }

// Fields the automatic fit reads back from the engine before it changes
// the destination (the engine's choice of bits).
constexpr u32 FIT_READ_FLAGS = 0x420;

// Colour space conversion of the LCD controller's YUV input, as the MAE
// driver is loaded at boot; a gain of 50 leaves a coefficient at this base.
constexpr std::array<u32, MAE_CSC_COEFFICIENTS> csc_base = {1136, 0, 1634, 1104, 4497, 4928,
                                                            1280, 2065, 0, 61969, 2169, 61107};
constexpr u32 COLOR_MAX = 100;
constexpr u32 GAIN_STEP = 4;
constexpr u32 GAIN_CENTER = 200;  // 50 steps of 4

// 0 where the picture has no size yet, instead of a division by zero.
u32 ratio(u32 numerator, u32 denominator) { return denominator != 0 ? numerator / denominator : 0; }

u32 write_display(u32 engine) {
  return MAIengine_SetParam(engine, MAI_PARAM_DISPLAY, pmx.display, MAI_PARAM_DISPLAY_SIZE);
}

// Position and size are given from the top left corner: no centring.
void place_from_corner() {
  pmx.display[DISPLAY_FLAGS] = (pmx.display[DISPLAY_FLAGS] & ~DISPLAY_CENTER) | DISPLAY_POSITION | DISPLAY_DESTRECT;
}

}  // namespace

u32 media_setvideo_auto_display() {
  const u32 engine = pmx.engine.load();
  if (engine == 0) return MAI_E_FAIL;
  if (pmx.is_open.load() == 0) return MAI_E_NOTCONNECTED;

  const Screen screen = current_screen();
  std::printf("max xsize =%d,max ysize =%d \n", static_cast<int>(screen.width), static_cast<int>(screen.height));

  std::array<u8, MAI_VIDEO_MEDIATYPE_SIZE> video{};
  const u32 status = MAIengine_GetVideoMediaType(engine, video.data(), 0);
  if (status != 0) {
    std::printf("Mai Get Video info failed: %d\n", static_cast<int>(status));
    return status;
  }

  pmx.display[DISPLAY_FLAGS] = FIT_READ_FLAGS;
  MAIengine_GetParam(engine, MAI_PARAM_DISPLAY, pmx.display, MAI_PARAM_DISPLAY_SIZE);
  pmx.display[DISPLAY_X] = 0;
  pmx.display[DISPLAY_Y] = 0;

  u32 w = 0, h = 0;
  float aspect = 0, frame_rate = 0, bitrate = 0;
  pmx_info_getvideoinfo(&w, &h, &aspect, &frame_rate, &bitrate);

  // Pixel aspect correction. The horizontal part is taken from the final
  // picture and the vertical part from the coded image, as the engine's
  // decoders fill them in.
  const u32 aspect_h = LittleEndian2int32u(video.data() + MAI_VMT_FINAL_PAR_H);
  const u32 aspect_v = LittleEndian2int32u(video.data() + MAI_VMT_PAR_V);
  if (aspect_h != 0 && aspect_v != 0) {
    if (w > screen.width)
      w = aspect_h * w / aspect_v;
    else
      h = aspect_v * h / aspect_h;
  }

  // Fill the screen in the direction the picture is relatively larger.
  u32 width = 0, height = 0;
  if (ratio(w * 1000, screen.width) > ratio(h * 1000, screen.height)) {
    width = screen.width;
    height = ratio(h * screen.width, w);
  } else {
    height = screen.height;
    width = ratio(w * screen.height, h);
  }
  pmx.display[DISPLAY_WIDTH] = width;
  pmx.display[DISPLAY_HEIGHT] = height;
  std::printf("dstXsize[%d],dstYsize[%d]\n", static_cast<int>(width), static_cast<int>(height));
  pmx.display[DISPLAY_FLAGS] |= DISPLAY_DESTRECT | DISPLAY_CENTER;
  return write_display(engine);
}

s32 pmx_set_video_autosize() { return pmx_translate(media_setvideo_auto_display()); }

s32 pmx_set_video_pos(u32 x, u32 y) {
  const u32 engine = pmx.engine.load();
  if (engine == 0) return PMX_NOT_INITIALIZED;
  if (pmx.is_open.load() == 0) return PMX_NO_FILE_OPEN;
  std::printf("video pos : xsize =%d,ysize = %d\n", static_cast<int>(pmx.display[DISPLAY_WIDTH]),
              static_cast<int>(pmx.display[DISPLAY_HEIGHT]));
  place_from_corner();
  pmx.display[DISPLAY_X] = x;
  pmx.display[DISPLAY_Y] = y;
  const u32 status = write_display(engine);
  if (status != 0) std::printf(" media_set video_pos() error :%d\n", static_cast<int>(status));
  return static_cast<s32>(status);
}

s32 pmx_set_video_size(u32 width, u32 height) {
  const u32 engine = pmx.engine.load();
  if (engine == 0) return PMX_NOT_INITIALIZED;
  if (pmx.is_open.load() == 0) return PMX_NO_FILE_OPEN;
  // The TV screen bounds the size on either output.
  if (width < 1 || width > PMX_TV_WIDTH)
    std::printf(" media_set_videoscale() warning MAX_WIDTH=[%d] width:[%d]\n", static_cast<int>(PMX_TV_WIDTH),
                static_cast<int>(width));
  else
    pmx.display[DISPLAY_WIDTH] = width;
  if (height < 1 || height > PMX_TV_HEIGHT)
    std::printf(" media_set_videoscale() warning _MAX_HEIGHT=[%d] height:[%d]\n", static_cast<int>(PMX_TV_HEIGHT),
                static_cast<int>(height));
  else
    pmx.display[DISPLAY_HEIGHT] = height;
  place_from_corner();
  const u32 status = write_display(engine);
  if (status != 0) std::printf(" media_setvideodisplay() error :%d\n", static_cast<int>(status));
  return pmx_translate(status);
}

s32 pmx_set_video_color(u32 r, u32 g, u32 b) {
  std::array<u32, MAE_CSC_COEFFICIENTS> csc = csc_base;
  const auto gain = [](u32 base, u32 value) {
    if (value > COLOR_MAX) value = COLOR_MAX;
    return base + value * GAIN_STEP - GAIN_CENTER;
  };
  csc[MAE_CSC_RED_GAIN] = gain(csc_base[MAE_CSC_RED_GAIN], r);
  csc[MAE_CSC_GREEN_GAIN] = gain(csc_base[MAE_CSC_GREEN_GAIN], g);
  csc[MAE_CSC_BLUE_GAIN] = gain(csc_base[MAE_CSC_BLUE_GAIN], b);

  const int fd = ::open(MAE_DEVICE, O_RDWR);
  if (fd < 0) {
    std::printf("pmx_set_video_color: Failed to open mae_driver: %d\n", fd);
    return PMX_OPEN_FAILED;
  }
  const int sent = ::ioctl(fd, AU1XXXMAE_CSC, csc.data());
  ::close(fd);
  if (sent < 0) {
    std::printf("pmx_set_video_color: Failed to send AU1XXXMAE_CSC: %d\n", sent);
    return PMX_FAILED;
  }
  return PMX_OK;
}

s32 pmx_set_video_direction(u32 direction) {
  if (direction < PMX_DIRECTION_MIN || direction > PMX_DIRECTION_MAX) return PMX_INVALID_ARG;
  const u32 state = pmx.state.load();
  if (state == PMX_STATE_PLAYING || state == PMX_STATE_PAUSED) return PMX_WRONG_STATE;
  if (i2cdrv_open() != 0) {
    std::printf("TV Out Device Driver Open fail");
    return PMX_FAILED;
  }
  // The renderer restarts on the new output.
  pmx.running = 0;
  switch (direction) {
    case 2:
    case 3:
      TV_Out_composite();
      pmx.tv_out = 1;
      break;
    case 4:
      TV_Out_component();
      pmx.tv_out = 1;
      break;
    default:
      LCD_Out();
      pmx.tv_out = 0;
      break;
  }
  i2cdrv_close();
  // The next play fits the picture to the new screen.
  pmx.display_set = 0;
  return PMX_OK;
}

s32 pmx_set_tvout_position(u32 x, u32 y) {
  if (pmx.tv_out != 1) return PMX_WRONG_STATE;
  if (i2cdrv_open() != 0) return PMX_FAILED;
  // A refused position leaves the driver open.
  if (TV_OutPositionMove(x, y) != 0) return PMX_FAILED;
  i2cdrv_close();
  return PMX_OK;
}
