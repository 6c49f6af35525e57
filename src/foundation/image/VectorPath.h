#pragma once

#include <vector>

#include "foundation/image/Bitmap.h"
#include "framework/Value.h"

namespace qva {

// A 2D vector path in pixel coordinates with the origin at the lower-left corner and y growing upward,
// filled (non-zero winding) or stroked (centred on the path) anti-aliased into a bitmap. Coordinates
// are single precision, as the shapes hand them over.
class VectorPath {
 public:
  enum class LineJoin { Miter, Round };

  void moveTo(float x, float y);
  void lineTo(float x, float y);
  void close();
  // The ellipse inscribed in the rectangle.
  void appendOval(float x, float y, float width, float height);
  // The rectangle with elliptical corners; each radius is clamped to half the rectangle's side.
  void appendRoundedRect(float x, float y, float width, float height, float radiusX, float radiusY);

  void setLineJoin(LineJoin join) { lineJoin_ = join; }
  LineJoin lineJoin() const { return lineJoin_; }
  void setLineWidth(double width) { lineWidth_ = width; }
  double lineWidth() const { return lineWidth_; }
  bool isEmpty() const { return operations_.empty(); }
  // Bitmap pixels per path unit (1 unless set): a path drawn at scale 2 covers twice the pixels across.
  void setScale(double scale) { scale_ = scale; }

  // Draws over the bitmap's premultiplied pixels; the colour's components are clamped to 0…1.
  void fill(Bitmap& bitmap, const Color& color) const;
  void stroke(Bitmap& bitmap, const Color& color) const;

 private:
  enum class Kind { Move, Line, Curve, Close };
  struct Operation {
    Kind kind;
    float points[6];
  };
  void curveTo(float x1, float y1, float x2, float y2, float x3, float y3);
  void draw(Bitmap& bitmap, const Color& color, bool strokeIt) const;

  std::vector<Operation> operations_;
  LineJoin lineJoin_ = LineJoin::Miter;
  double lineWidth_ = 1.0;
  double scale_ = 1.0;
};

}  // namespace qva
