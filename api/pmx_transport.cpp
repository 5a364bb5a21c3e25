// Playback transport: play, pause, stop, fast forward and rewind, seeking,
// speed change by resampling, time and state.
#include <unistd.h>

#include <array>
#include <cstdio>

#include "api/pmx_internal.h"
#include "direct/direct_play.h"
#include "info/byte_order.h"
#include "info/prescan.h"
#include "platform/mai_engine.h"

u32 eMSubtype = 0;

namespace {

// Engine state masks to wait for. Their composition is the engine's.
constexpr u32 PAUSED_MASK = MAI_STATE_PAUSED;
constexpr u32 STOPPED_MASK = 0xFFFFBF83;
constexpr u32 SEEK_DONE_MASK = 0xFFFFBFFF;
// The pipeline needs a moment after a state is reached before it takes the
// next command.
constexpr u32 SETTLE_US = 500;
constexpr u32 NO_TIMEOUT = 0xFFFFFFFFu;

// Play waits for the renderer's start report before it fits the picture.
constexpr u32 START_POLLS = 10000;
constexpr u32 START_POLL_US = 10;

// Engine rates (16.16 fixed point) of the speed codes.
constexpr u32 speed_rates[] = {0x1000, 0x2000, 0x4000, 0x8000, MAI_RATE_NORMAL,
                               0x20000, 0x40000, 0x80000, 0x100000};

u32 speed_rate(u32 code) {
  return code < std::size(speed_rates) ? speed_rates[code] : MAI_RATE_NORMAL;
}

struct SeekMode {
  u32 mode;
  u32 scale;  // the engine takes percent in hundredths
};

// Engine seek modes of the seek types 1..5.
constexpr SeekMode seek_modes[] = {
    {MAI_SEEK_POSITION, 1}, {MAI_SEEK_TIME, 1}, {MAI_SEEK_NEXT_KEY, 1},
    {MAI_SEEK_PREV_KEY, 1}, {MAI_SEEK_PERCENT, 100},
};

// Speed change keeps the output between these percentages of normal.
constexpr u32 SPEED_MIN_PERCENT = 40;
constexpr u32 SPEED_MAX_PERCENT = 160;

struct StateMapping {
  u32 engine;
  u32 api;
};

constexpr StateMapping state_map[] = {
    {0, 0},           {0x1, 1},         {0x2, 2},        {0x4, 3},         {0x8, 4},
    {0x10, 5},        {0x20, 6},        {0x40, 7},       {0x80, 8},        {0x1000, 10},
    {0x2000, 11},     {0x4000, 12},     {0x10000, 13},   {0x20000, 14},    {0x80000, 15},
    {0x10000000, 16}, {0x40000000, 17},
};
constexpr u32 STATE_OTHER = 18;

// Video subtypes whose engine clock runs from the stream's start time, and
// those whose clock carries the PES time stamps.
bool clock_from_start(u32 subtype) { return subtype >= MAI_SUB_WMV && subtype <= MAI_SUB_WMV9_ADVANCED; }

bool clock_from_pes(u32 subtype) {
  switch (subtype) {
    case MAI_SUB_MPEG1_VIDEO:
    case MAI_SUB_MPEG2_VIDEO:
    case MAI_SUB_MPEG_VIDEO_PES1:
    case MAI_SUB_MPEG_VIDEO_PES2:
    case MAI_SUB_MPEG_AUDIO_PES1:
    case MAI_SUB_MPEG_AUDIO_PES2:
    case MAI_SUB_AC3_PES: return true;
    default: return false;
  }
}

void settle_after(u32 wait_status) {
  if (wait_status == 0) usleep(SETTLE_US);
}

}  // namespace

s32 media_play(u32 speed_code, u32 reverse) {
  pmx.unsupported = 0;
  if (pmx.is_open.load() == 0) return PMX_NO_FILE_OPEN;
  if (pmx_is_direct_playing() != 0) return PMX_BUSY;
  u32 rate = speed_rate(speed_code);
  if (reverse != 0) rate |= MAI_RATE_REVERSE;
  std::printf("play speed = 0x%08X\n", rate);
  u32 status = MAIengine_SendCommand(pmx.engine.load(), MAI_CMD_PLAY, rate, 0, 0, 0, NO_TIMEOUT);
  std::printf("media_play status = %d\n", static_cast<int>(status));
  // The decoder found the stream unplayable while the command ran.
  if (pmx.unsupported.load() != 0) {
    status = MAI_E_UNSUPPORTEDFORMAT;
    media_stop();
  }
  return pmx_translate(status);
}

