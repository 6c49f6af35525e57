#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "foundation/gl/AsyncReadback.h"
#include "foundation/gl/Framebuffer.h"
#include "foundation/gl/GLContext.h"
#include "framework/ExecutionContext.h"

namespace qva {

// The host's drawing: one GL context and a canvas framebuffer of the output's size, in composition
// units from -1 to 1 across and -H/W to H/W up. The composition's canvas width in logical pixels spans
// the output's width, whatever its pixel count: patches see the logical viewport and the output scale. Each
// frame clears the canvas to the background, lets the consumers draw, and reads the pixels back as
// premultiplied BGRA, top row first. The canvas gets a depth buffer when a patch first asks the context for
// one, and keeps it cleared every frame after.
class Renderer {
 public:
  struct Creation {
    std::unique_ptr<Renderer> renderer;
    std::string error;
  };

  static Creation create(int width, int height,
                         GLContext::Platform platform = GLContext::Platform::Offscreen);
  // A renderer over a context made elsewhere.
  static Creation create(std::unique_ptr<GLContext> gl, int width, int height);

  // Makes the renderer's context current, so that its canvas goes with the context it was made in.
  ~Renderer();
  Renderer(const Renderer&) = delete;
  Renderer& operator=(const Renderer&) = delete;

  GLContext& gl() { return *gl_; }
  int width() const { return width_; }
  int height() const { return height_; }
  // The canvas's colour texture, whose first row is the frame's top one.
  TextureView canvasTexture() const { return canvas_.texture(); }
  // The composition's canvas width in logical pixels (the output's width unless set); a width that is
  // not positive leaves it.
  void setLogicalWidth(int logicalWidth);
  // Output pixels per logical pixel.
  double outputScale() const { return static_cast<double>(width_) / logicalWidth_; }
  // The output in logical pixels: the logical width, and the output's height at that scale.
  PixelSize logicalViewport() const;
  // (-1, -H/W, 2, 2H/W).
  Rect bounds() const;

  // Binds the canvas, sets viewport and projection, clears it, and points the context at the canvas
  // (and its depth requests at provideDepth()).
  void beginFrame(ExecutionContext& context, const Color& background);
  // beginFrame without the clear, with the given bounds mapped over the whole canvas (x to the right, y
  // up): what was drawn before stays.
  void prepareFrame(ExecutionContext& context, const Rect& bounds);
  // Clears the bound canvas to a colour given with straight alpha, and its depth buffer, if it has one,
  // to the far value.
  void clear(const Color& background);
  // Reads the canvas as premultiplied BGRA.
  void readFrame(std::uint8_t* bytes, std::size_t rowBytes);
  // Starts reading the canvas into the next buffer of readback, made for the canvas's size.
  void beginRead(AsyncReadback& readback);
  // Attaches and clears the canvas's depth buffer if it has none yet.
  void provideDepth();

 private:
  Renderer(std::unique_ptr<GLContext> gl, Framebuffer canvas, int width, int height);

  std::unique_ptr<GLContext> gl_;
  Framebuffer canvas_;
  int width_;
  int height_;
  int logicalWidth_;
  // Clear the canvas by filling its texture instead of with glClear.
  bool fillToClear_;
};

}  // namespace qva
