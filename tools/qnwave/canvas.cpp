#include "tools/qnwave/canvas.h"

#include <cairo-svg.h>
#include <pango/pangocairo.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>

#include "qn/settings/qnstatus.h"
#include "tools/common/failure.h"

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

}  // namespace

struct Canvas::Backend {
  static cairo_status_t Write(void* self, const unsigned char* bytes, unsigned int count);

  PictureKind kind;
  qntool::OutputFile& output;
  HRESULT writeFailure = S_OK;
  std::unique_ptr<cairo_surface_t, Destroy> surface;
  std::unique_ptr<cairo_t, Destroy> cairo;
  std::unique_ptr<PangoLayout, Destroy> layout;
};

cairo_status_t Canvas::Backend::Write(void* self, const unsigned char* bytes, unsigned int count) {
  Backend& backend = *static_cast<Backend*>(self);
  while (count > 0) {
    const ssize_t written = write(backend.output.Descriptor(), bytes, count);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      backend.writeFailure = qntool::StatusFromErrno(QN_E_FILE_WRITE);
      return CAIRO_STATUS_WRITE_ERROR;
    }
    bytes += written;
    count -= static_cast<unsigned int>(written);
  }
  return CAIRO_STATUS_SUCCESS;
}

Canvas::Canvas(PictureKind kind, double width, double height, double factor, qntool::OutputFile* output)
    : width_(width),
      height_(height),
      factor_(factor),
      backend_(new Backend{kind, *output, S_OK, {}, {}, {}}) {
  Backend& backend = *backend_;
  const auto pixels = [factor](double units) { return static_cast<int>(std::lround(units * factor)); };
  if (kind == PictureKind::kPng) {
    backend.surface.reset(cairo_image_surface_create(CAIRO_FORMAT_RGB24, pixels(width), pixels(height)));
  } else {
    backend.surface.reset(cairo_svg_surface_create_for_stream(Backend::Write, &backend, width, height));
    cairo_svg_surface_set_document_unit(backend.surface.get(), CAIRO_SVG_UNIT_PX);
  }
  backend.cairo.reset(cairo_create(backend.surface.get()));
  if (kind == PictureKind::kPng) cairo_scale(backend.cairo.get(), factor, factor);
  backend.layout.reset(pango_cairo_create_layout(backend.cairo.get()));
  pango_layout_set_single_paragraph_mode(backend.layout.get(), 1);
}

Canvas::~Canvas() = default;

HRESULT Canvas::Status() const {
  const HRESULT status = StatusOf(cairo_surface_status(backend_->surface.get()));
  return status != S_OK ? status : StatusOf(cairo_status(backend_->cairo.get()));
}

double Canvas::Snap(double at) const {
  return std::round(at * factor_) / factor_;
}

void Canvas::AddRectangle(double x, double y, double width, double height) {
  cairo_rectangle(backend_->cairo.get(), x, y, width, height);
}

void Canvas::AddDot(double x, double y, double radius) {
  cairo_new_sub_path(backend_->cairo.get());
  cairo_arc(backend_->cairo.get(), x, y, radius, 0, 2 * M_PI);
  cairo_close_path(backend_->cairo.get());
}

void Canvas::MoveTo(double x, double y) {
  cairo_move_to(backend_->cairo.get(), x, y);
}

void Canvas::LineTo(double x, double y) {
  cairo_line_to(backend_->cairo.get(), x, y);
}

void Canvas::SetColour(uint32_t colour, double opacity) {
  const auto part = [&](int shift) { return static_cast<double>(colour >> shift & 0xFF) / 255; };
  cairo_set_source_rgba(backend_->cairo.get(), part(16), part(8), part(0), opacity);
}

void Canvas::Fill(uint32_t colour, double opacity) {
  SetColour(colour, opacity);
  cairo_fill(backend_->cairo.get());
}

void Canvas::Stroke(uint32_t colour, double width) {
  SetColour(colour, 1);
  cairo_set_line_width(backend_->cairo.get(), width);
  cairo_set_line_join(backend_->cairo.get(), CAIRO_LINE_JOIN_ROUND);
  cairo_stroke(backend_->cairo.get());
}

void Canvas::Clip(double x, double y, double width, double height) {
  cairo_save(backend_->cairo.get());
  AddRectangle(x, y, width, height);
  cairo_clip(backend_->cairo.get());
}

void Canvas::Unclip() {
  cairo_restore(backend_->cairo.get());
}

void Canvas::SetText(const std::string& text, const TextStyle& style, double mostWidth) {
  PangoFontDescription* const font = pango_font_description_from_string("DejaVu Sans, Sans");
  pango_font_description_set_absolute_size(font, style.size * PANGO_SCALE);
  pango_font_description_set_weight(font, style.bold ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_NORMAL);
  pango_layout_set_font_description(backend_->layout.get(), font);
  pango_font_description_free(font);
  pango_layout_set_width(backend_->layout.get(), -1);
  pango_layout_set_text(backend_->layout.get(), text.data(), static_cast<int>(text.size()));
  int width = 0;
  pango_layout_get_size(backend_->layout.get(), &width, nullptr);
  if (width <= mostWidth * PANGO_SCALE) return;
  pango_layout_set_ellipsize(backend_->layout.get(), PANGO_ELLIPSIZE_MIDDLE);
  pango_layout_set_width(backend_->layout.get(), static_cast<int>(mostWidth * PANGO_SCALE));
}

double Canvas::TextWidth(const std::string& text, const TextStyle& style) {
  SetText(text, style, 1e6);
  int width = 0;
  pango_layout_get_size(backend_->layout.get(), &width, nullptr);
  return static_cast<double>(width) / PANGO_SCALE;
}

double Canvas::Text(double x, double y, const std::string& text, const TextStyle& style, Align align,
                    double mostWidth) {
  SetText(text, style, mostWidth);
  int width = 0;
  int height = 0;
  pango_layout_get_size(backend_->layout.get(), &width, &height);
  const double shown = static_cast<double>(width) / PANGO_SCALE;
  const double left = align == Align::kLeft ? x : align == Align::kCentre ? x - shown / 2 : x - shown;
  SetColour(style.colour, 1);
  MoveTo(Snap(left), Snap(y - static_cast<double>(height) / PANGO_SCALE / 2));
  pango_cairo_show_layout(backend_->cairo.get(), backend_->layout.get());
  cairo_new_path(backend_->cairo.get());
  return shown;
}

HRESULT Canvas::Finish() {
  HRESULT status = Status();
  if (status == S_OK) {
    if (backend_->kind == PictureKind::kPng) {
      cairo_surface_flush(backend_->surface.get());
      status = StatusOf(
          cairo_surface_write_to_png_stream(backend_->surface.get(), Backend::Write, backend_.get()));
    } else {
      cairo_surface_finish(backend_->surface.get());
      status = StatusOf(cairo_surface_status(backend_->surface.get()));
    }
  }
  return backend_->writeFailure != S_OK ? backend_->writeFailure : status;
}

}  // namespace qnwave

#if defined(__SANITIZE_ADDRESS__)
// The font libraries keep what they know of the system's fonts to the end of the process.
extern "C" [[gnu::visibility("default")]] const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libfontconfig.so\nleak:libpango\nleak:libcairo.so\nleak:libglib-2.0.so\n";
}
#endif
