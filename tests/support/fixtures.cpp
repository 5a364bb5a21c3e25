#include "tests/support/fixtures.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <mutex>
#include <sys/file.h>
#include <unistd.h>
#include <vector>

namespace fixtures {
namespace {

namespace fs = std::filesystem;

// Inputs of the ffmpeg recipes: 2 s of test picture and of a 440 Hz tone.
#define VIDEO_IN "-f lavfi -i testsrc=size=320x240:rate=25:duration=2 "
// DVD and VCD picture sizes: the program stream scan tells MPEG-1 from
// MPEG-2 video by the picture width, as players of such discs could.
#define DVD_VIDEO_IN "-f lavfi -i testsrc=size=720x576:rate=25:duration=2 "
#define VCD_VIDEO_IN "-f lavfi -i testsrc=size=352x288:rate=25:duration=2 "
#define AUDIO_IN "-f lavfi -i sine=frequency=440:sample_rate=44100:duration=2 "
// 2 s of 44.1 kHz tone as WAV on standard output, for the command-line encoders.
#define SOX_WAV(bits, channels) "sox -V1 -n -r 44100 -c " #channels " -b " #bits " -t wav - synth 2 sine 440 | "
#define META "-metadata title=Corpus -metadata artist=Encoder "
// A music-like stereo source as WAV on standard output: two tones per
// channel (different in each), pink noise with a third tone, and plucked
// notes every 0.8 s as transients, mixed and normalised to a -0.2 dBFS peak.
#define MUSIC_WAV(rate, seconds, plucks)                                                          \
  "sox -V1 -m \"|sox -V1 -n -r " #rate " -c 2 -p synth " #seconds                                \
  " sine 220 sine 277 sine mix 330 sine mix 415\" \"|sox -V1 -n -r " #rate " -c 2 -p synth " #seconds \
  " pinknoise pinknoise sine mix 1760 sine mix 2490\" \"|sox -V1 -n -r " #rate                     \
  " -c 2 -p synth 0.12 pluck 196 pluck 147 pad 0.3 0.38 repeat " #plucks " trim 0 " #seconds        \
  "\" -b 16 -t wav - gain -n -0.2 | "
// lame over the music source: rate, seconds, pluck count, then lame's mode
// and bit-rate options.
#define LAME_MUSIC(rate, seconds, plucks, options) \
  MUSIC_WAV(rate, seconds, plucks) "lame --quiet --resample " #rate " " options " - OUT"
// ffmpeg's layer II encoder over 3 s of the music source.
#define MP2_MUSIC(rate, options) \
  MUSIC_WAV(rate, 3, 3) "ffmpeg -nostdin -hide_banner -loglevel error -y -i - -c:a mp2 " options " -f mp2 OUT"

struct Recipe {
  const char *name;
  const char *tool;      // "sox" or "ffmpeg"; any other tool, or args
                         // holding a pipe: args is a whole shell command
                         // that needs that tool
  const char *encoder;   // ffmpeg encoder that must be there, or null
  bool optional;         // a missing encoder skips instead of failing
  const char *args;      // OUT stands for the output file
};

constexpr Recipe kRecipes[] = {
    {"tone.wav", "sox", nullptr, false, "-n -r 44100 -c 2 -b 16 OUT synth 2 sine 440"},
    {"tone_8k_mono.wav", "sox", nullptr, false, "-n -r 8000 -c 1 -b 16 OUT synth 2 sine 440"},
    {"tone.mp3", "ffmpeg", "libmp3lame", false,
     AUDIO_IN "-ac 2 -c:a libmp3lame -b:a 128k OUT"},
    {"vbr.mp3", "ffmpeg", "libmp3lame", false,
     "-f lavfi -i anoisesrc=d=2:c=pink:a=0.5:r=44100:seed=7 " AUDIO_IN
     "-filter_complex amix=inputs=2 -ac 2 -c:a libmp3lame -q:a 2 OUT"},
    {"tone.mp2", "ffmpeg", "mp2", false, AUDIO_IN "-ac 2 -c:a mp2 -f mp2 OUT"},
    {"tone.flac", "ffmpeg", "flac", false, AUDIO_IN "-ac 2 -c:a flac -sample_fmt s16 OUT"},
    {"tone.ac3", "ffmpeg", "ac3", false, AUDIO_IN "-ac 2 -c:a ac3 -b:a 192k OUT"},
    {"tone.ogg", "ffmpeg", "libvorbis", true, AUDIO_IN "-ac 2 -c:a libvorbis OUT"},
    {"tone.wma", "ffmpeg", "wmav2", false, AUDIO_IN "-ac 2 -c:a wmav2 -f asf OUT"},
    {"xvid_mp3.avi", "ffmpeg", "libmp3lame", false,
     VIDEO_IN AUDIO_IN "-c:v mpeg4 -vtag XVID -g 10 -q:v 8 -c:a libmp3lame -ac 2 -b:a 128k OUT"},
    {"xvid_ac3.avi", "ffmpeg", "ac3", false,
     VIDEO_IN AUDIO_IN "-c:v mpeg4 -vtag XVID -g 10 -q:v 8 -c:a ac3 -ac 2 -b:a 192k OUT"},
    {"divx5_mp3.avi", "ffmpeg", "libmp3lame", false,
     VIDEO_IN AUDIO_IN "-c:v mpeg4 -vtag DX50 -q:v 8 -c:a libmp3lame -ac 2 -b:a 128k OUT"},
    {"divx3_mp2.avi", "ffmpeg", "msmpeg4", false,
     VIDEO_IN AUDIO_IN "-c:v msmpeg4 -vtag DIV3 -q:v 8 -c:a mp2 -ac 2 OUT"},
    {"ntsc_wide.avi", "ffmpeg", "mpeg4", false,
     "-f lavfi -i testsrc=size=352x240:rate=30000/1001:duration=2 -c:v mpeg4 -q:v 8 "
     "-aspect 4:3 OUT"},
    {"mpeg2_mp2.mpg", "ffmpeg", "mpeg2video", false,
     DVD_VIDEO_IN AUDIO_IN "-c:v mpeg2video -c:a mp2 -ac 2 -f vob OUT"},
    {"mpeg1_mp2.mpg", "ffmpeg", "mpeg1video", false,
     VCD_VIDEO_IN AUDIO_IN "-c:v mpeg1video -c:a mp2 -ac 2 -f mpeg OUT"},
    {"mpeg2_ac3.mpg", "ffmpeg", "ac3", false,
     DVD_VIDEO_IN AUDIO_IN "-c:v mpeg2video -c:a ac3 -ac 2 -f vob OUT"},
    {"wmv2_wma.wmv", "ffmpeg", "wmv2", false, VIDEO_IN AUDIO_IN "-c:v wmv2 -c:a wmav2 -ac 2 OUT"},
    {"clip.mp4", "ffmpeg", "mpeg4", false, VIDEO_IN "-c:v mpeg4 -q:v 8 OUT"},
    {"clip.mkv", "ffmpeg", "mpeg4", false, VIDEO_IN "-c:v mpeg4 -q:v 8 OUT"},
    // The inspection corpus: every container and codec the prescan names.
    {"xvid_pcm.avi", "ffmpeg", "mpeg4", false, VIDEO_IN AUDIO_IN "-c:v mpeg4 -vtag XVID -q:v 8 -c:a pcm_s16le -ac 2 OUT"},
    {"xvid_dts.avi", "ffmpeg", "dca", false,
     VIDEO_IN AUDIO_IN "-c:v mpeg4 -vtag XVID -q:v 8 -c:a dca -strict -2 -ar 48000 -ac 2 OUT"},
    {"dx50_two_tracks.avi", "ffmpeg", "libmp3lame", false,
     VIDEO_IN AUDIO_IN "-map 0:v -map 1:a -map 1:a -c:v mpeg4 -vtag DX50 -q:v 8 -c:a libmp3lame -ac 2 -b:a 128k OUT"},
    {"xvid_mp3_ac3.avi", "ffmpeg", "ac3", false,
     VIDEO_IN AUDIO_IN "-map 0:v -map 1:a -map 1:a -c:v mpeg4 -vtag XVID -q:v 8 -c:a:0 libmp3lame -c:a:1 ac3 -ac 2 OUT"},
    {"wmv1_wma.wmv", "ffmpeg", "wmv1", false, VIDEO_IN AUDIO_IN META "-c:v wmv1 -c:a wmav2 -ac 2 OUT"},
    {"wmav1.wma", "ffmpeg", "wmav1", false, AUDIO_IN META "-ac 2 -c:a wmav1 -f asf OUT"},
    {"clip_mp2.vob", "ffmpeg", "mpeg2video", false, DVD_VIDEO_IN AUDIO_IN "-c:v mpeg2video -c:a mp2 -ac 2 -f vob OUT"},
    {"clip_ac3.vob", "ffmpeg", "ac3", false, DVD_VIDEO_IN AUDIO_IN "-c:v mpeg2video -c:a ac3 -ac 2 -f vob OUT"},
    {"clip_lpcm.vob", "ffmpeg", "pcm_dvd", false,
     DVD_VIDEO_IN AUDIO_IN "-c:v mpeg2video -c:a pcm_dvd -ar 48000 -ac 2 -f vob OUT"},
    {"clip_dts.vob", "ffmpeg", "dca", false,
     DVD_VIDEO_IN AUDIO_IN "-c:v mpeg2video -c:a dca -strict -2 -ar 48000 -ac 2 -f vob OUT"},
    {"mpeg1_44k_cbr_id3v23.mp3", "lame", nullptr, false,
     SOX_WAV(16, 2) "lame --quiet -b 192 --id3v2-only --tt Corpus --ta Encoder - OUT"},
    {"mpeg2_22k_vbr_id3v24.mp3", "ffmpeg", "libmp3lame", false,
     AUDIO_IN META "-ar 22050 -ac 2 -c:a libmp3lame -q:a 4 -id3v2_version 4 OUT"},
    {"mpeg25_11k_cbr_id3v1.mp3", "lame", nullptr, false,
     SOX_WAV(16, 1) "lame --quiet -m m --resample 11.025 -b 32 --id3v1-only --tt Corpus --ta Encoder - OUT"},
    {"mpeg25_8k_vbr.mp3", "lame", nullptr, false, SOX_WAV(16, 1) "lame --quiet -m m --resample 8 -V 6 - OUT"},
    {"mpeg1_48k_vbr_joint.mp3", "lame", nullptr, false,
     "sox -V1 -n -r 48000 -c 2 -b 16 -t wav - synth 2 sine 440 sine 660 | lame --quiet -m j -V 2 - OUT"},
    {"layer2_in.mp3", "ffmpeg", "mp2", false, AUDIO_IN "-ac 2 -c:a mp2 -b:a 192k -f mp2 OUT"},
    {"tagged.ogg", "oggenc", nullptr, false, SOX_WAV(16, 2) "oggenc -Q -t Corpus -a Encoder -o OUT -"},
    {"tagged16.flac", "flac", nullptr, false,
     SOX_WAV(16, 2) "flac -s -f -T TITLE=Corpus -T ARTIST=Encoder -o OUT -"},
    {"tagged24.flac", "flac", nullptr, false,
     SOX_WAV(24, 2) "flac -s -f -T TITLE=Corpus -T ARTIST=Encoder -o OUT -"},
    {"surround51.ac3", "ffmpeg", "ac3", false,
     "-f lavfi -i sine=frequency=440:sample_rate=48000:duration=2 -ac 6 -c:a ac3 -b:a 384k OUT"},
    {"adpcm_ms.wav", "ffmpeg", "adpcm_ms", false, AUDIO_IN "-ac 2 -c:a adpcm_ms OUT"},
    {"adpcm_ima.wav", "ffmpeg", "adpcm_ima_wav", false, AUDIO_IN "-ac 2 -c:a adpcm_ima_wav OUT"},
    // The decoder accuracy corpus: 3 s of the music source per file.
    {"music_8k_mono_cbr32.mp3", "lame", nullptr, false, LAME_MUSIC(8000, 3, 4, "-m m -b 32")},
    {"music_11k_stereo_vbr.mp3", "lame", nullptr, false, LAME_MUSIC(11025, 3, 4, "-m s -V 5")},
    {"music_16k_joint_cbr48.mp3", "lame", nullptr, false, LAME_MUSIC(16000, 3, 4, "-m j -b 48")},
    {"music_22k_mono_cbr64.mp3", "lame", nullptr, false, LAME_MUSIC(22050, 3, 4, "-m m -b 64")},
    {"music_24k_joint_cbr160.mp3", "lame", nullptr, false, LAME_MUSIC(24000, 3, 4, "-m j -b 160")},
    {"music_32k_joint_cbr32.mp3", "lame", nullptr, false, LAME_MUSIC(32000, 3, 4, "-m j -b 32")},
    {"music_32k_stereo_cbr96.mp3", "lame", nullptr, false, LAME_MUSIC(32000, 3, 4, "-m s -b 96")},
    {"music_44k_stereo_cbr128.mp3", "lame", nullptr, false, LAME_MUSIC(44100, 3, 4, "-m s -b 128")},
    {"music_44k_joint_vbr2.mp3", "lame", nullptr, false, LAME_MUSIC(44100, 3, 4, "-m j -V 2")},
    {"music_44k_mono_cbr256.mp3", "lame", nullptr, false, LAME_MUSIC(44100, 3, 4, "-m m -b 256")},
    {"music_48k_joint_cbr320.mp3", "lame", nullptr, false, LAME_MUSIC(48000, 3, 4, "-m j -b 320")},
    {"music_48k_stereo_vbr0.mp3", "lame", nullptr, false, LAME_MUSIC(48000, 3, 4, "-m s -V 0")},
    {"music_48k_stereo_192.mp2", "ffmpeg", "mp2", false, MP2_MUSIC(48000, "-ac 2 -b:a 192k")},
    {"music_44k_stereo_128.mp2", "ffmpeg", "mp2", false, MP2_MUSIC(44100, "-ac 2 -b:a 128k")},
    {"music_32k_stereo_64.mp2", "ffmpeg", "mp2", false, MP2_MUSIC(32000, "-ac 2 -b:a 64k")},
    {"music_24k_stereo_96.mp2", "ffmpeg", "mp2", false, MP2_MUSIC(24000, "-ac 2 -b:a 96k")},
    {"music_48k_mono_48.mp2", "ffmpeg", "mp2", false, MP2_MUSIC(48000, "-ac 1 -b:a 48k")},
    // Decoder benchmark input: longer files of the same music source.
    {"music_44k_stereo_cbr128_15s.mp3", "lame", nullptr, false,
     LAME_MUSIC(44100, 15, 19, "-m s -b 128")},
    {"music_48k_stereo_cbr320_10s.mp3", "lame", nullptr, false, LAME_MUSIC(48000, 10, 13, "-m s -b 320")},
    {"music_22k_mono_cbr64_10s.mp3", "lame", nullptr, false, LAME_MUSIC(22050, 10, 13, "-m m -b 64")},
};

std::mutex g_mu;
std::map<std::string, bool> g_have;  // tool or encoder availability, guarded by g_mu

std::string quoted(const std::string &s) {
  std::string out = "'";
  for (char c : s) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

bool run(const std::string &command) { return std::system(command.c_str()) == 0; }

bool have_tool(const std::string &tool) {
  auto [it, fresh] = g_have.try_emplace("tool:" + tool, false);
  if (fresh) it->second = run("command -v " + tool + " >/dev/null 2>&1");
  return it->second;
}

bool have_encoder(const std::string &encoder) {
  auto [it, fresh] = g_have.try_emplace("enc:" + encoder, false);
  if (fresh)
    it->second = run("ffmpeg -hide_banner -loglevel error -encoders 2>/dev/null | grep -q ' " +
                     encoder + " '");
  return it->second;
}

std::string replace_out(std::string args, const std::string &out) {
  size_t at = args.find("OUT");
  return args.replace(at, 3, quoted(out));
}

// An exclusive lock on a file, held for the life of the object.
struct DirLock {
  int fd;
  explicit DirLock(const fs::path &path) : fd(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)) {
    if (fd >= 0) ::flock(fd, LOCK_EX);
  }
  ~DirLock() {
    if (fd >= 0) ::close(fd);  // closing releases the lock
  }
  DirLock(const DirLock &) = delete;
  DirLock &operator=(const DirLock &) = delete;
};

// Temporary files of this process, removed when it ends.
struct TempFiles {
  std::vector<std::string> paths;
  ~TempFiles() {
    for (const std::string &p : paths) {
      std::error_code ec;
      fs::remove(p, ec);
    }
  }
};
TempFiles g_temp;

}  // namespace

std::string media(const std::string &name) {
  const Recipe *recipe = nullptr;
  for (const Recipe &r : kRecipes)
    if (name == r.name) recipe = &r;
  if (recipe == nullptr) {
    ADD_FAILURE() << "no recipe for fixture " << name;
    return "";
  }
  std::lock_guard lk(g_mu);
  const fs::path dir = PMX_FIXTURE_DIR;
  const fs::path final_path = dir / name;
  // The recipe made is kept beside the file, so a changed recipe makes the
  // file again.
  const fs::path recipe_path = dir / ("." + name + ".recipe");
  const std::string made_by = std::string(recipe->tool) + " " + recipe->args;
  auto fresh = [&] {
    std::ifstream in(recipe_path);
    std::string kept((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::error_code e;
    return kept == made_by && fs::file_size(final_path, e) > 0 && !e;
  };
  if (fresh()) return final_path.string();
  std::error_code ec;
  fs::create_directories(dir, ec);
  // One maker at a time across the test programs: a second one finds the
  // file made and uses it.
  DirLock lock(dir / ".lock");
  if (fresh()) return final_path.string();

  if (!have_tool(recipe->tool)) {
    ADD_FAILURE() << "fixture " << name << " needs " << recipe->tool << ", not installed";
    return "";
  }
  if (recipe->encoder != nullptr && !have_encoder(recipe->encoder)) {
    if (recipe->optional) return "";
    ADD_FAILURE() << "fixture " << name << " needs the ffmpeg encoder " << recipe->encoder;
    return "";
  }
  // The temporary name keeps the extension, from which the encoders pick
  // the output format.
  const fs::path temp = dir / (".tmp-" + std::to_string(::getpid()) + "-" + name);
  std::string command;
  if (std::string(recipe->tool) == "sox")
    command = "sox " + replace_out(recipe->args, temp.string()) + " 2>&1";
  else if (std::string(recipe->tool) != "ffmpeg" || std::strchr(recipe->args, '|') != nullptr)
    command = "bash -c " + quoted("set -o pipefail; " + replace_out(recipe->args, temp.string())) + " 2>&1";
  else
    command = "ffmpeg -nostdin -hide_banner -loglevel error -y " +
              replace_out(recipe->args, temp.string()) + " 2>&1";
  if (!run(command) || !fs::exists(temp) || fs::file_size(temp) == 0) {
    fs::remove(temp, ec);
    ADD_FAILURE() << "fixture " << name << ": command failed: " << command;
    return "";
  }
  fs::rename(temp, final_path, ec);
  if (ec) {
    ADD_FAILURE() << "fixture " << name << ": " << ec.message();
    return "";
  }
  std::ofstream(recipe_path, std::ios::trunc) << made_by;
  return final_path.string();
}

std::string temp_file(const std::string &name, std::span<const u8> bytes) {
  const fs::path path =
      fs::temp_directory_path() / ("pmx-" + std::to_string(::getpid()) + "-" + name);
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  out.close();
  if (!out) {
    ADD_FAILURE() << "cannot write " << path;
    return "";
  }
  std::lock_guard lk(g_mu);
  g_temp.paths.push_back(path.string());
  return path.string();
}

std::vector<std::string> ffprobe_lines(const std::string &path, const std::string &entry,
                                       const std::string &streams) {
  std::string command = "ffprobe -v error ";
  if (!streams.empty()) command += "-select_streams " + streams + " ";
  command += "-show_entries " + entry + " -of csv=p=0 " + quoted(path) + " 2>/dev/null";
  std::vector<std::string> lines;
  FILE *pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) return lines;
  char buf[512];
  while (std::fgets(buf, sizeof buf, pipe) != nullptr) {
    std::string line(buf);
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
    if (!line.empty()) lines.push_back(line);
  }
  ::pclose(pipe);
  return lines;
}

std::string ffprobe_value(const std::string &path, const std::string &entry,
                          const std::string &streams) {
  std::vector<std::string> lines = ffprobe_lines(path, entry, streams);
  return lines.empty() ? "" : lines.front();
}

}  // namespace fixtures
