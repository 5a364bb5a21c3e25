// Diagnostics: status names, trace output and the debug command interpreter.
//
// Debug commands (case-insensitive, words separated by blanks):
//   debug help                        list of the commands
//   debug show [all]                  every section below
//   debug show state|solutions|config|comps|sync|events
//   debug on|off                      all trace categories on / everything off
//   debug show on|off                 a status line at every position tick
//   debug sync|error|states|progress|commands|trace|ellapsed on|off
//                                     one trace category ("ellapsed", spelt so
//                                     by the board's engine, prefixes lines with
//                                     the seconds since the instance was made)
// Host-only commands:
//   sim fault <items> | sim fault clear   (syntax in engine_faults.cpp)
//   sim clock <factor>
#include "engine_internal.h"

#include <cctype>
#include <cstdio>
#include <cstring>

namespace mai {
namespace {

std::mutex g_print_mu;  // keeps trace lines of several threads whole

struct StatusName {
  u32 code;
  const char *name;
  const char *verbose;
};
constexpr std::array<StatusName, 20> kStatuses{{
    {MAI_OK, "MAI_OK", "MAI_OK: success"},
    {MAI_E_FAIL, "MAI_E_FAIL", "MAI_E_FAIL: failed"},
    {MAI_E_UNSUPPORTED, "MAI_E_UNSUPPORTED", "MAI_E_UNSUPPORTED: not supported"},
    {MAI_E_INVALIDARG, "MAI_E_INVALIDARG", "MAI_E_INVALIDARG: invalid argument"},
    {MAI_E_FILENOTFOUND, "MAI_E_FILENOTFOUND", "MAI_E_FILENOTFOUND: file not found"},
    {MAI_E_OPENFAILED, "MAI_E_OPENFAILED", "MAI_E_OPENFAILED: file is not readable media"},
    {MAI_E_NOSTREAM, "MAI_E_NOSTREAM", "MAI_E_NOSTREAM: no stream of that kind"},
    {MAI_E_NOTCONNECTED, "MAI_E_NOTCONNECTED", "MAI_E_NOTCONNECTED: not connected"},
    {MAI_E_TIMEOUT, "MAI_E_TIMEOUT", "MAI_E_TIMEOUT: timed out"},
    {MAI_E_ENDOFSTREAM, "MAI_E_ENDOFSTREAM", "MAI_E_ENDOFSTREAM: end of stream"},
    {MAI_E_ALREADYCONNECTED, "MAI_E_ALREADYCONNECTED", "MAI_E_ALREADYCONNECTED: already connected"},
    {MAI_E_BUSY, "MAI_E_BUSY", "MAI_E_BUSY: wrong state for the request"},
    {MAI_E_UNKNOWNFORMAT, "MAI_E_UNKNOWNFORMAT", "MAI_E_UNKNOWNFORMAT: no solution for this format"},
    {MAI_E_UNSUPPORTEDFORMAT, "MAI_E_UNSUPPORTEDFORMAT",
     "MAI_E_UNSUPPORTEDFORMAT: stream format not supported"},
    {MAIOS_FILE_OPEN_FAILED, "MAIOS_FILE_OPEN_FAILED", "MAIOS_FILE_OPEN_FAILED: file open failed"},
    {MAIOS_FILE_SEEK_FAILED, "MAIOS_FILE_SEEK_FAILED", "MAIOS_FILE_SEEK_FAILED: file seek failed"},
    {MAIOS_FILE_SIZE_FAILED, "MAIOS_FILE_SIZE_FAILED", "MAIOS_FILE_SIZE_FAILED: file size unknown"},
    {MAIOS_FILE_INVALID, "MAIOS_FILE_INVALID", "MAIOS_FILE_INVALID: no open file"},
    {MAIOS_EVENT_TIMEOUT, "MAIOS_EVENT_TIMEOUT", "MAIOS_EVENT_TIMEOUT: event wait timed out"},
    {MAIOS_EVENT_INVALID, "MAIOS_EVENT_INVALID", "MAIOS_EVENT_INVALID: no such event"},
}};

struct Category {
  const char *word;
  u32 flag;
};
constexpr std::array<Category, 7> kCategories{{
    {"sync", TR_SYNC}, {"error", TR_ERROR}, {"states", TR_STATES}, {"progress", TR_PROGRESS},
    {"commands", TR_COMMANDS}, {"trace", TR_TRACE}, {"ellapsed", TR_ELAPSED},
}};
constexpr u32 DEBUG_ON = TR_SYNC | TR_ERROR | TR_STATES | TR_PROGRESS | TR_COMMANDS;

constexpr std::array<const char *, 14> kHelp{{
    "debug help                  this list",
    "debug show [all]            all of the sections below",
    "debug show state            state, position and duration",
    "debug show solutions        the solution names the engine builds",
    "debug show config           connected file, solution, container, streams, clock, params",
    "debug show comps            the pipeline components of the connection",
    "debug show sync             clock position, rate and start time",
    "debug show events           the OS layer's events",
    "debug on|off                all trace output on / off",
    "debug show on|off           status line at every position tick",
    "debug sync|error|states|progress|commands|trace|ellapsed on|off",
    "sim fault <items>|clear     inject faults (host build)",
    "sim clock <factor>          playback clock speed (host build)",
    "faults: connect=S[:N] auto=S error40 nostart mediatype=S stream=S release=S[:N] "
    "disconnect=S[:N] create=S register=S event",
}};

// Text built up for one printout.
struct Text {
  std::string out;
  void line(const char *format, ...) __attribute__((format(printf, 2, 3))) {
    char buf[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(buf, sizeof buf, format, args);
    va_end(args);
    out += buf;
    out += '\n';
  }
};

void print(const std::string &text) {
  std::lock_guard lk(g_print_mu);
  std::fputs(text.c_str(), stdout);
  std::fflush(stdout);
}

void words_of(std::string_view text, std::vector<std::string> &words) {
  std::string lowered;
  for (char c : text) lowered += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  size_t i = 0;
  while (i < lowered.size()) {
    while (i < lowered.size() && std::isspace(static_cast<unsigned char>(lowered[i]))) ++i;
    size_t start = i;
    while (i < lowered.size() && !std::isspace(static_cast<unsigned char>(lowered[i]))) ++i;
    if (i > start) words.push_back(lowered.substr(start, i - start));
  }
}

const char *yes(bool b) { return b ? "yes" : "no"; }

void show_state(const Instance &in, Text &t) {
  const Session &s = in.s;
  u32 pending = s.t.state == MAI_STATE_STARTING ? s.t.start_target
                : s.t.state == MAI_STATE_STOPPING ? MAI_STATE_STOPPED
                : s.t.state == MAI_STATE_SEEKING ? s.t.seek_return : 0;
  t.line("[state] engine %u: %s (0x%X), pending %s", in.handle, state_name(s.t.state), s.t.state,
         pending ? state_name(pending) : "none");
  if (s.connected)
    t.line("[state] position %.0f ms of %u ms", position_ms(s, Clock::now()), s.media.duration_ms);
  else
    t.line("[state] nothing connected");
}

void show_solutions(Text &t) {
  for (Family f : {Family::avi, Family::mpegps, Family::asf, Family::mpa, Family::ogg,
                   Family::ac3, Family::wav, Family::flac}) {
    std::string names;
    for (const Solution &s : solution_table())
      if (s.family == f) names += std::string(" ") + s.name;
    t.line("[solutions] %-20s:%s", family_name(f), names.c_str());
  }
  t.line("[solutions] any name may carry the prefix \"pmi_\"");
}

std::string stream_text(const StreamDesc &d) {
  char buf[160];
  if (d.video)
    std::snprintf(buf, sizeof buf, "video %s %ux%u, %.3f fps", d.codec.c_str(), d.width, d.height,
                  get_u32(d.record.data(), MAI_VMT_FRAMERATE) / 1000.0);
  else
    std::snprintf(buf, sizeof buf, "audio %s %u Hz, %u ch", d.codec.c_str(), d.sample_rate,
                  d.channels);
  return buf;
}

void show_config(const Instance &in, Text &t) {
  const Session &s = in.s;
  if (s.connected) {
    const Media &m = s.media;
    t.line("[config] file         : %s (%llu bytes)", m.path.c_str(),
           static_cast<unsigned long long>(m.file_size));
    t.line("[config] solution     : %s (%s)", s.solution.c_str(),
           s.solution_auto ? "engine's choice" : "named");
    t.line("[config] container    : %s (%s), family %s", m.container.c_str(),
           m.container_long.c_str(), family_name(m.family));
    t.line("[config] duration     : %u ms, start %llu ms, bit rate %u", m.duration_ms,
           static_cast<unsigned long long>(m.start_ms), m.bit_rate);
    for (const StreamDesc &d : m.streams)
      t.line("[config] stream %-6u: %s", d.av_index, stream_text(d).c_str());
    t.line("[config] key frames   : %zu (%s)", m.keys_ms.size(),
           m.keys_from_index ? "container index" : "1 s grid");
  } else {
    t.line("[config] nothing connected");
  }
  t.line("[config] clock factor : %g", s.clock_factor);
  if (s.params.sample_rate != 0)
    t.line("[config] sample rate  : %u Hz (set)", s.params.sample_rate);
  else
    t.line("[config] sample rate  : stream's own (%u Hz)", s.media.audio_rate);
  const u8 *info = s.params.stream_info.data();
  u32 words = MAI_PARAM_STREAM_INFO_SIZE / 4;
  while (words > 0 && get_u32(info, (words - 1) * 4) == 0) --words;
  std::string hint;
  for (u32 i = 0; i < words; ++i) {
    char w[12];
    std::snprintf(w, sizeof w, " %08X", get_u32(info, i * 4));
    hint += w;
  }
  t.line("[config] stream info  :%s", words ? hint.c_str() : " none");
  const u8 *d = s.params.display.data();
  t.line("[config] display      : flags 0x%X at %u,%u size %ux%u", get_u32(d, 0), get_u32(d, 24),
         get_u32(d, 28), get_u32(d, 32), get_u32(d, 36));
  const Faults &f = s.faults;
  t.line("[config] faults       : connect=%u:%u auto=%u error40=%s nostart=%s mediatype=%u "
         "stream=%u release=%u:%u disconnect=%u:%u register=%u",
         f.connect_status, f.connect_count, f.auto_status, yes(f.error40), yes(f.nostart),
         f.mediatype_status, f.stream_status, f.release_status, f.release_count,
         f.disconnect_status, f.disconnect_count, f.register_status);
}

void show_comps(const Instance &in, Text &t) {
  const Session &s = in.s;
  if (!s.connected) {
    t.line("[comps] nothing connected");
    return;
  }
  const Media &m = s.media;
  t.line("[comps] source   (0x%04X) file reader, %llu bytes", MAI_COMP_SOURCE,
         static_cast<unsigned long long>(m.file_size));
  t.line("[comps] demux    (0x%04X) %s parser (%s)", MAI_COMP_DEMUX, family_name(m.family),
         m.container.c_str());
  for (u32 i = 0; i < m.streams.size(); ++i) {
    const StreamDesc &d = m.streams[i];
    t.line("[comps] decoder  (0x%04X) stream %u: %s (%s)", MAI_COMP_DECODER, d.av_index,
           d.codec.c_str(), d.codec_long.c_str());
    t.line("[comps] renderer (0x%04X) stream %u: %s%s", MAI_COMP_RENDERER, d.av_index,
           d.video ? "video window" : "audio output", i == m.master ? ", clock master" : "");
  }
}

void show_sync(const Instance &in, Text &t) {
  const Session &s = in.s;
  const double pos = position_ms(s, Clock::now());
  t.line("[sync] clock %s at %.0f ms, rate 0x%X %s, speed %.3f x", s.t.running ? "running" : "held",
         pos, s.t.rate, s.t.reverse ? "reverse" : "forward", s.t.running ? s.t.speed : 0.0);
  t.line("[sync] start time %llu ms, stream time %llu ms",
         static_cast<unsigned long long>(s.media.start_ms),
         static_cast<unsigned long long>(s.media.start_ms + static_cast<u64>(pos)));
}

u32 set_flags(Instance &in, u32 flags, const std::string &onoff) {
  if (onoff == "on") in.trace.fetch_or(flags);
  else if (onoff == "off") in.trace.fetch_and(~flags);
  else return MAI_E_INVALIDARG;
  return MAI_OK;
}

u32 exec_show(Instance &in, const std::vector<std::string> &w) {
  const std::string what = w.size() > 2 ? w[2] : "all";
  if (w.size() > 3) return MAI_E_INVALIDARG;
  if (what == "on" || what == "off") return set_flags(in, TR_SHOW, what);
  Text t;
  {
    std::lock_guard lk(in.mu);
    if (what == "all" || what == "state") show_state(in, t);
    if (what == "all" || what == "solutions") show_solutions(t);
    if (what == "all" || what == "config") show_config(in, t);
    if (what == "all" || what == "comps") show_comps(in, t);
    if (what == "all" || what == "sync") show_sync(in, t);
  }
  if (what == "all" || what == "events") {
    const std::vector<std::string> events = event_list();
    for (const std::string &e : events) t.line("[events] %s", e.c_str());
    if (events.empty()) t.line("[events] none");
  }
  if (t.out.empty()) return MAI_E_INVALIDARG;
  print(t.out);
  return MAI_OK;
}

u32 exec_sim(Instance &in, const std::vector<std::string> &w) {
  if (w.size() == 3 && w[1] == "clock") {
    double factor;
    if (!parse_clock_factor(w[2], factor)) return MAI_E_INVALIDARG;
    std::lock_guard lk(in.mu);
    in.s.clock_factor = factor;
    reanchor_clock(in);
    return MAI_OK;
  }
  if (w.size() < 3 || w[1] != "fault") return MAI_E_INVALIDARG;
  if (w.size() == 3 && w[2] == "clear") {
    std::lock_guard lk(in.mu);
    in.s.faults = Faults{};
    set_process_faults(Faults{});
    return MAI_OK;
  }
  std::string items;
  for (size_t i = 2; i < w.size(); ++i) items += w[i] + " ";
  std::string error;
  std::lock_guard lk(in.mu);
  Faults faults = in.s.faults;
  if (!parse_faults(items, faults, error)) {
    tracef(in, TR_ERROR, "sim fault: %s", error.c_str());
    return MAI_E_INVALIDARG;
  }
  in.s.faults = faults;
  Faults process = process_faults();
  process.create_status = faults.create_status ? faults.create_status : process.create_status;
  process.event = process.event || faults.event;
  set_process_faults(process);
  return MAI_OK;
}

}  // namespace

const char *state_name(u32 state) {
  switch (state) {
    case MAI_STATE_IDLE: return "IDLE";
    case MAI_STATE_READY: return "READY";
    case MAI_STATE_STARTING: return "STARTING";
    case MAI_STATE_STOPPING: return "STOPPING";
    case MAI_STATE_PLAYING: return "PLAYING";
    case MAI_STATE_SCANNING: return "SCANNING";
    case MAI_STATE_PAUSED: return "PAUSED";
    case MAI_STATE_STOPPED: return "STOPPED";
    case MAI_STATE_ENDOFSTREAM: return "ENDOFSTREAM";
    case MAI_STATE_SEEKING: return "SEEKING";
    default: return "UNKNOWN";
  }
}

void tracef(const Instance &in, u32 categories, const char *format, ...) {
  const u32 flags = in.trace.load(std::memory_order_relaxed);
  if ((flags & categories) == 0) return;
  char body[512];
  va_list args;
  va_start(args, format);
  std::vsnprintf(body, sizeof body, format, args);
  va_end(args);
  char line[600];
  if (flags & TR_ELAPSED) {
    double secs = std::chrono::duration<double>(Clock::now() - in.created).count();
    std::snprintf(line, sizeof line, "MAI[%u] %9.3f %s\n", in.handle, secs, body);
  } else {
    std::snprintf(line, sizeof line, "MAI[%u] %s\n", in.handle, body);
  }
  print(line);
}

u32 fail(const Instance *in, const char *function, u32 status) {
  if (in != nullptr)
    tracef(*in, TR_ERROR, "%s: %s", function, MAIengine_StatusToString(status, 1));
  return status;
}

u32 exec_debug(Instance &in, const char *command) {
  std::vector<std::string> w;
  words_of(command, w);
  if (w.empty()) return MAI_E_INVALIDARG;
  if (w[0] == "sim") return exec_sim(in, w);
  if (w[0] != "debug" || w.size() < 2) return MAI_E_INVALIDARG;
  if (w[1] == "help" && w.size() == 2) {
    std::string text;
    for (const char *line : kHelp) text += std::string(line) + "\n";
    print(text);
    return MAI_OK;
  }
  if (w[1] == "show") return exec_show(in, w);
  if (w.size() == 2 && w[1] == "on") return set_flags(in, DEBUG_ON, "on");
  if (w.size() == 2 && w[1] == "off") {
    in.trace.store(0);
    return MAI_OK;
  }
  if (w.size() == 3)
    for (const Category &c : kCategories)
      if (w[1] == c.word) return set_flags(in, c.flag, w[2]);
  return MAI_E_INVALIDARG;
}

}  // namespace mai

using namespace mai;

MAI_EXPORT const char *MAIengine_StatusToString(u32 status, u32 verbose) {
  for (const StatusName &s : kStatuses)
    if (s.code == status) return verbose ? s.verbose : s.name;
  thread_local char text[64];
  if (verbose)
    std::snprintf(text, sizeof text, "MAI status %u (0x%X): unknown status", status, status);
  else
    std::snprintf(text, sizeof text, "MAI status %u (0x%X)", status, status);
  return text;
}
