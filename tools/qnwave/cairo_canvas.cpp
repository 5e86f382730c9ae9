// The canvas of the module that draws.
#include "tools/qnwave/canvas.h"

#include <cairo-svg.h>
#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>

#include "qn/settings/qnstatus.h"

namespace qnwave {
namespace {

HRESULT StatusOf(cairo_status_t status) {
  switch (status) {
    case CAIRO_STATUS_SUCCESS:
      return S_OK;
    case CAIRO_STATUS_NO_MEMORY:
      return E_OUTOFMEMORY;
    case CAIRO_STATUS_WRITE_ERROR:
      return QN_E_FILE_WRITE;
    default:
      return E_FAIL;
  }
}

struct Destroy {
  void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
  void operator()(cairo_t* cairo) const { cairo_destroy(cairo); }
  void operator()(PangoLayout* layout) const { g_object_unref(layout); }
};

class CairoCanvas final : public Canvas {
 public:
  CairoCanvas(PictureKind kind, double width, double height, double factor, PictureWriter* writer);

  HRESULT Status() const override;
  double Width() const override { return width_; }
  double Height() const override { return height_; }
  double Factor() const override { return factor_; }
  double Snap(double at) const override;
  void AddRectangle(double x, double y, double width, double height) override;
  void AddDot(double x, double y, double radius) override;
  void Fill(uint32_t colour, double opacity) override;
  void MoveTo(double x, double y) override;
  void LineTo(double x, double y) override;
  void Stroke(uint32_t colour, double width) override;
  void Image(double x, double y, double width, double height, std::span<const uint32_t> pixels,
             uint32_t columns) override;
  void Clip(double x, double y, double width, double height) override;
  void Unclip() override;
  double TextWidth(const std::string& text, const TextStyle& style) override;
  double Text(double x, double y, const std::string& text, const TextStyle& style, Align align,
              double mostWidth) override;
  HRESULT Finish() override;

 private:
  static cairo_status_t Write(void* self, const unsigned char* bytes, unsigned int count);
  void SetColour(uint32_t colour, double opacity);
  void SetText(const std::string& text, const TextStyle& style, double mostWidth);

