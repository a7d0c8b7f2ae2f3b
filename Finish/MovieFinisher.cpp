// Copies the samples of a fragmented movie into an ordinary movie and renames it over.
#include "Finish/MovieFinisher.h"

#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <map>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include "Finish/AvFailure.h"
#include "Movie/FragmentSamples.h"
#include "Movie/InPlaceIndex.h"
#include "Movie/MovieFile.h"
#include "Movie/MovieTracks.h"
#include "Movie/TopLevelBoxes.h"
#include "Util/Log.h"

namespace KTN {

namespace {

// Owns the two contexts of one rewrite.
struct Rewrite {
  AVFormatContext* input = nullptr;
  AVFormatContext* output = nullptr;
  std::string temporary;
  bool done = false;
  ~Rewrite() {
    avformat_close_input(&input);
    if (output) {
      if (output->pb) avio_closep(&output->pb);
      avformat_free_context(output);
    }
    if (!done && !temporary.empty()) unlink(temporary.c_str());
  }
};

// The last sample of a track as its fragments record it, in the track's timescale.
struct RecordedEnd {
  uint64_t decodeTime = 0;
  uint32_t duration = 0;
};

// Keeps the last sample each track's fragments describe.
class LastSamples : public FragmentSamples::Visitor {
 public:
  explicit LastSamples(size_t tracks) : ends(tracks) {}
  uint64_t NextDecodeTime(size_t track) override { return ends[track].decodeTime + ends[track].duration; }
  void Sample(const FragmentSample& sample) override { ends[sample.track] = {sample.decodeTime, sample.duration}; }
  std::vector<RecordedEnd> ends;
};

// The last sample of each track (by track ID) as the movie's complete fragments record
// it: the duration the writer gave the last picture, lengthened over the empty slots at the
// end of the take, which FFmpeg's reader does not give. Empty when the movie says none.
std::map<uint32_t, RecordedEnd> RecordedEnds(const std::string& path) {
  std::map<uint32_t, RecordedEnd> byId;
  MovieFile file(path);
  TopLevelBoxes top;
  if (file.Open(false) || top.Read(file)) return byId;
  const Box* moovBox = nullptr;
  for (const Box& box : top.boxes) {
    if (box.type == BoxTypes::kMoov && !moovBox) moovBox = &box;
  }
  std::vector<uint8_t> moov, moof;
  MovieTracks tracks;
  if (!moovBox || file.Read(moovBox->offset, moovBox->size, moov)) return byId;
  Box whole = *moovBox;
  whole.offset = 0;
  if (!tracks.Read(moov, whole)) return byId;
  LastSamples last(tracks.tracks.size());
  for (size_t i = 0; i + 1 < top.boxes.size(); ++i) {
    const Box& box = top.boxes[i];
    const Box& mdat = top.boxes[i + 1];
    if (box.type != BoxTypes::kMoof || mdat.type != BoxTypes::kMdat || file.Read(box.offset, box.size, moof)) continue;
    // A fragment that cannot be described is left to FFmpeg's reading alone.
    FragmentSamples::Walk(moof, box.offset, mdat.offset + mdat.header, mdat.offset + mdat.size, tracks, last);
  }
  for (size_t i = 0; i < tracks.tracks.size(); ++i) {
    if (last.ends[i].duration) byId[tracks.tracks[i].id] = last.ends[i];
  }
  return byId;
}

// The rewrite's name: hidden, beside the movie, so the rename stays on one filesystem.
std::string TemporaryBeside(const std::string& path) {
  size_t slash = path.rfind('/');
  std::string folder = slash == std::string::npos ? "" : path.substr(0, slash + 1);
  std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  return folder + "." + name + ".finishing";
}

}  // namespace

long MovieFinisher::NeedsFinish(const std::string& path, bool& unfinished) {
  unfinished = false;
  MovieFile file(path);
  if (long rc = file.Open(false)) return rc;
  TopLevelBoxes top;
  if (long rc = top.Read(file)) return rc;
  unfinished = top.Unfinished();
  return 0;
}

bool MovieFinisher::IsFragmented(const std::string& path) {
  bool unfinished = false;
  return NeedsFinish(path, unfinished) == 0 && unfinished;
}

long MovieFinisher::Finish(const std::string& path, int64_t frameDuration, int64_t timescale, bool* rewritten) {
  if (rewritten) *rewritten = false;
  bool unfinished = false;
  if (long rc = NeedsFinish(path, unfinished)) return rc;
  if (!unfinished) return 0;
  if (rewritten) *rewritten = true;
  // The index is written in place when the layout allows; the samples are copied only when not.
  long rc = InPlaceIndex::Write(path);
  if (rc != EOPNOTSUPP) return rc;
  return CopyIntoOrdinaryMovie(path, frameDuration, timescale);
}

long MovieFinisher::CopyIntoOrdinaryMovie(const std::string& path, int64_t frameDuration, int64_t timescale) {
  Rewrite rewrite;
  int rc = avformat_open_input(&rewrite.input, path.c_str(), nullptr, nullptr);
  if (rc < 0) return REPORT_AV("avformat_open_input", rc);
  if ((rc = avformat_find_stream_info(rewrite.input, nullptr)) < 0) return REPORT_AV("avformat_find_stream_info", rc);
  rewrite.temporary = TemporaryBeside(path);
  rc = avformat_alloc_output_context2(&rewrite.output, nullptr, "mov", rewrite.temporary.c_str());
  if (rc < 0 || !rewrite.output) return REPORT_AV("avformat_alloc_output_context2", rc < 0 ? rc : AVERROR(ENOMEM));
  for (unsigned i = 0; i < rewrite.input->nb_streams; ++i) {
    AVStream* from = rewrite.input->streams[i];
    AVStream* to = avformat_new_stream(rewrite.output, nullptr);
    if (!to) return REPORT_AV("avformat_new_stream", AVERROR(ENOMEM));
    if ((rc = avcodec_parameters_copy(to->codecpar, from->codecpar)) < 0) return REPORT_AV("avcodec_parameters_copy", rc);
    to->time_base = from->time_base;
    // The writer's time base is one frame, from which the muxer picks a DV variant's tag and
    // the track's timescale; a rewrite must choose as the recording did. The average rate
    // will not do: frames a full backlog dropped make it slower than the frames' own.
    if (from->codecpar->codec_type == AVMEDIA_TYPE_VIDEO) {
      if (frameDuration > 0 && timescale > 0) {
        av_reduce(&to->time_base.num, &to->time_base.den, frameDuration, timescale, INT32_MAX);
      } else if (from->r_frame_rate.num > 0 && from->r_frame_rate.den > 0) {
        to->time_base = av_inv_q(from->r_frame_rate);  // the finest step the timestamps take
      } else if (from->avg_frame_rate.num > 0 && from->avg_frame_rate.den > 0) {
        to->time_base = av_inv_q(from->avg_frame_rate);
      }
    }
    if (from->codecpar->codec_id == AV_CODEC_ID_DVVIDEO) to->codecpar->codec_tag = 0;
    to->avg_frame_rate = from->avg_frame_rate;
    to->sample_aspect_ratio = to->codecpar->sample_aspect_ratio;  // the muxer insists they agree
    av_dict_copy(&to->metadata, from->metadata, 0);
  }
  av_dict_copy(&rewrite.output->metadata, rewrite.input->metadata, 0);
  if ((rc = avio_open(&rewrite.output->pb, rewrite.temporary.c_str(), AVIO_FLAG_WRITE)) < 0) {
    return REPORT_AV("avio_open", rc);
  }
  if ((rc = avformat_write_header(rewrite.output, nullptr)) < 0) return REPORT_AV("avformat_write_header", rc);
  // Each stream's packet waits for the next: a picture lasts until the next one starts
  // (which keeps the time of frames a full backlog dropped). The last keeps the duration
  // its fragment records, which the writer lengthened over the empty slots at the end of
  // the take; only a last sample whose fragment says none lasts as long as the one before.
  const std::map<uint32_t, RecordedEnd> recordedEnds = RecordedEnds(path);
  std::vector<AVPacket*> pending(rewrite.input->nb_streams, nullptr);
  std::vector<int64_t> lastDuration(rewrite.input->nb_streams, 0);
  AVPacket* packet = av_packet_alloc();
  if (!packet) return REPORT_AV("av_packet_alloc", AVERROR(ENOMEM));
  long result = 0;
  int64_t samples = 0;
  auto emit = [&](AVPacket* held) -> long {
    AVStream* from = rewrite.input->streams[held->stream_index];
    AVStream* to = rewrite.output->streams[held->stream_index];
    av_packet_rescale_ts(held, from->time_base, to->time_base);
    held->pos = -1;
    int code = av_interleaved_write_frame(rewrite.output, held);
    if (code < 0) return REPORT_AV("av_interleaved_write_frame", code);
    ++samples;
    return 0;
  };
  // A cut-off movie ends in a broken fragment: reading stops there, and what came before
  // is the take.
  while (!result && av_read_frame(rewrite.input, packet) >= 0) {
    int index = packet->stream_index;
    const AVCodecParameters* par = rewrite.input->streams[index]->codecpar;
    if (par->codec_type == AVMEDIA_TYPE_AUDIO && par->block_align > 0) {
      packet->duration = packet->size / par->block_align;  // sound lasts as many sample frames as it holds
      result = emit(packet);
      continue;
    }
    if (AVPacket* held = pending[index]) {
      if (packet->dts != AV_NOPTS_VALUE && held->dts != AV_NOPTS_VALUE && packet->dts > held->dts) {
        held->duration = packet->dts - held->dts;
      }
      lastDuration[index] = held->duration;
      result = emit(held);
      av_packet_free(&pending[index]);
    }
    pending[index] = av_packet_clone(packet);
    av_packet_unref(packet);
    if (!pending[index]) result = REPORT_AV("av_packet_clone", AVERROR(ENOMEM));
  }
  for (size_t index = 0; index < pending.size(); ++index) {
    if (!pending[index]) continue;
    if (!result) {
      // The reader's streams are the tracks: its stream ID the track's, its time base the track's timescale.
      auto recorded = recordedEnds.find(static_cast<uint32_t>(rewrite.input->streams[index]->id));
      if (recorded != recordedEnds.end() && pending[index]->dts == static_cast<int64_t>(recorded->second.decodeTime)) {
        pending[index]->duration = recorded->second.duration;
      } else if (lastDuration[index] > 0) {
        pending[index]->duration = lastDuration[index];
      }
      result = emit(pending[index]);
    }
    av_packet_free(&pending[index]);
  }
  av_packet_free(&packet);
  if (!result && (rc = av_write_trailer(rewrite.output)) < 0) result = REPORT_AV("av_write_trailer", rc);
  if (!result && (rc = avio_closep(&rewrite.output->pb)) < 0) result = REPORT_AV("avio_closep", rc);
  if (result) return result;
  if (samples == 0) {
    KTN_LOG("The movie %s holds no complete sample to keep", path.c_str());
    return ENODATA;
  }
  if (rename(rewrite.temporary.c_str(), path.c_str()) != 0) {
    long error = errno;
    KTN_LOG("rename(%s, %s) failed with errno %ld (%s)", rewrite.temporary.c_str(), path.c_str(), error,
            strerror(errno));
    return error;
  }
  rewrite.done = true;
  return 0;
}

}  // namespace KTN