s32 pmx_play() {
  const s32 status = media_play(PMX_SPEED_1X, 0);
  if (status != 0) return status;
  if (pmx.display_set == 0) {
    // The picture can only be fitted once the renderer runs; a stream that
    // never reports its start is fitted all the same after the polls.
    for (u32 i = 0; i < START_POLLS && pmx.running.load() == 0; ++i) usleep(START_POLL_US);
    media_setvideo_auto_display();
    pmx.display_set = 1;
  }
  pmx.state = PMX_STATE_PLAYING;
  return PMX_OK;
}

s32 pmx_fast_forward(u32 speed_code) {
  // Set before the command: the end of stream of a trick play is not
  // reported, also when it comes while the command is still under way.
  pmx.state = PMX_STATE_TRICK;
  return media_play(speed_code, 0);
}

s32 pmx_fast_rewind(u32 speed_code) {
  pmx.state = PMX_STATE_TRICK;
  return media_play(speed_code, 1);
}

s32 pmx_pause() {
  if (pmx.is_open.load() == 0) return PMX_NO_FILE_OPEN;
  if (pmx_is_direct_playing() != 0) return PMX_BUSY;
  const u32 engine = pmx.engine.load();
  const u32 status = MAIengine_SendCommand(engine, MAI_CMD_PAUSE, 0, 0, 0, 0, NO_TIMEOUT);
  std::printf("media_pause status = %d\n", static_cast<int>(status));
  pmx.state = PMX_STATE_PAUSED;
  if (engine != 0) settle_after(MAIengine_WaitForState(engine, PAUSED_MASK, MAI_WAIT_FOREVER));
  return pmx_translate(status);
}

s32 media_stop() {
  if (pmx.is_open.load() == 0) return PMX_NO_FILE_OPEN;
  if (pmx_is_direct_playing() != 0) return PMX_BUSY;
  const u32 engine = pmx.engine.load();
  std::puts("stopping ");
  const u32 status = MAIengine_SendCommand(engine, MAI_CMD_STOP, 0, 0, 0, 0, NO_TIMEOUT);
  settle_after(MAIengine_WaitForState(engine, STOPPED_MASK, MAI_WAIT_FOREVER));
  std::printf("media_stop status = %d\n", static_cast<int>(status));
  pmx.state = PMX_STATE_STOPPED;
  pmx.running = 0;
  pmx.at_eos = 0;
  return pmx_translate(status);
}

s32 pmx_stop() { return media_stop(); }

s32 pmx_seek(u32 type, u32 value) {
  // MPEG program streams carry no index the engine could seek by.
  u32 seekable = 0;
  pmx_info_video_seekable(&seekable);
  if (seekable == 0) {
    std::puts("MPEG-> NOT SUPPORTED AT THIS TIME !!");
    return PMX_INVALID_ARG;
  }
  std::printf("[%s][%s][%d] seek_type = [%d]\n", __FILE_NAME__, __func__, __LINE__, static_cast<int>(type));
  if (type < PMX_SEEK_POS || type > PMX_SEEK_PERCENT) return PMX_INVALID_ARG;
  const SeekMode &seek = seek_modes[type - PMX_SEEK_POS];

  const u32 engine = pmx.engine.load();
  const u32 status = MAIengine_SendCommand(engine, MAI_CMD_SEEK, seek.mode, value * seek.scale, 0, 0, NO_TIMEOUT);
  if (status != 0) {
    std::printf("PMX:SEEK failed!! [%d]\n", static_cast<int>(status));
    return pmx_translate(status);
  }
  if (engine == 0) return PMX_NOT_INITIALIZED;
  const u32 waited = MAIengine_WaitForState(engine, SEEK_DONE_MASK, MAI_WAIT_FOREVER);
  settle_after(waited);
  return pmx_translate(waited);
}

