#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/text/TextAttributes.h"
#include "framework/QVAPlugIn.h"
#include "patches/scroller/TextScrollerImageProvider.h"
#include "patches/scroller/TextScrollerString.h"

namespace qva {

// "QVA Text Scroller": a news ticker. Primary strings, optional secondary strings and separators make
// one strip of pieces, which scrolls through an image of fixed size at a constant speed. The strip is
// never rendered whole: two tiles of the image's width serve as a ring, and one tile is rendered each
// time the scroll position crosses a tile boundary; the output image draws the two tiles side by side.
class TextScrollerPlugIn final : public QVAPlugIn {
 public:
  static const PatchClass& patchClass();

  TextScrollerPlugIn();

  bool startExecution(ExecutionContext& context) override;
  bool execute(ExecutionContext& context, double time, const Arguments& arguments) override;
  void stopExecution(ExecutionContext& context) override;

  // The pieces of one pass, in order.
  const std::vector<std::shared_ptr<TextScrollerString>>& strings() const { return theStrings_; }
  double totalWidth() const { return totalWidth_; }
  // How many tiles have been rendered since the patch was made, and how many pieces hold a text layout.
  std::uint64_t renderedTileCount() const { return renderedTiles_; }
  std::size_t laidOutPieceCount() const { return laidOut_.size(); }

 private:
  // Pending changes, collected from the ports at each execution.
  enum PortChange : unsigned {
    kSizeChanged = 1,
    kDirectionChanged = 2,
    kSeparatorStringChanged = 4,
    kSeparatorImageChanged = 8,
    kStringsChanged = 16,
  };
  // The attributes a style port describes; none while its ignore port is on, for text that brings its own.
  std::optional<TextAttributes> portStyle(const char* styleKey, const char* ignoreKey) const;
  std::shared_ptr<TextScrollerString> convertString(const std::string& text, bool ignoreRTF,
                                                    const std::optional<TextAttributes>& style) const;
  void addString(std::shared_ptr<TextScrollerString> piece);
  void initialiseStrings(const StructureRef& primary, const StructureRef& secondary, bool append);
  void setFinished(bool finished);
  // Each answers whether it set a new separator piece.
  bool rebuildTextSeparator();
  bool rebuildImageSeparator(ExecutionContext& context);

  // Makes both tiles at the ports' size; false, and no tiles, for an empty size or one that cannot be had.
  bool createRenderResources(ExecutionContext& context);
  void releaseRenderResources(ExecutionContext& context);
  bool createRenderTarget(ExecutionContext& context, std::size_t slot);
  // Uploads a slot's pixels into its texture.
  void uploadRenderTarget(std::size_t slot);
  // Renders the strip tile that begins at renderThreshold_ into its slot.
  void updateRenderTarget();
  // Draws the pieces of one pass, which begins at strip x pos, that overlap the tile from `from` to `to`;
  // returns where the enumeration stopped: the end of the last piece looked at.
  double drawPass(Bitmap& tile, const TextRect& rect, double pos, double from, double to,
                  std::vector<std::shared_ptr<TextScrollerString>>& drawn);
  void resetAtTime(double time);
  void publishImage();

  double renderThreshold_ = 0;
  double renderTotal_ = 0;
  std::vector<std::shared_ptr<TextScrollerString>> theStrings_;
  // Where each piece of theStrings_ ends, measured from the pass's start: the running totalWidth_.
  std::vector<double> stringEnds_;
  StructureRef nextStrings_;
  StructureRef nextSecondaryStrings_;
  std::shared_ptr<TextScrollerString> separatorString_;
  double startTime_ = 0;
  double totalWidth_ = 0;
  std::shared_ptr<const TextScrollerImageProvider> imageProvider_;
  unsigned portChanged_ = 0;
  std::shared_ptr<TextScrollerImageProvider::RenderTargets> renderTargets_;
  std::string colorSpace_;
  double renderPosition_ = 0;
  std::uint32_t width_ = 0;
  std::uint32_t height_ = 0;
  bool rightToLeft_ = true;
  bool finished_ = false;

  // Bumped whenever the tiles or their pixels change. Images are immutable to the host, which keeps
  // what it drew of an image, so the output is a new image whenever what it shows changes.
  std::uint64_t tilesVersion_ = 0;
  struct Shown {
    std::int64_t pixel = 0;
    bool rightToLeft = true;
    std::uint64_t tilesVersion = 0;
    bool operator==(const Shown&) const = default;
  };
  Shown shown_;
  std::uint64_t renderedTiles_ = 0;
  // The pieces that hold a text layout: those the latest tile drew.
  std::vector<std::shared_ptr<TextScrollerString>> laidOut_;
};

}  // namespace qva
