// The media engine's playback interface, exported by libmaiengine with C
// linkage. Engine instances are small integer handles; 0 means none.
#pragma once
#include "platform/mai_types.h"

// ---- Engine statuses (0 is success) ----
constexpr u32 MAI_OK = 0;
constexpr u32 MAI_E_FAIL = 1;
constexpr u32 MAI_E_UNSUPPORTED = 2;       // unknown solution, unknown request
constexpr u32 MAI_E_INVALIDARG = 3;
constexpr u32 MAI_E_FILENOTFOUND = 7;
constexpr u32 MAI_E_OPENFAILED = 8;        // file there but not readable media
constexpr u32 MAI_E_NOSTREAM = 9;          // no stream of the kind asked for
constexpr u32 MAI_E_NOTCONNECTED = 11;
constexpr u32 MAI_E_TIMEOUT = 12;
constexpr u32 MAI_E_ENDOFSTREAM = 18;
constexpr u32 MAI_E_ALREADYCONNECTED = 21;
constexpr u32 MAI_E_BUSY = 22;             // wrong state for the command
constexpr u32 MAI_E_UNKNOWNFORMAT = 25;
constexpr u32 MAI_E_UNSUPPORTEDFORMAT = 40; // reported while playing
constexpr u32 MAI_STATUS_COUNT = 47;        // statuses 0..46 are the plain ones

// ---- Engine states (one bit each) ----
constexpr u32 MAI_STATE_IDLE = 0x1;         // nothing connected
constexpr u32 MAI_STATE_READY = 0x2;        // connected, not yet started
constexpr u32 MAI_STATE_STARTING = 0x4;
constexpr u32 MAI_STATE_STOPPING = 0x8;
constexpr u32 MAI_STATE_PLAYING = 0x10;
constexpr u32 MAI_STATE_SCANNING = 0x20;    // fast forward or reverse
constexpr u32 MAI_STATE_PAUSED = 0x40;
constexpr u32 MAI_STATE_STOPPED = 0x80;
constexpr u32 MAI_STATE_ENDOFSTREAM = 0x2000;
constexpr u32 MAI_STATE_SEEKING = 0x4000;

// ---- Commands of MAIengine_SendCommand ----
constexpr u32 MAI_CMD_PLAY = 1;             // p1: 16.16 rate, bit 31 reverse
constexpr u32 MAI_CMD_PAUSE = 2;
constexpr u32 MAI_CMD_STOP = 4;
constexpr u32 MAI_CMD_SEEK = 512;           // p1: seek mode, p2: value
constexpr u32 MAI_RATE_NORMAL = 0x10000;
constexpr u32 MAI_RATE_REVERSE = 0x80000000u;

// Seek modes of MAI_CMD_SEEK.
constexpr u32 MAI_SEEK_POSITION = 0;        // value: milliseconds
constexpr u32 MAI_SEEK_PERCENT = 2;         // value: hundredths of a percent
constexpr u32 MAI_SEEK_TIME = 4;            // value: milliseconds
constexpr u32 MAI_SEEK_NEXT_KEY = 0x104;
constexpr u32 MAI_SEEK_PREV_KEY = 0x105;

constexpr u32 MAI_WAIT_FOREVER = 0xFFFFFFFFu;

// ---- Parameter blocks of MAIengine_SetParam / GetParam ----
constexpr u32 MAI_PARAM_DISPLAY = 0x50001;       // video window, 56 bytes
constexpr u32 MAI_PARAM_DISPLAY_SIZE = 56;
constexpr u32 MAI_PARAM_EQUALIZER = 0x40003;     // five band gains first, 115 bytes
constexpr u32 MAI_PARAM_EQUALIZER_SIZE = 115;
constexpr u32 MAI_PARAM_TRACKS = 0x50003;        // track selection, 8228 bytes
constexpr u32 MAI_PARAM_TRACKS_SIZE = 8228;
constexpr u32 MAI_PARAM_SAMPLE_RATE = 0x10000003; // output sample rate, u32
constexpr u32 MAI_PARAM_STREAM_INFO = 0x10000000; // stream-info hint, 160 bytes
constexpr u32 MAI_PARAM_STREAM_INFO_SIZE = 160;

// ---- Media type records ----
constexpr u32 MAI_VIDEO_MEDIATYPE_SIZE = 156;
constexpr u32 MAI_AUDIO_MEDIATYPE_SIZE = 136;
constexpr u32 MAI_STREAM_TIME_SIZE = 160;
// Byte offsets in the video media type record.
constexpr u32 MAI_VMT_MAJOR = 4, MAI_VMT_SUBTYPE = 8, MAI_VMT_FRAMERATE = 20,
              MAI_VMT_IMAGE_SUBTYPE = 24, MAI_VMT_WIDTH = 28, MAI_VMT_HEIGHT = 32,
              MAI_VMT_PAR_H = 36, MAI_VMT_PAR_V = 40, MAI_VMT_FINAL_WIDTH = 48,
              MAI_VMT_FINAL_HEIGHT = 52, MAI_VMT_FINAL_PAR_H = 56, MAI_VMT_FINAL_PAR_V = 60,
              MAI_VMT_AVG_BITRATE = 64, MAI_VMT_MAX_BITRATE = 68, MAI_VMT_EXTRA = 92;
// Byte offsets in the audio media type record.
constexpr u32 MAI_AMT_MAJOR = 4, MAI_AMT_SUBTYPE = 8, MAI_AMT_TYPE_FLAGS = 16,
              MAI_AMT_MODE_FLAGS = 20, MAI_AMT_SAMPLE_RATE = 24, MAI_AMT_BITS = 28,
              MAI_AMT_CHANNELS = 30, MAI_AMT_BITRATE = 32, MAI_AMT_FRAME_SIZE = 36,
              MAI_AMT_DURATION = 40, MAI_AMT_MAX_BUFFER = 44, MAI_AMT_LAYER = 48,
              MAI_AMT_EMPHASIS = 50, MAI_AMT_MAX_BITRATE = 52, MAI_AMT_EXTRA = 72;
