// The inspection corpus: every fixture file with the solution type and
// name the prescan must give it for its codecs.
#pragma once
#include <array>

namespace fixtures {

struct CorpusFile {
  const char *name;
  unsigned type;         // solution type
  const char *solution;  // solution name
};

inline constexpr std::array<CorpusFile, 42> corpus = {{
    // RIFF AVI
    {"xvid_mp3.avi", 1, "avimpv4_mp3"},
    {"xvid_ac3.avi", 1, "avimpv4_ac3"},
    {"xvid_dts.avi", 1, "avimpv4_dts"},
    {"xvid_pcm.avi", 1, "unknown"},
    {"xvid_mp3_ac3.avi", 1, "avimpv4_mp3"},
    {"divx5_mp3.avi", 1, "divx_mp3"},
    {"dx50_two_tracks.avi", 1, "divx_mp3"},
    {"divx3_mp2.avi", 1, "divx_mpa"},
    {"ntsc_wide.avi", 1, ""},  // FMP4 video, no audio: no solution name at all
    // ASF
    {"wmv2_wma.wmv", 3, "wmt8"},
    {"wmv1_wma.wmv", 3, "wmt78"},
    {"tone.wma", 3, "wma"},
    {"wmav1.wma", 3, "unknown"},
    // MPEG program streams
    {"mpeg1_mp2.mpg", 2, "mpegps_mpa"},
    {"mpeg2_mp2.mpg", 2, "mpegps_mpa"},
    {"mpeg2_ac3.mpg", 2, "mpegps_ac3"},
    {"clip_mp2.vob", 2, "mpegps_mpa"},
    {"clip_ac3.vob", 2, "mpegps_ac3"},
    {"clip_lpcm.vob", 2, "mpegps_pcm"},
    {"clip_dts.vob", 2, "mpegps"},
    // MPEG audio
    {"tone.mp3", 4, "mp3"},
    {"vbr.mp3", 4, "mp3"},
    {"mpeg1_44k_cbr_id3v23.mp3", 4, "mp3"},
    {"mpeg2_22k_vbr_id3v24.mp3", 4, "mp3"},
    {"mpeg25_11k_cbr_id3v1.mp3", 4, "mp3"},
    {"mpeg25_8k_vbr.mp3", 4, "mp3"},
    {"mpeg1_48k_vbr_joint.mp3", 4, "mp3"},
    {"layer2_in.mp3", 4, "mpa"},
    // Ogg and FLAC
    {"tone.ogg", 5, "ogg"},
    {"tagged.ogg", 5, "ogg"},
    {"tone.flac", 8, "flac"},
    {"tagged16.flac", 8, "flac"},
    {"tagged24.flac", 8, "unknown"},
    // AC-3: the scan reads the first frame only and finds no play time, so
    // an AC-3 file is never given a real solution.
    {"tone.ac3", 6, "unknown"},
    {"surround51.ac3", 6, "unknown"},
    // WAV
    {"tone.wav", 7, "pcm"},
    {"tone_8k_mono.wav", 7, "pcm"},
    {"adpcm_ms.wav", 7, "pcm"},
    {"adpcm_ima.wav", 7, "unknown"},
    // No scanner for these containers or extensions
    {"clip.mp4", 0, "unknown"},
    {"clip.mkv", 0, "unknown"},
    {"tone.mp2", 0, "unknown"},
}};

}  // namespace fixtures
