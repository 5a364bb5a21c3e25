#include "tests/direct/mpa_reference.h"

#include <gtest/gtest.h>
#include <mpg123.h>

#include <algorithm>
#include <cmath>

namespace mparef {

const double kRoundingRms = 1.0 / kFullScale / std::sqrt(12.0);

Pcm from_s16(const s16 *samples, size_t count, int channels, int rate) {
  Pcm pcm;
  pcm.channels = channels;
  pcm.rate = rate;
  pcm.samples.assign(samples, samples + count);
  return pcm;
}

Pcm decode_reference(std::span<const u8> file, StreamInfo *info) {
  Pcm pcm;
  mpg123_init();
  int err = 0;
  mpg123_handle *mh = mpg123_new(nullptr, &err);
  if (mh == nullptr) {
    ADD_FAILURE() << "mpg123_new: " << mpg123_plain_strerror(err);
    return pcm;
  }
  mpg123_param(mh, MPG123_ADD_FLAGS, MPG123_QUIET, 0);
  mpg123_param(mh, MPG123_REMOVE_FLAGS, MPG123_GAPLESS | MPG123_AUTO_RESAMPLE, 0);
  mpg123_format_none(mh);
  const long *rates = nullptr;
  size_t rate_count = 0;
  mpg123_rates(&rates, &rate_count);
  for (size_t i = 0; i < rate_count; ++i)
    mpg123_format(mh, rates[i], MPG123_MONO | MPG123_STEREO, MPG123_ENC_FLOAT_32);
  EXPECT_EQ(mpg123_open_feed(mh), MPG123_OK);
  EXPECT_EQ(mpg123_feed(mh, file.data(), file.size()), MPG123_OK);
  info->bytes = double(file.size());
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
      pcm.rate = int(rate);
      pcm.channels = channels;
      continue;
    }
    if (r != MPG123_OK) break;
    mpg123_frameinfo fi{};
    mpg123_info(mh, &fi);
    info->layer = fi.layer;
    info->mode = int(fi.mode);
    info->min_kbps = info->min_kbps ? std::min(info->min_kbps, fi.bitrate) : fi.bitrate;
    info->max_kbps = std::max(info->max_kbps, fi.bitrate);
    const float *f = reinterpret_cast<const float *>(audio);
    for (size_t i = 0; i < bytes / sizeof(float); ++i) pcm.samples.push_back(double(f[i]) * kFullScale);
  }
  mpg123_delete(mh);
  return pcm;
}

namespace {

// The reference as a 16-bit decoder would have to approach it: clipped to
// the 16-bit range wherever it exceeds full scale.
double clipped(double v) { return std::clamp(v, -32768.0, 32767.0); }

// The shift (ours = reference delayed by `shift` samples per channel) that
// makes the two closest over a stretch of music from the middle of the
// reference.
int best_shift(const Pcm &ours, const Pcm &ref) {
  const long ch = ref.channels;
  const long n_ref = long(ref.frames()), n_ours = long(ours.frames());
  const long window = std::min<long>(4096, n_ref / 3);
  const long start = std::max<long>(kMaxShift, n_ref / 2 - window / 2);
  int best = 0;
  double best_err = INFINITY;
  for (int shift = -kMaxShift; shift <= kMaxShift; ++shift) {
    if (start + shift < 0 || start + window + shift > n_ours || start + window > n_ref) continue;
    double err = 0;
    const double *r = &ref.samples[size_t(start * ch)];
    const double *o = &ours.samples[size_t((start + shift) * ch)];
    for (long i = 0; i < window * ch && err < best_err; ++i) {
      const double d = o[i] - clipped(r[i]);
      err += d * d;
    }
    if (err < best_err) {
      best_err = err;
      best = shift;
    }
  }
  return best;
}

}  // namespace

Measures compare(const Pcm &ours, const Pcm &ref) {
  Measures m;
  m.shift = best_shift(ours, ref);
  const long ch = ref.channels;
  const long begin = std::max<long>(0, -m.shift);
  const long end = std::min<long>(long(ref.frames()), long(ours.frames()) - m.shift);
  double sum_ours = 0, sum_rounded = 0;
  for (long i = begin * ch; i < end * ch; ++i) {
    const double r = clipped(ref.samples[size_t(i)]);
    const double d = ours.samples[size_t(i + m.shift * ch)] - r;
    const double q = std::nearbyint(r) - r;
    sum_ours += d * d;
    sum_rounded += q * q;
    m.max_lsb = std::max(m.max_lsb, std::fabs(d));
  }
  m.compared = end > begin ? size_t(end - begin) : 0;
  const double n = double(std::max<size_t>(1, m.compared * size_t(ch)));
  m.ours_rms = std::sqrt(sum_ours / n) / kFullScale;
  m.rounded_rms = std::sqrt(sum_rounded / n) / kFullScale;
  return m;
}


}  // namespace mparef
