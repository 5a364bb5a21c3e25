// The OS layer's memory, event and string functions.
//
// Events are auto-reset: a signal stays pending until one wait takes it, and
// signals do not count up (two signals before a wait are one). Handles are
// small integers 1..MAX_EVENTS into a fixed table, as on the board, so a
// handle fits the 32-bit words the engine's interfaces pass around.
#include "engine_internal.h"

#include <cstdlib>
#include <cstring>

namespace mai {
namespace {

constexpr u32 MAX_EVENTS = 64;
constexpr size_t EVENT_NAME_SIZE = 32;

struct EventSlot {
  std::mutex mu;
  std::condition_variable cv;
  bool used = false;
  bool signaled = false;
  u32 generation = 0;  // bumped at destroy: a waiter of an old event leaves
  std::array<char, EVENT_NAME_SIZE> name{};
};

std::array<EventSlot, MAX_EVENTS> g_events;
std::mutex g_event_table;  // serialises the search for a free slot

EventSlot *event_slot(u32 event) {
  if (event == 0 || event > MAX_EVENTS) return nullptr;
  return &g_events[event - 1];
}

}  // namespace

std::vector<std::string> event_list() {
  std::vector<std::string> lines;
  std::lock_guard table(g_event_table);
  for (u32 i = 0; i < MAX_EVENTS; ++i) {
    EventSlot &slot = g_events[i];
    std::lock_guard lk(slot.mu);
    if (!slot.used) continue;
    lines.push_back("event " + std::to_string(i + 1) + " \"" + slot.name.data() + "\"" +
                    (slot.signaled ? " signaled" : ""));
  }
  return lines;
}

}  // namespace mai

using namespace mai;

MAI_EXPORT void *MAIOSMemAlloc(u32 size) { return std::malloc(size); }

MAI_EXPORT void MAIOSMemFree(void *memory) { std::free(memory); }

MAI_EXPORT u32 MAIOSEventCreate(u32 attributes, u32 initial, const char *name, u32 options) {
  (void)attributes;
  (void)options;
  if (env_faults().event || process_faults().event) return 0;
  std::lock_guard table(g_event_table);
  for (u32 i = 0; i < MAX_EVENTS; ++i) {
    EventSlot &slot = g_events[i];
    std::lock_guard lk(slot.mu);
    if (slot.used) continue;
    slot.used = true;
    slot.signaled = initial != 0;
    slot.name.fill('\0');
    if (name != nullptr) std::strncpy(slot.name.data(), name, EVENT_NAME_SIZE - 1);
    return i + 1;
  }
  return 0;
}

MAI_EXPORT u32 MAIOSEventDestroy(u32 event) {
  EventSlot *slot = event_slot(event);
  if (slot == nullptr) return MAIOS_EVENT_INVALID;
  std::lock_guard table(g_event_table);
  std::lock_guard lk(slot->mu);
  if (!slot->used) return MAIOS_EVENT_INVALID;
  slot->used = false;
  slot->signaled = false;
  ++slot->generation;
  slot->cv.notify_all();
  return 0;
}

MAI_EXPORT u32 MAIOSEventSignal(u32 event) {
  EventSlot *slot = event_slot(event);
  if (slot == nullptr) return MAIOS_EVENT_INVALID;
  std::lock_guard lk(slot->mu);
  if (!slot->used) return MAIOS_EVENT_INVALID;
  slot->signaled = true;
  slot->cv.notify_one();
  return 0;
}

MAI_EXPORT u32 MAIOSEventWait(u32 event, u32 milliseconds) {
  EventSlot *slot = event_slot(event);
  if (slot == nullptr) return MAIOS_EVENT_INVALID;
  std::unique_lock lk(slot->mu);
  if (!slot->used) return MAIOS_EVENT_INVALID;
  if (milliseconds == 0) {
    // A poll: takes a pending signal, and succeeds either way.
    slot->signaled = false;
    return 0;
  }
  const u32 generation = slot->generation;
  auto ready = [&] { return slot->signaled || slot->generation != generation; };
  if (milliseconds == MAIOS_WAIT_FOREVER) {
    slot->cv.wait(lk, ready);
  } else if (!slot->cv.wait_for(lk, std::chrono::milliseconds(milliseconds), ready)) {
    return MAIOS_EVENT_TIMEOUT;
  }
  if (slot->generation != generation) return MAIOS_EVENT_INVALID;  // destroyed meanwhile
  slot->signaled = false;
  return 0;
}

MAI_EXPORT char *sp_strcpy8(char *destination, const char *source) {
  if (destination == nullptr || source == nullptr) return destination;
  return std::strcpy(destination, source);
}

MAI_EXPORT char *sp_strcat8(char *destination, const char *source) {
  if (destination == nullptr || source == nullptr) return destination;
  return std::strcat(destination, source);
}
