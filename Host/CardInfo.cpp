// What the installed card receives.
#include "Host/CardInfo.h"

#include <stdlib.h>

#include "Capture/APICapture.h"
#include "Capture/VeldranAPILoader.h"
#include "Settings/CaptureTables.h"
#include "Util/JsonWriter.h"
#include "Util/Printer.h"

namespace KTN {

namespace {

// "'Hi50'" as "Hi50": the code's four characters without the quotes the text shows them in.
std::string FourCharacters(const std::string& shown) {
  if (shown.size() == 6 && shown.front() == '\'' && shown.back() == '\'') return shown.substr(1, 4);
  return shown;
}

}  // namespace

double CardInfo::Mode::Fps() const {
  return frameDuration ? static_cast<double>(timescale) / static_cast<double>(frameDuration) : 0.0;
}

int CardInfo::Read() {
  *this = CardInfo();
  IVeldranIterator* iterator = CreateVeldranIteratorInstance();
  if (!iterator) {
    fprintf(stderr, "kestrin-capture: no card's device API at %s (install the simulated card with scripts/install-simulated-card)\n",
            kVeldranAPIBundlePath);
    return 3;
  }
  IVeldran* device = nullptr;
  if (iterator->Next(&device) != kVeldranOK || !device) {
    iterator->Release();
    fprintf(stderr, "kestrin-capture: no Veldran card found\n");
    return 3;
  }
  char* name = nullptr;
  if (device->GetModelName(&name) == kVeldranOK && name) {
    model = name;
    free(name);
  }
  device->Release();
  iterator->Release();

  APICapture* capture = new APICapture;
  if (capture->Init()) {
    capture->Unregister();
    capture->Release();
    fprintf(stderr, "kestrin-capture: the card's input is not available\n");
    return 3;
  }
  IVeldranDisplayMode* found[APICapture::kMaxDisplayModes];
  unsigned count = APICapture::kMaxDisplayModes;
  if (capture->GetSupportedModes(found, &count) == 0) {
    modesListed = true;
    for (unsigned i = 0; i < count; ++i) {
      Mode mode;
      found[i]->GetFrameRate(&mode.frameDuration, &mode.timescale);
      char* modeName = nullptr;
      found[i]->GetName(&modeName);
      mode.code = Util::Printer::Fcc(static_cast<int>(found[i]->GetDisplayMode()));
      mode.name = modeName ? modeName : "";
      mode.width = found[i]->GetWidth();
      mode.height = found[i]->GetHeight();
      free(modeName);
      found[i]->Release();
      modes.push_back(mode);
    }
  }
  for (size_t row = 0; row < kSupportedStandardCount; ++row) {
    const SupportedStandard& table = gSupportedStandards[row];
    if (!table.name) continue;
    Standard standard;
    standard.row = static_cast<int>(row);
    standard.name = table.name;
    unsigned formats[3];
    unsigned len = 3;
    if (capture->GetSupportedFormatsForMode(table.displayMode, formats, &len) != 0) len = 0;
    for (size_t f = 0; f < kSupportedPixelFormatCount; ++f) {
      if (!(table.allowedFormats & (1u << f))) continue;
      uint32_t input = gSupportedPixelFormats[f].codecType;
      if (input != ktnFormat10BitYUV && input != ktnFormat10BitRGB) input = ktnFormat8BitYUV;
      bool deliverable = false;
      for (unsigned i = 0; i < len; ++i) deliverable |= formats[i] == input;
      if (deliverable) standard.formats.push_back({static_cast<int>(f), gSupportedPixelFormats[f].name});
    }
    standards.push_back(standard);
  }
  capture->Unregister();
  capture->Release();
  return 0;
}

std::string CardInfo::Text() const {
  std::string text;
  char line[256];
  if (!model.empty()) text += "Card: " + model + "\n";
  if (modesListed) {
    snprintf(line, sizeof line, "Display modes (%zu):\n", modes.size());
    text += line;
    for (const Mode& mode : modes) {
      snprintf(line, sizeof line, "  %s %-26s %4dx%-4d %7.3f fps\n", mode.code.c_str(), mode.name.c_str(), mode.width,
               mode.height, mode.Fps());
      text += line;
    }
  }
  text += "Recordable formats per standard:\n";
  for (const Standard& standard : standards) {
    std::string list;
    for (const Format& format : standard.formats) list += (list.empty() ? "" : ", ") + format.name;
    snprintf(line, sizeof line, "  %2d %-18s ", standard.row, standard.name.c_str());
    text += line + (list.empty() ? "(not received by this card)" : list) + "\n";
  }
  return text;
}

std::string CardInfo::Json() const {
  Util::JsonWriter json;
  json.BeginObject();
  json.Key("card").StringOrNull(model);
  json.Key("modes").BeginArray();
  for (const Mode& mode : modes) {
    json.BeginObject();
    json.Key("code").String(FourCharacters(mode.code));
    json.Key("name").String(mode.name);
    json.Key("width").Integer(mode.width);
    json.Key("height").Integer(mode.height);
    json.Key("frame_duration").Integer(mode.frameDuration);
    json.Key("timescale").Integer(mode.timescale);
    json.Key("fps").Double(mode.Fps());
    json.EndObject();
  }
  json.EndArray();
  json.Key("standards").BeginArray();
  for (const Standard& standard : standards) {
    json.BeginObject();
    json.Key("row").Integer(standard.row);
    json.Key("name").String(standard.name);
    json.Key("formats").BeginArray();
    for (const Format& format : standard.formats) {
      json.BeginObject().Key("row").Integer(format.row).Key("name").String(format.name).EndObject();
    }
    json.EndArray().EndObject();
  }
  json.EndArray();
  return json.EndObject().Text();
}

int PrintCardInfo(FILE* out, bool json) {
  CardInfo card;
  if (int status = card.Read()) return status;
  fputs(json ? (card.Json() + "\n").c_str() : card.Text().c_str(), out);
  return 0;
}

}  // namespace KTN
