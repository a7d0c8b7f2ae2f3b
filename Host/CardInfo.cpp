// What the installed card receives.
#include "Host/CardInfo.h"

#include <stdlib.h>

#include <string>

#include "Capture/APICapture.h"
#include "Capture/VeldranAPILoader.h"
#include "Settings/CaptureTables.h"
#include "Util/Printer.h"

namespace KTN {

int PrintCardInfo(FILE* out) {
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
  char* model = nullptr;
  if (device->GetModelName(&model) == kVeldranOK && model) {
    fprintf(out, "Card: %s\n", model);
    free(model);
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
  IVeldranDisplayMode* modes[APICapture::kMaxDisplayModes];
  unsigned count = APICapture::kMaxDisplayModes;
  if (capture->GetSupportedModes(modes, &count) == 0) {
    fprintf(out, "Display modes (%u):\n", count);
    for (unsigned i = 0; i < count; ++i) {
      int64_t duration = 0, scale = 0;
      modes[i]->GetFrameRate(&duration, &scale);
      char* name = nullptr;
      modes[i]->GetName(&name);
      fprintf(out, "  %s %-26s %4dx%-4d %7.3f fps\n", Util::Printer::Fcc(static_cast<int>(modes[i]->GetDisplayMode())),
              name ? name : "", modes[i]->GetWidth(), modes[i]->GetHeight(),
              duration ? static_cast<double>(scale) / duration : 0.0);
      free(name);
      modes[i]->Release();
    }
  }
  fprintf(out, "Recordable formats per standard:\n");
  for (size_t row = 0; row < kSupportedStandardCount; ++row) {
    const SupportedStandard& standard = gSupportedStandards[row];
    if (!standard.name) continue;
    unsigned formats[3];
    unsigned len = 3;
    if (capture->GetSupportedFormatsForMode(standard.displayMode, formats, &len) != 0) len = 0;
    std::string list;
    for (size_t f = 0; f < kSupportedPixelFormatCount; ++f) {
      if (!(standard.allowedFormats & (1u << f))) continue;
      uint32_t input = gSupportedPixelFormats[f].codecType;
      if (input != ktnFormat10BitYUV && input != ktnFormat10BitRGB) input = ktnFormat8BitYUV;
      bool deliverable = false;
      for (unsigned i = 0; i < len; ++i) deliverable |= formats[i] == input;
      if (!deliverable) continue;
      if (!list.empty()) list += ", ";
      list += gSupportedPixelFormats[f].name;
    }
    fprintf(out, "  %2zu %-18s %s\n", row, standard.name, list.empty() ? "(not received by this card)" : list.c_str());
  }
  capture->Unregister();
  capture->Release();
  return 0;
}

}  // namespace KTN
