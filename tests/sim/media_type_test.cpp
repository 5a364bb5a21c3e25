// Media type and stream time records, checked against what ffprobe reports
// for the same fixture files.
#include "sim_test_util.h"
#include "tests/support/fixtures.h"

#include <cmath>

using namespace simtest;

namespace {

std::optional<double> probe_number(const std::string &path, const std::string &entry,
                                   const std::string &streams) {
  std::string v = fixtures::ffprobe_value(path, entry, streams);
  if (v.empty() || v == "N/A") return std::nullopt;
  size_t slash = v.find_first_of("/:");
  if (slash != std::string::npos) {  // a ratio such as 30000/1001 or 4:3
    double den = std::stod(v.substr(slash + 1));
    return den == 0 ? std::nullopt : std::optional(std::stod(v.substr(0, slash)) / den);
  }
  return std::stod(v);
}

// Reads a record through an unaligned pointer with guard bytes round it
// and checks the engine wrote nothing outside it.
template <size_t N>
u32 read_record(u32 (*query)(u32, void *, u32), u32 h, u32 stream, std::array<u8, N> &out) {
  std::array<u8, N + 17> buf;
  buf.fill(0xEE);
  u32 st = query(h, buf.data() + 1, stream);
  EXPECT_EQ(buf[0], 0xEE) << "wrote before the record";
  for (size_t i = N + 1; i < buf.size(); ++i) EXPECT_EQ(buf[i], 0xEE) << "wrote past the record";
  std::memcpy(out.data(), buf.data() + 1, N);
  return st;
}

void expect_text(const u8 *rec, u32 offset, u32 size) {
  const u8 *end = static_cast<const u8 *>(std::memchr(rec + offset, 0, size - offset));
  ASSERT_NE(end, nullptr) << "extra text not terminated inside the record";
  EXPECT_GT(end - (rec + offset), 0) << "no extra text";
}

struct VideoCase {
  const char *fixture;
  u32 subtype;
};
const VideoCase kVideo[] = {
    {"xvid_mp3.avi", MAI_SUB_XVID},          {"divx3_mp2.avi", MAI_SUB_DIVX3},
    {"ntsc_wide.avi", MAI_SUB_MPEG4_VIDEO},  {"mpeg1_mp2.mpg", MAI_SUB_MPEG_VIDEO_PES1},
    {"wmv2_wma.wmv", MAI_SUB_WMV8},
};

TEST(MediaType, VideoRecordsMatchTheFiles) {
  Engine e;
  for (const VideoCase &c : kVideo) {
    SCOPED_TRACE(c.fixture);
    const std::string path = fixtures::media(c.fixture);
    ASSERT_EQ(e.connect(path), MAI_OK);
    std::array<u8, MAI_VIDEO_MEDIATYPE_SIZE> r;
    ASSERT_EQ(read_record(MAIengine_GetVideoMediaType, e.h, 0, r), MAI_OK);
    const u8 *rec = r.data();
    EXPECT_EQ(rd32(rec, MAI_VMT_MAJOR), MAI_MAJOR_VIDEO);
    EXPECT_EQ(rd32(rec, MAI_VMT_SUBTYPE), c.subtype);
    const double width = *probe_number(path, "stream=width", "v:0");
    const double height = *probe_number(path, "stream=height", "v:0");
    EXPECT_EQ(rd32(rec, MAI_VMT_WIDTH), width);
    EXPECT_EQ(rd32(rec, MAI_VMT_HEIGHT), height);
    const double fps = *probe_number(path, "stream=avg_frame_rate", "v:0");
    EXPECT_EQ(rd32(rec, MAI_VMT_FRAMERATE), std::llround(fps * 1000));
    const double sar = probe_number(path, "stream=sample_aspect_ratio", "v:0").value_or(1);
    const double dar = *probe_number(path, "stream=display_aspect_ratio", "v:0");
    EXPECT_DOUBLE_EQ(double(rd32(rec, MAI_VMT_PAR_H)) / rd32(rec, MAI_VMT_PAR_V), sar);
    EXPECT_DOUBLE_EQ(double(rd32(rec, MAI_VMT_FINAL_PAR_H)) / rd32(rec, MAI_VMT_FINAL_PAR_V), dar);
    EXPECT_EQ(rd32(rec, MAI_VMT_FINAL_WIDTH), std::llround(width * sar));
    EXPECT_EQ(rd32(rec, MAI_VMT_FINAL_HEIGHT), height);
    EXPECT_GT(rd32(rec, MAI_VMT_AVG_BITRATE), 0u);
    EXPECT_GE(rd32(rec, MAI_VMT_MAX_BITRATE), rd32(rec, MAI_VMT_AVG_BITRATE));
    EXPECT_EQ(rd32(rec, MAI_VMT_IMAGE_SUBTYPE), 0x80002u);  // all are 4:2:0 pictures
    expect_text(rec, MAI_VMT_EXTRA, MAI_VIDEO_MEDIATYPE_SIZE);
    EXPECT_EQ(MAIengine_Disconnect(e.h, 0), MAI_OK);
  }
}

struct AudioCase {
  const char *fixture;
  u32 subtype, layer, type_flags, mode_flags;
};
const AudioCase kAudio[] = {
    {"tone.mp3", MAI_SUB_MPEG_L3, 3, MAI_AUDIO_CBR, MAI_AUDIOMODE_JOINT},
    {"vbr.mp3", MAI_SUB_MPEG_L3, 3, MAI_AUDIO_VBR, MAI_AUDIOMODE_JOINT},
    {"tone.mp2", MAI_SUB_MPEG_L2, 2, MAI_AUDIO_CBR, 0},
    {"mpeg1_mp2.mpg", MAI_SUB_MPEG_AUDIO_PES1, 2, MAI_AUDIO_CBR, 0},
    {"tone.ac3", MAI_SUB_AC3, 0, MAI_AUDIO_CBR, 0},
    {"mpeg2_ac3.mpg", MAI_SUB_AC3_PES, 0, MAI_AUDIO_CBR, 0},
    {"wmv2_wma.wmv", MAI_SUB_WMA, 0, MAI_AUDIO_CBR, 0},
    {"tone_8k_mono.wav", MAI_SUB_PCM, 0, MAI_AUDIO_CBR, 0},
    {"tone.flac", 0, 0, MAI_AUDIO_VBR, 0},
    {"tone.ogg", MAI_SUB_OGG, 0, MAI_AUDIO_VBR, 0},
};

TEST(MediaType, AudioRecordsMatchTheFiles) {
  Engine e;
  for (const AudioCase &c : kAudio) {
    SCOPED_TRACE(c.fixture);
    const std::string path = fixtures::media(c.fixture);
    if (path.empty()) continue;  // optional encoder missing
    ASSERT_EQ(e.connect(path), MAI_OK);
    std::array<u8, MAI_AUDIO_MEDIATYPE_SIZE> r;
    ASSERT_EQ(read_record(MAIengine_GetAudioMediaType, e.h, 0, r), MAI_OK);
    const u8 *rec = r.data();
    EXPECT_EQ(rd32(rec, MAI_AMT_MAJOR), MAI_MAJOR_AUDIO);
    EXPECT_EQ(rd32(rec, MAI_AMT_SUBTYPE), c.subtype);
    EXPECT_EQ(rd32(rec, MAI_AMT_TYPE_FLAGS), c.type_flags);
    EXPECT_EQ(rd32(rec, MAI_AMT_MODE_FLAGS), c.mode_flags);
    EXPECT_EQ(rd16(rec, MAI_AMT_LAYER), c.layer);
    EXPECT_EQ(rd32(rec, MAI_AMT_SAMPLE_RATE), *probe_number(path, "stream=sample_rate", "a:0"));
    EXPECT_EQ(rd16(rec, MAI_AMT_CHANNELS), *probe_number(path, "stream=channels", "a:0"));
    EXPECT_EQ(rd16(rec, MAI_AMT_BITS), 16u);  // 16-bit sources, and decoders output 16 bits
    if (auto rate = probe_number(path, "stream=bit_rate", "a:0"))
      EXPECT_EQ(rd32(rec, MAI_AMT_BITRATE), *rate);
    else
      EXPECT_GT(rd32(rec, MAI_AMT_BITRATE), 0u);
    const u32 max_rate = rd32(rec, MAI_AMT_MAX_BITRATE), rate = rd32(rec, MAI_AMT_BITRATE);
    if (c.subtype == MAI_SUB_MPEG_L3 && c.type_flags == MAI_AUDIO_VBR) {
      EXPECT_GT(max_rate, rate);  // a VBR MP3 reports its highest frame rate
    } else if (c.type_flags == MAI_AUDIO_CBR) {
      EXPECT_GE(max_rate, rate);
    }
    auto duration = probe_number(path, "stream=duration", "a:0");
    if (!duration) duration = probe_number(path, "format=duration", "");
    EXPECT_NEAR(rd32(rec, MAI_AMT_DURATION), *duration * 1000, 1.0);
    EXPECT_GT(rd32(rec, MAI_AMT_MAX_BUFFER), 0u);
    expect_text(rec, MAI_AMT_EXTRA, MAI_AUDIO_MEDIATYPE_SIZE);
    EXPECT_EQ(MAIengine_Disconnect(e.h, 0), MAI_OK);
  }
}

TEST(MediaType, MissingStreamsAndBadRecords) {
  Engine e;
  std::array<u8, MAI_VIDEO_MEDIATYPE_SIZE> rec{};
  EXPECT_EQ(MAIengine_GetVideoMediaType(e.h, rec.data(), 0), MAI_E_NOTCONNECTED);
  EXPECT_EQ(MAIengine_GetAudioMediaType(e.h, rec.data(), 0), MAI_E_NOTCONNECTED);
  EXPECT_EQ(stream_time(e.h).status, MAI_E_NOTCONNECTED);
  ASSERT_EQ(e.connect(fixtures::media("tone.wav")), MAI_OK);
  EXPECT_EQ(MAIengine_GetStreamMediaType(e.h, rec.data()), MAI_E_INVALIDARG);  // size word missing
  EXPECT_EQ(MAIengine_GetStreamMediaType(e.h, nullptr), MAI_E_INVALIDARG);
  EXPECT_EQ(MAIengine_GetVideoMediaType(e.h, rec.data(), 0), MAI_E_NOSTREAM);
  EXPECT_EQ(MAIengine_GetAudioMediaType(e.h, rec.data(), 1), MAI_E_NOSTREAM);
  EXPECT_EQ(MAIengine_GetAudioMediaType(e.h, nullptr, 0), MAI_E_INVALIDARG);
  EXPECT_EQ(MAIengine_GetAudioMediaType(0, rec.data(), 0), MAI_E_INVALIDARG);
  ASSERT_EQ(MAIengine_Disconnect(e.h, 0), MAI_OK);
  ASSERT_EQ(e.connect(fixtures::media("ntsc_wide.avi")), MAI_OK);  // video only
  EXPECT_EQ(MAIengine_GetAudioMediaType(e.h, rec.data(), 0), MAI_E_NOSTREAM);
  EXPECT_EQ(MAIengine_GetVideoMediaType(e.h, rec.data(), 0), MAI_OK);
}

TEST(StreamTime, StartIsTheContainerStartTime) {
  Engine e;
  for (const char *name : {"xvid_mp3.avi", "mpeg2_mp2.mpg", "tone.wav"}) {
    SCOPED_TRACE(name);
    const std::string path = fixtures::media(name);
    ASSERT_EQ(e.connect(path), MAI_OK);
    const double start = probe_number(path, "format=start_time", "").value_or(0);
    StreamTime t = stream_time(e.h);
    ASSERT_EQ(t.status, MAI_OK);
    EXPECT_NEAR(double(t.start), start * 1000, 1.0);
    EXPECT_EQ(t.current, t.start);  // nothing played yet
    ASSERT_EQ(MAIengine_Disconnect(e.h, 0), MAI_OK);
  }
}

}  // namespace
