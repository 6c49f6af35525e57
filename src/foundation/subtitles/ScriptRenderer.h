#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/image/Bitmap.h"

struct ass_library;
struct ass_renderer;
struct ass_track;

namespace qva {

// A SubStation Alpha script drawn as authored, with every style, position, outline and effect, by libass.
// Fonts are the ones fontconfig offers (the process's configuration) plus those of an optional folder
// and those embedded in the script.
class ScriptRenderer {
 public:
  ScriptRenderer();
  ~ScriptRenderer();
  ScriptRenderer(const ScriptRenderer&) = delete;
  ScriptRenderer& operator=(const ScriptRenderer&) = delete;

  // Where fonts beyond fontconfig's are looked for; empty for none. Takes effect at once.
  void setFontsFolder(const std::string& folder);

  // Replaces the script with one in UTF-8; false, with no script kept, when libass reads no track.
  bool load(std::string_view utf8Script);
  void clear() { track_.reset(); }
  bool hasScript() const { return track_ != nullptr; }

  // The number of events on screen at the time: those that start at or before it and end after it.
  int eventCountAt(long long milliseconds) const;

  // The frame at the time as a transparent premultiplied BGRA bitmap of the size, or none when there is
  // no script, the size is empty or the memory cannot be had. With unchanged given, a picture identical
  // to the one rendered before at the same size is not drawn again: unchanged is set and none returned.
  std::optional<Bitmap> render(int width, int height, long long milliseconds, bool* unchanged = nullptr);

 private:
  struct LibraryDeleter {
    void operator()(ass_library* library) const;
  };
  struct RendererDeleter {
    void operator()(ass_renderer* renderer) const;
  };
  struct TrackDeleter {
    void operator()(ass_track* track) const;
  };

  void configureFonts();

  std::unique_ptr<ass_library, LibraryDeleter> library_;
  std::unique_ptr<ass_renderer, RendererDeleter> renderer_;
  std::unique_ptr<ass_track, TrackDeleter> track_;
  std::string fontsFolder_;
  bool fontsConfigured_ = false;
  int frameWidth_ = 0;
  int frameHeight_ = 0;
};

}  // namespace qva
