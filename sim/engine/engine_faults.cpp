// Host-only controls of the engine stand-in: the playback clock factor and
// injected faults, so that programs built on the engine can be driven into
// the failures the board's engine produces.
//
// PMX_ENGINE_CLOCK=<factor>
//   Speed of the playback clock, a positive decimal number (default 1).
//   50 makes a 2-second clip reach its end in 40 ms. Read at MAIengine_Create;
//   "sim clock <factor>" changes it for one instance later.
//
// PMX_ENGINE_FAULTS=<item>[,<item>...]
//   Read at MAIengine_Create (and at MAIOSEventCreate for `event`). Blanks
//   around items are ignored. S is an engine status, decimal or 0x-hex, not 0;
//   N is a count, at least 1, default 1.
//     connect=S[:N]     the next N MAIengine_AutoConnect calls return S
//     auto=S            every AutoConnect with a null solution (the engine's
//                       own choice) returns S; a named solution still connects
//     error40           every play command reports error 40 through on_error
//                       from the engine thread before SendCommand returns
//     nostart           the renderer never reports the start of streaming
//                       (the state still becomes PLAYING)
//     mediatype=S       MAIengine_GetVideoMediaType and GetAudioMediaType return S
//     stream=S          MAIengine_GetStreamMediaType returns S
//     release=S[:N]     the next N MAIengine_Release calls return S; the
//                       instance stays valid
//     disconnect=S[:N]  the next N MAIengine_Disconnect calls return S; the
//                       connection stays
//     create=S          MAIengine_Create returns S
//     register=S        MAIengine_RegisterCallbacks returns S and registers nothing
//     event             MAIOSEventCreate returns 0 (no event)
//   Example: PMX_ENGINE_FAULTS="connect=8:2,nostart"
//   Unknown or malformed items are reported on stderr and ignored.
//
// The debug command "sim fault <items>" adds faults with the same syntax to a
// live instance (create and event act process-wide from then on), and
// "sim fault clear" removes the instance's faults and those added by command
// (create and event given in the environment stay while it says so).
#include "engine_internal.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace mai {
namespace {

std::mutex g_process_mu;
Faults g_process;

std::string_view trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

// A whole-string unsigned number, decimal or 0x-hex.
bool parse_number(std::string_view text, u32 &value) {
  std::string copy(trim(text));
  if (copy.empty() || copy[0] == '-' || copy[0] == '+') return false;
  char *end = nullptr;
  errno = 0;
  unsigned long parsed = std::strtoul(copy.c_str(), &end, 0);
  if (errno != 0 || end == copy.c_str() || *end != '\0' || parsed > 0xFFFFFFFFul) return false;
  value = static_cast<u32>(parsed);
  return true;
}

// "S" or "S:N" for the counted faults.
bool parse_status_count(std::string_view text, bool counted, u32 &status, u32 &count) {
  count = 1;
  size_t colon = text.find(':');
  if (colon != std::string_view::npos) {
    if (!counted || !parse_number(text.substr(colon + 1), count) || count == 0) return false;
    text = text.substr(0, colon);
  }
  return parse_number(text, status) && status != 0;
}

bool parse_item(std::string_view item, Faults &f) {
  size_t eq = item.find('=');
  std::string_view key = trim(item.substr(0, eq));
  if (eq == std::string_view::npos) {
    if (key == "error40") return f.error40 = true;
    if (key == "nostart") return f.nostart = true;
    if (key == "event") return f.event = true;
    return false;
  }
  std::string_view value = trim(item.substr(eq + 1));
  u32 status = 0, count = 0;
  struct Counted {
    std::string_view key;
    u32 Faults::*status;
    u32 Faults::*count;
  };
  static constexpr std::array<Counted, 8> table{{
      {"connect", &Faults::connect_status, &Faults::connect_count},
      {"release", &Faults::release_status, &Faults::release_count},
      {"disconnect", &Faults::disconnect_status, &Faults::disconnect_count},
      {"auto", &Faults::auto_status, nullptr},
      {"mediatype", &Faults::mediatype_status, nullptr},
      {"stream", &Faults::stream_status, nullptr},
      {"create", &Faults::create_status, nullptr},
      {"register", &Faults::register_status, nullptr},
  }};
  for (const Counted &c : table) {
    if (key != c.key) continue;
    if (!parse_status_count(value, c.count != nullptr, status, count)) return false;
    f.*c.status = status;
    if (c.count != nullptr) f.*c.count = count;
    return true;
  }
  return false;
}

}  // namespace

bool parse_faults(std::string_view text, Faults &into, std::string &error) {
  Faults result = into;
  while (!text.empty()) {
    size_t comma = text.find(',');
    std::string_view item = trim(text.substr(0, comma));
    text = comma == std::string_view::npos ? std::string_view{} : text.substr(comma + 1);
    if (item.empty()) continue;
    if (!parse_item(item, result)) {
      error = "bad fault item \"" + std::string(item) + "\"";
      return false;
    }
  }
  into = result;
  return true;
}

Faults env_faults() {
  Faults faults;
  const char *text = std::getenv("PMX_ENGINE_FAULTS");
  if (text == nullptr) return faults;
  // Parse item by item so one bad item does not drop the good ones.
  std::string_view rest(text);
  while (!rest.empty()) {
    size_t comma = rest.find(',');
    std::string_view item = rest.substr(0, comma);
    rest = comma == std::string_view::npos ? std::string_view{} : rest.substr(comma + 1);
    std::string error;
    if (!parse_faults(item, faults, error))
      std::fprintf(stderr, "MAIengine: PMX_ENGINE_FAULTS: %s ignored\n", error.c_str());
  }
  return faults;
}

bool parse_clock_factor(std::string_view text, double &factor) {
  std::string copy(trim(text));
  if (copy.empty()) return false;
  char *end = nullptr;
  double value = std::strtod(copy.c_str(), &end);
  if (end == copy.c_str() || *end != '\0' || !std::isfinite(value) || value <= 0) return false;
  factor = value;
  return true;
}

double env_clock_factor() {
  const char *text = std::getenv("PMX_ENGINE_CLOCK");
  double factor = 1;
  if (text != nullptr && !parse_clock_factor(text, factor)) {
    std::fprintf(stderr, "MAIengine: PMX_ENGINE_CLOCK=\"%s\" is not a positive number, using 1\n",
                 text);
    factor = 1;
  }
  return factor;
}

Faults process_faults() {
  std::lock_guard lk(g_process_mu);
  return g_process;
}

void set_process_faults(const Faults &faults) {
  std::lock_guard lk(g_process_mu);
  g_process = faults;
}

u32 take_fault(u32 status, u32 &count) {
  if (status == 0 || count == 0) return 0;
  --count;
  return status;
}

}  // namespace mai
