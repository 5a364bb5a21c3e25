#include "tests/direct/mpa_reference.h"

#include <gtest/gtest.h>
#include <mpg123.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>

#include "direct/mpa_decoder.h"

namespace mparef {

std::vector<u8> read_file(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

Pcm decode_ours(std::span<const u8> file) {
  Pcm pcm;
  std::vector<u8> work(kMpaWorkBufferBytes, 0);
  auto *ctx = reinterpret_cast<MpaCodecContext *>(work.data());
  EXPECT_EQ(pmx_avcodec_open(ctx), 0);
  std::vector<s16> out(kMpaOutputBytes / 2);
  // Each call takes input or gives a frame: more calls than bytes is stuck.
  for (size_t pos = 0, calls = 0; calls <= 2 * file.size() + 16; ++calls) {
    int size = 0;
    const int used = pmx_avcodec_decode_audio(ctx, out.data(), &size, file.data() + pos, int(file.size() - pos));
    if (used < 0 || size_t(used) > file.size() - pos) {
      ADD_FAILURE() << "decoder took " << used << " bytes with " << file.size() - pos << " left";
      break;
    }
    pos += size_t(used);
    if (size > 0 && pcm.channels == 0) pcm.channels = mpa_channels(ctx), pcm.rate = mpa_sample_rate(ctx);
    pcm.samples.insert(pcm.samples.end(), out.begin(), out.begin() + size / 2);
    if (used == 0 && size == 0) {
      pmx_avcodec_close(ctx);
      return pcm;
    }
  }
  ADD_FAILURE() << "the decoder neither takes input nor gives frames";
  pmx_avcodec_close(ctx);
  return pcm;
}

namespace {

constexpr int kMaxShift = 2304;
constexpr double kFullScale = 32768.0;
const double kRoundingRms = 1.0 / kFullScale / std::sqrt(12.0);  // of ideal rounding to 16 bits

struct StreamInfo {
  int layer = 0, mode = 0, min_kbps = 0, max_kbps = 0;
};

Pcm decode_reference(std::span<const u8> file, StreamInfo *info) {
  Pcm pcm;
  mpg123_init();
  int err = 0;
  mpg123_handle *mh = mpg123_new(nullptr, &err);
  if (mh == nullptr) {
    ADD_FAILURE() << "mpg123_new: " << mpg123_plain_strerror(err);
    return pcm;
  }
  mpg123_param(mh, MPG123_ADD_FLAGS, MPG123_QUIET | MPG123_FORCE_FLOAT, 0);
  mpg123_param(mh, MPG123_REMOVE_FLAGS, MPG123_GAPLESS | MPG123_AUTO_RESAMPLE, 0);
  EXPECT_EQ(mpg123_open_feed(mh), MPG123_OK);
  EXPECT_EQ(mpg123_feed(mh, file.data(), file.size()), MPG123_OK);
  for (;;) {
    off_t num = 0;
    unsigned char *audio = nullptr;
    size_t bytes = 0;
    const int r = mpg123_decode_frame(mh, &num, &audio, &bytes);
    if (r == MPG123_NEW_FORMAT) {
      long rate = 0;
      int channels = 0, encoding = 0;
      mpg123_getformat(mh, &rate, &channels, &encoding);
      EXPECT_EQ(encoding, MPG123_ENC_FLOAT_32);
      EXPECT_TRUE(pcm.channels == 0 || pcm.channels == channels) << "channel count changed";
      pcm.rate = int(rate), pcm.channels = channels;
      continue;
    }
    if (r != MPG123_OK) break;
    mpg123_frameinfo fi{};
    mpg123_info(mh, &fi);
    info->layer = fi.layer, info->mode = int(fi.mode);
    info->min_kbps = info->min_kbps ? std::min(info->min_kbps, fi.bitrate) : fi.bitrate;
    info->max_kbps = std::max(info->max_kbps, fi.bitrate);
    const float *f = reinterpret_cast<const float *>(audio);
    for (size_t i = 0; i < bytes / sizeof(float); ++i) pcm.samples.push_back(double(f[i]) * kFullScale);
  }
  mpg123_delete(mh);
  return pcm;
}

// The reference as a 16-bit decoder must approach it: clipped to 16 bits.
double clipped(double v) { return std::clamp(v, -32768.0, 32767.0); }

// The delay of ours that brings the two closest in the middle of the stream.
int best_shift(const Pcm &ours, const Pcm &ref, int max_shift) {
  const long ch = ref.channels, n_ref = long(ref.frames()), n_ours = long(ours.frames());
  const long window = std::min<long>(4096, n_ref / 3), start = std::max<long>(kMaxShift, n_ref / 2 - window / 2);
  int best = 0;
  double best_err = INFINITY;
  for (int shift = -max_shift; shift <= max_shift; ++shift) {
    if (start + shift < 0 || start + window + shift > n_ours || start + window > n_ref) continue;
    double err = 0;
    const double *r = &ref.samples[size_t(start * ch)], *o = &ours.samples[size_t((start + shift) * ch)];
    for (long i = 0; i < window * ch && err < best_err; ++i) err += (o[i] - clipped(r[i])) * (o[i] - clipped(r[i]));
    if (err < best_err) best_err = err, best = shift;
  }
  return best;
}

std::vector<std::string> g_rows;  // the table, one line per stream

}  // namespace

void print_table() {
  if (g_rows.empty()) return;
  std::printf("\n%-34s %5s %6s %-6s %-8s %8s %8s %7s %5s\n", "file", "layer", "rate", "mode", "kbit/s", "ours",
              "rounded", "ratio", "max");
  std::printf("%-34s %5s %6s %-6s %-8s %8s %8s %7s %5s\n", "", "", "Hz", "", "", "rms/lim", "rms/lim", "", "LSB");
  for (const std::string &row : g_rows) std::printf("%s\n", row.c_str());
  std::printf("(lim = 2^-15/sqrt(12), the rms error of ideal rounding to 16 bits)\n\n");
  g_rows.clear();
}

void check_against_reference(const std::string &name, std::span<const u8> file, size_t expected, int max_shift) {
  StreamInfo info;
  const Pcm ref = decode_reference(file, &info);
  ASSERT_GT(ref.frames(), 0u) << "the reference decoded nothing";
  if (expected != 0) {
    ASSERT_EQ(ref.frames(), expected) << "the reference refused frames";
  }
  const Pcm ours = decode_ours(file);
  ASSERT_GT(ours.frames(), 0u) << "our decoder gave no PCM";
  ASSERT_EQ(ours.channels, ref.channels);
  ASSERT_EQ(ours.rate, ref.rate);
  // Over the overlap: ours, and the reference rounded (a 16-bit decoder's floor).
  const int shift = best_shift(ours, ref, max_shift);
  const long ch = ref.channels, begin = std::max(0, -shift);
  const long end = std::min<long>(long(ref.frames()), long(ours.frames()) - shift);
  double sum_ours = 0, sum_rounded = 0, max_lsb = 0;
  for (long i = begin * ch; i < end * ch; ++i) {
    const double r = clipped(ref.samples[size_t(i)]), d = ours.samples[size_t(i + shift * ch)] - r;
    sum_ours += d * d;
    sum_rounded += (std::nearbyint(r) - r) * (std::nearbyint(r) - r);
    max_lsb = std::max(max_lsb, std::fabs(d));
  }
  const size_t compared = end > begin ? size_t(end - begin) : 0;
  const double n = double(std::max<size_t>(1, compared * size_t(ch)));
  const double ours_rms = std::sqrt(sum_ours / n) / kFullScale, rounded_rms = std::sqrt(sum_rounded / n) / kFullScale;

  static const char *const kModes[] = {"stereo", "joint", "dual", "mono"};
  char kbps[32], row[256];
  if (info.min_kbps == info.max_kbps)
    std::snprintf(kbps, sizeof kbps, "%d", info.min_kbps);
  else
    std::snprintf(kbps, sizeof kbps, "vbr ~%.0f", double(file.size()) * 8 / (double(ref.frames()) / ref.rate) / 1000);
  std::snprintf(row, sizeof row, "%-34s %5d %6d %-6s %-8s %8.4f %8.4f %7.4f %5.2f", name.c_str(), info.layer,
                ref.rate, kModes[info.mode & 3], kbps, ours_rms / kRoundingRms, rounded_rms / kRoundingRms,
                ours_rms / rounded_rms, max_lsb);
  g_rows.push_back(row);
  EXPECT_GE(compared + size_t(kMaxShift), ref.frames()) << "frames missing, shift " << shift;
  EXPECT_LE(ours_rms, 1.02 * rounded_rms) << "rms " << ours_rms / kRoundingRms << " x the limit, shift " << shift;
  EXPECT_LE(max_lsb, 2.0) << "shift " << shift;
}

}  // namespace mparef
