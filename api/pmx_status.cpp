// Status codes: their texts, the translation of engine statuses, and the
// printing of a status for the console.
#include <array>
#include <cstdio>

#include "api/pmx_internal.h"
#include "platform/mai_engine.h"

namespace {

constexpr u32 STATUS_TEXT_SIZE = 60;

// Codes 18 to 26 have no text: printing one prints an empty line.
constexpr char pmx_err_string[PMX_STATUS_COUNT][STATUS_TEXT_SIZE] = {
    "PMX_OK",
    "PMX_FAILED",
    "PMX_BUSY",
    "PMX_INVALID_ARG",
    "PMX_ALREADY_INITIALIZED",
    "PMX_NOT_INITIALIZED",
    "PMX_FILE_NOT_FOUND",
    "PMX_UNSUPPORTED_FORMAT",
    "PMX_UNKNOWN_FORMAT",
    "PMX_OPEN_FAILED",
    "PMX_NO_FILE_OPEN",
    "PMX_FILE_ALREADY_OPEN",
    "PMX_UNSUPPORTED",
    "PMX_EOS",
    "PMX_WRONG_STATE",
    "PMX_UNKNOWN",
    "PMX_UNSUPPORT_RESOLUTION",
    "PMX_WMV78_RESOLUTION_WARNNING",
};

// Engine statuses 0..46 to API statuses; filled at every pmx_init.
std::array<s32, MAI_STATUS_COUNT> pmx_error_tbl;

struct Mapping {
  u32 engine;
  s32 api;
};

constexpr Mapping named_statuses[] = {
    {MAI_OK, PMX_OK},
    {MAI_E_UNSUPPORTED, PMX_UNSUPPORTED},
    {MAI_E_INVALIDARG, PMX_INVALID_ARG},
    {MAI_E_FILENOTFOUND, PMX_FILE_NOT_FOUND},
    {MAI_E_OPENFAILED, PMX_OPEN_FAILED},
    {MAI_E_NOTCONNECTED, PMX_NO_FILE_OPEN},
    {MAI_E_ENDOFSTREAM, PMX_EOS},
    {MAI_E_ALREADYCONNECTED, PMX_FILE_ALREADY_OPEN},
    {MAI_E_BUSY, PMX_BUSY},
    {MAI_E_UNKNOWNFORMAT, PMX_UNKNOWN_FORMAT},
    {MAI_E_UNSUPPORTEDFORMAT, PMX_UNSUPPORTED_FORMAT},
};

// Engine statuses outside 0..46 with codes of their own. Their meaning is
// the engine's; the codes have no text.
constexpr Mapping special_statuses[] = {
    {0x1003, 22}, {0x1001, 23}, {0x1002, 24}, {0x1000, 25},
    {0x1005, 20}, {0x1004, 21}, {0x10100000, 18}, {0x10200000, 19},
};

}  // namespace

void pmx_fill_error_table() {
  pmx_error_tbl.fill(PMX_UNKNOWN);
  for (const Mapping &m : named_statuses) pmx_error_tbl[m.engine] = m.api;
}

s32 pmx_translate(u32 engine_status) {
  for (const Mapping &m : special_statuses)
    if (m.engine == engine_status) return m.api;
  if (engine_status < MAI_STATUS_COUNT) return pmx_error_tbl[engine_status];
  return PMX_UNKNOWN;
}

void pmx_print_error(const char *command, u32 code) {
  if (command != nullptr) std::printf("command [%s] : ", command);
  std::printf("%s\n", code < PMX_STATUS_COUNT ? pmx_err_string[code] : "");
}