s32 pmx_change_playspeed(u32 direction, u32 *percent) {
  const u32 normal = pmx.normal_speed_index;
  if (normal == 0) {
    std::puts("Please, pmx_get_media_info() first ...");
    return PMX_FAILED;
  }
  switch (direction) {
    case PMX_PLAYSPEED_SLOWER:
      if (pmx.speed_index > 0) --pmx.speed_index;
      break;
    case PMX_PLAYSPEED_FASTER:
      if (pmx.speed_index < SRC_TABLE_SIZE - 1) ++pmx.speed_index;
      break;
    case PMX_PLAYSPEED_NORMAL: pmx.speed_index = normal; break;
    default: break;
  }
  // A ratio of table positions, not of rates: the steps are even.
  u32 speed = pmx.speed_index * 100 / normal;
  if (percent != nullptr) *percent = speed;

  if (speed < SPEED_MIN_PERCENT || speed > SPEED_MAX_PERCENT) {
    // Out of range: step back (even when the step was not made).
    if (direction == PMX_PLAYSPEED_SLOWER) ++pmx.speed_index;
    if (direction == PMX_PLAYSPEED_FASTER) --pmx.speed_index;
    speed = pmx.speed_index * 100 / normal;
    if (percent != nullptr) *percent = speed;
    std::printf("Keeping Play Speed [%d%%]\n", static_cast<int>(speed));
    return PMX_OK;
  }
  u32 rate = SRC_Table[pmx.speed_index];
  MAIengine_SetParam(pmx.engine.load(), MAI_PARAM_SAMPLE_RATE, &rate, sizeof rate);
  std::printf("Play Speed [%d%%][%d]\n", static_cast<int>(speed), static_cast<int>(rate));
  return PMX_OK;
}

s32 pmx_get_time(u64 *current, u64 *total) {
  if (current == nullptr) return PMX_INVALID_ARG;
  if (pmx.is_open.load() == 0) return PMX_NO_FILE_OPEN;
  const u32 engine = pmx.engine.load();

  if (pmx.subtype_pending != 0) {
    std::array<u8, MAI_VIDEO_MEDIATYPE_SIZE> video{};
    const u32 status = MAIengine_GetVideoMediaType(engine, video.data(), 0);
    if (status != 0) std::printf("Mai Get Video info failed: %d\n", static_cast<int>(status));
    pmx.subtype_pending = 0;
    eMSubtype = LittleEndian2int32u(video.data() + MAI_VMT_SUBTYPE);
  }

  std::array<u8, MAI_STREAM_TIME_SIZE> times{};
  put_le32(times.data(), MAI_STREAM_TIME_SIZE);  // the record starts with its own size
  const u32 status = MAIengine_GetStreamMediaType(engine, times.data());
  if (status != 0) {
    std::puts("Get Time Failed!!");
    *current = 0;
    if (total != nullptr) *total = 0;
    return pmx_translate(status);
  }
  const u64 start = LittleEndian2int64u(times.data() + MAI_STIME_START);
  u64 now = LittleEndian2int64u(times.data() + MAI_STIME_CURRENT);
  const u64 play_time = pmx_info_get_totaltime();

  if (clock_from_start(eMSubtype)) {
    now = now >= start ? now - start : 0;
  } else if (clock_from_pes(eMSubtype)) {
    // A clock that starts beyond the whole play time runs on the stream's
    // time stamps: its first reading becomes the base. A clock that starts
    // low is taken as it is.
    if (pmx.time_base == 0 && static_cast<s64>(now) >= 0 && now >= play_time) pmx.time_base = now;
    now -= pmx.time_base;
  }
  *current = now;
  if (total != nullptr) *total = play_time;
  return PMX_OK;
}

u32 pmx_get_state() {
  const u32 engine = pmx.engine.load();
  if (engine == 0) {
    pmx.state = PMX_STATE_NONE;
    return PMX_STATE_NONE;
  }
  u32 engine_state = 0, pending = 0;
  if (MAIengine_GetState(engine, &engine_state, &pending) != 0) return pmx.state.load();
  u32 state = STATE_OTHER;
  for (const StateMapping &m : state_map)
    if (m.engine == engine_state) state = m.api;
  pmx.state = state;
  return state;
}

s32 pmx_direct_play(const void *data, u32 length) {
  if (pmx.state.load() == PMX_STATE_PLAYING) return PMX_DIRECT_BUSY;
  usleep(25);
  const s32 result = _pmx_direct_play(data, length);
  usleep(25);
  return result;
}
