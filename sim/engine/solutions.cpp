// The solutions the engine can build: each name selects a container parser
// (the family) and the decoders behind it. Only the family is binding: the
// decoders of a named solution are set up from the streams actually found.
#include "engine_internal.h"

#include <cstring>

namespace mai {
namespace {

using F = Family;
constexpr std::array<Solution, 37> g_solutions{{
    // AVI: DivX / MPEG-4 / Windows Media video, with the audio decoder as a
    // suffix; "_spdif" passes AC-3 or DTS through to the S/PDIF output; a
    // bare suffix is an AVI without a video decoder of its own.
    {"divx", F::avi}, {"divx_mp3", F::avi}, {"divx_mpa", F::avi},
    {"divx_ac3", F::avi}, {"divx_dts", F::avi}, {"divx_spdif", F::avi},
    {"avimpv4", F::avi}, {"avimpv4_mp3", F::avi}, {"avimpv4_mpa", F::avi},
    {"avimpv4_ac3", F::avi}, {"avimpv4_dts", F::avi}, {"avimpv4_spdif", F::avi},
    {"aviwmv", F::avi}, {"aviwmv_mp3", F::avi}, {"aviwmv_mpa", F::avi},
    {"aviwmv_ac3", F::avi}, {"aviwmv_dts", F::avi}, {"aviwmv_spdif", F::avi},
    {"_mp3", F::avi}, {"_mpa", F::avi}, {"_ac3", F::avi}, {"_dts", F::avi},
    // MPEG-1/2 program streams; "_mpa3" is layer 3 audio.
    {"mpegps", F::mpegps}, {"mpegps_mpa", F::mpegps}, {"mpegps_mpa3", F::mpegps},
    {"mpegps_pcm", F::mpegps}, {"mpegps_ac3", F::mpegps},
    // ASF: WMV9, WMV8, WMV7 / MS-MPEG-4, and audio only.
    {"wmt", F::asf}, {"wmt8", F::asf}, {"wmt78", F::asf}, {"wma", F::asf},
    // Elementary audio files.
    {"mp3", F::mpa}, {"mpa", F::mpa}, {"ogg", F::ogg}, {"ac3", F::ac3},
    {"pcm", F::wav}, {"flac", F::flac},
}};

struct ContainerMap {
  std::string_view demuxer;
  Family family;
};
constexpr std::array<ContainerMap, 8> g_containers{{
    {"avi", F::avi}, {"mpeg", F::mpegps}, {"asf", F::asf}, {"mp3", F::mpa},
    {"ogg", F::ogg}, {"ac3", F::ac3}, {"wav", F::wav}, {"flac", F::flac},
}};

}  // namespace

std::span<const Solution> solution_table() { return g_solutions; }

const char *family_name(Family family) {
  switch (family) {
    case F::avi: return "AVI";
    case F::mpegps: return "MPEG program stream";
    case F::asf: return "ASF";
    case F::mpa: return "MPEG audio";
    case F::ogg: return "Ogg";
    case F::ac3: return "AC-3";
    case F::wav: return "WAV";
    case F::flac: return "FLAC";
    case F::none: break;
  }
  return "none";
}

Family solution_family(const char *name, std::string *canonical) {
  if (name == nullptr) return F::none;
  std::string_view text(name);
  if (text.starts_with("pmi_")) text.remove_prefix(4);
  for (const Solution &s : g_solutions) {
    if (text == s.name) {
      if (canonical != nullptr) *canonical = s.name;
      return s.family;
    }
  }
  return F::none;
}

Family container_family(std::string_view demuxer) {
  for (const ContainerMap &c : g_containers)
    if (c.demuxer == demuxer) return c.family;
  return F::none;
}

}  // namespace mai
