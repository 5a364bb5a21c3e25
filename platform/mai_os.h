// The media engine's OS layer: files, memory, events and the two string
// helpers. Exported by libmaiengine with C linkage.
#pragma once
#include "platform/mai_types.h"

// Status word of a file object that could not be opened.
constexpr u32 MAIOS_FILE_OPEN_FAILED = 0x500006;
constexpr u32 MAIOS_FILE_SEEK_FAILED = 0x500007;
constexpr u32 MAIOS_FILE_SIZE_FAILED = 0x500008;
constexpr u32 MAIOS_FILE_INVALID = 0x500009;   // null or never opened file
constexpr u32 MAIOS_EVENT_INVALID = 0x500011;  // no such event handle
// Status of an event wait that ran out of time.
constexpr u32 MAIOS_EVENT_TIMEOUT = 0x500010;
// Event wait time meaning "no limit".
constexpr u32 MAIOS_WAIT_FOREVER = 0xFFFFFFFFu;

// Seek origins of MAIOSFileSeek.
constexpr u32 MAIOS_SEEK_SET = 0;
constexpr u32 MAIOS_SEEK_CUR = 1;
constexpr u32 MAIOS_SEEK_END = 2;

// A file object. Only its first word is public: the open status, 0 when
// the file is open. The layer keeps the rest private.
struct MAIOSFile {
  u32 status;
};

extern "C" {

// Opens a file for reading. Never returns a file whose status is unread:
// on failure the returned object's status is MAIOS_FILE_OPEN_FAILED; null
// only when no object could be made at all.
MAIOSFile *MAIOSFileOpenForRead(const char *path);
// Reads up to `size` bytes at the current position; returns the count read.
u32 MAIOSFileRead(MAIOSFile *file, void *buffer, u32 size);
// Moves the position to `offset` from `origin`; returns 0 or a status.
u32 MAIOSFileSeek(MAIOSFile *file, u64 offset, u32 origin);
// Writes the file size; returns 0 or a status.
u32 MAIOSFileGetSize(MAIOSFile *file, u64 *size);
void MAIOSFileClose(MAIOSFile *file);

void *MAIOSMemAlloc(u32 size);
void MAIOSMemFree(void *memory);

// Events are small integer handles; 0 means none. The meaning of the two
// leading words and of the last one is the layer's own.
u32 MAIOSEventCreate(u32 attributes, u32 initial, const char *name, u32 options);
u32 MAIOSEventDestroy(u32 event);
u32 MAIOSEventSignal(u32 event);
// Waits for a signal. A wait time of 0 takes a pending signal, if any, and
// returns 0 at once; MAIOS_WAIT_FOREVER waits without limit; any other time
// in milliseconds returns MAIOS_EVENT_TIMEOUT when no signal came.
u32 MAIOSEventWait(u32 event, u32 milliseconds);

// NUL-terminated 8-bit string copy and append.
char *sp_strcpy8(char *destination, const char *source);
char *sp_strcat8(char *destination, const char *source);

}  // extern "C"
