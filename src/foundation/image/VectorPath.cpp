#include "foundation/image/VectorPath.h"

#include <cairo.h>

#include <algorithm>

namespace qva {

namespace {

// Control-point distance of a cubic Bézier quarter ellipse, as a fraction of the radius.
constexpr float kappa = 0.5522847498f;
// Cairo's image surfaces are limited to 32767 pixels a side; larger bitmaps are drawn in tiles.
constexpr int tileSize = 16384;

}  // namespace

void VectorPath::moveTo(float x, float y) {
  operations_.push_back({Kind::Move, {x, y, 0, 0, 0, 0}});
}

void VectorPath::lineTo(float x, float y) {
  operations_.push_back({Kind::Line, {x, y, 0, 0, 0, 0}});
}

void VectorPath::curveTo(float x1, float y1, float x2, float y2, float x3, float y3) {
  operations_.push_back({Kind::Curve, {x1, y1, x2, y2, x3, y3}});
}

void VectorPath::close() {
  operations_.push_back({Kind::Close, {0, 0, 0, 0, 0, 0}});
}

void VectorPath::appendOval(float x, float y, float width, float height) {
  const float rx = width / 2;
  const float ry = height / 2;
  const float cx = x + rx;
  const float cy = y + ry;
  const float kx = rx * kappa;
  const float ky = ry * kappa;
  moveTo(cx + rx, cy);
  curveTo(cx + rx, cy + ky, cx + kx, cy + ry, cx, cy + ry);
  curveTo(cx - kx, cy + ry, cx - rx, cy + ky, cx - rx, cy);
  curveTo(cx - rx, cy - ky, cx - kx, cy - ry, cx, cy - ry);
  curveTo(cx + kx, cy - ry, cx + rx, cy - ky, cx + rx, cy);
  close();
}

void VectorPath::appendRoundedRect(float x, float y, float width, float height, float radiusX,
                                   float radiusY) {
  const float rx = std::clamp(radiusX, 0.0f, std::max(width / 2, 0.0f));
  const float ry = std::clamp(radiusY, 0.0f, std::max(height / 2, 0.0f));
  const float right = x + width;
  const float top = y + height;
  if (rx <= 0 || ry <= 0) {
    moveTo(x, y);
    lineTo(right, y);
    lineTo(right, top);
    lineTo(x, top);
    close();
    return;
  }
  const float kx = rx * kappa;
  const float ky = ry * kappa;
  moveTo(x + rx, y);
  lineTo(right - rx, y);
  curveTo(right - rx + kx, y, right, y + ry - ky, right, y + ry);
  lineTo(right, top - ry);
  curveTo(right, top - ry + ky, right - rx + kx, top, right - rx, top);
  lineTo(x + rx, top);
  curveTo(x + rx - kx, top, x, top - ry + ky, x, top - ry);
  lineTo(x, y + ry);
  curveTo(x, y + ry - ky, x + rx - kx, y, x + rx, y);
  close();
}

void VectorPath::fill(Bitmap& bitmap, const Color& color) const {
  draw(bitmap, color, false);
}

void VectorPath::stroke(Bitmap& bitmap, const Color& color) const {
  draw(bitmap, color, true);
}

void VectorPath::draw(Bitmap& bitmap, const Color& color, bool strokeIt) const {
  if (operations_.empty() || bitmap.width() <= 0 || bitmap.height() <= 0) {
    return;
  }
  const int height = bitmap.height();
  for (int top = 0; top < height; top += tileSize) {
    for (int left = 0; left < bitmap.width(); left += tileSize) {
      const int tileWidth = std::min(tileSize, bitmap.width() - left);
      const int tileHeight = std::min(tileSize, height - top);
      cairo_surface_t* surface = cairo_image_surface_create_for_data(
          bitmap.row(top) + static_cast<std::size_t>(left) * 4, CAIRO_FORMAT_ARGB32, tileWidth, tileHeight,
          static_cast<int>(bitmap.rowBytes()));
      cairo_t* cr = cairo_create(surface);
      // Page coordinates are y-up from the bitmap's lower-left corner.
      cairo_translate(cr, -left, height - top);
      cairo_scale(cr, scale_, -scale_);
      for (const Operation& operation : operations_) {
        const float* p = operation.points;
        switch (operation.kind) {
          case Kind::Move:
            cairo_move_to(cr, p[0], p[1]);
            break;
          case Kind::Line:
            cairo_line_to(cr, p[0], p[1]);
            break;
          case Kind::Curve:
            cairo_curve_to(cr, p[0], p[1], p[2], p[3], p[4], p[5]);
            break;
          case Kind::Close:
            cairo_close_path(cr);
            break;
        }
      }
      cairo_set_source_rgba(cr, color.red, color.green, color.blue, color.alpha);
      if (strokeIt) {
        cairo_set_line_width(cr, lineWidth_);
        cairo_set_line_join(cr, lineJoin_ == LineJoin::Round ? CAIRO_LINE_JOIN_ROUND : CAIRO_LINE_JOIN_MITER);
        cairo_set_miter_limit(cr, 10.0);
        cairo_stroke(cr);
      } else {
        cairo_set_fill_rule(cr, CAIRO_FILL_RULE_WINDING);
        cairo_fill(cr);
      }
      cairo_destroy(cr);
      cairo_surface_flush(surface);
      cairo_surface_destroy(surface);
    }
  }
}

}  // namespace qva
