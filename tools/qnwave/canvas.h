// A picture to draw on, PNG or SVG, in units that a factor turns into pixels.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "qn/platform/types.h"

namespace qnwave {

enum class PictureKind { kPng, kSvg };

// The most pixels of a side that the drawing library has coordinates for.
constexpr uint32_t kMostPixels = 32767;

struct TextStyle {
  double size = 11;
  bool bold = false;
  uint32_t colour = 0;
};

enum class Align { kLeft, kCentre, kRight };

// Takes the bytes of a picture.
class [[gnu::visibility("default")]] PictureWriter {
 public:
  virtual HRESULT Write(const uint8_t* bytes, size_t count) = 0;

 protected:
  ~PictureWriter() = default;
};

class [[gnu::visibility("default")]] Canvas {
 public:
  virtual ~Canvas() = default;

  // Tells of a picture that cannot be made.
  virtual HRESULT Status() const = 0;

  virtual double Width() const = 0;
  virtual double Height() const = 0;
  virtual double Factor() const = 0;

  // The nearest edge between two pixels.
  virtual double Snap(double at) const = 0;

  // Rectangles are filled together: Add any number, then Fill.
  virtual void AddRectangle(double x, double y, double width, double height) = 0;
  virtual void AddDot(double x, double y, double radius) = 0;
  virtual void Fill(uint32_t colour, double opacity = 1) = 0;

  virtual void MoveTo(double x, double y) = 0;
  virtual void LineTo(double x, double y) = 0;
  virtual void Stroke(uint32_t colour, double width) = 0;

  // Pixels, 0xRRGGBB in rows of `columns` from the top on, each a sharp part of the rectangle.
  virtual void Image(double x, double y, double width, double height, std::span<const uint32_t> pixels,
                     uint32_t columns) = 0;

  // From here to Unclip nothing is drawn outside of a rectangle.
  virtual void Clip(double x, double y, double width, double height) = 0;
  virtual void Unclip() = 0;

  virtual double TextWidth(const std::string& text, const TextStyle& style) = 0;
  // A line of text whose middle stands at `y`; one wider than `mostWidth` loses its middle. Its width.
  virtual double Text(double x, double y, const std::string& text, const TextStyle& style,
                      Align align = Align::kLeft, double mostWidth = 1e9) = 0;

  // Writes the picture.
  virtual HRESULT Finish() = 0;
};

// Makes a canvas; the writer is there until Finish.
using MakeCanvasFunction = Canvas*(PictureKind kind, double width, double height, double factor,
                                   PictureWriter* writer);

// The name of that function in the module that draws. The libraries of pictures and fonts take longer to load
// than most commands run, so the module has them to itself, and only what draws loads it.
constexpr char kMakeCanvasName[] = "QnwaveMakeCanvas";

// The module's canvas; null, and that is reported, when there is no module.
std::unique_ptr<Canvas> MakeCanvas(PictureKind kind, double width, double height, double factor,
                                   PictureWriter* writer);

}  // namespace qnwave
