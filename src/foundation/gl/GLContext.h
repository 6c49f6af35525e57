#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "framework/Image.h"

namespace qva {

// The host's OpenGL context: one EGL context without a window surface (on Mesa's surfaceless platform or
// the first EGL device, or on the window system's display) with a desktop compatibility profile, current
// on the thread that created it. It also converts images between their representations, keeping each
// result with the image.
class GLContext {
 public:
  // Where the context is made. Only contexts of one EGL display share textures, so a context that
  // shows frames in a window on the user's screen needs the host's context made on that screen's
  // display; without a window, no display server is needed.
  enum class Platform {
    Offscreen,
    // X11, on the display DISPLAY names.
    WindowSystem,
  };

  struct Creation {
    std::unique_ptr<GLContext> context;
    // Why there is no context: names what is missing.
    std::string error;
  };

  // Makes the context current on the calling thread; destroying it makes the context that was current
  // before current again. On two processors or fewer, Mesa's software rasterizer draws in the calling
  // thread rather than in threads of its own, unless LP_NUM_THREADS says otherwise.
  static Creation create(Platform platform = Platform::Offscreen);
  ~GLContext();
  GLContext(const GLContext&) = delete;
  GLContext& operator=(const GLContext&) = delete;

  bool makeCurrent();
  // The EGL display and context, for contexts made to share this one's textures.
  void* eglDisplay() const { return display_; }
  void* eglContext() const { return context_; }
  // "renderer, version" as the driver reports them.
  const std::string& description() const { return description_; }
  // Whether the driver draws on the processor (Mesa's llvmpipe or softpipe), where some paths cost
  // differently than they do on a GPU.
  bool drawsOnProcessor() const;

  // The image as a texture: its own, or else one of the given kind, made once and kept with the image:
  // an upload of its pixels (first row at the top) or a rendering of a drawn image. Nothing for an
  // image of no pixels or when drawing fails.
  std::optional<TextureView> textureForImage(const Image& image,
                                             TextureTarget target = TextureTarget::Rectangle);
  // The image's pixels: its own, or read back from its texture or drawing.
  std::optional<PixelBufferView> pixelsForImage(const Image& image);
  // Draws an image that renders every pixel once (Image::rendersEveryPixelOnce) straight into the bound
  // framebuffer, over the window rectangle of its own size whose lower-left pixel is (x, y), mirrored
  // and upside down as asked, with the blending the caller set: the pixels that drawing its texture
  // there with nearest sampling gives, without making the texture. False for other images, places
  // beyond the driver's viewports, and drawing that fails.
  bool renderImageInPlace(const Image& image, int x, int y, bool mirrored, bool upsideDown);

  // Binds a texture to a texture unit and enables its target, with a texture matrix under which (0, 0)
  // is the image's lower-left corner and (1, 1) its upper-right one (with normalizedCoordinates; texel
  // units otherwise), whichever way the texture is stored.
  static void bindTexture(const TextureView& texture, unsigned unit, bool normalizedCoordinates);
  static void unbindTexture(const TextureView& texture, unsigned unit);
  static unsigned glTarget(TextureTarget target);
  // Sets the colour that textured drawing is multiplied by (the current colour with the modulate
  // texture function). White leaves the texture as it is, so then the texture replaces the colour
  // instead: the same pixels, and the software rasterizer no longer interpolates the colour at every
  // pixel, which costs a fifth of a textured quad.
  static void tintTexturing(double red, double green, double blue, double alpha);
  // Whether drawing wholly transparent pixels (premultiplied zero) leaves the bound framebuffer as it is
  // under the current state: blending that adds the source to the destination kept whole or scaled by
  // one minus the source's alpha (over and add), no logic operation, no stencil test and no depth
  // writes. Then a drawing may leave out its transparent parts.
  static bool drawsNothingWhereTransparent();
  // Gives the texture bound to the target width × height texels of 8 bits a channel: the given
  // premultiplied BGRA words (rows of width words), or undefined content for null. Unsized RGBA with
  // BGRA words lets the driver store BGRA, so uploads and reads as BGRA are plain copies and Mesa's
  // fast path for textured quads can read the texture; a sized RGBA8 request gets RGBA storage.
  static void specifyTexture(unsigned target, int width, int height, const void* bgra);
  // Gives the texture what the textures the context makes start with: linear filtering without
  // mipmaps, edges clamped. The texture bound before stays bound.
  static void resetSampling(const TextureView& texture);

  // A program of the two GLSL texts, compiled and linked once and kept as long as the context; 0 when
  // the driver refuses them.
  unsigned program(const std::string& vertexSource, const std::string& fragmentSource);
  // A program that draws the texture of the target on unit 0 (sampler uniform "image") at unit 0's
  // transformed texture coordinates, multiplied by the uniform vec4 "tint" when tinted: the pixels of
  // fixed-function texturing with the replace or modulate function. Mesa's software rasterizer has a
  // fast path for axis-aligned quads whose fragment shader only reads a 2D BGRA texture (nearest or
  // linear, no mipmaps) and perhaps multiplies it by a uniform; fixed-function shaders never qualify,
  // and the multiply costs that path a third more.
  unsigned texturingProgram(TextureTarget target, bool tinted);

  // Errors pending in the context, cleared; 0 when there was none.
  static unsigned takeError();

 private:
  class Converted;
  class SpareTextures;
  GLContext(void* display, void* context, std::string description);
  struct Binding {
    void* display = nullptr;
    void* context = nullptr;
    void* drawSurface = nullptr;
    void* readSurface = nullptr;
  };
  Converted& converted(const Image& image);
  // Lets the image draw itself into the viewport with the projection scaled by the given signs.
  bool renderImage(const Image& image, double xSign, double ySign);

  void* display_;
  void* context_;
  std::string description_;
  Binding previous_;
  // The window system's connection, when the context is on one.
  std::shared_ptr<void> connection_;
  // Textures of drawn images that have gone, for the next ones to draw into: a crawl makes a new image
  // every frame. Cached textures of images that outlive the context find it gone.
  std::shared_ptr<SpareTextures> spareTextures_;
  std::map<std::pair<std::string, std::string>, unsigned> programs_;
};

}  // namespace qva
