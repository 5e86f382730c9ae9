// A picture to draw on, PNG or SVG, in units that a factor turns into pixels.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "qn/platform/types.h"
#include "tools/common/output_file.h"

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

class Canvas {
 public:
  // The output file is there until Finish. A picture that cannot be made shows in Status.
  Canvas(PictureKind kind, double width, double height, double factor, qntool::OutputFile* output);
  ~Canvas();

  HRESULT Status() const;

  double Width() const { return width_; }
  double Height() const { return height_; }
  double Factor() const { return factor_; }

  // The nearest edge between two pixels.
  double Snap(double at) const;

  // Rectangles are filled together: Add any number, then Fill.
  void AddRectangle(double x, double y, double width, double height);
  void AddDot(double x, double y, double radius);
  void Fill(uint32_t colour, double opacity = 1);

  void MoveTo(double x, double y);
  void LineTo(double x, double y);
  void Stroke(uint32_t colour, double width);

  // From here to Unclip nothing is drawn outside of a rectangle.
  void Clip(double x, double y, double width, double height);
  void Unclip();

  double TextWidth(const std::string& text, const TextStyle& style);
  // A line of text whose middle stands at `y`; one wider than `mostWidth` loses its middle. Its width.
  double Text(double x, double y, const std::string& text, const TextStyle& style, Align align = Align::kLeft,
              double mostWidth = 1e9);

  // Writes the picture; the output is still to be committed.
  HRESULT Finish();

 private:
  struct Backend;

  void SetColour(uint32_t colour, double opacity);
  void SetText(const std::string& text, const TextStyle& style, double mostWidth);

  double width_;
  double height_;
  double factor_;
  std::unique_ptr<Backend> backend_;
};

}  // namespace qnwave
