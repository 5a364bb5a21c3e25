// Media fixtures for tests, made at test time by real encoders.
#pragma once
#include "platform/mai_types.h"

#include <span>
#include <string>
#include <vector>

namespace fixtures {

// Path of the named media file, made once into the fixture directory by a
// real encoder (ffmpeg or sox; made under a lock file and a temporary name,
// so that test programs running in parallel share it safely). A missing
// encoder fails the calling test and gives "". Recipes that need an optional
// encoder (tone.ogg needs libvorbis) give "" without a failure when it is
// missing; callers skip then.
//
// Every clip is 2 s long. Video: testsrc 320x240 at 25 fps unless said;
// audio: a 440 Hz sine, 44.1 kHz stereo unless said. A file is made again
// when its recipe changed.
//   tone.wav          sox sine 440 Hz, 44.1 kHz stereo 16-bit
//   tone_8k_mono.wav  sox sine, 8 kHz mono 16-bit
//   tone.mp3          MP3 (libmp3lame) 128 kbit/s CBR
//   vbr.mp3           MP3 (libmp3lame -q:a 2 VBR) of pink noise and a tone
//   tone.mp2          MPEG layer 2 elementary stream
//   tone.flac         FLAC 16-bit
//   tone.ac3          AC-3 192 kbit/s
//   tone.ogg          Ogg Vorbis (libvorbis)
//   tone.wma          ASF with WMA v2 audio only
//   xvid_mp3.avi      AVI, MPEG-4 tagged XVID (GOP of 10 frames), MP3 stereo
//   xvid_ac3.avi      the same with AC-3 audio
//   divx5_mp3.avi     AVI, MPEG-4 tagged DX50, MP3
//   divx3_mp2.avi     AVI, MS-MPEG-4 v3 tagged DIV3, MPEG layer 2
//   ntsc_wide.avi     AVI, MPEG-4 352x240 at 30000/1001 fps, display aspect 4:3
//   mpeg2_mp2.mpg     MPEG-2 program stream (VOB), MPEG-2 video 720x576, layer 2 audio
//   mpeg1_mp2.mpg     MPEG-1 system stream, MPEG-1 video 352x288, layer 2 audio
//   mpeg2_ac3.mpg     MPEG-2 program stream, MPEG-2 video 720x576, AC-3 audio
//   wmv2_wma.wmv      ASF, WMV8 (wmv2) video, WMA v2 audio
//   clip.mp4          MPEG-4 video in MP4 (a container without a solution)
//   clip.mkv          MPEG-4 video in Matroska
// The inspection corpus adds, with title "Corpus" and artist "Encoder" where
// tagged: xvid_pcm.avi, xvid_dts.avi, dx50_two_tracks.avi (two MP3 tracks),
// xvid_mp3_ac3.avi, wmv1_wma.wmv, wmav1.wma, clip_mp2.vob, clip_ac3.vob,
// clip_lpcm.vob, clip_dts.vob (VOBs at 720x576), mpeg1_44k_cbr_id3v23.mp3 (lame),
// mpeg2_22k_vbr_id3v24.mp3 (Xing), mpeg25_11k_cbr_id3v1.mp3 (lame, mono),
// mpeg25_8k_vbr.mp3, mpeg1_48k_vbr_joint.mp3, layer2_in.mp3 (MPEG layer 2
// named .mp3), tagged.ogg (oggenc), tagged16.flac and tagged24.flac (flac),
// surround51.ac3 (5.1 at 48 kHz), adpcm_ms.wav, adpcm_ima.wav.
// The decoder accuracy corpus, 3 s each of a music-like source (tones, pink
// noise, plucked notes; sox): music_<rate>_<mode>_<rate control>.mp3 from
// lame (8 to 48 kHz, mono, stereo and joint stereo, CBR 32 to 320 kbit/s and
// VBR) and music_<rate>_<mode>_<kbit/s>.mp2 from ffmpeg's layer II encoder;
// for the decoder benchmark, 10 to 15 s long: music_44k_stereo_cbr128_15s.mp3,
// music_48k_stereo_cbr320_10s.mp3, music_22k_mono_cbr64_10s.mp3.
std::string media(const std::string &name);

// Writes a hand-built byte image to a file private to this test process and
// returns its path; the file is removed when the process ends.
std::string temp_file(const std::string &name, std::span<const u8> bytes);

// One value ffprobe reports for a file: `entry` is an ffprobe entry such as
// "format=duration" or "stream=sample_rate"; `streams` an optional stream
// selector such as "a:0". "" when ffprobe is missing or says nothing.
std::string ffprobe_value(const std::string &path, const std::string &entry,
                          const std::string &streams = "");
// Every line ffprobe prints for `entry` in CSV form, e.g. "0.440000,K_" for
// "packet=pts_time,flags".
std::vector<std::string> ffprobe_lines(const std::string &path, const std::string &entry,
                                       const std::string &streams = "");

}  // namespace fixtures
