// Internal declarations of the host build of libmaiengine: the media engine
// stand-in that runs on a PC. It probes files with libavformat, keeps the
// stream properties the board's engine would report, and runs a playback
// clock on one engine thread per instance, sending the same progress reports
// and state changes as the board's pipeline does.
#pragma once
#include "platform/mai_engine.h"
#include "platform/mai_os.h"

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

// Every ABI entry point is defined with this: C linkage, exported from a
// library whose other symbols are hidden.
#define MAI_EXPORT extern "C" __attribute__((visibility("default")))

namespace mai {

using Clock = std::chrono::steady_clock;

// ---- Progress reports ----
// Words of a progress record besides the flag word and the component type.
constexpr u32 PROG_STREAM = 1;    // stream index of the component, 0 for source/demux
constexpr u32 PROG_POSITION = 2;  // clock position in ms when the report was made
constexpr u32 PROG_ENGINE = 4;    // engine handle
using ProgressRecord = std::array<u32, MAI_PROGRESS_WORDS>;

// ---- Little-endian record access, byte by byte (records may be unaligned) ----
inline void put_u16(u8 *rec, u32 off, u32 v) {
  rec[off] = static_cast<u8>(v);
  rec[off + 1] = static_cast<u8>(v >> 8);
}
inline void put_u32(u8 *rec, u32 off, u32 v) {
  for (u32 i = 0; i < 4; ++i) rec[off + i] = static_cast<u8>(v >> (8 * i));
}
inline void put_u64(u8 *rec, u32 off, u64 v) {
  for (u32 i = 0; i < 8; ++i) rec[off + i] = static_cast<u8>(v >> (8 * i));
}
inline u32 get_u32(const u8 *rec, u32 off) {
  return static_cast<u32>(rec[off]) | static_cast<u32>(rec[off + 1]) << 8 |
         static_cast<u32>(rec[off + 2]) << 16 | static_cast<u32>(rec[off + 3]) << 24;
}

// ---- OS layer (os_memory_events.cpp) ----
// One line per live event: handle, name and whether a signal is pending.
std::vector<std::string> event_list();

// ---- Solutions (solutions.cpp) ----
// Container families: each solution builds its pipeline on one parser.
enum class Family : u8 { none, avi, mpegps, asf, mpa, ogg, ac3, wav, flac };
struct Solution {
  const char *name;
  Family family;
};
std::span<const Solution> solution_table();
const char *family_name(Family family);
// The family of an accepted solution name ("pmi_" prefix allowed), or none.
// `canonical` receives the name without the prefix.
Family solution_family(const char *name, std::string *canonical);
// The family whose parser handles a libavformat demuxer, or none.
Family container_family(std::string_view demuxer);

// ---- Media probing (media_probe.cpp) ----
struct StreamDesc {
  bool video = false;
  u32 av_index = 0;              // index in the container
  std::string codec, codec_long; // libavcodec names
  u32 codec_id = 0;              // AVCodecID
  u32 tag = 0;                   // container FOURCC / format tag
  u32 sample_rate = 0, channels = 0, width = 0, height = 0;
  // The media type record the engine hands out for this stream (a video
  // record is 156 bytes, an audio one uses the first 136).
  std::array<u8, MAI_VIDEO_MEDIATYPE_SIZE> record{};
};
struct Media {
  std::string path;
  u64 file_size = 0;
  std::string container, container_long;  // demuxer names
  Family family = Family::none;
  u32 duration_ms = 0;
  u64 start_ms = 0;  // container start time
  u32 bit_rate = 0;
  bool mpeg2_pack = false;  // MPEG-2 program stream (else MPEG-1 system stream)
  std::vector<StreamDesc> streams;  // video and audio streams, container order
  std::vector<u32> keys_ms;         // key frames of the first video stream, ascending
  bool keys_from_index = false;     // keys_ms came from the container's index
  u32 audio_rate = 0;               // sample rate of the first audio stream
  std::string auto_solution;        // the engine's own choice, "" when none
  // Index in `streams` of the stream whose renderer drives the clock: the
  // first audio stream, else the first video stream.
  u32 master = 0;
};
// Probes `path`: MAI_OK, or MAI_E_OPENFAILED when it is not readable media.
u32 probe_media(const char *path, Media &media);

// ---- Host-only controls (engine_faults.cpp) ----
struct Faults {
  u32 connect_status = 0, connect_count = 0;
  u32 auto_status = 0;
  bool error40 = false, nostart = false, event = false;
  u32 mediatype_status = 0, stream_status = 0;
  u32 release_status = 0, release_count = 0;
  u32 disconnect_status = 0, disconnect_count = 0;
  u32 create_status = 0, register_status = 0;
};
// Parses a comma-separated fault list into `into`, changing only the named
// faults; false (and `into` untouched) on a malformed item.
bool parse_faults(std::string_view text, Faults &into, std::string &error);
Faults env_faults();                 // PMX_ENGINE_FAULTS, bad items reported on stderr
bool parse_clock_factor(std::string_view text, double &factor);
double env_clock_factor();           // PMX_ENGINE_CLOCK, 1 when unset or bad
// Faults added at run time ("sim fault") that act outside an instance.
Faults process_faults();
void set_process_faults(const Faults &faults);
// Takes one use of a counted fault: its status, or 0 when none is left.
u32 take_fault(u32 status, u32 &count);

// ---- Instances (engine_instance.cpp) ----
constexpr u32 MAX_INSTANCES = 4;

// Trace categories switched by the debug commands.
enum Trace : u32 {
  TR_SYNC = 0x1,      // clock anchors and position ticks
  TR_ERROR = 0x2,     // statuses returned and errors reported
  TR_STATES = 0x4,    // state changes
  TR_PROGRESS = 0x8,  // progress reports sent
  TR_COMMANDS = 0x10, // commands received
  TR_TRACE = 0x20,    // every entry point
  TR_ELAPSED = 0x40,  // prefix lines with the time since the instance was made
  TR_SHOW = 0x80,     // a status line at every position tick
};

struct Params {
  std::array<u8, MAI_PARAM_DISPLAY_SIZE> display{};
  std::array<u8, MAI_PARAM_EQUALIZER_SIZE> equalizer{};
  std::vector<u8> tracks = std::vector<u8>(MAI_PARAM_TRACKS_SIZE);
  u32 sample_rate = 0;  // 0: never set, the stream's own rate applies
  std::array<u8, MAI_PARAM_STREAM_INFO_SIZE> stream_info{};
};

struct Transport {
  u32 state = MAI_STATE_IDLE;
  u32 rate = MAI_RATE_NORMAL;  // 16.16 magnitude
  bool reverse = false;
  // Clock: pos_ms at `anchor`, moving at `speed` media ms per wall ms while
  // `running`.
  double pos_ms = 0;
  Clock::time_point anchor{};
  double speed = 0;
  bool running = false;
  double next_tick_ms = 0;
  // Every command that changes the transport bumps the generation; a job of
  // the engine thread that finds it changed after calling out is dropped.
  u64 generation = 0;
  bool start_pending = false;
  u32 start_target = 0;
  bool seek_pending = false;
  Clock::time_point seek_due{};
  u32 seek_return = 0;
  bool stop_pending = false;
  Clock::time_point stop_due{};
  bool stop_aborts = false;  // the renderer reports the abort when stopped
  bool started = false;      // start of streaming reported, end not yet
  // Errors waiting for delivery on the engine thread.
  std::vector<std::array<u32, 2>> errors;
  u64 errors_queued = 0, errors_delivered = 0;
};

// Everything of an instance that a new Create starts afresh.
struct Session {
  MAIErrorCallback on_error = nullptr;
  MAIProgressCallback on_progress = nullptr;
  void *context = nullptr;
  bool connected = false;
  Media media;
  std::string solution;       // solution in use, without the "pmi_" prefix
  bool solution_auto = false; // chosen by the engine
  Transport t;
  Params params;
  Faults faults;
  double clock_factor = 1;
  bool quit = false;
  bool delivering = false;  // the engine thread is calling out
};

struct Instance {
  std::mutex mu;
  std::condition_variable cv;  // every change of the session is announced here
  std::thread thread;
  std::thread::id engine_tid;
  std::atomic<bool> live{false};
  std::atomic<u32> trace{0};
  Clock::time_point created{};
  u32 handle = 0;
  Session s;
  // A program may end without releasing its instances: the engine thread
  // is stopped then rather than left running into static destruction.
  ~Instance();
};

// The live instance of a handle, or null.
Instance *lookup(u32 handle);
bool on_engine_thread(const Instance &in);

// ---- Transport (engine_transport.cpp) ----
void engine_main(Instance &in);
// Position of the clock now, in ms from the start of the stream.
double position_ms(const Session &s, Clock::time_point now);
// Re-reads rate, clock factor and sample-rate parameter into a running clock.
void reanchor_clock(Instance &in);
void set_state(Instance &in, u32 state);
// Drops the connection (the caller holds the lock).
void drop_connection(Instance &in, std::unique_lock<std::mutex> &lk);

// ---- Diagnostics (engine_debug.cpp) ----
const char *state_name(u32 state);
// Prints one trace line when any of `categories` is on.
void tracef(const Instance &in, u32 categories, const char *format, ...)
    __attribute__((format(printf, 3, 4)));
// Traces a failing status of an entry point and returns it.
u32 fail(const Instance *in, const char *function, u32 status);
u32 exec_debug(Instance &in, const char *command);

}  // namespace mai
