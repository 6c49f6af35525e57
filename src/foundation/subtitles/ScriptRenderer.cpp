#include "foundation/subtitles/ScriptRenderer.h"

#include <ass/ass.h>

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <string>

namespace qva {

namespace {

// x / 255 rounded to nearest, exact for every x up to 255 × 255.
std::uint32_t divideBy255(std::uint32_t x) {
  return (x + 128 + ((x + 128) >> 8)) >> 8;
}

// One libass picture over the bitmap, source over. libass gives coverage per pixel and one colour as
// 0xRRGGBBTT, TT being transparency (0 opaque); the bitmap keeps premultiplied blue, green, red, alpha.
void compositeOver(const ASS_Image& image, Bitmap& target) {
  const std::uint32_t opacity = 255 - (image.color & 0xFF);
  const std::uint32_t red = image.color >> 24;
  const std::uint32_t green = (image.color >> 16) & 0xFF;
  const std::uint32_t blue = (image.color >> 8) & 0xFF;
  const int left = std::max(image.dst_x, 0);
  const int top = std::max(image.dst_y, 0);
  const int right = std::min(image.dst_x + image.w, target.width());
  const int bottom = std::min(image.dst_y + image.h, target.height());
  for (int y = top; y < bottom; ++y) {
    const unsigned char* coverage =
        image.bitmap + static_cast<std::ptrdiff_t>(y - image.dst_y) * image.stride + (left - image.dst_x);
    std::uint8_t* pixel = target.row(y) + static_cast<std::size_t>(left) * 4;
    for (int x = left; x < right; ++x, ++coverage, pixel += 4) {
      const std::uint32_t alpha = divideBy255(*coverage * opacity);
      if (alpha == 0) {
        continue;
      }
      const std::uint32_t remaining = 255 - alpha;
      pixel[0] = static_cast<std::uint8_t>(divideBy255(blue * alpha + pixel[0] * remaining));
      pixel[1] = static_cast<std::uint8_t>(divideBy255(green * alpha + pixel[1] * remaining));
      pixel[2] = static_cast<std::uint8_t>(divideBy255(red * alpha + pixel[2] * remaining));
      pixel[3] = static_cast<std::uint8_t>(alpha + divideBy255(pixel[3] * remaining));
    }
  }
}

// libass reports through a callback; its chatter about fonts and script oddities is not the host's
// business, so it is dropped.
void ignoreMessage(int, const char*, va_list, void*) {}

}  // namespace

void ScriptRenderer::LibraryDeleter::operator()(ass_library* library) const {
  ass_library_done(library);
}
void ScriptRenderer::RendererDeleter::operator()(ass_renderer* renderer) const {
  ass_renderer_done(renderer);
}
void ScriptRenderer::TrackDeleter::operator()(ass_track* track) const {
  ass_free_track(track);
}

ScriptRenderer::ScriptRenderer() : library_(ass_library_init()) {
  if (library_ != nullptr) {
    ass_set_message_cb(library_.get(), ignoreMessage, nullptr);
    ass_set_extract_fonts(library_.get(), 1);
    renderer_.reset(ass_renderer_init(library_.get()));
  }
}

ScriptRenderer::~ScriptRenderer() = default;

void ScriptRenderer::setFontsFolder(const std::string& folder) {
  if (folder == fontsFolder_ && fontsConfigured_) {
    return;
  }
  fontsFolder_ = folder;
  fontsConfigured_ = false;
}

void ScriptRenderer::configureFonts() {
  if (fontsConfigured_ || renderer_ == nullptr) {
    return;
  }
  ass_set_fonts_dir(library_.get(), fontsFolder_.empty() ? nullptr : fontsFolder_.c_str());
  // fontconfig with the process's configuration, which names the default families as well.
  ass_set_fonts(renderer_.get(), nullptr, nullptr, ASS_FONTPROVIDER_AUTODETECT, nullptr, 1);
  fontsConfigured_ = true;
}

bool ScriptRenderer::load(std::string_view utf8Script) {
  clear();
  if (library_ == nullptr || utf8Script.empty()) {
    return false;
  }
  std::string buffer(utf8Script);
  track_.reset(ass_read_memory(library_.get(), buffer.data(), buffer.size(), nullptr));
  return track_ != nullptr;
}

int ScriptRenderer::eventCountAt(long long milliseconds) const {
  if (track_ == nullptr) {
    return 0;
  }
  int count = 0;
  for (int i = 0; i < track_->n_events; ++i) {
    const ASS_Event& event = track_->events[i];
    if (event.Start <= milliseconds && milliseconds < event.Start + event.Duration) {
      ++count;
    }
  }
  return count;
}

std::optional<Bitmap> ScriptRenderer::render(int width, int height, long long milliseconds, bool* unchanged) {
  if (unchanged != nullptr) {
    *unchanged = false;
  }
  if (track_ == nullptr || renderer_ == nullptr || width <= 0 || height <= 0) {
    return std::nullopt;
  }
  configureFonts();
  const bool resized = width != frameWidth_ || height != frameHeight_;
  if (resized) {
    // One script pixel per frame pixel unless the script sets its own resolution.
    ass_set_frame_size(renderer_.get(), width, height);
    ass_set_storage_size(renderer_.get(), width, height);
    frameWidth_ = width;
    frameHeight_ = height;
  }
  int change = 0;
  const ASS_Image* images = ass_render_frame(renderer_.get(), track_.get(), milliseconds, &change);
  if (unchanged != nullptr && !resized && change == 0) {
    *unchanged = true;
    return std::nullopt;
  }
  std::optional<Bitmap> frame = Bitmap::allocate(width, height, Bitmap::paddedRowBytes(width));
  if (!frame) {
    return std::nullopt;
  }
  for (const ASS_Image* image = images; image != nullptr; image = image->next) {
    compositeOver(*image, *frame);
  }
  return frame;
}

}  // namespace qva