  const PictureKind kind_;
  const double width_;
  const double height_;
  const double factor_;
  PictureWriter& writer_;
  HRESULT writeFailure_ = S_OK;
  std::unique_ptr<cairo_surface_t, Destroy> surface_;
  std::unique_ptr<cairo_t, Destroy> cairo_;
  std::unique_ptr<PangoLayout, Destroy> layout_;
};

cairo_status_t CairoCanvas::Write(void* self, const unsigned char* bytes, unsigned int count) {
  auto& canvas = *static_cast<CairoCanvas*>(self);
  canvas.writeFailure_ = canvas.writer_.Write(bytes, count);
  return canvas.writeFailure_ == S_OK ? CAIRO_STATUS_SUCCESS : CAIRO_STATUS_WRITE_ERROR;
}

CairoCanvas::CairoCanvas(PictureKind kind, double width, double height, double factor, PictureWriter* writer)
    : kind_(kind), width_(width), height_(height), factor_(factor), writer_(*writer) {
  const auto pixels = [factor](double units) { return static_cast<int>(std::lround(units * factor)); };
  if (kind == PictureKind::kPng) {
    surface_.reset(cairo_image_surface_create(CAIRO_FORMAT_RGB24, pixels(width), pixels(height)));
  } else {
    surface_.reset(cairo_svg_surface_create_for_stream(Write, this, width, height));
    cairo_svg_surface_set_document_unit(surface_.get(), CAIRO_SVG_UNIT_PX);
  }
  cairo_.reset(cairo_create(surface_.get()));
  if (kind == PictureKind::kPng) cairo_scale(cairo_.get(), factor, factor);
  layout_.reset(pango_cairo_create_layout(cairo_.get()));
  pango_layout_set_single_paragraph_mode(layout_.get(), 1);
}

HRESULT CairoCanvas::Status() const {
  const HRESULT status = StatusOf(cairo_surface_status(surface_.get()));
  return status != S_OK ? status : StatusOf(cairo_status(cairo_.get()));
}

double CairoCanvas::Snap(double at) const {
  return std::round(at * factor_) / factor_;
}

void CairoCanvas::AddRectangle(double x, double y, double width, double height) {
  cairo_rectangle(cairo_.get(), x, y, width, height);
}

void CairoCanvas::AddDot(double x, double y, double radius) {
  cairo_new_sub_path(cairo_.get());
  cairo_arc(cairo_.get(), x, y, radius, 0, 2 * M_PI);
  cairo_close_path(cairo_.get());
}

void CairoCanvas::MoveTo(double x, double y) {
  cairo_move_to(cairo_.get(), x, y);
}

void CairoCanvas::LineTo(double x, double y) {
  cairo_line_to(cairo_.get(), x, y);
}

void CairoCanvas::SetColour(uint32_t colour, double opacity) {
  const auto part = [&](int shift) { return static_cast<double>(colour >> shift & 0xFF) / 255; };
  cairo_set_source_rgba(cairo_.get(), part(16), part(8), part(0), opacity);
}

void CairoCanvas::Fill(uint32_t colour, double opacity) {
  SetColour(colour, opacity);
  cairo_fill(cairo_.get());
}

void CairoCanvas::Stroke(uint32_t colour, double width) {
  SetColour(colour, 1);
  cairo_set_line_width(cairo_.get(), width);
  cairo_set_line_join(cairo_.get(), CAIRO_LINE_JOIN_ROUND);
  cairo_stroke(cairo_.get());
}

void CairoCanvas::Image(double x, double y, double width, double height, std::span<const uint32_t> pixels,
                        uint32_t columns) {
  const auto rows = static_cast<uint32_t>(pixels.size() / columns);
  const std::unique_ptr<cairo_surface_t, Destroy> image(
      cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(columns), static_cast<int>(rows)));
  uint8_t* const to = cairo_image_surface_get_data(image.get());
  const auto stride = static_cast<size_t>(cairo_image_surface_get_stride(image.get()));
  for (uint32_t row = 0; to && row < rows; ++row)
    std::copy_n(pixels.data() + size_t{row} * columns, columns,
                reinterpret_cast<uint32_t*>(to + row * stride));
  cairo_surface_mark_dirty(image.get());
  cairo_save(cairo_.get());
  cairo_translate(cairo_.get(), x, y);
  cairo_scale(cairo_.get(), width / columns, height / rows);
  cairo_set_source_surface(cairo_.get(), image.get(), 0, 0);
  cairo_pattern_set_filter(cairo_get_source(cairo_.get()), CAIRO_FILTER_NEAREST);
  cairo_rectangle(cairo_.get(), 0, 0, columns, rows);
  cairo_fill(cairo_.get());
  cairo_restore(cairo_.get());
}

void CairoCanvas::Clip(double x, double y, double width, double height) {
  cairo_save(cairo_.get());
  AddRectangle(x, y, width, height);
  cairo_clip(cairo_.get());
}

void CairoCanvas::Unclip() {
  cairo_restore(cairo_.get());
}

void CairoCanvas::SetText(const std::string& text, const TextStyle& style, double mostWidth) {
  PangoFontDescription* const font = pango_font_description_from_string("DejaVu Sans, Sans");
  pango_font_description_set_absolute_size(font, style.size * PANGO_SCALE);
  pango_font_description_set_weight(font, style.bold ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_NORMAL);
  pango_layout_set_font_description(layout_.get(), font);
  pango_font_description_free(font);
  pango_layout_set_width(layout_.get(), -1);
  pango_layout_set_text(layout_.get(), text.data(), static_cast<int>(text.size()));
  int width = 0;
  pango_layout_get_size(layout_.get(), &width, nullptr);
  if (width <= mostWidth * PANGO_SCALE) return;
  pango_layout_set_ellipsize(layout_.get(), PANGO_ELLIPSIZE_MIDDLE);
  pango_layout_set_width(layout_.get(), static_cast<int>(mostWidth * PANGO_SCALE));
}

double CairoCanvas::TextWidth(const std::string& text, const TextStyle& style) {
  SetText(text, style, 1e6);
  int width = 0;
  pango_layout_get_size(layout_.get(), &width, nullptr);
  return static_cast<double>(width) / PANGO_SCALE;
}

double CairoCanvas::Text(double x, double y, const std::string& text, const TextStyle& style, Align align,
                         double mostWidth) {
  SetText(text, style, mostWidth);
  int width = 0;
  int height = 0;
  pango_layout_get_size(layout_.get(), &width, &height);
  const double shown = static_cast<double>(width) / PANGO_SCALE;
  const double left = align == Align::kLeft ? x : align == Align::kCentre ? x - shown / 2 : x - shown;
  SetColour(style.colour, 1);
  MoveTo(Snap(left), Snap(y - static_cast<double>(height) / PANGO_SCALE / 2));
  pango_cairo_show_layout(cairo_.get(), layout_.get());
  cairo_new_path(cairo_.get());
  return shown;
}

HRESULT CairoCanvas::Finish() {
  HRESULT status = Status();
  if (status == S_OK) {
    if (kind_ == PictureKind::kPng) {
      cairo_surface_flush(surface_.get());
      status = StatusOf(cairo_surface_write_to_png_stream(surface_.get(), Write, this));
    } else {
      cairo_surface_finish(surface_.get());
      status = StatusOf(cairo_surface_status(surface_.get()));
    }
  }
  return writeFailure_ != S_OK ? writeFailure_ : status;
}

}  // namespace
}  // namespace qnwave

extern "C" [[gnu::visibility("default")]] qnwave::MakeCanvasFunction QnwaveMakeCanvas;
extern "C" qnwave::Canvas* QnwaveMakeCanvas(qnwave::PictureKind kind, double width, double height,
                                            double factor, qnwave::PictureWriter* writer) {
  return new qnwave::CairoCanvas(kind, width, height, factor, writer);
}