// Byte offsets in the stream time record (64-bit, low word first).
constexpr u32 MAI_STIME_START = 48, MAI_STIME_CURRENT = 64;

// Major media types.
constexpr u32 MAI_MAJOR_AUDIO = 1;
constexpr u32 MAI_MAJOR_VIDEO = 2;
// Media subtypes.
constexpr u32 MAI_SUB_MPEG1_VIDEO = 1, MAI_SUB_MPEG2_VIDEO = 2, MAI_SUB_MPEG4_VIDEO = 5,
              MAI_SUB_MPEG_AUDIO = 16, MAI_SUB_MPEG_L1 = 17, MAI_SUB_MPEG_L2 = 18,
              MAI_SUB_MPEG_L3 = 19, MAI_SUB_MPEG_AUDIO_PES1 = 20, MAI_SUB_MPEG_AUDIO_PES2 = 21,
              MAI_SUB_WMV = 64, MAI_SUB_WMV7 = 65, MAI_SUB_WMV8 = 66, MAI_SUB_WMV9 = 67,
              MAI_SUB_WMV9_ADVANCED = 68, MAI_SUB_WMA = 256, MAI_SUB_WMA_PRO = 257,
              MAI_SUB_AC3 = 512, MAI_SUB_AC3_PES = 513, MAI_SUB_AC3_ATSC = 514,
              MAI_SUB_PCM = 1024, MAI_SUB_AAC = 1025, MAI_SUB_OGG = 1026,
              MAI_SUB_MPEG_VIDEO_PES1 = 0x8003, MAI_SUB_MPEG_VIDEO_PES2 = 0x8004,
              MAI_SUB_BITMAP = 0x10000, MAI_SUB_MJPEG = 0x20000, MAI_SUB_RGB = 0x40000,
              MAI_SUB_YUV = 0x80000, MAI_SUB_DIVX = 0x100000, MAI_SUB_DIVX3 = 0x10012C,
              MAI_SUB_DIVX4 = 0x100190, MAI_SUB_DIVX41 = 0x10019A, MAI_SUB_DIVX5 = 0x1001F4,
              MAI_SUB_XVID = 0x200000;
// Audio media type flags and audio mode flags.
constexpr u32 MAI_AUDIO_CBR = 1, MAI_AUDIO_VBR = 2;
constexpr u32 MAI_AUDIOMODE_MS_STEREO = 1, MAI_AUDIOMODE_INTENSITY = 2,
              MAI_AUDIOMODE_JOINT = 4, MAI_AUDIOMODE_SBR = 8;

// ---- Progress reports ----
// Kind of the component progress report; its record starts with a flag word
// and its fourth word is the type of the reporting component.
constexpr u32 MAI_PROGRESS_COMPONENT = 0x100000;
// Position ticks: reports of another kind, sent while the clock runs.
constexpr u32 MAI_PROGRESS_POSITION = 0x200000;
constexpr u32 MAI_PROGRESS_WORDS = 8;
constexpr u32 MAI_PROG_FLAGS = 0, MAI_PROG_COMPONENT_TYPE = 3;
constexpr u32 MAI_PROGFLAG_START = 0x1;
constexpr u32 MAI_PROGFLAG_END = 0x10;
constexpr u32 MAI_PROGFLAG_ABORTED = 0x10000;
constexpr u32 MAI_PROGFLAG_FLUSHED = 0x20000;
constexpr u32 MAI_PROGFLAG_STREAM_END = 0x200000;
// Component types.
constexpr u32 MAI_COMP_SOURCE = 2, MAI_COMP_DEMUX = 0x4000, MAI_COMP_DECODER = 0x10,
              MAI_COMP_RENDERER = 0x100;

extern "C" {

typedef u32 (*MAIErrorCallback)(void *context, u32 code, u32 detail);
typedef u32 (*MAIProgressCallback)(u32 kind, const u32 *record);

u32 MAIengine_Create(u32 *engine);
u32 MAIengine_Release(u32 engine);
u32 MAIengine_RegisterCallbacks(u32 engine, MAIErrorCallback on_error,
                                MAIProgressCallback on_progress, void *context);
// Connects `file` with the named solution; a null name lets the engine
// choose. The meaning of the two zero words and of `flags` is the engine's.
u32 MAIengine_AutoConnect(u32 engine, const char *solution, u32 reserved,
                          const char *file, u32 flags, u32 reserved2);
u32 MAIengine_Disconnect(u32 engine, u32 flags);
u32 MAIengine_SendCommand(u32 engine, u32 command, u32 p1, u32 p2, u32 p3, u32 p4,
                          u32 timeout);
u32 MAIengine_GetState(u32 engine, u32 *state, u32 *pending);
u32 MAIengine_WaitForState(u32 engine, u32 state_mask, u32 timeout);
u32 MAIengine_SetParam(u32 engine, u32 id, void *data, u32 size);
u32 MAIengine_GetParam(u32 engine, u32 id, void *data, u32 size);
u32 MAIengine_GetVideoMediaType(u32 engine, void *record, u32 stream);
u32 MAIengine_GetAudioMediaType(u32 engine, void *record, u32 stream);
u32 MAIengine_GetStreamMediaType(u32 engine, void *record);
const char *MAIengine_StatusToString(u32 status, u32 verbose);
u32 MAIengine_ExecDebugCommand(u32 engine, const char *command);

}  // extern "C"
