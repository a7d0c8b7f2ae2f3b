// Trims a repaired take's sidecar to the packets its movie holds.
#include "FrameHash/SidecarTrim.h"

#include <errno.h>

#include <map>
#include <utility>
#include <vector>

#include "FrameHash/FrameHashFile.h"
#include "FrameHash/TakePackets.h"

namespace KTN {

long SidecarTrim::Trim(const std::string& moviePath, Result& result) {
  result = Result();
  const std::string path = FrameHashSidecarPath(moviePath);
  FrameHashFile sidecar;
  long rc = sidecar.Read(path);
  if (rc == ENOENT) return 0;
  if (rc) return rc;
  TakePackets packets;
  if ((rc = packets.Read(moviePath))) return rc;

  // Each packet of the movie by its stream and time.
  std::map<std::pair<int, int64_t>, const TakePacket*> byTime;
  for (const TakePacket& packet : packets.packets) byTime[{packet.stream, packet.dts}] = &packet;
  std::vector<FrameHashLine> kept;
  kept.reserve(sidecar.lines.size());
  for (FrameHashLine line : sidecar.lines) {
    auto found = byTime.find({line.stream, line.dts});
    if (found == byTime.end() || !found->second || found->second->size != line.size) {
      ++result.dropped;
      continue;
    }
    if (line.duration != found->second->duration) {
      line.duration = found->second->duration;  // a picture held over the slots after it
      result.changed = true;
    }
    found->second = nullptr;  // one line per packet
    kept.push_back(line);
  }
  for (const auto& entry : byTime) result.undescribed += entry.second != nullptr;
  result.changed = result.changed || result.dropped > 0 || sidecar.torn;
  if (!result.changed) return 0;
  sidecar.lines = std::move(kept);
  return sidecar.Write(path);
}

}  // namespace KTN
