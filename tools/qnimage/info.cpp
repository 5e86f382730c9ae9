// qnimage info: what picture files hold.
#include <cstdio>
#include <cstdlib>

#include "qn/platform/text.h"
#include "tools/common/json.h"
#include "tools/common/report.h"
#include "tools/qnimage/command.h"
#include "tools/qnimage/pixel_types.h"
#include "tools/qnimage/source.h"

namespace qnimage {
namespace {

constexpr Option kOptions[] = {
    {"json", nullptr, "print JSON, an array with an object for each file"}, kRawSizeOption, kFourccOption};

struct Texts {
  std::string format;   // in the user's language
  std::string attribs;  // "720x576x24"
};

Texts Describe(const Source& source) {
  WCHAR text[64];
  Texts texts;
  QnVideo_GetFormatText(source.header.biCompression, text, 64);
  texts.format = qn::ToUtf8(text);
  BITMAPINFOHEADER header = source.header;
  header.biHeight = std::abs(header.biHeight);  // whatever the order of its rows
  QnVideo_GetAttribsText(&header, text, 64);
  texts.attribs = qn::ToUtf8(text);
  return texts;
}

int BitsOf(const Source& source) {
  const int storage = QnPixelTypeToBitsPerPixelYUV(source.type);
  return storage != 0 ? storage : QnGetPixelBitsPerChannel(source.type, nullptr);
}

std::string TypeName(const Source& source) {
  const PixelTypeRow* const row = FindPixelType(source.type);
  return row ? row->name : FourccText(source.header.biCompression);
}

std::string CompressionName(DWORD compression) {
  return compression == BI_RGB ? "RGB" : compression == BI_BITFIELDS ? "BITFIELDS" : FourccText(compression);
}

struct Plane {
  std::string name;
  DWORD offset;
  DWORD stride;
};

std::vector<Plane> PlanesOf(const Source& source) {
  const tQNYUVOFFSETS& at = source.planes;
  std::vector<Plane> planes;
  for (const Plane& plane : {Plane{"Y", 0, at.yStride},
                             {at.vStride != 0 ? "U" : "UV", at.uOffset, at.uStride},
                             {"V", at.vOffset, at.vStride},
                             {"A", at.alphaOffset, at.alphaStride}}) {
    if (plane.stride != 0) planes.push_back(plane);
  }
  return planes;
}

void PrintLine(const char* label, const std::string& text) {
  std::printf("  %-12s%s\n", label, text.c_str());
}

void Print(const std::string& name, const Source& source) {
  const Texts texts = Describe(source);
  std::printf("%s\n", Shown(name).c_str());
  PrintLine("Kind", KindName(source.kind));
  PrintLine("Size",
            std::to_string(source.header.biWidth) + "x" + std::to_string(std::abs(source.header.biHeight)));
  PrintLine("Format", texts.format + ", " + texts.attribs);
  PrintLine("Pixel type", std::to_string(source.type) + " (" + TypeName(source) + "), " +
                              std::to_string(BitsOf(source)) + " bits a pixel");
  PrintLine("Rows", source.fromTop ? "from the top" : "from the bottom");
  if (!source.palette.empty()) PrintLine("Palette", std::to_string(source.colours) + " colours");
  if (source.kind != Kind::kRaw) return;
  PrintLine("Frames",
            Message::Number(source.frames).English() + " of " + Message::Bytes(source.frameBytes).English());
  if (source.restBytes != 0) PrintLine("Rest", Message::Bytes(source.restBytes).English());
  for (const Plane& plane : PlanesOf(source)) {
    PrintLine(("Plane " + plane.name).c_str(),
              "at " + std::to_string(plane.offset) + ", rows of " + std::to_string(plane.stride) + " bytes");
  }
}

void WriteColours(JsonWriter* json, const Source& source) {
  json->Number("palette", source.colours);
  json->BeginArray("colours");
  for (size_t i = 0; i < source.colours; ++i) {
    const RGBQUAD& colour = source.palette[i];
    char text[8];
    std::snprintf(text, sizeof(text), "%02x%02x%02x", colour.rgbRed, colour.rgbGreen, colour.rgbBlue);
    json->String("", text);
  }
  json->EndArray();
}

void WritePlanes(JsonWriter* json, const Source& source) {
  json->BeginArray("planes");
  for (const Plane& plane : PlanesOf(source)) {
    json->BeginObject();
    json->String("name", plane.name);
    json->Number("offset", plane.offset);
    json->Number("stride", plane.stride);
    json->EndObject();
  }
  json->EndArray();
}

void Write(JsonWriter* json, const InputFile& file, const Source& source) {
  json->BeginObject();
  json->String("file", file.Name());
  json->Number("fileBytes", file.Size());
  json->String("kind", KindName(source.kind));
  json->Number("width", static_cast<uint64_t>(source.header.biWidth));
  json->Number("height", static_cast<uint64_t>(std::abs(source.header.biHeight)));
  json->Number("compression", source.header.biCompression);
  json->String("compressionName", CompressionName(source.header.biCompression));
  json->Number("pixelType", static_cast<uint64_t>(source.type));
  json->String("type", TypeName(source));
  json->Number("bits", static_cast<uint64_t>(BitsOf(source)));
  json->String("rows", source.fromTop ? "top" : "bottom");
  if (!source.palette.empty()) WriteColours(json, source);
  if (source.kind == Kind::kRaw) {
    json->Number("frames", source.frames);
    json->Number("frameBytes", source.frameBytes);
    json->Number("restBytes", source.restBytes);
    WritePlanes(json, source);
  }
  json->EndObject();
}

int Run(const Arguments& arguments) {
  if (arguments.Operands().empty()) {
    ReportUsage("info", "no file is given");
    return kExitUsage;
  }
  RawFormat format;
  if (!ReadRawSource("info", arguments, &format) ||
      !HasRawForItsOptions("info", arguments, format.width != 0, false))
    return kExitUsage;
  const bool asJson = arguments.Has("json");
  JsonWriter json;
  json.BeginArray();
  bool failed = false, first = true;
  for (const std::string& name : arguments.Operands()) {
    if (std::ferror(stdout)) break;  // nobody reads on
    InputFile file;
    Source source;
    if (!file.Open(name) || !ReadSource(file, &format, &source, nullptr)) {
      failed = true;
      continue;
    }
    if (asJson) {
      Write(&json, file, source);
    } else {
      if (!first) std::printf("\n");
      Print(name, source);
    }
    first = false;
  }
  json.EndArray();
  if (asJson) std::fputs(json.Text().c_str(), stdout);
  return failed ? kExitFailed : kExitOk;
}

}  // namespace

const Command kInfoCommand = {
    "info",
    "FILE...",
    "Show kind, size and pixel type of pictures.",
    "Files of raw frames need --size and --fourcc; their frames are counted, and their planes shown.",
    kOptions,
    Run,
};

}  // namespace qnimage
